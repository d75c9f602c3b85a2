#include <gtest/gtest.h>

#include "VarkCore/LAN/LANTransfer.h"
#include "VarkCore/LAN/ResponseReader.h"

namespace vark {
namespace {

using Failure = LANTransfer::Failure;
using Headers = std::map<std::string, std::string>;

struct Outcome {
    int status = 0;
    Headers headers = {};
    std::string body = "";
    bool complete = false;
    std::string failure = "";

    bool operator==(const Outcome&) const = default;
};

/// What becomes of a text that comes in pieces of `size` bytes; the stream ends with it, or stays open.
Outcome readIn(std::size_t size, std::string_view text, bool ends) {
    ResponseReader reader;
    Outcome outcome;
    try {
        do {
            const std::string piece(text.substr(0, size));
            text.remove_prefix(piece.size());
            outcome.body += reader.take(piece, ends && text.empty());
            outcome.complete = reader.isComplete();
        } while (!outcome.complete && !text.empty());
    } catch (const Failure& failure) {
        return {.failure = failure.what()};
    }
    outcome.status = reader.status();
    outcome.headers = reader.headers();
    return outcome;
}

std::string badAnswer(std::string what) {
    return Failure::badAnswer(std::move(what)).what();
}

TEST(ResponseReader, TakesAnAnswerApartHoweverItIsCut) {
    struct Case {
        std::string_view text;
        bool ends;
        Outcome outcome;
    };
    const std::string shortBody = Failure::shortBody().what();
    const Case cases[] = {
        {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n",
         false,
         {200, {{"content-length", "0"}}, "", true, ""}},
        {"HTTP/1.1 200\r\n\r\nto the end", true, {200, {}, "to the end", true, ""}},
        {"HTTP/1.1 200\r\n\r\nnot at the end", false, {200, {}, "not at the end", false, ""}},
        {"HTTP/1.1 204 No Content\r\n\r\n", true, {204, {}, "", true, ""}},
        {"HTTP/1.1 200 OK\r\nContent-Length:3\r\n\r\nabc",
         true,
         {200, {{"content-length", "3"}}, "abc", true, ""}},
        {"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabcdef",
         false,
         {200, {{"content-length", "3"}}, "abc", true, ""}},
        {"HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nabc", true, {.failure = shortBody}},
        {"HTTP/1.1 200 OK\r\nContent-Length: 9223372036854775807\r\n\r\nabc", true, {.failure = shortBody}},
        {"HTTP/1.1 200 OK\r\nContent-Length: 9223372036854775808\r\n\r\nabc",
         true,
         {200, {{"content-length", "9223372036854775808"}}, "abc", true, ""}},
        {"HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n",
         false,
         {200, {{"content-length", "-1"}}, "", true, ""}},
        {"HTTP/1.1 200 OK\r\nContent-Length: 2, 2\r\n\r\nabc",
         true,
         {200, {{"content-length", "2, 2"}}, "abc", true, ""}},
        {"HTTP/1.1 200 OK\r\nContent-Length: 9\r\nCONTENT-LENGTH: 2\r\n\r\nab",
         false,
         {200, {{"content-length", "2"}}, "ab", true, ""}},
        {"HTTP/1.1  302   Found \r\nno colon\r\n Location :\t https://a:1/b \r\nX:\r\n:y\r\n\r\n",
         true,
         {302, {{"location", "https://a:1/b"}, {"x", ""}, {"", "y"}}, "", true, ""}},
        {"HTTP/1.1 abc OK\r\n\r\n", true, {.failure = badAnswer("HTTP/1.1 abc OK")}},
        {"HTTP/1.1 2000000000000 OK\r\n\r\n", true, {.failure = badAnswer("HTTP/1.1 2000000000000 OK")}},
        {"HTTP/1.1\r\n\r\n", true, {.failure = badAnswer("HTTP/1.1")}},
        {"\r\n\r\n", true, {.failure = badAnswer("")}},
        {"HTTP/1.1 200 \xff\r\n\r\n", true, {.failure = badAnswer("header")}},
        {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n", true, {.failure = badAnswer("no header")}},
        {"", true, {.failure = badAnswer("no header")}},
    };
    for (const Case& example : cases) {
        for (const std::size_t size : {1U, 2U, 3U, 5U, 1000U})
            EXPECT_EQ(readIn(size, example.text, example.ends), example.outcome)
                << example.text << " in pieces of " << size;
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
    EXPECT_EQ(readIn(limit, answerOf(limit) + "de", false).body, "abcde");
    EXPECT_EQ(readIn(limit + 1, answerOf(limit + 1) + "de", false).failure, tooLong);
    // The end of the head has come before the limit, and only the body is cut off by it.
    EXPECT_EQ(readIn(1, answerOf(limit + 1) + "de", false).body, "abcde");
    const std::string endless = start + std::string(2 * limit, 'x');
    EXPECT_EQ(readIn(1, endless, false).failure, tooLong);
    EXPECT_EQ(readIn(1, endless.substr(0, limit), false).failure, "");
    EXPECT_EQ(readIn(endless.size(), endless, true).failure, badAnswer("no header"));
}

}  // namespace
}  // namespace vark
