#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Hosts/CLI/Display/Console.h"
#include "Hosts/CLI/Display/LiveArea.h"
#include "VarkCore/Concurrency/Clock.h"
#include "VarkCore/Concurrency/Task.h"

namespace vark::cli {

/// One line that is drawn over while something lasts, where standard output is a terminal that can. Owned by
/// a command; the main thread only. Gone at its end.
class ProgressLine {
  public:
    /// `words` are asked for at each drawing, a few times a second; nothing is drawn without any.
    ProgressLine(Console& console, bool isWanted, std::function<std::vector<std::string>()> words);
    ~ProgressLine() { erase(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    /// Draws until it is cancelled. `this` outlives it.
    Task<void> drawing();
    /// Makes room for what is to stay.
    void erase();

  private:
    void draw();

    Console& console_;
    const bool isLive_;
    const std::function<std::vector<std::string>()> words_;
    LiveArea area_;
};

}  // namespace vark::cli
