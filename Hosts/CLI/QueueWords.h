#pragma once

#include <string>
#include <vector>

#include "Hosts/CLI/QueueView.h"
#include "VarkCore/Transfer/IngestReport.h"

namespace vark::cli {

/// The queue in words: pure functions of what is shown. No line is escaped yet, and none ends in a newline.

/// "12 of 40 files · 34% · 45 MB of 144 MB · 12.5 MB/s · 3 min left · 1 failed", with what stops it in place
/// of the rate.
std::string overallLine(const QueueView& view);
/// "sending 12% of 32 MB"
std::string progressOf(const FileView& file);
/// What `vark queue` prints.
std::vector<std::string> queueLines(const QueueView& view);
/// What is drawn while `vark send` runs: a line for each file under way and one for the whole, at most
/// `height` of them, each within `width` columns.
std::vector<std::string> liveLines(const QueueView& view, int width, int height);

/// What came of it when all has settled.
std::string closingLine(const Overall& overall);
/// Whether a card may be cleared, and what on it has not landed.
std::vector<std::string> verdictLines(const CardVerdict& verdict);
/// What failed and what waits, with what to do next. Nothing when all is well.
std::vector<std::string> closingAdvice(const QueueView& view);

}  // namespace vark::cli
