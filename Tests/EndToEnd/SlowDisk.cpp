// Preloaded into a program, it stands for a disk that takes its time: `fdatasync` returns after as many
// seconds as VARK_SLOW_DISK_SECONDS says. Beginnings ("+") and ends ("-") are noted in the file
// VARK_SLOW_DISK_LOG.

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

namespace {

void note(const char* mark) {
    const char* log = std::getenv("VARK_SLOW_DISK_LOG");
    if (log == nullptr) return;
    const int file = open(log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0) return;
    (void)!write(file, mark, 1);
    close(file);
}

}  // namespace

extern "C" int fdatasync(int file) {
    const char* seconds = std::getenv("VARK_SLOW_DISK_SECONDS");
    note("+");
    unsigned left = seconds == nullptr ? 0 : static_cast<unsigned>(std::atoi(seconds));
    while (left > 0)
        left = sleep(left);
    const long result = syscall(SYS_fdatasync, file);
    note("-");
    return static_cast<int>(result);
}
