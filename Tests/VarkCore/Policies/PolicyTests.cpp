#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Policies/LoginItemPolicy.h"
#include "VarkCore/Policies/MountDecision.h"
#include "VarkCore/Policies/QuitPolicy.h"
#include "VarkCore/Policies/SingleInstance.h"

namespace vark::test {
namespace {

TEST(QuitPolicy, AsksOnlyAPersonWhoHasNotSaidSoAlready) {
    using enum QuitPolicy::QuitReason;
    for (const auto reason : {person, system}) {
        for (const bool active : {false, true}) {
            for (const bool confirmed : {false, true}) {
                const bool asks = reason == person && active && !confirmed;
                EXPECT_EQ(QuitPolicy::decide({reason, active, confirmed}),
                          asks ? QuitPolicy::Decision::askFirst : QuitPolicy::Decision::quitNow);
            }
        }
    }
}

TEST(LoginItemPolicy, AsksOnceAndThenObeys) {
    using enum LoginItemPolicy::Status;
    using enum LoginItemPolicy::Step;
    struct Case {
        LoginItemPolicy::Status status;
        LoginItemPolicy::Step next;
        LoginItemPolicy::Step afterRegistering;
    };
    const Case cases[] = {{enabled, leaveAlone, leaveAlone},
                          {requiresApproval, sayItNeedsApproval, sayItNeedsApproval},
                          {notRegistered, registerIt, leaveAlone}};
    for (const Case& one : cases) {
        EXPECT_EQ(LoginItemPolicy::next(true, one.status), leaveAlone);
        EXPECT_EQ(LoginItemPolicy::next(false, one.status), one.next);
        EXPECT_EQ(LoginItemPolicy::afterRegistering(one.status), one.afterRegistering);
    }
}

TEST(SingleInstance, StandsAsideForRootForAnotherCopyAndForTheLock) {
    using Aside = SingleInstance::StandAside;
    struct Case {
        SingleInstance::Seen seen;
        SingleInstance::Verdict verdict;
    };
    const Case cases[] = {
        {{.euid = 501, .others = {7}, .mine = 7, .lockTaken = true}, SingleInstance::CarryOn{}},
        {{.euid = 501, .others = {}, .mine = 7, .lockTaken = true}, SingleInstance::CarryOn{}},
        {{.euid = 501, .others = {7, 9, 8}, .mine = 7, .lockTaken = true},
         Aside{"Vark is already running (process 9)"}},
        {{.euid = 501, .others = {9}, .mine = 7, .lockTaken = false},
         Aside{"Vark is already running (process 9)"}},
        {{.euid = 501, .others = {7}, .mine = 7, .lockTaken = false},
         Aside{"another copy of Vark holds the lock"}},
        {{.euid = 0, .others = {9}, .mine = 7, .lockTaken = true},
         Aside{"Vark does not run as root; leaving this Mac's own copy alone"}},
        {{.euid = 0, .others = {}, .mine = 7, .lockTaken = true},
         Aside{"Vark does not run as root; leaving this Mac's own copy alone"}},
    };
    for (const Case& one : cases)
        EXPECT_EQ(SingleInstance::verdict(one.seen), one.verdict) << (&one - cases);
}

TEST(SingleInstance, TakesTheLockOnceAndLetsADiskProblemPass) {
    TemporaryFolder folder;
    const std::filesystem::path lock = folder / "Vark/running.lock";
    EXPECT_TRUE(SingleInstance::takeLock(lock));
    EXPECT_FALSE(SingleInstance::takeLock(lock));
    EXPECT_EQ(std::filesystem::status(lock).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(std::filesystem::file_size(lock), 0U);

    const std::filesystem::path impossible = folder.file("a file") / "running.lock";
    EXPECT_TRUE(SingleInstance::takeLock(impossible));
    EXPECT_TRUE(SingleInstance::takeLock(impossible));
}

TEST(MountDecision, TakesFilesAwayOnlyForAClearAnswer) {
    using TokenRead = Keychain::TokenRead;
    const TokenRead found(TokenRead::Found{"secret"});
    const TokenRead unreadable(TokenRead::Unreadable{-25308});
    const TokenRead missing(TokenRead::Missing{});
    const MountPlan bring(MountPlan::Bring{});
    const MountPlan takeAway(MountPlan::TakeAway{});
    const MountPlan keepUnread(MountPlan::LeaveAlone{
        "could not read this Mac's token (keychain said -25308), so the vark is left in "
        "the Finder as it is"});
    const MountPlan keepMissing(
        MountPlan::LeaveAlone{"no token in the keychain, so the vark is left in the Finder as it is"});
    using enum SyncReason;
    struct Case {
        std::vector<SyncReason> reasons;
        std::optional<bool> finderOn;
        std::optional<TokenRead> token;
        std::optional<bool> stored;
        MountPlan plan;
    };
    const std::vector<SyncReason> looking = {launch, refresh, connected, switched};
    const Case cases[] = {
        {looking, true, found, {}, bring},
        {looking, true, unreadable, {}, keepUnread},
        {looking, true, missing, true, keepMissing},
        {looking, true, missing, false, takeAway},
        {looking, false, {}, {}, takeAway},
        {{signedOutByVark},
         {},
         {},
         {},
         MountPlan(MountPlan::Disconnect{"the vark is not accepting this Mac at the moment"})},
        {{accessRevoked, disconnectedByPerson}, {}, {}, {}, takeAway},
        {{quitting},
         {},
         {},
         {},
         MountPlan(
             MountPlan::LeaveAlone{"Vark is closing; the vark stays in the Finder with everything in it"})},
    };
    // What a row leaves open stands for every value.
    int told = 0;
    for (const Case& one : cases) {
        for (const SyncReason reason : one.reasons) {
            for (const bool finderOn : {false, true}) {
                for (const TokenRead& token : {found, unreadable, missing}) {
                    for (const bool stored : {false, true}) {
                        if (finderOn != one.finderOn.value_or(finderOn) ||
                            token != one.token.value_or(token) || stored != one.stored.value_or(stored))
                            continue;
                        ++told;
                        EXPECT_EQ(MountDecision::plan({reason, finderOn, token, stored}), one.plan)
                            << text(reason) << finderOn << stored;
                    }
                }
            }
        }
    }
    EXPECT_EQ(told, 8 * 2 * 3 * 2);
}

TEST(MountDecision, StoresItsReasonsByName) {
    EXPECT_EQ(text(SyncReason::launch), "launch");
    EXPECT_EQ(text(SyncReason::disconnectedByPerson), "disconnectedByPerson");
    EXPECT_EQ(text(SyncReason::quitting), "quitting");
}

}  // namespace
}  // namespace vark::test
