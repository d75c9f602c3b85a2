#include "Tests/Support/RealBox.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <boost/json/parse.hpp>
#include <stdexcept>

namespace vark::test {

namespace json = boost::json;
namespace fs = std::filesystem;

namespace {

constexpr std::chrono::minutes longest(1);

std::string withoutScheme(const std::string& url) {
    return url.substr(url.find("//") + 2);
}

}  // namespace

RealBox::RealBox(Options options) : options_(std::move(options)) {
    start();
}

void RealBox::start() {
    fs::remove(folder_ / "address.json");
    FileWatch watch(folder_.path());
    Process::Options options;
    options.program = VARK_BOX_PROGRAM;
    options.arguments = {"serve",
                         "--root",
                         folder_.path().string(),
                         "--chunk-size",
                         std::to_string(options_.chunkSize),
                         "--check-inline-below",
                         std::to_string(options_.checkInlineBelow),
                         "--quiet"};
    if (!options_.givesChunkURL) options.arguments.emplace_back("--no-chunk-url");
    options.arguments.insert(options.arguments.end(), options_.arguments.begin(), options_.arguments.end());
    if (!url_.empty()) {
        for (const std::string& argument : {std::string("--listen"), withoutScheme(url_),
                                            std::string("--chunk-listen"), withoutScheme(chunkURL_)})
            options.arguments.push_back(argument);
    }
    options.output = folder_ / "box.out";
    options.errors = folder_ / "box.err";
    process_.reset();
    process_.emplace(options);
    bool isUp =
        watch.until([this] { return fs::exists(folder_ / "address.json"); }, longest, process_->descriptor());
    if (!isUp) throw std::runtime_error("The box did not start: " + process_->errors());
    json::object address = json::parse(readWholeFile(folder_ / "address.json")).as_object();
    url_ = address.at("url").as_string();
    chunkURL_ = address.at("chunk_url").as_string();
}

std::string RealBox::token() const {
    std::string token = readWholeFile(tokenFile());
    return token.substr(0, token.find('\n'));
}

void RealBox::control(std::string_view method, std::string_view path, const json::value& body) const {
    box::Answer answer = client().control(method, path, body);
    if (answer.status >= 200 && answer.status <= 299) return;
    throw std::runtime_error(
        fmt::format("{} {} was answered with {}: {}", method, path, answer.status, answer.body));
}

void RealBox::fault(const json::object& fault) const {
    control("POST", "/control/faults", fault);
}

json::array RealBox::faults() const {
    return client().control("GET", "/control/faults").json().at("faults").as_array();
}

std::vector<HeldFile> RealBox::files() const {
    box::Answer answer = client().control("GET", "/control/files");
    std::vector<HeldFile> files;
    for (const json::value& file : answer.json().at("files").as_array()) {
        files.push_back({.path = std::string(file.at("path").as_string()),
                         .size = file.at("size").to_number<std::int64_t>(),
                         .sha256 = std::string(file.at("sha256").as_string()),
                         .id = file.at("id").to_number<std::int64_t>()});
    }
    return files;
}

void RealBox::put(std::string_view path, std::string_view bytes) const {
    box::Answer answer = client().upload(path, bytes);
    if (answer.status != 200)
        throw std::runtime_error("A file could not be put into the box: " + answer.body);
}

std::string RealBox::bytesAt(std::string_view path) const {
    std::vector<HeldFile> held = files();
    auto found = std::ranges::find(held, path, &HeldFile::path);
    if (found == held.end()) throw std::runtime_error(fmt::format("The box does not hold {}.", path));
    box::BoxClient asking = client();
    box::Answer answer = asking.send("GET", fmt::format("/api/file/{}", found->id), {}, {}, 120'000);
    if (answer.status == 302) answer = asking.send("GET", answer.redirect, {}, {}, 120'000);
    if (answer.status != 200) throw std::runtime_error("A file could not be fetched: " + answer.error());
    return std::move(answer.body);
}

}  // namespace vark::test
