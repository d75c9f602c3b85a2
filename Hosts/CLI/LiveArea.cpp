#include "Hosts/CLI/LiveArea.h"

#include <fmt/format.h>

#include <algorithm>

#include "Hosts/CLI/TextWidth.h"

namespace vark::cli {

std::string LiveArea::replace(const std::vector<std::string>& lines, int columns) {
    int rows = 0;
    for (int width : drawn_)
        rows += std::max(1, (width + columns - 1) / std::max(1, columns));
    std::string bytes = rows > 0 ? fmt::format("\x1b[{}A\r", rows) : std::string();
    drawn_.clear();
    for (const std::string& line : lines) {
        bytes += line + "\x1b[K\n";
        drawn_.push_back(displayWidth(line));
    }
    if (rows > 0) bytes += "\x1b[J";
    return bytes;
}

}  // namespace vark::cli
