#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "Hosts/CLI/IngestDesk.h"
#include "Hosts/CLI/QueueDesk.h"
#include "Hosts/CLI/RequestFolder.h"
#include "Hosts/CLI/SendDisplay.h"
#include "Hosts/CLI/Surroundings.h"
#include "Hosts/CLI/WorkingHours.h"
#include "VarkCore/Activity/ActivityEntry.h"
#include "VarkCore/LAN/NodeBrowser.h"

namespace vark::cli {

/// One run of `vark send`: the application while it lasts. It owns the engine, answers what other runs ask
/// through the request folder, and ends when all has settled, when the vark takes this machine's token no
/// longer, or when it is interrupted. Whoever made it holds the running lock, drives the executor until
/// `ended` has a value, and then lets it go; on the executor's thread, but for the construction.
class SendSession {
  public:
    struct Settings {
        /// What to add; without anything named, and without a card, it carries on with the saved queue.
        QueueRequest add;
        std::optional<IngestWish> ingest;
        /// What to do with every conflict; without a value they wait for the person.
        std::optional<bool> replaceConflicts;
        std::int64_t bytesPerSecond = 0;
        std::optional<WorkingHours> workingHours;
        int chunksAtOnce = 4;
    };

    SendSession(Surroundings& surroundings, const SharedConnection& connection, Settings settings,
                SendDisplay& display);
    ~SendSession();
    SendSession(const SendSession&) = delete;
    SendSession& operator=(const SendSession&) = delete;

    const std::optional<ExitCode>& ended() const { return ended_; }

    /// p pauses and resumes, r tries what failed again, q quits.
    void press(char key);
    void interrupt();
    /// From any thread: `press`, or `interrupt` without a key, as soon as the executor gets to it.
    void post(std::optional<char> key);

  private:
    /// Ends the run when the task fails, which nothing foresees.
    Task<void> watched(Task<void> task);
    Task<void> open();
    Task<void> takeIn();
    Task<void> takeInCard();
    /// Tells the vark of a card whose files had all settled when an earlier run ended.
    Task<void> settleAccounts();
    Task<void> beating();
    Task<void> answerRequests();
    Task<void> recoverToken(std::vector<std::chrono::seconds> waits);
    Task<void> take(std::optional<char> key);
    /// Later, when the engine has come out of whatever it is doing.
    Task<void> endIfSettled();

    Task<void> closeIngest();
    Task<void> lookForTheCard();

    void heard(const TransferEngine::Event& event);
    void fileSettled(const TransferItem& item);
    void tellOfWhatWasSent();
    void endWhenSettled();
    ExitCode outcome() const;
    bool addsSomething() const { return !settings_.add.named.empty() || settings_.ingest; }
    void watchVolumes();
    void stop(ExitCode code);
    void finish(ExitCode code);
    void breakOff(ExitCode code, const std::string& sentence);
    void setDamagedQueueAside();
    QueueView glance() const;
    void keepWorkingHours();

    Surroundings& surroundings_;
    SendDisplay& display_;
    const Settings settings_;
    std::shared_ptr<VarkAPI> api_;
    RequestFolder requests_;
    TransferEngine engine_;
    QueueDesk desk_;
    IngestDesk ingest_;
    const std::unique_ptr<ServiceBrowser> services_;
    NodeBrowser nodes_;

    /// Not yet in the list of activity, which is written once a beat.
    std::vector<ActivityEntry> sent_;
    std::optional<ExitCode> ended_;
    bool opened_ = false;
    bool somePathsFailed_ = false;
    bool recovering_ = false;
    bool closing_ = false;

    TaskScope scope_;                       // Its tasks use all of the above.
    std::unique_ptr<VolumeWatch> volumes_;  // Last: it starts tasks.
};

}  // namespace vark::cli
