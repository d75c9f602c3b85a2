#include <gtest/gtest.h>

#include "VarkCore/Errors/VarkAPIError.h"

namespace vark {
namespace {

TEST(VarkAPIError, SaysWhatHappenedAndWhatACallerCanDo) {
    struct Case {
        VarkAPIError error;
        std::string sentence;
        /// The predicates that hold: (S)ign-out, (N)ame taken, (G)one, (B)egins again, (R)etryable.
        std::string holds;
    };
    using E = VarkAPIError;
    const Case cases[] = {
        {E::unauthorized(), "The vark no longer accepts this Mac. Sign in again.", "S"},
        {E::unauthorized("Signed out."), "Signed out.", "S"},
        {E::wrongChunkRoute(), "That part of the vark does not take file bytes; starting the upload again.",
         "BR"},
        {E::wrongChunkRoute("Elsewhere."), "Elsewhere.", "BR"},
        {E::nameTaken(), "Something of that name is already there.", "N"},
        {E::nameTaken("Taken."), "Taken.", "N"},
        {E::server(404), "The vark answered 404.", "G"},
        {E::server(410, "Gone."), "Gone.", "G"},
        {E::server(408), "The vark answered 408.", "R"},
        {E::server(429), "The vark answered 429.", "R"},
        {E::server(499), "The vark answered 499.", ""},
        {E::server(500), "The vark answered 500.", "R"},
        {E::server(599), "The vark answered 599.", "R"},
        {E::server(403), "The vark answered 403.", ""},
        {E::server(409), "The vark answered 409.", ""},
        {E::transport("The connection dropped."), "The connection dropped.", "R"},
        {E::badResponse("whoami"), "Unexpected answer from the vark: whoami", ""},
        {E::notConnected(), "Not connected to a vark. Connect with a code from Settings in the portal.", ""},
        {E::uploadGone(), "The vark forgot this upload; starting it again.", "GB"},
    };
    for (const Case& c : cases) {
        std::string holds;
        if (c.error.isSignOut()) holds += 'S';
        if (c.error.isNameTaken()) holds += 'N';
        if (c.error.isGone()) holds += 'G';
        if (c.error.beginsAgain()) holds += 'B';
        if (c.error.isRetryable()) holds += 'R';
        EXPECT_EQ(holds, c.holds) << c.sentence;
        EXPECT_EQ(c.error.errorDescription(), c.sentence);
        EXPECT_STREQ(c.error.what(), c.sentence.c_str());
    }
}

TEST(ServerErrorFor, TakesFromTheBodyWhatItSays) {
    struct Case {
        int status;
        std::string body;
        VarkAPIError expected;
    };
    using E = VarkAPIError;
    const Case cases[] = {
        {409, "", E::server(409)},
        {409, "<html>", E::server(409)},
        {409, R"({"conflict":true,"error":"Taken"})", E::nameTaken("Taken")},
        {409, R"({"conflict":true})", E::nameTaken()},
        {409, R"({"conflict":false,"error":"Busy"})", E::server(409, "Busy")},
        {409, R"({"error":"Busy"})", E::server(409, "Busy")},
        {401, "", E::unauthorized()},
        {401, "[]", E::unauthorized()},
        {401, R"({"error":"Gone","sign_out":true})", E::unauthorized("Gone", "VARK-410")},
        {401, R"({"error":"Gone","code":"X-1","sign_out":true})", E::unauthorized("Gone", "X-1")},
        {401, R"({"error":"Gone","sign_out":false})", E::unauthorized("Gone")},
        {401, R"({"conflict":true})", E::unauthorized()},
        {500, "", E::server(500)},
        {500, R"({"error":"Full","code":"X-2"})", E::server(500, "Full")},
        {500, R"({"error":7})", E::server(500)},
        {403, R"({"error":"No","conflict":"yes"})", E::server(403)},
        {404, R"({"error":null})", E::server(404)},
        {0, "", E::server(0)},
    };
    for (const Case& c : cases)
        EXPECT_EQ(serverErrorFor(c.status, c.body), c.expected) << c.status << " " << c.body;
}

TEST(RefusedToken, IsMadeOfASignOutAlone) {
    const auto own = RefusedToken::from(VarkAPIError::unauthorized("Gone", "VARK-410"));
    ASSERT_TRUE(own);
    EXPECT_EQ(own->said, "Gone");
    EXPECT_EQ(own->code, "VARK-410");
    EXPECT_FALSE(RefusedToken::from(VarkAPIError::server(401)));
    EXPECT_FALSE(RefusedToken::from(std::runtime_error("no answer")));
}

TEST(DescribeURLError, HasASentenceForWhatPeopleMeet) {
    const std::pair<HTTPError::Code, std::string> cases[] = {
        {HTTPError::notConnectedToInternet, "No network connection."},
        {HTTPError::connectionLost, "The connection dropped."},
        {HTTPError::cannotConnect, "Could not reach the vark."},
        {HTTPError::cannotFindHost, "Could not reach the vark."},
        {HTTPError::timedOut, "The connection timed out."},
        {HTTPError::untrusted, "as the system says"},
        {HTTPError::answerTooLong, "as the system says"},
        {HTTPError::other, "as the system says"},
    };
    for (const auto& [code, sentence] : cases)
        EXPECT_EQ(describeURLError(HTTPError(code, "as the system says")), sentence);
}

}  // namespace
}  // namespace vark
