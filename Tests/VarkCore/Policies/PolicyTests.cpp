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
    using enum QuitPolicy::Decision;
    struct Case {
        QuitPolicy::QuitReason reason;
        std::optional<bool> active;
        std::optional<bool> confirmed;
        QuitPolicy::Decision decision;
    };
    const Case cases[] = {{system, {}, {}, quitNow},
                          {person, false, {}, quitNow},
                          {person, true, true, quitNow},
                          {person, true, false, askFirst}};
    // What a row leaves open stands for both.
    for (const Case& one : cases) {
        for (const bool other : {false, true})
            EXPECT_EQ(
                QuitPolicy::decide({one.reason, one.active.value_or(other), one.confirmed.value_or(!other)}),
                one.decision)
                << (&one - cases);
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
    using enum SyncReason;
    const TokenRead found = TokenRead::Found{"secret"};
    const TokenRead unreadable = TokenRead::Unreadable{-25308};
    const TokenRead missing = TokenRead::Missing{};
    const MountPlan::Case bring = MountPlan::Bring{};
    const MountPlan::Case takeAway = MountPlan::TakeAway{};
    const auto leaveAlone = [](const char* why) -> MountPlan::Case { return MountPlan::LeaveAlone{why}; };
    struct Case {
        std::vector<SyncReason> reasons;
        std::optional<bool> finderOn;
        std::optional<TokenRead> token;
        std::optional<bool> stored;
        MountPlan::Case plan;
    };
    const std::vector<SyncReason> looking = {launch, refresh, connected, switched};
    const Case cases[] = {
        {looking, true, found, {}, bring},
        {looking,
         true,
         unreadable,
         {},
         leaveAlone("could not read this Mac's token (keychain said -25308), so the vark is left in the "
                    "Finder as it is")},
        {looking, true, missing, true,
         leaveAlone("no token in the keychain, so the vark is left in the Finder as it is")},
        {looking, true, missing, false, takeAway},
        {looking, false, {}, {}, takeAway},
        {{signedOutByVark},
         {},
         {},
         {},
         MountPlan::Disconnect{"the vark is not accepting this Mac at the moment"}},
        {{accessRevoked}, {}, {}, {}, takeAway},
        {{disconnectedByPerson}, {}, {}, {}, takeAway},
        {{quitting},
         {},
         {},
         {},
         leaveAlone("Vark is closing; the vark stays in the Finder with everything in it")},
    };
    // What a row leaves open stands for every value.
    for (const Case& one : cases) {
        for (const SyncReason reason : one.reasons) {
            for (const bool other : {false, true}) {
                for (const TokenRead& token : {found, unreadable, missing})
                    EXPECT_EQ(MountDecision::plan({reason, one.finderOn.value_or(other),
                                                   one.token.value_or(token), one.stored.value_or(!other)})
                                  .which(),
                              one.plan)
                        << text(reason) << " in row " << (&one - cases);
            }
        }
    }
}

}  // namespace
}  // namespace vark::test
