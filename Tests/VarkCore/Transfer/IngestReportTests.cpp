#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VarkCore/Transfer/IngestReport.h"

namespace vark::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Kind = Walker::PassedOver::Kind;

/// A card whose five files came to five different ends.
class IngestReportTest : public testing::Test {
  protected:
    IngestReportTest() {
        job.destination = "Jobs";
        job.ingest = IngestInfo{.drive = "ALPHA", .volumePath = "/media/ALPHA", .leftOut = {"MISC"}};
        add("DCIM/1.jpg", ItemState::verified);
        add("DCIM/2.jpg", ItemState::skipped).error = "A different file is already there.";
        add("DCIM/3.jpg", ItemState::failed).error = "Too large.";
        add("DCIM/4.jpg", ItemState::queued);
        add("DCIM/5.jpg", ItemState::verified);
        card.isFolder = true;
        for (const TransferItem& item : job.items)
            card.files.push_back({item.relativePath, item.size, item.mtime});
    }
    TransferItem& add(const std::string& source, ItemState state) {
        TransferItem item;
        item.localPath = "/media/ALPHA/" + source;
        item.relativePath = "ALPHA/" + source;
        item.size = 100;
        item.mtime = 1'700'000'000.5;
        item.state = state;
        job.items.push_back(item);
        return job.items.back();
    }

    TransferJob job;
    Walker::Result card;
};

TEST_F(IngestReportTest, TellsWhatWasSkippedLeftOutAndNotSent) {
    card.passedOver = {{"ALPHA/DCIM/broken", Kind::unreadable}};
    const IngestReport report = IngestReport::of(job, card);
    EXPECT_THAT(report.skipped, ElementsAre(IngestFile{"DCIM/2.jpg", "Jobs/ALPHA/DCIM/2.jpg", 100,
                                                       "A different file is already there."}));
    EXPECT_THAT(report.leftOut, ElementsAre("MISC"));
    EXPECT_THAT(report.notSent,
                ElementsAre(IngestFile{"DCIM/3.jpg", "Jobs/ALPHA/DCIM/3.jpg", 100, "Too large."},
                            IngestFile{"DCIM/4.jpg", "Jobs/ALPHA/DCIM/4.jpg", 100, "It has not been sent."},
                            IngestFile{"DCIM/broken", "Jobs/ALPHA/DCIM/broken", 0,
                                       "This folder could not be read."}));
    EXPECT_EQ(report.summary(), "1 file skipped, 1 path left out, 3 files not sent");
    EXPECT_EQ(IngestReport::of(job, std::nullopt).notSent.size(), 2U);
}

TEST_F(IngestReportTest, NamesWhatIsOnTheCardAndNotInTheVark) {
    card.files[4].mtime += 1;
    card.files.push_back({"ALPHA/DCIM/6.jpg", 100, 0});
    card.passedOver = {{"ALPHA/DCIM/broken", Kind::unreadable}};
    const CardVerdict verdict = CardVerdict::of(job, card);
    EXPECT_THAT(
        verdict.missing,
        ElementsAre(CardVerdict::Missing{"MISC", "It was left out.", true},
                    CardVerdict::Missing{"DCIM/2.jpg", "A different file is already there.", true},
                    CardVerdict::Missing{"DCIM/3.jpg", "Too large."},
                    CardVerdict::Missing{"DCIM/4.jpg", "It has not been sent."},
                    CardVerdict::Missing{"DCIM/5.jpg", "It has changed since it was sent."},
                    CardVerdict::Missing{"DCIM/6.jpg", "It came onto the card after the ingest had begun."},
                    CardVerdict::Missing{"DCIM/broken", "This folder could not be read."}));
    EXPECT_FALSE(verdict.isSafe());
    EXPECT_TRUE(verdict.lacksFiles());
}

TEST_F(IngestReportTest, CallsACardSafeOnlyWhenItWasLookedThroughAndNothingIsMissing) {
    for (TransferItem& item : job.items)
        item.state = ItemState::verified;
    EXPECT_FALSE(CardVerdict::of(job, card).isSafe());
    EXPECT_FALSE(CardVerdict::of(job, card).lacksFiles());
    job.ingest->leftOut.clear();
    EXPECT_TRUE(CardVerdict::of(job, card).isSafe());
    EXPECT_EQ(CardVerdict::of(job, card).sentence(),
              "Every file of ALPHA has landed and been checked: it is safe to clear.");
    EXPECT_FALSE(CardVerdict::of(job, std::nullopt).isSafe());
    EXPECT_THAT(CardVerdict::of(job, std::nullopt).missing, IsEmpty());
    // A file that has gone from the card is nothing that clearing it could lose.
    job.items[0].state = ItemState::failed;
    card.files.erase(card.files.begin());
    EXPECT_TRUE(CardVerdict::of(job, card).isSafe());
}

TEST_F(IngestReportTest, LeavesOutWhatIsNamedWithAllThatLiesBelow) {
    card.files.push_back({"ALPHA/DCIM2/1.jpg", 1, 0});
    card.passedOver = {{"ALPHA/DCIM/broken", Kind::unreadable}, {"ALPHA/OTHER", Kind::unreadable}};
    EXPECT_THAT(leaveOut(card, {"DCIM", "dcim2", "ALPHA"}), ElementsAre("dcim2", "ALPHA"));
    EXPECT_THAT(card.files, ElementsAre(Walker::Found{"ALPHA/DCIM2/1.jpg", 1, 0}));
    EXPECT_THAT(card.passedOver, ElementsAre(Walker::PassedOver{"ALPHA/OTHER", Kind::unreadable}));
}

}  // namespace
}  // namespace vark::test
