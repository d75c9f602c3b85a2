#pragma once

#include <cstddef>

namespace vark {

/// Told of the items of a queue as they change, so that whoever shows them looks at those alone. Positions
/// are those in the job's list of items. On the engine's executor, in the middle of its work: it may take
/// notes, and looks at the engine later.
class QueueObserver {
  public:
    /// The item itself, how far it has come, or whether it has a task.
    virtual void changed(std::size_t position) = 0;
    virtual void appended(std::size_t first, std::size_t count) = 0;
    /// There is another list: loaded, shrunk, begun or cleared.
    virtual void renewed() = 0;

  protected:
    ~QueueObserver() = default;
};

}  // namespace vark
