#include "VarkCore/LAN/ResponseReader.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "VarkCore/Foundation/Text.h"
#include "VarkCore/LAN/LANTransfer.h"
#include "VarkCore/Services/Limits.h"

namespace vark {
namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::string_view endOfHead = "\r\n\r\n";

/// Takes the text up to `separator`, and the separator, off the front; without one, all of it.
std::string_view takeUpTo(std::string_view separator, std::string_view& text) {
    const std::size_t end = text.find(separator);
    const std::string_view piece = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + separator.size());
    return piece;
}

std::string_view takeWord(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    return takeUpTo(" ", line);
}

std::string_view withoutBlanks(std::string_view text) {
    constexpr std::string_view blanks = " \t";
    const std::size_t start = text.find_first_not_of(blanks);
    if (start == std::string_view::npos) return "";
    return text.substr(start, text.find_last_not_of(blanks) - start + 1);
}

template <class Integer>
std::optional<Integer> wholeNumber(std::string_view text) {
    Integer number = 0;
    const std::from_chars_result read = std::from_chars(text.data(), text.data() + text.size(), number);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size()) return std::nullopt;
    return number;
}

}  // namespace

std::string_view ResponseReader::take(std::string_view bytes, bool finished) {
    finished_ = finished_ || finished;
    return takeOfBody(headEnded_ ? bytes : takeOfHead(bytes));
}

bool ResponseReader::isComplete() const {
    if (!headEnded_) return false;
    if (!expected_) return finished_;
    if (bodyLength_ >= *expected_) return true;
    if (finished_) throw LANTransfer::Failure::shortBody();
    return false;
}

std::string_view ResponseReader::takeOfHead(std::string_view bytes) {
    // The end may straddle two pieces; what was looked through before is not looked through again.
    const std::size_t lookedThrough = buffer_.size() - std::min(buffer_.size(), endOfHead.size() - 1);
    buffer_ += bytes;
    const std::size_t end = buffer_.find(endOfHead, lookedThrough);
    if (end == std::string::npos && finished_) throw LANTransfer::Failure::badAnswer("no header");
    // The start of the body that came in the same pieces included.
    if (buffer_.size() > limits::headBytes) throw LANTransfer::Failure::badAnswer("header too long");
    if (end == std::string::npos) return "";
    const std::string_view all = buffer_;
    parseHead(all.substr(0, end));
    headEnded_ = true;
    return all.substr(end + endOfHead.size());
}

std::string_view ResponseReader::takeOfBody(std::string_view bytes) {
    if (expected_) {
        const std::int64_t missing = std::max<std::int64_t>(*expected_ - bodyLength_, 0);
        bytes = bytes.substr(0, static_cast<std::size_t>(missing));
    }
    bodyLength_ += static_cast<std::int64_t>(bytes.size());
    return bytes;
}

void ResponseReader::parseHead(std::string_view head) {
    if (!isUTF8(head)) throw LANTransfer::Failure::badAnswer("header");
    parseStatusLine(takeUpTo(lineEnd, head));
    while (!head.empty())
        parseHeaderLine(takeUpTo(lineEnd, head));
    const auto length = headers_.find("content-length");
    if (length != headers_.end()) expected_ = wholeNumber<std::int64_t>(length->second);
}

void ResponseReader::parseStatusLine(std::string_view line) {
    std::string_view rest = line;
    takeWord(rest);
    const std::optional<int> status = wholeNumber<int>(takeWord(rest));
    if (!status) throw LANTransfer::Failure::badAnswer(std::string(line));
    status_ = *status;
}

void ResponseReader::parseHeaderLine(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) return;
    headers_.insert_or_assign(lowercased(withoutBlanks(line.substr(0, colon))),
                              std::string(withoutBlanks(line.substr(colon + 1))));
}

}  // namespace vark
