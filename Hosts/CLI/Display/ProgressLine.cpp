#include "Hosts/CLI/Display/ProgressLine.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Hosts/CLI/Display/Terminal.h"
#include "Hosts/CLI/Display/TextWidth.h"

namespace vark::cli {

namespace {

constexpr Duration beatLength = std::chrono::milliseconds(250);

}  // namespace

ProgressLine::ProgressLine(Console& console, bool isWanted, std::function<std::vector<std::string>()> words)
    : console_(console), isLive_(isWanted && Terminal::canDraw()), words_(std::move(words)) {}

Task<void> ProgressLine::drawing() {
    while (isLive_) {
        co_await sleepFor(beatLength);
        draw();
    }
}

void ProgressLine::draw() {
    const std::optional<TerminalSize> size = Terminal::size();
    if (!size) return;
    const std::string line = fmt::format("{}", fmt::join(words_(), console_.signs().between));
    if (!line.empty()) console_.printText(area_.replace({clippedToWidth(line, size->columns - 1)}));
}

void ProgressLine::erase() {
    if (isLive_) console_.printText(area_.replace({}));
}

}  // namespace vark::cli
