#pragma once

#include <cstdlib>
#include <optional>
#include <string>

#include "Tests/Support/BuildTree.h"
#include "Tests/Support/OwnNamespaces.h"

namespace vark::test {

/// A network with a system bus and an avahi-daemon of the test's own, apart from those of the machine;
/// nothing runs in it at first. What is announced there is seen by whoever uses its bus, from wherever, and
/// its addresses are those of the loopback. Everything in it ends with this object.
class AvahiWorld {
  public:
    AvahiWorld()
        : own_("folder='" + folder().path().string() + "'\n. '" +
                   (sourceTree() / "Tests/Support/avahi-world").string() + "'",
               {"--mount", "--net"}) {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", busAddress().c_str(), 1);
    }

    /// If not, the test is to be skipped, with `OwnNamespaces::whySkipped`.
    bool isPossible() const { return own_.areThere(); }

    void startBus() {
        std::filesystem::remove(folder() / "bus");
        start(bus_, {.program = "/usr/bin/dbus-daemon",
                     .arguments = {"--config-file=" + (folder() / "bus.conf").string(), "--nofork",
                                   "--nopidfile"}});
        if (!bus_->untilThere(folder() / "bus")) throw std::runtime_error(bus_->errors());
    }
    void startDaemon() {
        start(daemon_, {.program = "/usr/sbin/avahi-daemon",
                        .arguments = {"-f", folder() / "avahi.conf", "--no-drop-root", "--no-chroot",
                                      "--no-rlimits", "--no-proc-title"}});
        if (!daemon_->untilWritten("startup complete")) throw std::runtime_error(daemon_->errors());
    }
    /// Kills it, as a crash would.
    void stopDaemon() { daemon_.reset(); }

  private:
    /// One for all the worlds of a process, because the library reads the variable once.
    static const TemporaryFolder& folder() {
        static const TemporaryFolder folder;
        return folder;
    }
    static std::string busAddress() { return "unix:path=" + (folder() / "bus").string(); }
    void start(std::optional<Process>& process, Process::Options options) {
        options.environment["DBUS_SYSTEM_BUS_ADDRESS"] = busAddress();
        options.startBy(own_.prefix());
        process.emplace(options);
    }

    OwnNamespaces own_;
    std::optional<Process> bus_;
    std::optional<Process> daemon_;
};

}  // namespace vark::test
