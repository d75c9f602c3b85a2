#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkProvider/VarkEnumerator.h"
#include "VarkReplica/Replica.h"

namespace vark {

/// The vark would not list a folder or say what a name is, as the provider understands it.
class ListingFailure : public std::runtime_error {
  public:
    explicit ListingFailure(ProviderError error);
    const ProviderError& error() const { return error_; }

  private:
    ProviderError error_;
};

/// Brings folders that were never listed into the replica, page by page, each once however many wait for it.
/// Owned by the host; its tasks run on one executor, and so does all of it but `begin`. Whoever waits may be
/// cancelled: the listing goes on for others, and for the next one who comes.
class FolderLister {
  public:
    using Tell = std::function<void(std::vector<KernelNews>)>;
    /// Of the folder with that number of the vark's. It counts with `Replica::ask`.
    using MakeEnumerator = std::function<std::unique_ptr<VarkEnumerator>(std::int64_t container)>;

    struct Host {
        Replica& replica;
        /// For the look at a single name.
        VarkAPI& vark;
        std::int64_t root = 0;
        std::function<VarkEnumerator::Shown()> shown;
        MakeEnumerator enumerator;
        /// Returns when the replica has a place in the feed, without which nothing is listed.
        std::function<Task<void>()> hasPlace;
        /// Called on the executor.
        Tell tell;
        Executor& executor;
        Clock& clock;
    };

    explicit FolderLister(Host host);

    /// Begins the listing, unless it is listed or one is under way. From any thread.
    void begin(Ino folder);
    /// What stands under the name; nothing when there is nothing for certain. Asks for that name alone when
    /// the folder is not listed, and begins its listing.
    Task<std::optional<Record>> named(Ino folder, std::string name);
    /// Returns when the listing has an entry behind `after`, or is all there.
    Task<void> entriesBehind(Ino folder, Position after);
    /// Returns when the folder is listed. These three fail with `ListingFailure`, `VarkAPIError`,
    /// `NoSuchNode` and `DatabaseError`.
    Task<void> listed(Ino folder);

  private:
    struct Run {
        /// The page that is under way.
        TaskHandle<void> page;
        TaskHandle<void> all;
    };
    class Page;

    Task<void> beginHere(Ino folder);
    /// The run that is under way or begins now; null when the folder is listed.
    std::shared_ptr<Run> runOf(Ino folder);
    Task<void> list(Ino folder, std::int64_t id, std::shared_ptr<Run> run);
    Task<void> takePage(std::shared_ptr<VarkEnumerator> enumerator, std::shared_ptr<Page> page);
    bool hasBehind(Ino folder, Position after);

    const Host host_;
    std::map<Ino, std::shared_ptr<Run>> runs_;
    TaskScope scope_;
};

}  // namespace vark
