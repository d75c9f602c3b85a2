#pragma once

#include <functional>
#include <optional>
#include <thread>

#include "Hosts/CLI/Display/LiveArea.h"
#include "Hosts/CLI/Display/Signs.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::cli {

/// The signals of this process and the keys of its terminal, while it lives; at most one at a time. With keys
/// wanted, the terminal gives them one by one and without an echo, except while another program has it, and
/// is put back as it was on every way out: the end of this object, a stop by the shell, and signals that end
/// the process. Made and ended on the main thread.
class Terminal {
  public:
    /// The key that comes, with keys wanted, when the terminal has another size or is this program's again.
    static constexpr char drawAgain = '\f';
    /// A key, or nothing for a signal that asks the process to end.
    using Heard = std::function<void(std::optional<char> key)>;

    /// `heard` is called on a thread of this object's own. After the first signal that asks for the end, the
    /// second one ends the process at once.
    Terminal(bool wantsKeys, Heard heard);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Of the terminal that standard output goes to; nothing while that is another program's, or is none.
    static std::optional<TerminalSize> size();
    static bool isTerminal(int descriptor);
    /// Whether lines can be drawn over on standard output: a terminal that moves its cursor, with words in
    /// UTF-8.
    static bool canDraw();
    /// What standard output can show, as far as the environment says.
    static Signs signs();

  private:
    void listen();
    void take(int signal);
    void becomeStopped();
    void takeKeys();
    void giveBack();

    const bool wantsKeys_;
    const Heard heard_;
    Descriptor bell_;
    bool hasKeys_ = false;  // The listening thread only, once it runs.
    std::thread listener_;
};

}  // namespace vark::cli
