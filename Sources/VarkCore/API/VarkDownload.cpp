#include "VarkCore/API/VarkDownload.h"

#include <utility>

namespace vark {

class VarkDownload::EndWait final : public StoppableWait {
  public:
    explicit EndWait(std::shared_ptr<VarkDownload> download) : download_(std::move(download)) {}

    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
        return suspend(handle, [this](const TaskContext& context) {
            if (!download_->enqueue(*this)) {
                complete();
            } else {
                watch(context.token);
            }
        });
    }
    void await_resume() {
        unwatch();
        const std::exception_ptr failure = download_->ended()->failure;
        if (failure) std::rethrow_exception(failure);
    }

  private:
    friend class VarkDownload;
    /// The end of the download ends this wait among the others.
    void onStop() noexcept override { download_->cancel(); }

    const std::shared_ptr<VarkDownload> download_;
};

VarkDownload::VarkDownload(std::shared_ptr<Progress> progress, std::function<void()> stop)
    : progress_(std::move(progress)), stop_(std::move(stop)) {}

Task<void> VarkDownload::value() {
    auto wait = [](std::shared_ptr<VarkDownload> download) -> Task<void> {
        co_await EndWait(std::move(download));
    };
    return wait(shared_from_this());
}

void VarkDownload::cancel() {
    {
        const Locked hold(lock_);
        isCancelled_ = true;
    }
    stop_();
}

void VarkDownload::finish(std::exception_ptr failure) {
    std::vector<EndWait*> waiting;
    {
        const Locked hold(lock_);
        if (ended_) return;
        if (isCancelled_) failure = std::make_exception_ptr(CancellationError());
        ended_ = Ended{std::move(failure)};
        waiting.swap(waiting_);
    }
    for (EndWait* wait : waiting)
        wait->complete();
}

bool VarkDownload::enqueue(EndWait& wait) {
    const Locked hold(lock_);
    if (ended_) return false;
    waiting_.push_back(&wait);
    return true;
}

std::optional<VarkDownload::Ended> VarkDownload::ended() const {
    const Locked hold(lock_);
    return ended_;
}

}  // namespace vark
