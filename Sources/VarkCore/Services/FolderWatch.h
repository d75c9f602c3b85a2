#pragma once

#include <filesystem>
#include <functional>

namespace vark {

/// Hears what happens to the names in one folder, so that nobody has to look again and again. Made and ended
/// on any thread.
class FolderWatch {
  public:
    /// Ends the watching; no call of the handler is under way after it.
    virtual ~FolderWatch() = default;
    /// From its return on, `changed` is called soon after a name in `folder` has come, gone or changed, and
    /// after a file in it that was open for writing has been closed, be it by the end of a process that was
    /// killed. Reading is not heard. Some changes are told of in one call, and some in two: whoever is called
    /// looks for itself. A lock is free by the last call that its end leads to. A folder that is made later,
    /// or made anew, is watched from then on, and its coming is told. On any thread, and never from within
    /// one of its own calls. Called once. Fails with `FileError`.
    virtual void start(std::filesystem::path folder, std::function<void()> changed) = 0;
};

}  // namespace vark
