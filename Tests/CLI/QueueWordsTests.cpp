#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "Hosts/CLI/QueueWords.h"
#include "Hosts/CLI/TextWidth.h"

namespace vark::cli {
namespace {

FileView file(const char* path, ItemState state, std::int64_t done, std::int64_t size) {
    FileView view;
    view.relativePath = path;
    view.localPath = std::string("/home/anna/") + path;
    view.state = state;
    view.bytesDone = done;
    view.size = size;
    return view;
}

QueueView sample() {
    QueueView view;
    view.title = "Card";
    view.destination = "Jobs/2026";
    view.running = true;
    view.overall.filesTotal = 1240;
    view.overall.filesVerified = 12;
    view.overall.filesFailed = 2;
    view.overall.filesConflict = 1;
    view.overall.bytesTotal = 144'000'000;
    view.overall.bytesDone = 49'000'000;
    view.overall.bytesVerified = 41'000'000;
    view.overall.rate = 12'500'000;
    view.overall.secondsLeft = 180;
    EntryView card;
    card.number = 1;
    card.name = "Card";
    card.localPath = "/media/Card";
    card.progress.files = 1239;
    card.progress.bytesTotal = 143'000'000;
    card.progress.bytesDone = 48'000'000;
    card.progress.failed = 2;
    card.progress.conflicts = 1;
    EntryView notes;
    notes.number = 2;
    notes.name = "notes\n\x1b[2J.txt";
    notes.progress.files = 1;
    notes.progress.verified = 1;
    notes.progress.bytesTotal = 1;
    notes.progress.bytesDone = 1;
    view.entries = {card, notes};
    FileView failed = file("Card/A 3.mov", ItemState::failed, 0, 5000);
    failed.error = "The file is no longer where it was.";
    view.files = {file("Card/A 1.mov", ItemState::uploading, 8'000'000, 32'000'000),
                  file("Card/日本語の写真.mov", ItemState::hashing, 0, 32'000'000),
                  file("Card/A 2.mov", ItemState::checking, 100, 100), failed,
                  file("Card/B.mov", ItemState::conflict, 0, 5000)};
    return view;
}

std::string joined(const std::vector<std::string>& lines) {
    return fmt::format("{}\n", fmt::join(lines, "\n"));
}

TEST(QueueWords, TheQueueIsTold) {
    EXPECT_EQ(joined(queueLines(sample(), Signs())), R"(Card → Jobs/2026
12 of 1,240 files landed · 34% · 49 MB of 144 MB · 12.5 MB/s · 3 min left · 2 failed · 1 waits for a decision
   1  Card                1,239 files, 143 MB, 33%, 2 failed, 1 waits for a decision
   2  notes\n\x1b[2J.txt  1 file, 1 byte, landed
Under way:
  Card/A 1.mov: sending 25% of 32 MB
  Card/日本語の写真.mov: hashing 0% of 32 MB
  Card/A 2.mov: checking
Failed:
  Card/A 3.mov: The file is no longer where it was.
  and 1 more
Waiting for a decision, since a different file is in the vark:
  Card/B.mov
)");
}

TEST(QueueWords, WhatStopsTheQueueStandsInPlaceOfTheRate) {
    QueueView view = sample();
    view.hold = "Waiting for the network";
    EXPECT_TRUE(overallLine(view, Signs()).contains(" · Waiting for the network · "));
    view.paused = true;
    EXPECT_TRUE(overallLine(view, Signs()).contains(" · paused · "));
    EXPECT_FALSE(overallLine(view, Signs()).contains("left"));
    view.pausedByVark = true;
    EXPECT_TRUE(overallLine(view, Signs()).contains("the vark refused the token"));
}

TEST(QueueWords, AHundredPercentIsOnlySaidOfWhatIsWhole) {
    struct Case {
        std::int64_t verified, skipped, failed;
        const char* line;
    };
    const Case cases[] = {
        {1, 1, 0, "1 of 2 files landed - 100% - 10 bytes of 10 bytes - 1 skipped"},
        {1, 0, 0, "1 of 2 files landed - 99% - 10 bytes of 10 bytes"},
        {1, 0, 1, "1 of 2 files landed - 10 bytes of 10 bytes - 1 failed"},
    };
    for (const Case& one : cases) {
        QueueView view;
        view.overall.filesTotal = 2;
        view.overall.filesVerified = one.verified;
        view.overall.filesSkipped = one.skipped;
        view.overall.filesFailed = one.failed;
        view.overall.bytesTotal = view.overall.bytesDone = 10;
        EXPECT_EQ(overallLine(view, Signs::ascii()), one.line);
    }
}

TEST(QueueWords, WhereThereIsLittleRoomTheRateAndTheEndsOfNamesStay) {
    QueueView view = sample();
    view.files[0].relativePath = "Card/DCIM/100EOS5D/2026-11-21 Interview A.mov";
    view.entries[0].name = "2026-11-21 Interview at the office";
    EXPECT_EQ(joined(liveLines(view, Signs(), {61, 24})),
              R"(  Card/DCIM/100EOS5…21 Interview A.mov  sending 25% of 32 MB
  Card/日本語の写真.mov                 hashing 0% of 32 MB
  Card/A 2.mov                          checking
34% · 12.5 MB/s · 3 min left · 2 failed · 1 waits
)");
    EXPECT_EQ(joined(liveLines(view, Signs(), {40, 4})),
              R"(  Card/DC…w A.mov  sending 25% of 32 MB
  and 2 more
34% · 12.5 MB/s · 3 min left · 2 failed
)");
    QueueView unheard = view;
    unheard.outage.emplace().since = *dateFromISO8601("2026-11-21T12:49:00Z");
    EXPECT_TRUE(overallLine(unheard, Signs(), 39).starts_with("34% · not reached since "));
    EXPECT_EQ(joined(watchedLines(view, Signs(), {60, 8})),
              R"(Card → Jobs/2026
34% · 12.5 MB/s · 3 min left · 2 failed · 1 waits
   1  2026-1… office  33%, 2 failed, 1 waits for a decision
   2  notes\…[2J.txt  landed
Under way:
  Card/DCIM/100EOS5…1 Interview A.mov: sending 25% of 32 MB
  Card/日本語の写真.mov: hashing 0% of 32 MB
)");
    for (int width : {1, 2, 10, 30, 200}) {
        for (int height : {1, 2, 3, 50}) {
            for (const auto& lines :
                 {liveLines(view, Signs(), {width, height}), watchedLines(view, Signs(), {width, height})}) {
                EXPECT_LT(static_cast<int>(lines.size()), std::max(height, 1)) << width << "x" << height;
                for (const std::string& line : lines)
                    EXPECT_LT(displayWidth(line), width) << line;
            }
        }
    }
}

TEST(QueueWords, TheEndSaysWhatToDoNext) {
    EXPECT_EQ(closingLine(sample().overall, Signs()),
              "12 files landed and checked, 41 MB · 2 failed · 1 waits for a decision");
    std::vector<std::string> advice = closingAdvice(sample());
    EXPECT_TRUE(advice.at(advice.size() - 2).contains("vark retry"));
    EXPECT_TRUE(advice.back().contains("vark resolve"));
    QueueView clean = sample();
    clean.overall.filesFailed = 0;
    clean.overall.filesConflict = 0;
    clean.files.clear();
    EXPECT_TRUE(closingAdvice(clean).empty());
}

}  // namespace
}  // namespace vark::cli
