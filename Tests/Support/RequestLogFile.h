#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace vark::test {

/// One line of the request log of a box or a node.
struct LoggedRequest {
    std::string listener;
    std::string method;
    std::string target;
    /// 0 for a request that was broken off.
    std::int64_t status = 0;
    std::int64_t bodyBytes = 0;
    bool hadToken = false;
    /// The host of the node over which it came; empty when it came straight, or when this is a node's log.
    std::string node{};

    bool isChunk() const { return method == "PUT"; }
};

/// The request log in the root of a box or a node, read on as it grows. For the test's thread alone.
class RequestLogFile {
  public:
    explicit RequestLogFile(std::filesystem::path root) : root_(std::move(root)) {}

    /// All that was logged since the first start.
    const std::vector<LoggedRequest>& requests();
    /// Waits until the log so far gives a yes. False when the process behind `pidfd` ended, or a minute
    /// passed.
    bool until(const std::function<bool(const std::vector<LoggedRequest>&)>& answer, int pidfd = -1);
    std::int64_t count(std::string_view method, std::string_view targetPart);

  private:
    std::filesystem::path root_;
    std::vector<LoggedRequest> requests_;
    std::uintmax_t read_ = 0;
};

}  // namespace vark::test
