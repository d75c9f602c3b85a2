#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "VarkCore/Transfer/IngestReport.h"

namespace vark::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
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
    TransferItem& end(ItemState state) {
        job.items[1].state = state;
        return job.items[1];
    }
    /// Lies on the card, and was passed over when the ingest began.
    void pass(const std::string& source, Passed kind) {
        card.passedOver.push_back({"ALPHA/" + source, kind});
        job.ingest->unlisted = unlistedOf(card);
    }
    void takeOffTheList() {
        job.ingest->keepAccountOf(job.items[1]);
        job.items.pop_back();
    }
    CardVerdict verdict() const { return CardVerdict::of(job, card); }
    CardVerdict verdictWithoutTheCard() const { return CardVerdict::of(job, std::nullopt); }

    TransferJob job;
    Walker::Result card;
};

TEST(CardVerdict, MissesWhateverIsOnTheCardAndNotInTheVark) {
    struct Case {
        const char* name;
        std::function<void(LandedCard&)> arrange;
        std::vector<CardVerdict::Missing> missing;
        /// Whether only a look at the card can tell.
        bool takesTheCard = false;
    };
    const char* unseen = "It was not on the card, or could not be seen, when the ingest began.";
    const Case cases[] = {
        {"all landed", [](LandedCard&) {}, {}},
        {"not sent",
         [](LandedCard& on) { on.end(ItemState::queued); },
         {{Kind::notSent, "DCIM/2.jpg", "It has not been sent.", 100}}},
        {"failed",
         [](LandedCard& on) { on.end(ItemState::failed).error = "Too large."; },
         {{Kind::notSent, "DCIM/2.jpg", "Too large.", 100}}},
        {"failed, and gone from the card",
         [](LandedCard& on) {
             on.end(ItemState::failed).error = "The file is no longer where it was.";
             on.card.files.pop_back();
         },
         {{Kind::notSent, "DCIM/2.jpg", "The file is no longer where it was.", 100}}},
        {"changed while it was sent",
         [](LandedCard& on) { on.job.items[1].changedWhileSent = true; },
         {{Kind::notSent, "DCIM/2.jpg", "It changed while it was sent.", 100}}},
        {"left as the vark has it",
         [](LandedCard& on) { on.end(ItemState::skipped); },
         {{Kind::skipped, "DCIM/2.jpg", "The vark's own copy was left as it is.", 100}}},
        {"left out",
         [](LandedCard& on) {
             on.job.ingest->leftOut = {"MISC"};
             on.card.files.push_back({"ALPHA/MISC/x.dat", 1, 0});
             on.pass("MISC/.hidden", Passed::hidden);
         },
         {{Kind::leftOut, "MISC", "It was left out."}}},
        {"removed from the queue",
         [](LandedCard& on) {
             on.end(ItemState::failed).error = "Too large.";
             on.takeOffTheList();
         },
         {{Kind::notSent, "DCIM/2.jpg", "It was removed from the queue.", 100}}},
        {"skipped, then taken off the list",
         [](LandedCard& on) {
             on.end(ItemState::skipped);
             on.takeOffTheList();
         },
         {{Kind::skipped, "DCIM/2.jpg", "The vark's own copy was left as it is.", 100}}},
        {"landed, then taken off the list", [](LandedCard& on) { on.takeOffTheList(); }, {}},
        {"landed, taken off the list, then changed",
         [](LandedCard& on) {
             on.takeOffTheList();
             on.card.files[1].size = 101;
         },
         {{Kind::notSent, "DCIM/2.jpg", "It has changed since it was sent.", 101}},
         true},
        {"hidden",
         [](LandedCard& on) { on.pass("DCIM/.3.jpg", Passed::hidden); },
         {{Kind::skipped, "DCIM/.3.jpg", "What is hidden is not sent."}}},
        {"ignored",
         [](LandedCard& on) { on.pass(".Trashes", Passed::ignored); },
         {{Kind::skipped, ".Trashes", "What systems leave on cards is not sent."}}},
        {"a link",
         [](LandedCard& on) { on.pass("link", Passed::link); },
         {{Kind::skipped, "link", "Links are not sent."}}},
        {"a pipe",
         [](LandedCard& on) { on.pass("pipe", Passed::special); },
         {{Kind::skipped, "pipe", "It is neither a file nor a folder."}}},
        {"an unreadable folder",
         [](LandedCard& on) { on.pass("lost+found", Passed::unreadable); },
         {{Kind::notSent, "lost+found", "This folder could not be read."}}},
        {"a name that is no text",
         [](LandedCard& on) { on.pass("a\\xff", Passed::nameIsNotText); },
         {{Kind::notSent, "a\\xff", "Its name is not UTF-8 text. Rename it to send it."}}},
        {"an empty folder", [](LandedCard& on) { on.pass("empty", Passed::emptyFolder); }, {}},
        {"changed since",
         [](LandedCard& on) { on.card.files[1].mtime += 1; },
         {{Kind::notSent, "DCIM/2.jpg", "It has changed since it was sent.", 100}},
         true},
        {"came since",
         [](LandedCard& on) { on.card.files.push_back({"ALPHA/3.jpg", 7, 0}); },
         {{Kind::notSent, "3.jpg", unseen, 7}},
         true},
        {"hidden since",
         [](LandedCard& on) { on.card.passedOver = {{"ALPHA/.3.jpg", Passed::hidden}}; },
         {{Kind::skipped, ".3.jpg", "What is hidden is not sent."}},
         true},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        LandedCard on;
        one.arrange(on);
        const CardVerdict verdict = on.verdict();
        EXPECT_THAT(verdict.missing, ElementsAreArray(one.missing));
        EXPECT_EQ(verdict.isSafe(), one.missing.empty());
        // A report that is made later, when the card has gone, says the same of what the queue keeps.
        const CardVerdict later = on.verdictWithoutTheCard();
        if (!one.takesTheCard) EXPECT_EQ(later.missing, verdict.missing);
        EXPECT_FALSE(later.isSafe());
        const IngestReport report = IngestReport::of(on.job, verdict);
        EXPECT_EQ(report.skipped.size() + report.leftOut.size() + report.notSent.size(), one.missing.size());
    }
}

TEST(CardVerdict, SaysHowMuchLandedAndHowMuchDidNot) {
    LandedCard on;
    EXPECT_EQ(on.verdict().sentence(),
              "Every file of ALPHA has landed and been checked: it is safe to clear.");
    EXPECT_EQ(
        on.verdictWithoutTheCard().sentence(),
        "2 files of ALPHA landed and checked, which is all that was on it when the ingest began. It could "
        "not be looked through once more, so do not clear it yet: plug it in, and look again with: vark "
        "send");
    on.pass(".hidden", Passed::hidden);
    on.takeOffTheList();
    EXPECT_EQ(on.verdict().landed, 2);
    EXPECT_EQ(
        on.verdict().sentence(),
        "Do not clear ALPHA yet: 2 files landed and checked, but 1 thing on it is not in the vark as it is "
        "there:");
    on.job.items[0].state = ItemState::failed;
    EXPECT_EQ(
        on.verdict().sentence(),
        "Do not clear ALPHA yet: 1 file landed and checked, but 2 things on it are not in the vark as they "
        "are there:");
}

TEST(IngestReport, TellsTheVarkAllThatTheVerdictMisses) {
    LandedCard on;
    on.add("DCIM/3.jpg");
    on.end(ItemState::skipped).error = "A different file is already there.";
    on.job.items[2].state = ItemState::queued;
    on.job.ingest->leftOut = {"MISC"};
    on.pass(".Trashes", Passed::ignored);
    on.pass("DCIM/broken", Passed::unreadable);
    const IngestReport report = IngestReport::of(on.job, on.verdictWithoutTheCard());
    EXPECT_THAT(
        report.skipped,
        ElementsAre(
            IngestFile{"DCIM/2.jpg", "Jobs/ALPHA/DCIM/2.jpg", 100, "A different file is already there."},
            IngestFile{".Trashes", "Jobs/ALPHA/.Trashes", 0, "What systems leave on cards is not sent."}));
    EXPECT_THAT(report.leftOut, ElementsAre("MISC"));
    EXPECT_THAT(report.notSent,
                ElementsAre(IngestFile{"DCIM/3.jpg", "Jobs/ALPHA/DCIM/3.jpg", 100, "It has not been sent."},
                            IngestFile{"DCIM/broken", "Jobs/ALPHA/DCIM/broken", 0,
                                       "This folder could not be read."}));
    EXPECT_EQ(report.summary(), "2 files skipped, 1 path left out, 2 files not sent");
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
