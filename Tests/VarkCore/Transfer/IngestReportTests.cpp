#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "VarkCore/Transfer/IngestReport.h"

namespace vark::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
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
    const auto end = [](ItemState state, const char* error = nullptr) {
        return [=](LandedCard& on) {
            on.job.items[1].state = state;
            if (error != nullptr) on.job.items[1].error = error;
        };
    };
    const auto pass = [](const char* source, Passed kind) {
        return [=](LandedCard& on) { on.pass(source, kind); };
    };
    const auto then = [](auto first, auto second) {
        return [=](LandedCard& on) {
            first(on);
            second(on);
        };
    };
    const auto takeOffTheList = [](LandedCard& on) { on.takeOffTheList(); };
    const auto change = [](LandedCard& on) { on.card.files[1].mtime += 1; };
    const auto leaveOut = [](LandedCard& on) {
        on.job.ingest->leftOut = {"MISC"};
        on.card.files.push_back({"ALPHA/MISC/x.dat", 1, 0});
        on.pass("MISC/.hidden", Passed::hidden);
    };
    const std::string two = "DCIM/2.jpg";
    const std::string ownCopy = "The vark's own copy was left as it is.";
    // clang-format off
    const Case cases[] = {
        {"all landed", [](LandedCard&) {}, {}},
        {"not sent", end(ItemState::queued), {{Kind::notSent, two, "It has not been sent.", 100}}},
        {"failed", end(ItemState::failed, "Too large."), {{Kind::notSent, two, "Too large.", 100}}},
        {"failed, and gone", then(end(ItemState::failed, "Gone."), [](LandedCard& on) { on.card.files.pop_back(); }),
            {{Kind::notSent, two, "Gone.", 100}}},
        {"changed while it was sent", [](LandedCard& on) { on.job.items[1].changedWhileSent = true; },
            {{Kind::notSent, two, "It changed while it was sent.", 100}}},
        {"left as the vark has it", end(ItemState::skipped), {{Kind::skipped, two, ownCopy, 100}}},
        {"left out", leaveOut, {{Kind::leftOut, "MISC", "It was left out."}}},
        {"removed", then(end(ItemState::failed, "Too large."), takeOffTheList),
            {{Kind::notSent, two, "It was removed from the queue.", 100}}},
        {"skipped, then removed", then(end(ItemState::skipped), takeOffTheList), {{Kind::skipped, two, ownCopy, 100}}},
        {"landed, then removed", takeOffTheList, {}},
        {"landed, removed, changed", then(takeOffTheList, change),
            {{Kind::notSent, two, "It has changed since it was sent.", 100}}, true},
        {"hidden", pass("D/.3.jpg", Passed::hidden), {{Kind::skipped, "D/.3.jpg", "What is hidden is not sent."}}},
        {"ignored", pass(".Trashes", Passed::ignored), {{Kind::skipped, ".Trashes", "What systems leave on cards is not sent."}}},
        {"a link", pass("link", Passed::link), {{Kind::skipped, "link", "Links are not sent."}}},
        {"a pipe", pass("pipe", Passed::special), {{Kind::skipped, "pipe", "It is neither a file nor a folder."}}},
        {"unreadable", pass("l+f", Passed::unreadable), {{Kind::notSent, "l+f", "This folder could not be read."}}},
        {"a name that is no text", pass("\\xff", Passed::nameIsNotText),
            {{Kind::notSent, "\\xff", "Its name is not UTF-8 text. Rename it to send it."}}},
        {"an empty folder", pass("empty", Passed::emptyFolder), {}},
        {"changed since", change, {{Kind::notSent, two, "It has changed since it was sent.", 100}}, true},
        {"came since", [](LandedCard& on) { on.card.files.push_back({"ALPHA/3.jpg", 7, 0}); },
            {{Kind::notSent, "3.jpg", "It was not on the card, or could not be seen, when the ingest began.", 7}}, true},
        {"hidden since", [](LandedCard& on) { on.card.passedOver = {{"ALPHA/.3.jpg", Passed::hidden}}; },
            {{Kind::skipped, ".3.jpg", "What is hidden is not sent."}}, true},
    };
    // clang-format on
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
    EXPECT_THAT(on.verdict().sentence(), HasSubstr("safe to clear"));
    EXPECT_THAT(on.verdictWithoutTheCard().sentence(),
                AllOf(HasSubstr("2 files of ALPHA"), HasSubstr("do not clear it yet")));
    on.pass(".hidden", Passed::hidden);
    on.takeOffTheList();
    EXPECT_EQ(
        on.verdict().sentence(),
        "Do not clear ALPHA yet: 2 files landed and checked, but 1 thing on it is not in the vark as it is "
        "there:");
}

TEST(IngestReport, TellsTheVarkAllThatTheVerdictMisses) {
    LandedCard on;
    on.add("DCIM/3.jpg");
    on.job.items[1].state = ItemState::skipped;
    on.job.items[1].error = "A different file is already there.";
    on.job.items[2].state = ItemState::queued;
    on.job.ingest->leftOut = {"MISC"};
    on.pass("DCIM/broken", Passed::unreadable);
    const IngestReport report = IngestReport::of(on.job, on.verdictWithoutTheCard());
    const std::string jobs = "Jobs/ALPHA/";
    EXPECT_THAT(report.skipped, ElementsAre(IngestFile{"DCIM/2.jpg", jobs + "DCIM/2.jpg", 100,
                                                       "A different file is already there."}));
    EXPECT_THAT(report.leftOut, ElementsAre("MISC"));
    EXPECT_THAT(
        report.notSent,
        ElementsAre(IngestFile{"DCIM/3.jpg", jobs + "DCIM/3.jpg", 100, "It has not been sent."},
                    IngestFile{"DCIM/broken", jobs + "DCIM/broken", 0, "This folder could not be read."}));
    EXPECT_EQ(report.summary(), "1 file skipped, 1 path left out, 2 files not sent");
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
