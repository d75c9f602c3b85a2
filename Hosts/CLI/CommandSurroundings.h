#pragma once

#include "Hosts/CLI/Display/Console.h"
#include "VarkApp/Surroundings.h"

namespace vark::cli {

/// What one run of `vark` works with: beside what the application needs, a console, and the executor's
/// thread, which a command drives while it waits. Owned by the main; the main thread only.
class CommandSurroundings : public Surroundings {
  public:
    CommandSurroundings(Platform& platform, Console& console, Executor& executor, Clock& clock,
                        WallClock date = systemDate);

    Console& console;

    /// Drives the executor until the task has ended.
    template <class T>
    T await(Task<T> task) {
        return run(executor, clock, std::move(task));
    }
    /// With its token at hand. Fails with a `Failure` that says how to connect.
    SharedConnection neededConnection();
    /// Fails with a `Failure` when the vark has nothing there.
    VarkItem neededItem(VarkAPI& api, const std::string& path);

  private:
    /// Of a connection that the environment gives: that of this client, as the vark says.
    SharedConnection neededGiven();
};

}  // namespace vark::cli
