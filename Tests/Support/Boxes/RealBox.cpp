#include "Tests/Support/Boxes/RealBox.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include "Tests/Support/Programs.h"
#include "Tests/Support/SampleFiles.h"

namespace vark::test {

namespace json = boost::json;

Process::Options RealBox::options() const {
    Process::Options options{.program = Programs::get().box(),
                             .arguments = {"serve", "--root", root(), "--chunk-size",
                                           std::to_string(options_.chunkSize), "--quiet"}};
    std::vector<std::string>& all = options.arguments;
    all.insert(all.end(), options_.arguments.begin(), options_.arguments.end());
    if (wasStarted()) {
        const std::size_t scheme = std::string_view("https://").size();
        all.insert(all.end(),
                   {"--listen", url().substr(scheme), "--chunk-listen", chunkURL().substr(scheme)});
    }
    return options;
}

std::string RealBox::token() const {
    const std::string token = readWholeFile(tokenFile());
    return token.substr(0, token.find('\n'));
}

json::array RealBox::faults() const {
    return control("GET", "/control/faults").at("faults").as_array();
}

std::vector<HeldFile> RealBox::files() const {
    std::vector<HeldFile> files;
    for (const json::value& file : control("GET", "/control/files").at("files").as_array()) {
        files.push_back({.path = std::string(file.at("path").as_string()),
                         .size = file.at("size").to_number<std::int64_t>(),
                         .sha256 = std::string(file.at("sha256").as_string()),
                         .id = file.at("id").to_number<std::int64_t>()});
    }
    return files;
}

void RealBox::put(const std::string& path, std::string_view bytes) const {
    const TemporaryFolder folder;
    const auto call = [this](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--oauth2-bearer", token()});
        return json::parse(curl(std::move(arguments)));
    };
    const json::object request{
        {"path", path}, {"size", bytes.size()}, {"sha256", sha256(bytes)}, {"mtime", 1.5}};
    const json::value begun = call({"--data-binary", json::serialize(request), url() + "/api/upload/begin"});
    const std::string upload =
        fmt::format("{}/api/upload/{}", url(), std::string_view(begun.at("upload_id").as_string()));
    const std::string chunks(begun.at("chunk_url").as_string());
    const auto chunkSize = static_cast<std::size_t>(options_.chunkSize);
    for (std::size_t index = 0; index * chunkSize < bytes.size(); ++index) {
        const std::string piece = folder.file("piece", bytes.substr(index * chunkSize, chunkSize));
        curl({"--upload-file", piece, fmt::format("{}/{}", chunks, index)});
    }
    call({"--data", "", upload + "/finish"});
    while (call({upload}).at("state") == "checking") {
    }
}

std::string RealBox::bytesAt(std::string_view path) const {
    for (const HeldFile& file : files()) {
        if (file.path == path)
            return curl({"--oauth2-bearer", token(), fmt::format("{}/api/file/{}", url(), file.id)});
    }
    throw std::runtime_error(fmt::format("The box does not hold {}.", path));
}

std::string RealBox::urlAs(const std::string& host) const {
    // The certificate has the names of all nodes that were ever attached.
    control("POST", "/control/nodes", {{"host", host}});
    control("DELETE", "/control/nodes/" + host);
    return "https://" + host + url().substr(url().rfind(':'));
}

}  // namespace vark::test
