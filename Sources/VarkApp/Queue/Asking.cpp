#include "VarkApp/Queue/Asking.h"

#include <unistd.h>

#include <algorithm>

#include "VarkApp/Queue/RequestFolder.h"
#include "VarkCore/Policies/LocalCache.h"

namespace vark::app {

namespace {

/// What rings is not waited for alone: a folder of the network may tell of nothing.
constexpr Duration lookAtLeast = std::chrono::seconds(1);
/// How long a request may lie there untaken, and how long one that was taken may go without an answer.
constexpr Duration longestUntaken = std::chrono::seconds(10);
constexpr Duration longestUnanswered = std::chrono::seconds(60);

/// A question that nobody is left to hear the answer of, unless it has been taken.
class Question {
  public:
    Question(const RequestFolder& folder, const QueueRequest& request)
        : folder_(folder), id_(folder.ask(request)) {}
    ~Question() { folder_.withdraw(id_); }
    Question(const Question&) = delete;
    Question& operator=(const Question&) = delete;

    const UUID& id() const { return id_; }

  private:
    const RequestFolder& folder_;
    const UUID id_;
};

}  // namespace

QueueLock takeQueue(Surroundings& surroundings) {
    SingleInstance::Lock lock = SingleInstance::reachForLock(surroundings.locations().runningLock());
    SingleInstance::Seen seen;
    // That root stands aside is for the application, which belongs to whoever sits at the screen. A command
    // is run by root on purpose, and then works on root's own queue.
    seen.euid = std::max(geteuid(), 1U);
    seen.mine = getpid();
    seen.lockTaken = lock.isTaken;
    // Who holds the lock is alone, whoever else is starting. Only where it cannot be had does the list count.
    if (!lock.held) seen.others = surroundings.platform.otherSenders();
    if (!std::holds_alternative<SingleInstance::CarryOn>(SingleInstance::verdict(seen))) return nullptr;
    // What an earlier holder was killed in the middle of.
    std::vector<std::filesystem::path> folders = {surroundings.locations().storageFolder()};
    if (surroundings.sharedFolder()) folders.push_back(*surroundings.sharedFolder());
    LocalCache::sweep(folders);
    return std::make_shared<SingleInstance::Lock>(std::move(lock));
}

Asking::Asking(Surroundings& surroundings)
    : surroundings_(surroundings), bell_(surroundings.executor, surroundings.clock) {}

void Asking::listen() {
    if (lock_) return;
    answers_ = surroundings_.platform.makeFolderWatch();
    answers_->start(surroundings_.locations().requests(), [this] { bell_.ring(); });
    lock_ = surroundings_.platform.makeFolderWatch();
    lock_->start(surroundings_.locations().storageFolder(), [this] { bell_.ring(); });
}

Task<Asked> Asking::ask(QueueRequest request) {
    if (QueueLock lock = takeQueue(surroundings_)) co_return Asked{std::move(lock), {}};
    listen();
    // To add is what may be done twice without harm, and what may take long: a folder is walked first.
    const bool isAdding =
        request.command == QueueRequest::Command::add || request.command == QueueRequest::Command::ingest;
    const RequestFolder folder(surroundings_.locations().requests());
    const Question question(folder, request);
    const Instant asked = surroundings_.clock.now();
    while (true) {
        co_await bell_.waitAtMost(lookAtLeast);
        const bool isWaiting = folder.isWaiting(question.id());
        QueueLock lock = takeQueue(surroundings_);
        // Looked for after the lock: whoever has let it go has written its last answer.
        if (std::optional<QueueAnswer> answer = folder.takeAnswer(question.id()))
            co_return Asked{nullptr, *std::move(answer)};
        if (lock && (folder.withdraw(question.id()) || isAdding)) co_return Asked{std::move(lock), {}};
        Asked unanswered;
        const Duration waited = surroundings_.clock.now() - asked;
        if (lock) {
            unanswered.answer.refuse({"The vark that was sending ended before it said what became of this.",
                                      {{Next::Step::watch}}});
            co_return unanswered;
        }
        if (isWaiting && waited >= longestUntaken && folder.withdraw(question.id())) {
            unanswered.answer.refuse(
                "The running vark did not answer. Nothing was changed; try again, or end it first.");
            co_return unanswered;
        }
        if (!isWaiting && !isAdding && waited >= longestUnanswered) {
            unanswered.answer.refuse(
                {"The running vark took the request and has not answered yet.", {{Next::Step::watch}}});
            co_return unanswered;
        }
    }
}

Task<QueueLock> Asking::waitForTheQueue(Duration longest) {
    listen();
    const Instant end = surroundings_.clock.now() + longest;
    while (true) {
        if (QueueLock lock = takeQueue(surroundings_)) co_return lock;
        const Duration left = end - surroundings_.clock.now();
        if (left <= Duration(0)) co_return nullptr;
        co_await bell_.waitAtMost(left);
    }
}

Task<Asked> takeQueueOrAsk(Surroundings& surroundings, QueueRequest request) {
    Asking asking(surroundings);
    co_return co_await asking.ask(std::move(request));
}

}  // namespace vark::app
