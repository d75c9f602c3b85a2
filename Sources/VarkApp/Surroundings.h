#pragma once

#include <memory>
#include <optional>
#include <string>

#include "VarkApp/Connect/GivenConnection.h"
#include "VarkApp/Failure.h"
#include "VarkApp/Platform.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedStore.h"
#include "VarkCore/Transfer/TransferEngine.h"

namespace vark::app {

/// What a process of this application works with, built piece by piece as it is asked for. Owned by the main,
/// ends after all that uses it; on the thread of `executor` only, which the main drives.
class Surroundings {
  public:
    Surroundings(Platform& platform, Executor& executor, Clock& clock, WallClock date = systemDate);
    ~Surroundings();
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    Platform& platform;
    Executor& executor;
    Clock& clock;
    const WallClock date;
    /// Of every API of this run.
    WaysTaken ways;

    const Calendar& calendar();
    BlockingPool& pool();
    /// One thread, for the saved queue alone.
    BlockingPool& savingPool();
    const Locations& locations();
    const SharedStore::Folder& sharedFolder();
    /// The same. Fails with a `Failure` that says why there is none.
    const std::filesystem::path& neededFolder();
    std::optional<SharedConnection> connection();
    /// In place of the connection that this machine keeps; before anything asks for one.
    void give(GivenConnection given) { given_ = std::move(given); }
    const std::optional<GivenConnection>& given() const { return given_; }
    /// The nodes of this network, as a browsing vark has published them of late.
    LANRouter& lan();
    /// The same table for a run that browses itself: empty, to be filled by its browser alone, which also
    /// notices when a node goes.
    LANRouter& lanToBrowse();
    /// What an API works with in this run.
    APIHost apiHost(int mostChunksAtOnce = 1);
    /// Where the connection's vark is, and by what it is trusted.
    VarkAddress addressOf(const SharedConnection& connection);
    /// An API for the connection, which goes by the token that is in force at each call.
    std::shared_ptr<VarkAPI> api(const SharedConnection& connection, int chunksAtOnce = 1);
    /// Keeps what this device may do on the vark, for all processes. Called by whoever asked `whoami`.
    void learn(const WhoAmI& who);
    QueueStore& store();
    TransferLog& log();
    TransferEngine::Host engineHost();

  private:
    std::optional<GivenConnection> given_;
    std::optional<Calendar> calendar_;
    std::optional<BlockingPool> pool_;
    std::optional<BlockingPool> savingPool_;
    std::optional<Locations> locations_;
    std::optional<SharedStore::Folder> sharedFolder_;
    std::optional<LANRouter> lan_;
    std::optional<QueueStore> store_;
    std::optional<TransferLog> log_;
};

}  // namespace vark::app
