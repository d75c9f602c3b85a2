#pragma once

#include <string>
#include <vector>

namespace vark::cli {

struct TerminalSize {
    int columns;
    int rows;
};

/// The lines at the bottom of a terminal that are drawn over and over. It only makes the bytes; whoever owns
/// it writes them, and nothing else to the terminal in between.
class LiveArea {
  public:
    /// The bytes that put `lines` in place of what is drawn, on a terminal of so many columns.
    std::string replace(const std::vector<std::string>& lines, int columns);

  private:
    /// Columns of each line that is drawn. A terminal that has been made narrower shows some on several rows.
    std::vector<int> drawn_;
};

}  // namespace vark::cli
