#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

#include "VarkCore/API/Messages/Items.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark {

/// First pages of folders that the vark sent along unasked, each for one use. Shared by the enumerators of
/// one connection; any thread.
class PageCache {
  public:
    struct Held {
        VarkPage page;
        Date at;
        /// What the enumerator's `counter` said when the page was asked for.
        std::int64_t counter = 0;
    };

    /// An entry of `maxAge` seconds is too old.
    explicit PageCache(double maxAge) : maxAge_(maxAge) {}

    /// In the place of what was there.
    void put(VarkPage page, std::int64_t folder, Date at, std::int64_t counter = 0);
    /// The entry is gone after this, also one that is too old to be given.
    std::optional<Held> take(std::int64_t folder, Date now);
    /// Drops what nobody came for in time.
    void forgetOld(Date now);
    std::size_t count() const;

  private:
    mutable Mutex lock_;
    std::map<std::int64_t, Held> pages_ VARK_GUARDED_BY(lock_);
    const double maxAge_;
};

}  // namespace vark
