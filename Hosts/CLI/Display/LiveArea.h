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
///
/// The cursor rests at the beginning of the first line, and all below it is the area's. A terminal that is
/// made wider, narrower, lower or higher folds and moves the lines as it likes, but it moves the cursor along
/// with the place where it stands: so the area is found again without knowing what the terminal did.
class LiveArea {
  public:
    /// The bytes that put `lines` in place of what is drawn. Each fits into a row.
    std::string replace(const std::vector<std::string>& lines);
    /// The same for the last time: the lines stay, and the cursor goes below them.
    std::string leave(const std::vector<std::string>& lines);

  private:
    bool isDrawn_ = false;
};

}  // namespace vark::cli
