#pragma once

#include <fmt/format.h>

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
    enum class Keyring { unlocked, none, noService };

    explicit KeyringSession(Keyring keyring = Keyring::unlocked) : bus_(startBus()) {
        if (!bus_.untilThere(folder_ / "bus")) throw std::runtime_error(bus_.errors());
        if (keyring == Keyring::noService) return;
        const std::filesystem::path daemon = folder_.file(
            "daemon", fmt::format("#!/bin/sh\necho $$ > {0}/pid\nexec gnome-keyring-daemon --foreground "
                                  "--components=secrets {1} < {0}/password\n",
                                  folder_.path().string(), keyring == Keyring::unlocked ? "--unlock" : ""));
        std::filesystem::permissions(daemon, std::filesystem::perms::owner_all);
        folder_.file("password", "pw");
        folder_.file(
            "services/org.freedesktop.secrets.service",
            fmt::format("[D-BUS Service]\nName=org.freedesktop.secrets\nExec={}\n", daemon.string()));
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
    Process startBus() const {
        std::filesystem::copy(sourceTree() / "Tests/Support/keyring-bus.conf", folder_.path());
        std::filesystem::create_directory(folder_ / "services");
        std::filesystem::create_directory(folder_ / "run");
        std::filesystem::permissions(folder_ / "run", std::filesystem::perms::owner_all);
        return Process({.program = "/usr/bin/dbus-daemon",
                        .arguments = {"--config-file=" + (folder_ / "keyring-bus.conf").string(),
                                      "--address=" + address(), "--nofork", "--nopidfile"},
                        .environment = environment()});
    }

    TemporaryFolder folder_;
    Process bus_;
};

}  // namespace vark::test
