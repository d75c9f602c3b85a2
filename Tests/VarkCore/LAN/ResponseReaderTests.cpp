#include <gtest/gtest.h>

#include "VarkCore/LAN/LANTransfer.h"
#include "VarkCore/LAN/ResponseReader.h"

namespace vark {
namespace {

using Failure = LANTransfer::Failure;

/// What becomes of a text that comes in pieces of `size` bytes: "status body", with a "+" behind it when it
/// is complete, or the failure. The stream ends with the text, or stays open.
std::string readIn(std::size_t size, std::string_view text, bool ends) {
    ResponseReader reader;
    std::string body;
    try {
        do {
            const std::string piece(text.substr(0, size));
            text.remove_prefix(piece.size());
            body += reader.take(piece, ends && text.empty());
        } while (!reader.isComplete() && !text.empty());
    } catch (const Failure& failure) {
        return failure.what();
    }
    const auto location = reader.headers().find("location");
    if (location != reader.headers().end()) body += location->second;
    return std::to_string(reader.status()) + " " + body + (reader.isComplete() ? "+" : "");
}

std::string badAnswer(std::string what) {
    return Failure::badAnswer(std::move(what)).what();
}

TEST(ResponseReader, TakesAnAnswerApartHoweverItIsCut) {
    struct Case {
        std::string_view text;
        bool ends;
        std::string outcome;
    };
    const std::string shortBody = Failure::shortBody().what();
    // clang-format off
    const Case cases[] = {
        {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", false, "200 +"},
        {"HTTP/1.1 200\r\n\r\nto the end", true, "200 to the end+"},
        {"HTTP/1.1 200\r\n\r\nnot at the end", false, "200 not at the end"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabcdef", false, "200 abc+"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nabc", true, shortBody},
        {"HTTP/1.1 200 OK\r\nContent-Length: 9223372036854775808\r\n\r\nabc", true, "200 abc+"},
        {"HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n", false, "200 +"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 9\r\nCONTENT-LENGTH: 2\r\n\r\nab", false, "200 ab+"},
        {"HTTP/1.1  302   Found \r\nno colon\r\n Location :\t https://a:1/b \r\n:y\r\n\r\n", true, "302 https://a:1/b+"},
        {"HTTP/1.1 abc OK\r\n\r\n", true, badAnswer("HTTP/1.1 abc OK")},
        {"HTTP/1.1 200 \xff\r\n\r\n", true, badAnswer("header")},
        {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n", true, badAnswer("no header")},
        {"", true, badAnswer("no header")},
    };
    // clang-format on
    for (const Case& c : cases) {
        for (const std::size_t size : {1U, 2U, 3U, 5U, 1000U})
            EXPECT_EQ(readIn(size, c.text, c.ends), c.outcome) << c.text << " in pieces of " << size;
    }
}

TEST(ResponseReader, HoldsNoMoreThanItsLimitBeforeTheBody) {
    constexpr std::size_t limit = 65'536;
    const std::string start = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nX: ";
    const std::string end = "\r\n\r\nabc";
    const auto answerOf = [&](std::size_t length) {
        return start + std::string(length - start.size() - end.size(), 'x') + end;
    };
    const std::string tooLong = badAnswer("header too long");
    EXPECT_EQ(readIn(limit, answerOf(limit) + "de", false), "200 abcde+");
    EXPECT_EQ(readIn(limit + 1, answerOf(limit + 1) + "de", false), tooLong);
    // The end of the head has come before the limit, and only the body is cut off by it.
    EXPECT_EQ(readIn(1, answerOf(limit + 1) + "de", false), "200 abcde+");
    const std::string endless = start + std::string(2 * limit, 'x');
    EXPECT_EQ(readIn(1, endless, false), tooLong);
    EXPECT_EQ(readIn(endless.size(), endless, true), badAnswer("no header"));
}

}  // namespace
}  // namespace vark
