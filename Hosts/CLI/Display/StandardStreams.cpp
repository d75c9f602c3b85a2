#include "Hosts/CLI/Display/StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

namespace vark::cli {

void holdStandardStreams() {
    int lowest = open("/dev/null", O_RDWR | O_CLOEXEC);
    while (lowest >= STDIN_FILENO && lowest <= STDERR_FILENO) {
        // Programs that this one starts have them too.
        fcntl(lowest, F_SETFD, 0);
        lowest = open("/dev/null", O_RDWR | O_CLOEXEC);
    }
    if (lowest > STDERR_FILENO) close(lowest);
}

bool closeStandardOutput() {
    return close(STDOUT_FILENO) == 0;
}

}  // namespace vark::cli
