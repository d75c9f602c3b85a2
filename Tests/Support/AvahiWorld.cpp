#include "Tests/Support/AvahiWorld.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace vark::test {
namespace {

const TemporaryFolder& folder() {
    static const TemporaryFolder folder;
    return folder;
}

/// Open at both ends, so that neither side waits for the other to open it.
Descriptor openFifo(const char* name) {
    const std::filesystem::path path = folder() / name;
    std::filesystem::remove(path);
    Descriptor fifo;
    if (mkfifo(path.c_str(), 0600) == 0) fifo = Descriptor(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!fifo) throw std::runtime_error("A pipe to the network of the test could not be made.");
    return fifo;
}

Process::Options world() {
    return {.program = VARK_AVAHI_WORLD,
            .arguments = {folder().path()},
            .environment = {{"PATH", "/usr/sbin:/usr/bin:/sbin:/bin"}},
            .output = folder() / "output",
            .errors = folder() / "errors",
            .largestFile = std::nullopt};
}

}  // namespace

AvahiWorld::AvahiWorld() : commands_(openFifo("commands")), answers_(openFifo("answers")) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", busAddress().c_str(), 1);
    process_.emplace(world());
    isPossible_ = answer() == "ready";
}

AvahiWorld::~AvahiWorld() = default;

std::string AvahiWorld::busAddress() {
    return "unix:path=" + (folder() / "bus").string();
}

void AvahiWorld::ask(const std::string& command) {
    const std::string line = command + "\n";
    if (write(commands_.get(), line.data(), line.size()) < 0 || answer() != command)
        throw std::runtime_error("The network of the test did not do “" + command + "”.");
}

std::string AvahiWorld::answer() {
    constexpr int patienceInMilliseconds = 60'000;
    std::string line;
    while (true) {
        pollfd source{answers_.get(), POLLIN, 0};
        char next = 0;
        if (poll(&source, 1, patienceInMilliseconds) <= 0 || read(answers_.get(), &next, 1) != 1)
            throw std::runtime_error("The network of the test does not answer:\n" + process_->errors());
        if (next == '\n') return line;
        line += next;
    }
}

}  // namespace vark::test
