#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "VarkApp/Queue/QueueView.h"
#include "VarkCore/Transfer/Cards/IngestReport.h"

namespace vark::app {

// The queue in words: pure functions of what is shown. How they stand in a line or in a window is not said
// here.

/// A piece of a line. Where there is no room, those with the highest `rank` become brief first, and then go.
struct Word {
    std::string text;
    int rank = 0;
    std::string brief{};
};
std::string joined(const std::vector<Word>& words, std::string_view between);

/// "12 of 40 files landed", "34%", "45 MB of 144 MB", "12.5 MB/s", "3 min left", "1 failed", with what stops
/// it in place of its speed.
std::vector<Word> overallWords(const QueueView& view);
/// "12 files landed and checked, 45 MB", "1 failed": what came of it when all has settled.
std::vector<Word> closingWords(const Overall& overall);
/// "12 files, 45 MB, "
std::string extentOf(const EntryProgress& progress);
/// "landed", or "34%, 1 failed"
std::string stateOf(const EntryProgress& progress);
/// "sending 34% of 45 MB"
std::string progressOf(const FileView& file);
/// "12 MB from 3 Mar 2026, 09:41 here, 11 MB from 2 Mar 2026, 17:30 in the vark": of a file that waits for a
/// decision, as far as it is known; empty when the vark has not said what it has.
std::string bothSides(const FileView& file);
/// "1 file was taken out of the queue before landing."; the count is not 0.
std::string takenAwayLine(std::int64_t count);
/// Whether a card may be cleared, and what on it has not landed.
std::vector<std::string> verdictLines(const CardVerdict& verdict);

}  // namespace vark::app
