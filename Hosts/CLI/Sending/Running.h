#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Hosts/CLI/CommandSurroundings.h"
#include "Hosts/CLI/Display/SendDisplay.h"
#include "Hosts/CLI/NextWords.h"
#include "VarkApp/Bell.h"
#include "VarkApp/Session.h"

namespace vark::cli {

/// `vark run`: the application without a desktop and without a terminal. It has the queue from its start to
/// its end, connected or not: a session while there is a connection, and while there is none it carries
/// requests out on the saved queue. It takes up a new record, and another pace that a person sets, as soon as
/// that is written. On the main thread; ends when its task is cancelled.
class Running final : SessionListener {
  public:
    Running(CommandSurroundings& surroundings, QueueLock lock);
    ~Running() override;

    /// Never returns but by a failure or a cancellation; then the queue is saved.
    Task<void> run();

  private:
    void settled(const SettledFile& file) override { display_.fileSettled(file); }
    void said(const Said& said) override { display_.say(inWords(said)); }
    void changed() override {}
    void triedAgain(const TransferEngine::TriedAgain&) override {}
    void allSettled() override {}
    void cardClosed(const CardClosed& card) override;
    void tokenGood() override {}
    void tokenRefused(const Said& why) override { said(why); }
    void connectionGone() override { bell_.ring(); }
    void brokenOff(const Said& why) override { said(why); }

    Task<void> goOn();
    void takeUpPace();
    Task<void> takeUpRecord();
    Task<void> connect();
    Task<void> leave();
    bool isConnectedTo(const std::optional<SharedConnection>& record) const;
    Task<void> answerWithoutASession();
    void sayOnce(const std::string& sentence);

    CommandSurroundings& surroundings_;
    const QueueLock lock_;
    Pace pace_;
    PlainDisplay display_;
    const RequestFolder requests_;
    std::string saidLast_;
    std::optional<SharedConnection> triedLast_;
    Instant nextTry_{};
    SharedConnection connection_;
    std::unique_ptr<Session> session_;
    Bell bell_;
    // Last: they ring the bell.
    std::unique_ptr<FolderWatch> recordWatch_;
    std::unique_ptr<FolderWatch> requestWatch_;
    std::unique_ptr<FolderWatch> settingsWatch_;
};

}  // namespace vark::cli
