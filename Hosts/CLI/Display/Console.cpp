#include "Hosts/CLI/Display/Console.h"

#include <fmt/format.h>

#include <cerrno>
#include <system_error>

#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

void Console::print(std::string_view line) {
    printText(escapedForTerminal(line) + '\n');
}

void Console::printJSON(std::string_view object) {
    printText(std::string(object) + '\n');
}

void Console::printText(std::string_view text) {
    if (!isRead() || text.empty()) return;
    errno = 0;
    results_ << text << std::flush;
    if (!results_.good()) outputFailed(errno != 0 ? errno : EIO);
}

void Console::say(std::string_view line) {
    advice_ << escapedForTerminal(line) << '\n' << std::flush;
}

void Console::outputFailed(int systemError) {
    if (!isRead()) return;
    failure_ = systemError;
    if (systemError == EPIPE) return;
    say(fmt::format(
        "The output cannot be written ({}), so what is printed is not the whole. Make room, or let "
        "it go somewhere else.",
        std::generic_category().message(systemError)));
}

ExitCode Console::codeOfRun(ExitCode code) const {
    if (isRead() || code != ExitCode::allLanded) return code;
    return failure_ == EPIPE ? ExitCode::readerGone : ExitCode::somethingFailed;
}

}  // namespace vark::cli
