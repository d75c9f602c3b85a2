#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vark::box {

struct Answer {
    /// 0 when no answer came.
    long status = 0;
    std::string body;
    /// Where a redirect leads; it is not followed.
    std::string redirect;
    /// libcurl's own code: 0 for a whole answer.
    int problem = 0;

    boost::json::value json() const;
    /// The sentence under "error", or an empty text.
    std::string error() const;
};

/// Speaks to a box over one kept connection per host, as any client would: libcurl, with the box's own
/// authority as the only one that it trusts. Hosts under ".test" are on this machine.
class BoxClient {
  public:
    BoxClient(std::string url, std::filesystem::path authority, std::string token);

    /// `target` may be a whole URL or a path of the application.
    Answer send(std::string_view method, std::string_view target, std::string_view body = {},
                std::vector<std::string> headers = {}, long timeoutMilliseconds = 20000);
    Answer get(std::string_view target) { return send("GET", target); }
    Answer post(std::string_view target, const boost::json::value& body);
    /// Without the token.
    Answer control(std::string_view method, std::string_view target,
                   const boost::json::value& body = nullptr);

    Answer begin(std::string_view path, std::string_view bytes, bool replace = false);
    /// Sends each chunk that is missing, finishes, and gives the status once it is "done" or "failed".
    Answer upload(std::string_view path, std::string_view bytes, bool replace = false);
    /// Asks until the check has come to its end.
    Answer settled(std::string_view uploadID);

  private:
    struct Handle;

    std::string url_;
    std::filesystem::path authority_;
    std::string token_;
    std::shared_ptr<void> handle_;
};

std::string sha256(std::string_view bytes);

}  // namespace vark::box
