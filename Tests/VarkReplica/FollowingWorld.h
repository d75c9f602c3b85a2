#pragma once

#include "Tests/Support/TestLoop.h"
#include "Tests/VarkReplica/ReplicaWorld.h"
#include "Tests/VarkReplica/TreeVark.h"
#include "VarkCore/Transfer/ExtensionLog.h"
#include "VarkProvider/PageCache.h"
#include "VarkReplica/DoubtedItems.h"
#include "VarkReplica/FeedFollower.h"
#include "VarkReplica/FolderLister.h"

namespace vark::test {

/// A replica with all that comes in, over a scripted vark and a clock that the test moves.
class FollowingWorld : public ReplicaWorld {
  public:
    TestLoop loop;
    TreeVark vark;
    std::vector<KernelNews> told;

    FeedFollower& follower() { return *follower_; }
    FolderLister& lister() { return *lister_; }

    /// Without it, the replica has a place in the feed from the beginning, and nobody follows.
    void follow() {
        follower_ = std::make_unique<FeedFollower>(replica(), *changes_, doubts_, log_, tell(), loop.executor,
                                                   loop.clock);
        follower_->start();
        loop.advance(Duration{});
    }
    template <class T>
    T run(Task<T> task) {
        return loop.run(std::move(task));
    }
    std::unique_ptr<VarkEnumerator> enumerator(std::int64_t container, bool isWorkingSet) {
        VarkEnumerator::Place place{
            .api = vark,
            .identity = ItemIdentity{topID},
            .container = container,
            .level = [] { return 4; },
            .pageSize = pageSize,
            .isWorkingSet = isWorkingSet,
            .shown = [] { return std::nullopt; },
            .jobNumbers = [] { return false; },
            .cache = cache_,
            .connection = "https://vark.test",
            .counter = [this] { return replica().ask().at; },
        };
        return std::make_unique<VarkEnumerator>(
            std::move(place), VarkEnumerator::Host{loop.executor, loop.clock, loop.pool, std::nullopt, log_,
                                                   [this] { return now; }});
    }

    std::int64_t pageSize = 3;

  private:
    std::function<void(std::vector<KernelNews>)> tell() {
        return [this](std::vector<KernelNews> news) { told.insert(told.end(), news.begin(), news.end()); };
    }
    Task<void> hasPlace() {
        if (follower_) co_await follower_->hasPlace();
    }
    FolderLister::Host hostOfLister() {
        return FolderLister::Host{
            .replica = replica(),
            .vark = vark,
            .root = topID,
            .shown = [] { return std::nullopt; },
            .enumerator = [this](std::int64_t container) { return enumerator(container, false); },
            .hasPlace = [this] { return hasPlace(); },
            .tell = tell(),
            .executor = loop.executor,
            .clock = loop.clock,
        };
    }

    ExtensionLog log_{std::nullopt, [this] { return now; }, Calendar("UTC")};
    std::shared_ptr<PageCache> cache_ = std::make_shared<PageCache>(30.0);
    std::unique_ptr<VarkEnumerator> changes_ = enumerator(topID, true);
    DoubtedItems doubts_{replica(), vark, topID, [] { return std::nullopt; }, log_, tell(), loop.clock};
    std::unique_ptr<FeedFollower> follower_;
    std::unique_ptr<FolderLister> lister_ = std::make_unique<FolderLister>(hostOfLister());
};

}  // namespace vark::test
