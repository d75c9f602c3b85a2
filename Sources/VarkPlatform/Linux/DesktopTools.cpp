#include "VarkPlatform/Linux/DesktopTools.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <vector>

#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

/// A tool for the clipboard puts itself into the background; one that does not is left to itself.
constexpr int longestCopyMilliseconds = 2000;

bool isSet(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr && value[0] != '\0';
}

/// A program in a session of its own, which says nothing and reads `input` or nothing.
std::optional<pid_t> start(std::vector<std::string> words, const Descriptor& input) {
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    if (input) {
        posix_spawn_file_actions_adddup2(&files, input.get(), STDIN_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    pid_t pid = -1;
    const int failure = posix_spawnp(&pid, arguments[0], &files, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return failure == 0 ? std::optional(pid) : std::nullopt;
}

bool endsWell(pid_t pid) {
    const Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    pollfd end{process.get(), POLLIN, 0};
    if (!process || poll(&end, 1, longestCopyMilliseconds) != 1) return false;
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Nothing when it cannot be held in memory.
Descriptor readable(const std::string& text) {
    Descriptor file(memfd_create("clipboard", MFD_CLOEXEC));
    if (!file || write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) return {};
    lseek(file.get(), 0, SEEK_SET);
    return file;
}

}  // namespace

bool DesktopTools::openInBrowser(const std::string& address) {
    if (!isSet("DISPLAY") && !isSet("WAYLAND_DISPLAY") && !isSet("BROWSER")) return false;
    return start({"xdg-open", address}, Descriptor()).has_value();
}

bool DesktopTools::copyToClipboard(const std::string& text) {
    std::vector<std::vector<std::string>> tools;
    if (isSet("WAYLAND_DISPLAY")) tools.push_back({"wl-copy"});
    if (isSet("DISPLAY")) {
        tools.push_back({"xclip", "-selection", "clipboard"});
        tools.push_back({"xsel", "--clipboard", "--input"});
    }
    for (const std::vector<std::string>& tool : tools) {
        const Descriptor input = readable(text);
        if (!input) return false;
        const std::optional<pid_t> pid = start(tool, input);
        if (pid && endsWell(*pid)) return true;
    }
    return false;
}

}  // namespace vark
