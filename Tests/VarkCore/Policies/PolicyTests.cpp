#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Policies/MountDecision.h"
#include "VarkCore/Policies/SingleInstance.h"

namespace vark {
namespace {

TEST(SingleInstance, StandsAsideForRootForAnotherCopyAndForTheLock) {
    struct Case {
        SingleInstance::Seen seen;
        bool carriesOn;
    };
    const Case cases[] = {
        {{.euid = 501, .others = {7}, .mine = 7, .lockTaken = true}, true},
        {{.euid = 501, .others = {7, 9}, .mine = 7, .lockTaken = true}, false},
        {{.euid = 501, .others = {7}, .mine = 7, .lockTaken = false}, false},
        {{.euid = 0, .others = {}, .mine = 7, .lockTaken = true}, false},
    };
    for (const Case& one : cases)
        EXPECT_EQ(SingleInstance::verdict(one.seen) == SingleInstance::Verdict(SingleInstance::CarryOn{}),
                  one.carriesOn)
            << (&one - cases);
}

TEST(SingleInstance, TakesTheLockOnceAndLetsADiskProblemPass) {
    const TemporaryFolder folder;
    const std::filesystem::path lock = folder / "Vark/running.lock";
    EXPECT_TRUE(SingleInstance::takeLock(lock));
    EXPECT_FALSE(SingleInstance::takeLock(lock));
    EXPECT_TRUE(SingleInstance::takeLock(folder.file("a file") / "running.lock"));
}

TEST(MountDecision, TakesFilesAwayOnlyForAClearAnswer) {
    using TokenRead = Keychain::TokenRead;
    using enum SyncReason;
    const auto takesAway = [](SyncReason reason, bool finderOn, const TokenRead& token, bool stored) {
        const MountPlan plan = MountDecision::plan({reason, finderOn, token, stored});
        return std::holds_alternative<MountPlan::TakeAway>(plan.which());
    };
    const TokenRead found = TokenRead::Found{"secret"};
    EXPECT_FALSE(takesAway(refresh, true, TokenRead::Unreadable{-25308}, false));
    EXPECT_FALSE(takesAway(connected, true, TokenRead::Missing{}, true));
    EXPECT_FALSE(takesAway(signedOutByVark, true, found, true));
    EXPECT_TRUE(takesAway(switched, true, TokenRead::Missing{}, false));
    EXPECT_TRUE(takesAway(launch, false, found, true));
    EXPECT_TRUE(takesAway(disconnectedByPerson, true, found, true));
}

}  // namespace
}  // namespace vark
