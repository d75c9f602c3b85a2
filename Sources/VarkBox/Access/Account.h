#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "VarkBox/Store/Database.h"
#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark::box {

/// How a token that has been signed out is refused: with a code of the vark's own choosing, or without one.
struct SignOut {
    std::optional<std::string> code{};
};

/// The one person of the box and the tokens of their devices: the one that the box was started with, and one
/// for each device that has signed in. Only hashes of tokens are kept, and they outlive the process. Any
/// thread.
class Account {
  public:
    Account(Database& database, std::string client, const std::string& token, int level);

    const std::string& client() const { return client_; }
    const std::string& email() const { return email_; }
    /// The room that this client pays for.
    static constexpr std::int64_t bytesOfPlan() { return 1'000'000'000'000; }
    int level() const;
    std::string_view levelLabel() const;
    void setLevel(int level);

    /// A token for a device that has signed in.
    std::string addDevice(const std::string& name);
    /// Of all devices that there are now; one that signs in later is let in.
    void signOut(const SignOut& how);
    /// Takes back every sign-out.
    void signIn();

    /// Refuses with 401 a token that is unknown, or one that has been signed out.
    void checkToken(const std::optional<std::string>& token) const;
    /// Of a token that was let in.
    std::string deviceName(const std::string& token) const;
    /// Refuses with 403 below the level that may change things.
    void checkMayWrite() const;

  private:
    struct Device {
        std::string name;
        std::optional<SignOut> signOut{};
    };

    void load();

    Database& database_;
    const std::string client_;
    const std::string email_;

    // May be taken within a turn of the database, never the other way round.
    mutable Mutex lock_;
    int level_ VARK_GUARDED_BY(lock_);
    std::map<std::string, Device, std::less<>> devicesByHash_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark::box
