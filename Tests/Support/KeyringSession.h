#pragma once

#include <csignal>
#include <stdexcept>

#include "Tests/Support/BuildTree.h"
#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

/// A person's session for the time of a test: a message bus of its own, with a real keyring daemon. Nothing
/// there can ask the person anything. For the test's thread alone.
class KeyringSession {
  public:
    /// `keyring` may also be "none", or "no service" where nothing is installed that could make one.
    explicit KeyringSession(const std::string& keyring = "unlocked")
        : bus_({.program = "/bin/sh",
                .arguments = {sourceTree() / "Tests/Support/keyring-session", folder_.path(), keyring},
                .environment = environment()}) {
        if (!bus_.untilThere(folder_ / "bus")) throw std::runtime_error(bus_.errors());
        // The bus starts the daemon for the first who speaks to it.
        run("secret-tool lookup nothing nothing || true");
    }
    ~KeyringSession() {
        // One that was stopped does not notice that its bus has gone.
        if (std::filesystem::exists(folder_ / "pid")) signal(SIGKILL);
    }
    KeyringSession(const KeyringSession&) = delete;
    KeyringSession& operator=(const KeyringSession&) = delete;

    std::string address() const { return "unix:path=" + (folder_ / "bus").string(); }
    void lock() const {
        run("dbus-send --session --print-reply --dest=org.freedesktop.secrets /org/freedesktop/secrets "
            "org.freedesktop.Secret.Service.Lock array:objpath:/org/freedesktop/secrets/collection/login");
    }
    /// From here on the daemon does not answer.
    void stop() const { signal(SIGSTOP); }
    /// What a shell command in the session prints. `secret-tool` is there.
    std::string run(const std::string& command) const {
        return runTool({"sh", "-c", command}, environment());
    }

  private:
    void signal(int number) const { kill(std::stoi(readWholeFile(folder_ / "pid")), number); }
    std::map<std::string, std::string> environment() const {
        return {{"HOME", folder_.path()},
                {"XDG_DATA_HOME", folder_ / "data"},
                {"XDG_RUNTIME_DIR", folder_ / "run"},
                {"DBUS_SESSION_BUS_ADDRESS", address()},
                {"LANG", "C.UTF-8"}};
    }
    TemporaryFolder folder_;
    Process bus_;
};

}  // namespace vark::test
