#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark::box {

/// The one person of the box and the one token of their device. Any thread.
class Account {
  public:
    Account(std::string client, std::string token, int level);

    const std::string& client() const { return client_; }
    const std::string& email() const { return email_; }
    /// The room that this client pays for.
    static constexpr std::int64_t bytesOfPlan() { return 1'000'000'000'000; }
    int level() const;
    std::string_view levelLabel() const;

    void setLevel(int level);
    void setSignedOut(bool signedOut);

    /// Refuses with 401 a token that is not this one, or one that has been signed out.
    void checkToken(const std::optional<std::string>& token) const;
    /// Refuses with 403 below the level that may change things.
    void checkMayWrite() const;

  private:
    const std::string client_;
    const std::string email_;
    const std::string token_;

    mutable Mutex lock_;
    int level_ VARK_GUARDED_BY(lock_);
    bool signedOut_ VARK_GUARDED_BY(lock_) = false;
};

}  // namespace vark::box
