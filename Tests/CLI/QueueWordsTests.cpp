#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "Hosts/CLI/Display/QueueLines.h"
#include "Hosts/CLI/Display/TextWidth.h"

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
    view.destination = "Jobs/2026";
    view.title = "Card";
    view.running = true;
    view.overall = {.bytesTotal = 144'000'000,
                    .bytesDone = 49'000'000,
                    .filesTotal = 1240,
                    .filesVerified = 12,
                    .filesFailed = 2,
                    .filesConflict = 1,
                    .bytesVerified = 41'000'000,
                    .rate = 12'500'000,
                    .secondsLeft = 180};
    view.entries.resize(2);
    view.entries[0].number = 1;
    view.entries[0].name = "Card";
    view.entries[0].progress = {
        .bytesDone = 48'000'000, .bytesTotal = 143'000'000, .files = 1239, .failed = 2, .conflicts = 1};
    view.entries[1].number = 2;
    view.entries[1].name = "notes\n\x1b[2J.txt";
    view.entries[1].progress = {.bytesDone = 1, .bytesTotal = 1, .files = 1, .verified = 1};
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

}  // namespace
}  // namespace vark::cli
