#include <gtest/gtest.h>

#include "VarkCore/Errors/VarkAPIError.h"

namespace vark {
namespace {

using E = VarkAPIError;

TEST(VarkAPIError, SaysWhatACallerCanDo) {
    struct Case {
        std::vector<E> errors;
        /// The predicates that hold: (S)ign-out, (N)ame taken, (G)one, (B)egins again, (R)etryable.
        std::string holds;
    };
    const Case cases[] = {
        {{E::unauthorized()}, "S"},
        {{E::nameTaken()}, "N"},
        {{E::server(404), E::server(410)}, "G"},
        {{E::uploadGone()}, "GB"},
        {{E::wrongChunkRoute()}, "BR"},
        {{E::server(408), E::server(429), E::server(500), E::server(599), E::transport("Lost.")}, "R"},
        {{E::server(403), E::server(409), E::server(499), E::badResponse("x"), E::notConnected()}, ""},
    };
    for (const Case& c : cases) {
        for (const E& error : c.errors) {
            std::string holds;
            if (error.isSignOut()) holds += 'S';
            if (error.isNameTaken()) holds += 'N';
            if (error.isGone()) holds += 'G';
            if (error.beginsAgain()) holds += 'B';
            if (error.isRetryable()) holds += 'R';
            EXPECT_EQ(holds, c.holds) << error.what();
            EXPECT_NE(error.errorDescription(), "");
        }
    }
    EXPECT_EQ(E::server(507, "The vark is full.").errorDescription(), "The vark is full.");
}

TEST(ServerErrorFor, TakesFromTheBodyWhatItSays) {
    struct Case {
        int status;
        std::string body;
        E expected;
    };
    const Case cases[] = {
        {409, "<html>", E::server(409)},
        {409, R"({"conflict":true,"error":"Taken"})", E::nameTaken("Taken")},
        {409, R"({"conflict":false,"error":"Busy"})", E::server(409, "Busy")},
        {401, "[]", E::unauthorized()},
        {401, R"({"error":"Gone","sign_out":true})", E::unauthorized("Gone", "VARK-410")},
        {401, R"({"error":"Gone","code":"X-1","sign_out":true})", E::unauthorized("Gone", "X-1")},
        {401, R"({"error":"Gone","sign_out":false})", E::unauthorized("Gone")},
        {500, R"({"error":"Full","code":"X-2"})", E::server(500, "Full")},
        {403, R"({"error":"No","conflict":"yes"})", E::server(403)},
    };
    for (const Case& c : cases)
        EXPECT_EQ(serverErrorFor(c.status, c.body), c.expected) << c.status << " " << c.body;
}

}  // namespace
}  // namespace vark
