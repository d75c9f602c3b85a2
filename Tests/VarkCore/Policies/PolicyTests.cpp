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
    const std::filesystem::path impossible = folder.file("a file") / "running.lock";
    EXPECT_TRUE(SingleInstance::takeLock(impossible));
}

TEST(MountDecision, TakesFilesAwayOnlyForAClearAnswer) {
    using TokenRead = Keychain::TokenRead;
    using enum SyncReason;
    enum Plan : std::size_t { bring, takeAway, leaveAlone, disconnect };
    const auto planned = [](const MountPlan& plan) {
        if (std::holds_alternative<MountPlan::Bring>(plan.which())) return bring;
        if (std::holds_alternative<MountPlan::TakeAway>(plan.which())) return takeAway;
        return std::holds_alternative<MountPlan::LeaveAlone>(plan.which()) ? leaveAlone : disconnect;
    };
    struct Case {
        SyncReason reason;
        bool finderOn;
        TokenRead token;
        bool stored;
        Plan plan;
    };
    const TokenRead found = TokenRead::Found{"secret"};
    const TokenRead missing = TokenRead::Missing{};
    // clang-format off
    const Case cases[] = {
        {launch, true, found, false, bring},
        {refresh, true, TokenRead::Unreadable{-25308}, false, leaveAlone},
        {connected, true, missing, true, leaveAlone},
        {switched, true, missing, false, takeAway},
        {launch, false, found, true, takeAway},
        {signedOutByVark, true, found, true, disconnect},
        {accessRevoked, true, found, true, takeAway},
        {disconnectedByPerson, true, found, true, takeAway},
        {quitting, false, missing, false, leaveAlone},
    };
    // clang-format on
    for (const Case& one : cases)
        EXPECT_EQ(planned(MountDecision::plan({one.reason, one.finderOn, one.token, one.stored})), one.plan)
            << (&one - cases);
}

}  // namespace
}  // namespace vark
