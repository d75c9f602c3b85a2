#include "VarkCore/SignIn/SignInRecovery.h"

#include <gtest/gtest.h>

namespace vark {
namespace {

using Read = Keychain::TokenRead;

TEST(SignInRecovery, TakesBackOnlyWhatIsSurelyTheLostToken) {
    struct Case {
        const char* about;
        Read read;
        std::optional<SharedConnection> shared;
        const char* server;
        const char* client;
        bool adopts;
    };
    auto record = [](const char* server, const char* client, const char* token = "t0k") {
        SharedConnection connection;
        connection.server = server;
        connection.clientName = client;
        connection.token = token;
        return connection;
    };
    const SharedConnection acme = record("https://vark.example", "Acme");
    const Case cases[] = {
        {"lost", Read::Missing{}, acme, "https://vark.example", "Acme", true},
        {"written otherwise", Read::Missing{}, record(" HTTPS://Vark.example//\n", "\tACMÉ "),
         "https://vark.example/ ", "acmé\r\n", true},
        {"found", Read::Found{"t0k"}, acme, "https://vark.example", "Acme", false},
        {"would not say", Read::Unreadable{-1}, acme, "https://vark.example", "Acme", false},
        {"no record", Read::Missing{}, std::nullopt, "https://vark.example", "Acme", false},
        {"no token", Read::Missing{}, record("https://vark.example", "Acme", ""), "https://vark.example",
         "Acme", false},
        {"another vark", Read::Missing{}, acme, "https://other.example", "Acme", false},
        {"no address", Read::Missing{}, record(" / ", "Acme"), "/", "Acme", false},
        {"another client", Read::Missing{}, acme, "https://vark.example", "Acme 2", false},
        {"no client", Read::Missing{}, record("https://vark.example", " "), "https://vark.example", "",
         false},
    };
    for (const Case& each : cases) {
        const SignInRecovery::Step expected =
            each.adopts ? SignInRecovery::Step(SignInRecovery::VerifyThenAdopt{"t0k"})
                        : SignInRecovery::Step(SignInRecovery::NothingToDo{});
        EXPECT_EQ(SignInRecovery::next(each.read, each.shared, each.server, each.client), expected)
            << each.about;
    }
}

}  // namespace
}  // namespace vark
