#include "Hosts/CLI/Display/LiveArea.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <utility>

namespace vark::cli {

namespace {

constexpr std::string_view eraseBelow = "\x1b[J";
// While it is drawn nothing folds: the program may learn of a narrower terminal later than the terminal does.
constexpr std::string_view dontFold = "\x1b[?7l";
constexpr std::string_view fold = "\x1b[?7h";
constexpr std::string_view nextLine = "\x1b[K\n";

std::string drawn(const std::vector<std::string>& lines) {
    return fmt::format("\r{}{}{}{}", dontFold, fmt::join(lines, nextLine), eraseBelow, fold);
}

}  // namespace

std::string LiveArea::replace(const std::vector<std::string>& lines) {
    const bool wasDrawn = std::exchange(isDrawn_, !lines.empty());
    if (lines.empty()) return wasDrawn ? fmt::format("\r{}", eraseBelow) : std::string();
    std::string bytes = drawn(lines) + "\r";
    if (lines.size() > 1) bytes += fmt::format("\x1b[{}A", lines.size() - 1);
    return bytes;
}

std::string LiveArea::leave(const std::vector<std::string>& lines) {
    if (lines.empty()) return replace({});
    isDrawn_ = false;
    return drawn(lines) + "\n";
}

}  // namespace vark::cli
