#include "Tests/Support/KeyringSession.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <csignal>

#include "Tests/Support/FileWatch.h"

namespace vark::test {

namespace {

namespace fs = std::filesystem;

constexpr const char* configuration = R"(<busconfig>
  <type>session</type>
  <listen>unix:path={0}/bus</listen>
  <auth>EXTERNAL</auth>
  <servicedir>{0}/services</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

constexpr const char* daemonScript = R"(#!/bin/sh
echo $$ > {0}/daemon.pid
exec gnome-keyring-daemon --foreground --components=secrets {1} < {0}/password
)";

}  // namespace

KeyringSession::KeyringSession(Keyring keyring) {
    const std::string folder = folder_.path().string();
    fs::create_directory(folder_ / "services");
    fs::create_directory(folder_ / "run");
    fs::permissions(folder_ / "run", fs::perms::owner_all);
    folder_.file("password", "pw");
    folder_.file("bus.conf", fmt::format(configuration, folder));
    if (keyring != Keyring::noService) {
        const fs::path script = folder_.file(
            "daemon", fmt::format(daemonScript, folder, keyring == Keyring::unlocked ? "--unlock" : ""));
        fs::permissions(script, fs::perms::owner_all);
        folder_.file(
            "services/org.freedesktop.secrets.service",
            fmt::format("[D-BUS Service]\nName=org.freedesktop.secrets\nExec={}\n", script.string()));
    }

    Process::Options options;
    options.program = "/usr/bin/dbus-daemon";
    options.arguments = {"--config-file=" + (folder_ / "bus.conf").string(), "--nofork", "--nopidfile"};
    options.environment = environment();
    options.output = folder_ / "bus.out";
    options.errors = folder_ / "bus.err";
    const FileWatch watch(folder_.path());
    bus_.emplace(options);
    if (!watch.until([&] { return fs::exists(folder_ / "bus"); }, std::chrono::minutes(1),
                     bus_->descriptor()))
        throw std::runtime_error("The message bus did not start: " + bus_->errors());
    // The bus starts the daemon for the first who speaks to it.
    if (keyring != Keyring::noService) run("secret-tool lookup nothing nothing || true");
}

KeyringSession::~KeyringSession() {
    // One that was stopped does not notice that its bus has gone.
    if (const std::optional<pid_t> pid = daemon()) ::kill(*pid, SIGKILL);
}

std::map<std::string, std::string> KeyringSession::environment() const {
    return {{"HOME", folder_.path()},
            {"XDG_DATA_HOME", folder_ / "data"},
            {"XDG_RUNTIME_DIR", folder_ / "run"},
            {"DBUS_SESSION_BUS_ADDRESS", address()},
            {"PATH", "/usr/bin:/bin"},
            {"LANG", "C.UTF-8"}};
}

std::optional<pid_t> KeyringSession::daemon() const {
    if (!fs::exists(folder_ / "daemon.pid")) return std::nullopt;
    return std::stoi(readWholeFile(folder_ / "daemon.pid"));
}

void KeyringSession::lock() {
    run("dbus-send --session --print-reply --dest=org.freedesktop.secrets /org/freedesktop/secrets "
        "org.freedesktop.Secret.Service.Lock array:objpath:/org/freedesktop/secrets/collection/login");
}

void KeyringSession::stop() {
    ASSERT_TRUE(daemon());
    ::kill(*daemon(), SIGSTOP);
}

std::string KeyringSession::run(const std::string& command) {
    Process::Options options;
    options.program = "/bin/sh";
    options.arguments = {"-c", command};
    options.environment = environment();
    const std::string name = std::to_string(++runs_);
    options.output = folder_ / (name + ".out");
    options.errors = folder_ / (name + ".err");
    Process process(options);
    EXPECT_EQ(process.wait(), (Exit{0, std::nullopt})) << command << process.errors();
    return process.output();
}

}  // namespace vark::test
