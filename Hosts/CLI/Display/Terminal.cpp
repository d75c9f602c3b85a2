#include "Hosts/CLI/Display/Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

constexpr std::array endings = {SIGINT, SIGTERM, SIGHUP};
/// These end the process whatever anybody does; the terminal is put back first.
constexpr std::array crashes = {SIGQUIT, SIGABRT};
constexpr char theEnd = 0;

// A signal handler may touch nothing else. The pipe is that of the one `Terminal` that lives.
std::atomic<int> signalPipe = -1;
std::atomic<bool> terminalIsChanged = false;
std::atomic<bool> drawsOnTerminal = false;
termios terminalBefore;

void ring(int signal) {
    const int before = errno;
    const char byte = static_cast<char>(signal);
    [[maybe_unused]] ssize_t written = write(signalPipe, &byte, 1);
    errno = before;
}

void putTerminalBack() {
    if (terminalIsChanged.exchange(false)) tcsetattr(STDIN_FILENO, TCSANOW, &terminalBefore);
}

/// What is drawn rests below the cursor. Whoever writes next finds nothing there.
void eraseWhatIsDrawn() {
    constexpr std::string_view erase = "\r\x1b[J";
    if (drawsOnTerminal) [[maybe_unused]]
        ssize_t written = write(STDOUT_FILENO, erase.data(), erase.size());
}

void putBackAndCrash(int signal) {
    eraseWhatIsDrawn();
    putTerminalBack();
    raise(signal);  // The handler is gone after its first call.
}

bool ownsTheTerminal() {
    return tcgetpgrp(STDIN_FILENO) == getpgrp();
}

void handle(int signal, void (*handler)(int), int flags = SA_RESTART) {
    struct sigaction action{};
    // What was ignored from the start, by nohup or by a shell for its background, stays so.
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN) return;
    action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigaction(signal, &action, nullptr);
}

void leaveAlone(int signal) {
    handle(signal, SIG_DFL);
}

std::string_view variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

bool wordsAreUTF8() {
    // The first that is set counts, and a locale that is not installed here may well be that of the terminal.
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const std::string locale = lowercased(variable(name));
        if (!locale.empty()) return locale.contains("utf-8") || locale.contains("utf8");
    }
    return false;
}

bool movesItsCursor() {
    return !variable("TERM").empty() && variable("TERM") != "dumb";
}

}  // namespace

Terminal::Terminal(bool wantsKeys, Heard heard) : wantsKeys_(wantsKeys), heard_(std::move(heard)) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) throw FileError("open a pipe", "signals", errno);
    bell_ = Descriptor(ends[0]);
    signalPipe = ends[1];
    for (int signal : endings)
        handle(signal, ring);
    drawsOnTerminal = wantsKeys_ && canDraw();
    if (wantsKeys_) {
        for (int signal : crashes)
            handle(signal, putBackAndCrash, static_cast<int>(SA_RESETHAND));
        handle(SIGTSTP, ring);
        handle(SIGCONT, ring);
        handle(SIGWINCH, ring);
    }
    takeKeys();
    listener_ = std::thread([this] { listen(); });
}

Terminal::~Terminal() {
    ring(theEnd);
    listener_.join();
    for (int signal : endings)
        leaveAlone(signal);
    if (wantsKeys_) {
        for (int signal : crashes)
            leaveAlone(signal);
        leaveAlone(SIGTSTP);
        leaveAlone(SIGCONT);
        leaveAlone(SIGWINCH);
    }
    giveBack();
    close(signalPipe.exchange(-1));
}

void Terminal::takeKeys() {
    if (!wantsKeys_ || hasKeys_ || !ownsTheTerminal()) return;
    if (tcgetattr(STDIN_FILENO, &terminalBefore) != 0) return;
    termios changed = terminalBefore;
    changed.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    changed.c_cc[VMIN] = 1;
    changed.c_cc[VTIME] = 0;
    terminalIsChanged = true;
    hasKeys_ = tcsetattr(STDIN_FILENO, TCSANOW, &changed) == 0;
}

void Terminal::giveBack() {
    hasKeys_ = false;
    putTerminalBack();
}

void Terminal::listen() {
    while (true) {
        std::array<pollfd, 2> waits = {pollfd{bell_.get(), POLLIN, 0}, pollfd{STDIN_FILENO, POLLIN, 0}};
        if (poll(waits.data(), hasKeys_ ? 2 : 1, -1) < 0 && errno != EINTR) return;
        char byte = 0;
        if (waits[0].revents != 0 && read(bell_.get(), &byte, 1) == 1) {
            if (byte == theEnd) return;
            take(byte);
            continue;
        }
        if (!hasKeys_ || waits[1].revents == 0) continue;
        if (read(STDIN_FILENO, &byte, 1) == 1) {
            heard_(byte);
        } else {
            giveBack();  // The terminal is gone.
        }
    }
}

void Terminal::take(int signal) {
    if (signal == SIGTSTP) {
        becomeStopped();
    } else if (signal == SIGCONT) {
        takeKeys();
        heard_(drawAgain);
    } else if (signal == SIGWINCH) {
        heard_(drawAgain);
    } else {
        giveBack();
        for (int ending : endings)
            leaveAlone(ending);
        heard_(std::nullopt);
    }
}

void Terminal::becomeStopped() {
    eraseWhatIsDrawn();
    giveBack();
    kill(getpid(), SIGSTOP);
}

std::optional<TerminalSize> Terminal::size() {
    winsize window{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0) return std::nullopt;
    if (tcgetpgrp(STDOUT_FILENO) != getpgrp()) return std::nullopt;
    if (window.ws_col == 0 || window.ws_row == 0) return TerminalSize{80, 24};
    return TerminalSize{window.ws_col, window.ws_row};
}

bool Terminal::isTerminal(int descriptor) {
    return isatty(descriptor) == 1;
}

bool Terminal::canDraw() {
    return isTerminal(STDOUT_FILENO) && movesItsCursor() && wordsAreUTF8();
}

Signs Terminal::signs() {
    const bool isDumb = isTerminal(STDOUT_FILENO) && !movesItsCursor();
    return wordsAreUTF8() && !isDumb ? Signs() : Signs::ascii();
}

}  // namespace vark::cli
