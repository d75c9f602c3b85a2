#include <cerrno>
#include <csignal>
#include <iostream>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/StandardStreams.h"
#include "Hosts/CLI/Display/Terminal.h"
#include "Hosts/Common/SystemPlatform.h"

int main(int count, char** arguments) {
    vark::cli::holdStandardStreams();
    // A reader that goes away is seen when writing.
    std::signal(SIGPIPE, SIG_IGN);
    std::ios::sync_with_stdio(false);
    vark::host::SystemPlatform platform("Terminal");
    vark::cli::Console console(std::cout, std::cerr, vark::cli::Terminal::signs());
    const vark::cli::ExitCode code = vark::cli::runCommandLine(count, arguments, platform, console);
    if (!vark::cli::closeStandardOutput()) console.outputFailed(errno);
    return static_cast<int>(console.codeOfRun(code));
}
