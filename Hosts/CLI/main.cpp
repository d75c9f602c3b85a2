#include <csignal>
#include <iostream>

#include "Hosts/CLI/Commands.h"
#include "Hosts/CLI/SystemPlatform.h"

int main(int count, char** arguments) {
    // A reader that goes away is seen when writing.
    std::signal(SIGPIPE, SIG_IGN);
    std::ios::sync_with_stdio(false);
    vark::cli::SystemPlatform platform;
    vark::cli::Console console(std::cout, std::cerr);
    return static_cast<int>(vark::cli::runCommandLine(count, arguments, platform, console));
}
