#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Hosts/CLI/Display/LiveArea.h"
#include "Hosts/CLI/Display/Signs.h"
#include "Hosts/CLI/Names.h"
#include "VarkApp/Queue/LeftOut.h"
#include "VarkApp/Queue/QueueView.h"
#include "VarkApp/Queue/QueueWords.h"

namespace vark::cli {

// The queue in lines of a terminal: pure functions of what is shown. No line is escaped yet, and none ends in
// a newline.

/// "12 of 40 files landed · 34% · 45 MB of 144 MB · 12.5 MB/s · 3 min left · 1 failed", with what stops it in
/// place of the rate. With columns given, what has not to be told is left out until it fits; the rate and the
/// time that is left stay.
std::string overallLine(const QueueView& view, const Signs& signs, std::optional<int> columns = std::nullopt);
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
/// What of the named folders is not sent, and how it would be.
std::string leftOutLine(const LeftOut& left);
/// What failed and what waits, with what to do next. Nothing when all is well.
std::vector<std::string> closingAdvice(const QueueView& view);

}  // namespace vark::cli
