#include "VarkCore/SignIn/SignInRecovery.h"

#include <gtest/gtest.h>

namespace vark {
namespace {

using Read = Keychain::TokenRead;

SharedConnection record(std::string server, std::string client, std::string token = "t0k") {
    return {std::move(server), std::move(token), std::move(client), ""};
}

TEST(SignInRecovery, TakesBackOnlyWhatIsSurelyTheLostToken) {
    struct Case {
        const char* about;
        Read read;
        std::optional<SharedConnection> shared;
        const char* server = "https://vark.example";
        const char* client = "Acme";
    };
    const SharedConnection acme = record("https://vark.example", "Acme");
    // clang-format off
    const Case cases[] = {
        {"lost", Read::Missing{}, acme},
        {"lost, in other words", Read::Missing{}, record(" HTTPS://Vark.example//\n", "\tACMÉ "), "https://vark.example/ ", "acmé\r\n"},
        {"found", Read::Found{"t0k"}, acme},
        {"would not say", Read::Unreadable{-1}, acme},
        {"no record", Read::Missing{}, std::nullopt},
        {"no token", Read::Missing{}, record("https://vark.example", "Acme", "")},
        {"another vark", Read::Missing{}, acme, "https://other.example"},
        {"no address", Read::Missing{}, record(" / ", "Acme"), "/"},
        {"another client", Read::Missing{}, acme, "https://vark.example", "Acme 2"},
        {"no client", Read::Missing{}, record("https://vark.example", " "), "https://vark.example", ""},
    };
    // clang-format on
    for (const Case& each : cases) {
        using Step = SignInRecovery::Step;
        const bool adopts = std::string_view(each.about).starts_with("lost");
        EXPECT_EQ(SignInRecovery::next(each.read, each.shared, each.server, each.client),
                  adopts ? Step(SignInRecovery::VerifyThenAdopt{"t0k"}) : Step(SignInRecovery::NothingToDo{}))
            << each.about;
    }
}

}  // namespace
}  // namespace vark
