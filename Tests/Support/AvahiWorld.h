#pragma once

#include <optional>
#include <string>

#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

/// A network with a system bus and an avahi-daemon of the test's own, apart from those of the machine;
/// nothing runs in it at first. What is announced there is seen by whoever uses its bus, from wherever, and
/// its addresses are those of the loopback. Everything in it ends with this object, or with the test's
/// process.
class AvahiWorld {
  public:
    AvahiWorld();
    ~AvahiWorld();
    AvahiWorld(const AvahiWorld&) = delete;
    AvahiWorld& operator=(const AvahiWorld&) = delete;

    /// Whether the kernel lets this process have a network of its own. If not, the test is to be skipped,
    /// with `whySkipped`.
    bool isPossible() const { return isPossible_; }
    static constexpr const char* whySkipped =
        "SKIPPED: this needs a network namespace (run it as root, or allow user namespaces).";

    /// The value for the variable DBUS_SYSTEM_BUS_ADDRESS. One for all the worlds of a process, because the
    /// library reads the variable once; set for this process by the first of them.
    static std::string busAddress();

    void startBus() { ask("bus up"); }
    /// A bus on which nobody may speak to the avahi-daemon.
    void startClosedBus() { ask("bus closed"); }
    void stopBus() { ask("bus down"); }
    void startDaemon() { ask("daemon up"); }
    /// Kills it, as a crash would.
    void stopDaemon() { ask("daemon down"); }

  private:
    void ask(const std::string& command);
    std::string answer();

    Descriptor commands_;
    Descriptor answers_;
    std::optional<Process> process_;
    bool isPossible_ = false;
};

}  // namespace vark::test
