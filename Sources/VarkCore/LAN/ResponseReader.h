#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace vark {

/// Takes a node's answer apart as it comes in, in pieces of whatever size: a status line, header lines, and a
/// body by its "Content-Length" or to the end of the stream. Keeps the head and no more of the body than came
/// in the same pieces. Owned by the one task that reads; does no input of its own. What is no answer fails
/// with `LANTransfer::Failure`.
class ResponseReader {
  public:
    /// The bytes of the body among `bytes`: what stands behind its end is left out. Valid until the next call
    /// and for as long as `bytes` are. `finished` when the far side sends no more.
    std::string_view take(std::string_view bytes, bool finished);

    bool hasHead() const { return headEnded_; }
    /// Whether the whole body has come. Fails when it ended early.
    bool isComplete() const;

    int status() const { return status_; }
    /// Names lower-cased, values trimmed; the last of several lines of one name.
    std::map<std::string, std::string>& headers() { return headers_; }
    const std::map<std::string, std::string>& headers() const { return headers_; }
    std::optional<std::int64_t> expectedLength() const { return expected_; }

  private:
    std::string_view takeOfHead(std::string_view bytes);
    std::string_view takeOfBody(std::string_view bytes);
    void parseHead(std::string_view head);
    void parseStatusLine(std::string_view line);
    void parseHeaderLine(std::string_view line);

    std::string buffer_;
    bool headEnded_ = false;
    bool finished_ = false;
    int status_ = 0;
    std::map<std::string, std::string> headers_;
    std::optional<std::int64_t> expected_;
    std::int64_t bodyLength_ = 0;
};

}  // namespace vark
