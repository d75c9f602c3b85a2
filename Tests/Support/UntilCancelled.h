#pragma once

#include "VarkCore/Concurrency/Coroutine.h"

namespace vark::test {

/// A wait that only the cancellation of its task ends. What that means is the waiting task's to say.
class UntilCancelled final : public StoppableWait {
  public:
    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
        return suspend(handle, [this](const TaskContext& context) { watch(context.token); });
    }
    void await_resume() { unwatch(); }

  private:
    void onStop() noexcept override { complete(); }
};

}  // namespace vark::test
