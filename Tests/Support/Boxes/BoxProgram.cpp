#include "Tests/Support/Boxes/BoxProgram.h"

#include <algorithm>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <fstream>
#include <stdexcept>

namespace vark::test {

namespace json = boost::json;

namespace {

LoggedRequest requestFrom(const json::value& line) {
    return {.listener = std::string(line.at("listener").as_string()),
            .method = std::string(line.at("method").as_string()),
            .target = std::string(line.at("target").as_string()),
            .status = line.at("status").to_number<std::int64_t>(),
            .bodyBytes = line.at("body_bytes").to_number<std::int64_t>(),
            .hadToken = line.at("token").as_bool(),
            .node = std::string(line.at("node").as_string())};
}

}  // namespace

void BoxProgram::start() {
    const std::filesystem::path address = root() / "address.json";
    std::filesystem::remove(address);
    process_.reset();
    process_.emplace(options());
    if (!process_->untilThere(address)) throw std::runtime_error("No vark-box: " + process_->errors());
    address_ = json::parse(readWholeFile(address)).as_object();
}

std::string BoxProgram::curl(std::vector<std::string> arguments) const {
    // Whatever its name, the host is this machine.
    const std::initializer_list<std::string> usual{
        "curl",     "--silent",  "--show-error", "--fail-with-body", "--location",
        "--cacert", authority(), "--connect-to", "::127.0.0.1:"};
    arguments.insert(arguments.begin(), usual);
    return runTool(arguments);
}

json::value BoxProgram::control(const std::string& method, const std::string& path,
                                const json::object& body) const {
    const std::string answer = curl({"--request", method, controlURL() + path, "--data-binary",
                                     body.empty() ? "" : json::serialize(body)});
    return answer.empty() ? json::value() : json::parse(answer);
}

const LoggedRequests& BoxProgram::requests() {
    std::ifstream log(root() / "requests.jsonl", std::ios::binary);
    log.seekg(static_cast<std::streamoff>(read_));
    std::string line;
    // A line that is being written has no end yet.
    while (std::getline(log, line) && !log.eof()) {
        read_ += line.size() + 1;
        requests_.push_back(requestFrom(json::parse(line)));
    }
    return requests_;
}

std::int64_t BoxProgram::count(std::string_view method, std::string_view targetPart, std::int64_t status) {
    return std::ranges::count_if(requests(), [&](const LoggedRequest& request) {
        return request.method == method && request.target.contains(targetPart) &&
               (status == -1 || request.status == status);
    });
}

}  // namespace vark::test
