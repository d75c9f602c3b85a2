#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "VarkApp/Queue/QueueRequest.h"
#include "VarkApp/Surroundings.h"
#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Transfer/TransferEngine.h"

namespace vark::app {

/// Carries requests out on an engine, whoever asked. What an answer says is in the queue, or out of it, is so
/// on the disk too, or the answer says that it is not. Owned by whoever has the engine; on the engine's
/// executor. Of requests that add or clear one runs at a time: whoever calls sees to that.
class QueueDesk {
  public:
    /// `clientName` is that of the connection that the queue is for; `api` reaches its vark.
    QueueDesk(Surroundings& surroundings, TransferEngine& engine, std::shared_ptr<VarkAPI> api,
              std::string rootPath, std::string clientName)
        : surroundings_(surroundings),
          engine_(engine),
          api_(std::move(api)),
          rootPath_(std::move(rootPath)),
          clientName_(std::move(clientName)),
          wishes_(surroundings.locations().wishes()) {}

    /// Fails with nothing but a cancellation, which breaks off a walk: what cannot be done stands in the
    /// answer.
    Task<QueueAnswer> carryOut(QueueRequest request);
    /// The same up to the saving, which the caller awaits.
    Task<QueueAnswer> change(QueueRequest request);
    /// Why what is left of the queue must not go to the vark that this machine is connected to; nothing when
    /// it may.
    std::optional<Said> whyItMustNotGo() const;
    /// Whether the queue, which there is, is for the vark that this machine is connected to.
    bool isForThisVark() const;
    /// Whether nothing stands in the queue that has not landed.
    bool isSettledWhole() const;
    /// Begins a queue afresh in place of one that is settled whole, or of none.
    void beginAnew(const std::string& destination, const std::string& title);
    /// Of a file that has settled, for those who follow its entry.
    void noteSettled(const UUID& entry, SettledFile file) { settled_.note(entry, std::move(file)); }
    /// Keeps what is wanted of these entries.
    void wish(const std::vector<std::string>& entries, const Wish& wish);
    /// What decides about entries of which nothing is wished, for as long as this desk is there.
    void setUsualRule(std::optional<ConflictRule> rule) { usualRule_ = rule; }
    /// Decides about the files that wait, as their entries' wishes and the usual rule say.
    void decideAsWished();
    /// Whether `decideAsWished` decides about a file that waits.
    bool isDecidedAsWished(const TransferItem& item) const;
    /// How it stands with these entries, also with those that have left the queue in the last minute.
    QueueView viewOf(const std::vector<UUID>& entries) const;

  private:
    QueueAnswer show(const QueueRequest& request) const;
    Task<QueueAnswer> add(QueueRequest request);
    QueueAnswer pause();
    QueueAnswer resume();
    QueueAnswer retry();
    QueueAnswer remove(const QueueRequest& request);
    Task<QueueAnswer> clear(QueueRequest request);
    QueueAnswer resolve(const QueueRequest& request);

    /// Makes the queue ready to take in what goes to that place; says why it cannot.
    bool prepare(const QueueRequest& request, QueueAnswer& answer);
    /// Tells the asker and the diary of what lies there and is not sent.
    void noteLeftOut(const std::vector<Walker::PassedOver>& passedOver, QueueAnswer& answer);
    std::optional<ConflictRule> ruleFor(const UUID& entry) const;
    /// The one entry that the person means.
    std::optional<UUID> entry(const QueueRequest::Named& named) const;
    /// The files that wait for a decision and that the person means by one name.
    std::vector<UUID> conflicts(const QueueRequest::Named& named) const;
    /// Does what takes entries out of the queue, and remembers how far they had come.
    template <class TakeOut>
    void takingOut(TakeOut takeOut);

    Surroundings& surroundings_;
    TransferEngine& engine_;
    const std::shared_ptr<VarkAPI> api_;
    const std::string rootPath_;
    const std::string clientName_;
    Wishes wishes_;
    SettledFiles settled_;
    std::optional<ConflictRule> usualRule_;
    struct Gone {
        EntryView view;
        Instant since;
    };
    /// What has left the queue, with its last numbers: whoever follows it still asks.
    std::unordered_map<UUID, Gone> gone_;
};

}  // namespace vark::app
