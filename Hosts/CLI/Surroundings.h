#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "Hosts/CLI/Console.h"
#include "Hosts/CLI/ExitCode.h"
#include "Hosts/CLI/Platform.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedStore.h"
#include "VarkCore/Transfer/TransferEngine.h"

namespace vark::cli {

/// A command cannot do what was asked; `what()` is for the person and says what to do next.
class CommandError : public std::runtime_error {
  public:
    CommandError(ExitCode code, const std::string& sentence) : std::runtime_error(sentence), code_(code) {}
    ExitCode code() const { return code_; }

  private:
    ExitCode code_;
};

/// What one run of `vark` works with, built piece by piece as a command asks for it. Owned by the main, ends
/// after all that uses it; the main thread only, which drives `executor`.
class Surroundings {
  public:
    Surroundings(Platform& platform, Console& console, Executor& executor, Clock& clock,
                 WallClock date = systemDate);
    ~Surroundings();

    Platform& platform;
    Console& console;
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
    /// The same. Fails with a `CommandError` that says why there is none.
    const std::filesystem::path& neededFolder();
    std::optional<SharedConnection> connection();
    /// With its token at hand. Fails with a `CommandError` that says how to connect.
    SharedConnection neededConnection();
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
    /// Fails with a `CommandError` when the vark has nothing there.
    VarkItem neededItem(VarkAPI& api, const std::string& path);
    /// Keeps what this device may do on the vark, for all processes. Called by whoever asked `whoami`.
    void learn(const WhoAmI& who);
    QueueStore& store();
    TransferLog& log();
    TransferEngine::Host engineHost();

    /// Drives the executor until the task has ended.
    template <class T>
    T await(Task<T> task) {
        return run(executor, clock, std::move(task));
    }

  private:
    std::optional<Calendar> calendar_;
    std::optional<BlockingPool> pool_;
    std::optional<BlockingPool> savingPool_;
    std::optional<Locations> locations_;
    std::optional<SharedStore::Folder> sharedFolder_;
    std::optional<LANRouter> lan_;
    std::optional<QueueStore> store_;
    std::optional<TransferLog> log_;
};

}  // namespace vark::cli
