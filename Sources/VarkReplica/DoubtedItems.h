#pragma once

#include <functional>
#include <map>
#include <vector>

#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/Concurrency/Clock.h"
#include "VarkProvider/VarkEnumerator.h"
#include "VarkReplica/Replica.h"

namespace vark {

class ExtensionLog;

/// Asks the vark for what is stale, item by item. What it says of one that is there is learnt; what it says
/// is gone goes only when the comparison with all that is known beside it passes. Used on one executor, by
/// one task at a time.
class DoubtedItems {
  public:
    using Tell = std::function<void(std::vector<KernelNews>)>;

    DoubtedItems(Replica& replica, VarkAPI& vark, std::int64_t root,
                 std::function<VarkEnumerator::Shown()> shown, ExtensionLog& log, Tell tell,
                 const Clock& clock);

    /// One round; what could not be settled stays stale. Fails with `DatabaseError`.
    Task<void> ask();

  private:
    struct Answer;

    std::vector<Record> due();
    Task<void> askFor(Answer* answer);
    void compare(const std::vector<Answer>& answers);

    Replica& replica_;
    VarkAPI& vark_;
    const std::int64_t root_;
    const std::function<VarkEnumerator::Shown()> shown_;
    ExtensionLog& log_;
    const Tell tell_;
    const Clock& clock_;
    /// Ids whose comparison did not pass, and when they may be asked for again.
    std::map<std::int64_t, Instant> notBefore_;
};

}  // namespace vark
