#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

/// A person's session for the time of a test: a message bus of its own, with a real keyring daemon. Nothing
/// there can ask the person anything. For the test's thread alone.
class KeyringSession {
  public:
    enum class Keyring { unlocked, none, noService };

    explicit KeyringSession(Keyring keyring = Keyring::unlocked);
    ~KeyringSession();
    KeyringSession(const KeyringSession&) = delete;
    KeyringSession& operator=(const KeyringSession&) = delete;

    std::string address() const { return "unix:path=" + (folder_ / "bus").string(); }
    void lock();
    /// From here on the daemon does not answer.
    void stop();
    /// What a shell command in the session prints. `secret-tool` is there.
    std::string run(const std::string& command);

  private:
    std::map<std::string, std::string> environment() const;
    std::optional<pid_t> daemon() const;

    TemporaryFolder folder_;
    std::optional<Process> bus_;
    int runs_ = 0;
};

}  // namespace vark::test
