#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "VarkCore/Transfer/Cards/IngestReport.h"

namespace vark::test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;
using Passed = Walker::PassedOver::Kind;
using Kind = CardVerdict::Missing::Kind;

/// A card of two files, which have both landed and lie on it as they were sent.
struct LandedCard {
    LandedCard() {
        job.destination = "Jobs";
        job.ingest = IngestInfo{.drive = "ALPHA", .volumePath = "/media/ALPHA"};
        card.isFolder = true;
        add("DCIM/1.jpg");
        add("DCIM/2.jpg");
    }
    void add(const std::string& source) {
        TransferItem item;
        item.localPath = "/media/ALPHA/" + source;
        item.relativePath = "ALPHA/" + source;
        item.size = 100;
        item.mtime = 1'700'000'000.5;
        item.state = ItemState::verified;
        card.files.push_back({item.relativePath, item.size, item.mtime});
        job.items.push_back(std::move(item));
    }
    /// Lies on the card, and was passed over when the ingest began.
    void pass(const std::string& source, Passed kind) {
        card.passedOver.push_back({"ALPHA/" + source, kind});
        job.ingest->unlisted = unlistedOf(card);
    }

    TransferJob job;
    Walker::Result card;
};

TEST(CardVerdict, MissesWhateverIsOnTheCardAndNotInTheVark) {
    const auto end = [](ItemState state) { return [=](LandedCard& on) { on.job.items[1].state = state; }; };
    const auto pass = [](const char* source, Passed kind) {
        return [=](LandedCard& on) { on.pass(source, kind); };
    };
    const auto removed = [](ItemState state) {
        return [=](LandedCard& on) {
            on.job.items[1].state = state;
            on.job.ingest->keepAccountOf(on.job.items[1]);
            on.job.items.pop_back();
        };
    };
    const auto leaveOut = [](LandedCard& on) {
        on.job.ingest->leftOut = {"MISC"};
        on.card.files.push_back({"ALPHA/MISC/x.dat", 1, 0});
        on.pass("MISC/.hidden", Passed::hidden);
    };
    struct Case {
        const char* name;
        std::function<void(LandedCard&)> arrange;
        std::optional<Kind> kind{};
        const char* source = "DCIM/2.jpg";
        /// Whether only a look at the card can tell.
        bool takesTheCard = false;
    };
    // clang-format off
    const Case cases[] = {
        {"all landed", [](LandedCard&) {}},
        {"not sent", end(ItemState::queued), Kind::notSent},
        {"failed", end(ItemState::failed), Kind::notSent},
        {"failed, and gone", [](LandedCard& on) { on.job.items[1].state = ItemState::failed; on.card.files.pop_back(); }, Kind::notSent},
        {"changed while it was sent", [](LandedCard& on) { on.job.items[1].changedWhileSent = true; }, Kind::notSent},
        {"left as the vark has it", end(ItemState::skipped), Kind::skipped},
        {"left out", leaveOut, Kind::leftOut, "MISC"},
        {"failed, then removed", removed(ItemState::failed), Kind::notSent},
        {"skipped, then removed", removed(ItemState::skipped), Kind::skipped},
        {"landed, then removed", removed(ItemState::verified)},
        {"hidden", pass(".3.jpg", Passed::hidden), Kind::skipped, ".3.jpg"},
        {"ignored", pass(".Trashes", Passed::ignored), Kind::skipped, ".Trashes"},
        {"a link", pass("link", Passed::link), Kind::skipped, "link"},
        {"a pipe", pass("pipe", Passed::special), Kind::skipped, "pipe"},
        {"unreadable", pass("lost+found", Passed::unreadable), Kind::notSent, "lost+found"},
        {"a name that is no text", pass("\\xff", Passed::nameIsNotText), Kind::notSent, "\\xff"},
        {"an empty folder", pass("empty", Passed::emptyFolder)},
        {"changed since", [](LandedCard& on) { on.card.files[1].mtime += 1; }, Kind::notSent, "DCIM/2.jpg", true},
        {"came since", [](LandedCard& on) { on.card.files.push_back({"ALPHA/3.jpg", 7, 0}); }, Kind::notSent, "3.jpg", true},
        {"hidden since", [](LandedCard& on) { on.card.passedOver = {{"ALPHA/.3.jpg", Passed::hidden}}; }, Kind::skipped, ".3.jpg", true},
    };
    // clang-format on
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        LandedCard on;
        one.arrange(on);
        const CardVerdict verdict = CardVerdict::of(on.job, on.card);
        EXPECT_EQ(verdict.isSafe(), !one.kind);
        ASSERT_EQ(verdict.missing.size(), one.kind ? 1U : 0U);
        if (one.kind)
            EXPECT_EQ(std::tie(verdict.missing[0].kind, verdict.missing[0].source),
                      std::tuple(*one.kind, one.source));
        // A report that is made later, when the card has gone, says the same of what the queue keeps.
        const CardVerdict later = CardVerdict::of(on.job, std::nullopt);
        if (!one.takesTheCard) EXPECT_EQ(later.missing, verdict.missing);
        EXPECT_FALSE(later.isSafe());
    }
}

TEST(IngestReport, TellsTheVarkAllThatTheVerdictMisses) {
    LandedCard on;
    on.add("DCIM/3.jpg");
    on.job.items[1].state = ItemState::skipped;
    on.job.items[1].error = "A different file is already there.";
    on.job.items[2].state = ItemState::queued;
    on.job.ingest->leftOut = {"MISC"};
    on.pass("broken", Passed::unreadable);
    const CardVerdict verdict = CardVerdict::of(on.job, std::nullopt);
    EXPECT_THAT(verdict.sentence(),
                StartsWith("Do not clear ALPHA yet: 1 file landed and checked, but 4 things"));
    const IngestReport report = IngestReport::of(on.job, verdict);
    const IngestFile second{"DCIM/2.jpg", "Jobs/ALPHA/DCIM/2.jpg", 100, *on.job.items[1].error};
    const IngestFile third{"DCIM/3.jpg", "Jobs/ALPHA/DCIM/3.jpg", 100, "It has not been sent."};
    const IngestFile broken{"broken", "Jobs/ALPHA/broken", 0, "This folder could not be read."};
    EXPECT_THAT(report.skipped, ElementsAre(second));
    EXPECT_THAT(report.leftOut, ElementsAre("MISC"));
    EXPECT_THAT(report.notSent, ElementsAre(third, broken));
}

TEST(IngestReport, LeavesOutWhatIsNamedWithAllThatLiesBelow) {
    LandedCard on;
    on.card.files.push_back({"ALPHA/DCIM2/1.jpg", 1, 0});
    on.card.passedOver = {{"ALPHA/DCIM/broken", Passed::unreadable}, {"ALPHA/OTHER", Passed::unreadable}};
    EXPECT_THAT(leaveOut(on.card, {"DCIM", "dcim2", "ALPHA"}), ElementsAre("dcim2", "ALPHA"));
    EXPECT_THAT(on.card.files, ElementsAre(Walker::Found{"ALPHA/DCIM2/1.jpg", 1, 0}));
    EXPECT_THAT(on.card.passedOver, ElementsAre(Walker::PassedOver{"ALPHA/OTHER", Passed::unreadable}));
}

}  // namespace
}  // namespace vark::test
