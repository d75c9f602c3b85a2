// Preloaded into a program, it stands for a disk that takes its time: `fdatasync` returns after as many
// seconds as VARK_SLOW_DISK_SECONDS says. Beginnings ("+") and ends ("-") are noted in the file
// VARK_SLOW_DISK_LOG.

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

namespace {

void note(const char* mark) {
    const int file = open(std::getenv("VARK_SLOW_DISK_LOG"), O_WRONLY | O_APPEND | O_CLOEXEC);
    (void)!write(file, mark, 1);
    close(file);
}

}  // namespace

extern "C" int fdatasync(int file) {
    note("+");
    auto left = static_cast<unsigned>(std::atoi(std::getenv("VARK_SLOW_DISK_SECONDS")));
    while (left > 0)
        left = sleep(left);
    const long result = syscall(SYS_fdatasync, file);
    note("-");
    return static_cast<int>(result);
}
