#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Hosts/CLI/LiveArea.h"
#include "Hosts/CLI/QueueView.h"
#include "Hosts/CLI/Signs.h"
#include "VarkCore/Transfer/IngestReport.h"

namespace vark::cli {

/// The queue in words: pure functions of what is shown. No line is escaped yet, and none ends in a newline.

/// "12 of 40 files landed · 34% · 45 MB of 144 MB · 12.5 MB/s · 3 min left · 1 failed", with what stops it in
/// place of the rate. With columns given, what has not to be told is left out until it fits; the rate and the
/// time that is left stay.
std::string overallLine(const QueueView& view, const Signs& signs, std::optional<int> columns = std::nullopt);
/// "sending 12% of 32 MB"
std::string progressOf(const FileView& file);
/// What `vark queue` prints. With columns given, names give way so that what is said of them can be read.
std::vector<std::string> queueLines(const QueueView& view, const Signs& signs,
                                    std::optional<int> columns = std::nullopt);
/// The same on a terminal: fewer lines than it has rows, each within its columns.
std::vector<std::string> watchedLines(const QueueView& view, const Signs& signs, const TerminalSize& size);
/// What is drawn while `vark send` runs: a line for each file under way and one for the whole, fewer than the
/// terminal has rows, each within its columns.
std::vector<std::string> liveLines(const QueueView& view, const Signs& signs, const TerminalSize& size);

/// What came of it when all has settled.
std::string closingLine(const Overall& overall, const Signs& signs);
/// Whether a card may be cleared, and what on it has not landed.
std::vector<std::string> verdictLines(const CardVerdict& verdict);
/// What failed and what waits, with what to do next. Nothing when all is well.
std::vector<std::string> closingAdvice(const QueueView& view);

}  // namespace vark::cli
