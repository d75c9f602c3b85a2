#include "Tests/Support/RequestLogFile.h"

#include <algorithm>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <chrono>
#include <fstream>

#include "Tests/Support/FileWatch.h"

namespace vark::test {

namespace json = boost::json;

namespace {

LoggedRequest requestFrom(const json::object& line) {
    return {.listener = std::string(line.at("listener").as_string()),
            .method = std::string(line.at("method").as_string()),
            .target = std::string(line.at("target").as_string()),
            .status = line.at("status").to_number<std::int64_t>(),
            .bodyBytes = line.at("body_bytes").to_number<std::int64_t>(),
            .hadToken = line.at("token").as_bool(),
            .node = std::string(line.at("node").as_string())};
}

}  // namespace

const std::vector<LoggedRequest>& RequestLogFile::requests() {
    std::ifstream log(root_ / "requests.jsonl", std::ios::binary);
    log.seekg(static_cast<std::streamoff>(read_));
    std::string line;
    while (std::getline(log, line) && !log.eof()) {
        read_ += line.size() + 1;
        requests_.push_back(requestFrom(json::parse(line).as_object()));
    }
    return requests_;
}

bool RequestLogFile::until(const std::function<bool(const std::vector<LoggedRequest>&)>& answer, int pidfd) {
    FileWatch watch(root_);
    return watch.until([&] { return answer(requests()); }, std::chrono::minutes(1), pidfd);
}

std::int64_t RequestLogFile::count(std::string_view method, std::string_view targetPart) {
    return std::ranges::count_if(requests(), [&](const LoggedRequest& request) {
        return request.method == method && request.target.find(targetPart) != std::string::npos;
    });
}

}  // namespace vark::test
