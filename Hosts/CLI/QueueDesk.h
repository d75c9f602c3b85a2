#pragma once

#include <memory>
#include <string>

#include "Hosts/CLI/QueueRequest.h"
#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Transfer/TransferEngine.h"

namespace vark::cli {

/// Carries requests out on an engine, one at a time, whoever asked. Owned by whoever has the engine; on the
/// engine's executor.
class QueueDesk {
  public:
    /// `clientName` is that of the connection that the queue is for; `api` reaches its vark.
    QueueDesk(TransferEngine& engine, std::shared_ptr<VarkAPI> api, std::string rootPath,
              std::string clientName)
        : engine_(engine),
          api_(std::move(api)),
          rootPath_(std::move(rootPath)),
          clientName_(std::move(clientName)) {}

    /// Never fails: what cannot be done stands in the answer.
    Task<QueueAnswer> carryOut(QueueRequest request);
    /// Why what is left of the queue must not go to the vark that this machine is connected to; nothing when
    /// it may.
    std::optional<std::string> whyItMustNotGo() const;
    /// Whether the queue, which there is, is for the vark that this machine is connected to.
    bool isForThisVark() const;
    /// Whether nothing stands in the queue that has not landed.
    bool isSettledWhole() const;
    /// Begins a queue afresh in place of one that is settled whole, or of none.
    void beginAnew(const std::string& destination, const std::string& title);

  private:
    QueueAnswer show() const;
    Task<QueueAnswer> add(QueueRequest request);
    QueueAnswer pause();
    QueueAnswer resume();
    QueueAnswer retry();
    QueueAnswer remove(const QueueRequest& request);
    Task<QueueAnswer> clear(QueueRequest request);
    QueueAnswer resolve(const QueueRequest& request);

    /// Makes the queue ready to take in what goes to that place; says why it cannot.
    bool prepare(const QueueRequest& request, QueueAnswer& answer);
    /// The one entry that the person means.
    std::optional<UUID> entry(const QueueRequest::Named& named) const;
    /// The files that wait for a decision and that the person means by one name.
    std::vector<UUID> conflicts(const QueueRequest::Named& named) const;

    TransferEngine& engine_;
    const std::shared_ptr<VarkAPI> api_;
    const std::string rootPath_;
    const std::string clientName_;
};

}  // namespace vark::cli
