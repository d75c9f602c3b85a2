#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkCore/Connection/SharedStore.h"
#include "VarkCore/Sync/SyncSummary.h"
#include "VarkProvider/EnumerationObservers.h"
#include "VarkProvider/ItemIdentity.h"
#include "VarkProvider/PageCache.h"

namespace vark {

class BlockingPool;
class ExtensionLog;

/// How a system learns what lies in the vark: the pages of one folder, or the changes below it page by page,
/// and the place in the change feed. Any thread may call; each call starts a task on the host's executor and
/// answers from there. Its end cancels what runs and waits for it, so it comes on that executor's thread or
/// while somebody drives it.
///
/// What must hold: no failure and no refusal of the vark's moves an anchor, and none of them tells a system
/// to list everything anew or that anything is gone.
class VarkEnumerator {
  public:
    using Shown = std::optional<std::set<std::string>>;

    /// What it is for. Callbacks are called from its tasks, the API outlives it.
    struct Place {
        VarkAPI& api;
        ItemIdentity identity;
        /// The vark's number of the folder.
        std::int64_t container = 0;
        /// What the person may do now. Asked for each page.
        std::function<std::int64_t()> level;
        /// For the observer that suggests none, and for each page of changes.
        std::int64_t pageSize = 0;
        /// It lists nothing by page: all that it tells, it tells as changes.
        bool isWorkingSet = false;
        /// The names of the top-level folders to be shown; no value restricts nothing. Asked for each page.
        std::function<Shown()> shown;
        /// Whether the account has job numbers. Asked for each item.
        std::function<bool()> jobNumbers;
        /// Shared by the enumerators of one connection; null for none, and then nothing is asked for ahead.
        std::shared_ptr<PageCache> cache{};
        /// The address of the vark: a part of the anchors' key.
        std::string connection;
        /// These two are held for the host.
        std::optional<std::string> domain{};
        std::function<SyncSummary()> unsent{};
        /// What the host counts its learning by; asked before each question of a listing. May be null.
        std::function<std::int64_t()> counter{};
    };

    /// What it stands on; all of it outlives the enumerator.
    struct Host {
        Executor& executor;
        Clock& clock;
        /// For looks into the anchors' file, which block.
        BlockingPool& pool;
        SharedStore::Folder folder;
        ExtensionLog& log;
        WallClock now = systemDate;
    };

    VarkEnumerator(Place place, Host host);

    const Place& place() const { return place_; }

    /// One page. The handle is of the work, for those who wait for its end; it is empty when the working set
    /// has answered at once.
    TaskHandle<void> enumerateItems(std::shared_ptr<EnumerationObserver> observer,
                                    EnumerationPage startingAt);
    /// One page of changes.
    TaskHandle<void> enumerateChanges(std::shared_ptr<ChangeObserver> observer, SyncAnchor from);
    /// Always answers, within seconds, and never with an empty anchor: the end of the feed as it is now, or
    /// the last place that was held, or one that is pending.
    TaskHandle<void> currentSyncAnchor(std::function<void(SyncAnchor)> completion);
    /// Cancels the enumeration that was begun last.
    void invalidate();

    /// Whether an item may be told of, by the top-level folder that it lies in. Where a folder of the vark is
    /// shown as the top, everything is.
    static bool isShown(const VarkItem& item, std::int64_t rootID, const Shown& shown);

  private:
    Task<void> list(std::shared_ptr<EnumerationObserver> observer, std::string cursor, std::int64_t size);
    Task<PageCache::Held> page(std::string cursor, std::int64_t size);
    Task<void> follow(std::shared_ptr<ChangeObserver> observer, SyncAnchor from);
    Task<void> sayWhere(std::function<void(SyncAnchor)> completion);
    Task<std::string> startFor(SyncAnchor from);

    std::string key() const;
    std::vector<VarkProviderItem> told(std::vector<VarkItem> items) const;
    TaskHandle<void> keepAsLatest(TaskHandle<void> work);

    const Place place_;
    const Host host_;
    Mutex lock_;
    TaskHandle<void> work_ VARK_GUARDED_BY(lock_);
    TaskScope scope_;
};

}  // namespace vark
