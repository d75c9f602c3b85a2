#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Hosts/CLI/Display/SendDisplay.h"
#include "Hosts/CLI/ExitCode.h"
#include "Hosts/CLI/NextWords.h"
#include "VarkApp/Session.h"

namespace vark::cli {

/// A time-out as people give it: "90 s", "15 min", "2 h".
std::string asGiven(Duration timeout);

/// One run of `vark send`: a session that ends, with what a terminal adds to it. It takes in what it was
/// given, sends, and leaves when all has settled, when the vark takes this machine's token no longer, or when
/// it is interrupted. Whoever made it drives the executor until `ended` has a value; on the executor's
/// thread, but for `post`.
///
/// Its life goes one way: it opens, sends, leaves, and has ended. It leaves at any time; then the queue is
/// saved before anything else, and its last words are spoken when all of the session's work has ended.
class SendRun final : SessionListener {
  public:
    struct Settings {
        /// What to add; without anything named, and without a card, it carries on with the saved queue.
        QueueRequest add;
        std::optional<IngestWish> ingest;
        /// What becomes of every conflict that nothing else is wished for; without a value they wait for the
        /// person.
        std::optional<ConflictRule> onConflict;
        Pace pace;
        /// After it the run leaves, however far it has come.
        std::optional<Duration> timeout;
        /// Whether somebody sits at this terminal who can lift a pause.
        bool somebodyIsThere = true;
        Loudness loudness = Loudness::usual;
    };

    SendRun(Surroundings& surroundings, const SharedConnection& connection, QueueLock lock, Settings settings,
            SendDisplay& display);
    ~SendRun() override;
    SendRun(const SendRun&) = delete;
    SendRun& operator=(const SendRun&) = delete;

    std::optional<ExitCode> ended() const {
        return life_ == Life::ended ? std::optional(ending_.code) : std::nullopt;
    }

    /// p pauses and resumes, r tries what failed again, q quits; any other shows how it stands.
    void press(char key);
    void interrupt();
    /// From any thread: `press`, or `interrupt` without a key, as soon as the executor gets to it.
    void post(std::optional<char> key);

  private:
    enum class Life : std::uint8_t { opening, sending, leaving, ended };
    struct Ending {
        ExitCode code = ExitCode::allLanded;
        /// In place of the summary.
        std::optional<std::string> sentence{};
        /// Whether the sentence goes on with how to carry on.
        bool leavesWork = false;
    };

    // What the session tells.
    void settled(const SettledFile& file) override;
    void said(const Said& said) override { display_.say(inWords(said)); }
    void triedAgain(const TransferEngine::TriedAgain& what) override { display_.triedAgain(what); }
    void changed() override;
    void allSettled() override;
    void cardClosed(const CardClosed& card) override;
    void tokenRefused(const Said& why) override { stop(ExitCode::notConnected, inWords(why)); }
    void tokenGood() override {}
    void connectionGone() override;
    void brokenOff(const Said& why) override { stop(ExitCode::somethingFailed, inWords(why)); }

    // Taking in.
    Task<void> open();
    Task<void> takeIn();
    Task<void> takeInCard();
    void carryOn();
    void noteWhatIsMine(const std::vector<std::string>& added);
    void sayWhatWasNotAdded();
    bool addsSomething() const { return !settings_.add.named.empty() || settings_.ingest; }

    // While it sends.
    Task<void> beating();
    Task<void> request(QueueRequest::Command command);
    void lookWhetherSomebodyIsMissed();
    Task<void> waitForSomebody();
    Task<void> leaveAfter(Duration timeout);
    Task<void> take(std::optional<char> key);

    // Its end.
    bool isLeaving() const { return life_ == Life::leaving || life_ == Life::ended; }
    void finish(ExitCode code) { leave({.code = code}); }
    void breakOff(ExitCode code, const std::string& sentence) { leave({.code = code, .sentence = sentence}); }
    /// With work left for a later run.
    void stop(ExitCode code, const std::string& sentence) {
        leave({.code = code, .sentence = sentence, .leavesWork = true});
    }
    void leaveRefused(const QueueAnswer& answer);
    void leave(Ending ending);
    Task<void> speakLastWords();
    void tellHowItEnded(bool isSaved);
    std::string howToCarryOn(bool isSaved) const;

    const TransferEngine& engine() const { return session_.engine(); }
    QueueView glance() const { return QueueView::glance(engine(), surroundings_.date()); }
    QueueView mine() const { return session_.desk().viewOf(mine_); }

    Surroundings& surroundings_;
    SendDisplay& display_;
    const Settings settings_;
    Life life_ = Life::opening;
    Ending ending_;
    /// The entries whose end is this run's: those that it was to add, and those that it found unfinished.
    std::vector<UUID> mine_;
    LeftOut leftOut_;
    bool wasLeftBehind_ = false;
    bool settledAnything_ = false;
    /// There is something to show since the display was shown last.
    bool isStale_ = false;
    /// The card is not safe to clear.
    bool isCardUnsafe_ = false;
    TaskHandle<void> opening_;
    TaskHandle<void> beat_;
    TaskHandle<void> waiting_;

    Session session_;
    TaskScope scope_;  // Last: its tasks use all of the above.
};

}  // namespace vark::cli
