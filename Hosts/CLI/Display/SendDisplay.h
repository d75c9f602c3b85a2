#pragma once

#include <memory>
#include <string>

#include "Hosts/CLI/Display/Console.h"
#include "Hosts/CLI/Display/LiveArea.h"
#include "Hosts/CLI/Display/QueueLines.h"
#include "Hosts/CLI/ExitCode.h"
#include "VarkApp/Queue/LeftOut.h"
#include "VarkApp/Queue/QueueView.h"
#include "VarkApp/Session.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Transfer/Cards/IngestReport.h"

namespace vark::cli {

/// How much a person wants to be told.
enum class Loudness {
    /// What failed, and what a person has to do.
    quiet,
    usual,
    /// Each file, on a terminal too.
    verbose
};

/// What a person or a program sees of one run of `vark send`. On the main thread; owned by the command.
class SendDisplay {
  public:
    virtual ~SendDisplay() = default;

    virtual void fileSettled(const SettledFile& file) = 0;
    /// The queue as it is now, without its entries; called while something moves, and when something changed.
    virtual void show(const QueueView& view) = 0;
    /// For programs: people see the outage, and find the rest in the diary.
    virtual void triedAgain(const TransferEngine::TriedAgain&) {}
    /// A sentence that the person should know of.
    virtual void say(const std::string& sentence) = 0;
    /// What became of the card that the queue comes from.
    virtual void cardClosed(const CardVerdict& verdict) = 0;
    /// What of the named folders is not sent. Before the last call.
    virtual void leftOut(const LeftOut& left) {
        if (left.hasAny()) say(leftOutLine(left));
    }
    /// The last call: all has settled.
    virtual void finish(const QueueView& view, ExitCode code) = 0;
    /// The last call instead, when all had settled before.
    virtual void finishIdle(const QueueView& view, ExitCode code) = 0;
    /// The last call when the run ends for another reason.
    virtual void breakOff(const std::string& sentence) = 0;
};

/// A line for each thing that happens: for a log, a pipe, a file.
class PlainDisplay final : public SendDisplay {
  public:
    explicit PlainDisplay(Console& console, Loudness loudness = Loudness::usual)
        : console_(console), isQuiet_(loudness == Loudness::quiet) {}

    void fileSettled(const SettledFile& file) override;
    void show(const QueueView& view) override;
    void say(const std::string& sentence) override { console_.say(sentence); }
    void cardClosed(const CardVerdict& verdict) override;
    void finish(const QueueView& view, ExitCode code) override;
    void finishIdle(const QueueView& view, ExitCode code) override;
    void breakOff(const std::string& sentence) override { console_.say(sentence); }

  private:
    Console& console_;
    const bool isQuiet_;
    std::optional<std::string> stopped_;
};

/// One JSON object for each thing that happens: for programs.
class JSONDisplay final : public SendDisplay {
  public:
    JSONDisplay(Console& console, WallClock date) : console_(console), date_(std::move(date)) {}

    void fileSettled(const SettledFile& file) override;
    void show(const QueueView& view) override;
    void triedAgain(const TransferEngine::TriedAgain& what) override;
    void say(const std::string& sentence) override { console_.say(sentence); }
    void cardClosed(const CardVerdict& verdict) override;
    void leftOut(const LeftOut& left) override;
    void finish(const QueueView& view, ExitCode code) override;
    void finishIdle(const QueueView& view, ExitCode code) override { finish(view, code); }
    void breakOff(const std::string& sentence) override { console_.say(sentence); }

  private:
    JSONWriter begin(std::string_view event) const;
    void print(JSONWriter& event) { console_.printJSON(event.endObject().take()); }
    void showOutage(const QueueView& view);
    void showProgress(const QueueView& view);

    Console& console_;
    const WallClock date_;
    std::optional<std::string> stopped_;
    std::optional<Date> outageSince_;
    Date progressShown_ = date_();
    std::int64_t bytesShown_ = 0;
};

/// Lines that are drawn over at every beat, on a terminal. What goes wrong stays above them.
class LiveDisplay final : public SendDisplay {
  public:
    /// `size` is asked at every drawing, and answers nothing while the terminal belongs to another program.
    LiveDisplay(Console& console, std::function<std::optional<TerminalSize>()> size,
                Loudness loudness = Loudness::usual)
        : console_(console), size_(std::move(size)), tellsOfEach_(loudness == Loudness::verbose) {}

    void fileSettled(const SettledFile& file) override;
    void show(const QueueView& view) override;
    void say(const std::string& sentence) override;
    void cardClosed(const CardVerdict& verdict) override;
    void finish(const QueueView& view, ExitCode code) override;
    void finishIdle(const QueueView& view, ExitCode code) override;
    void breakOff(const std::string& sentence) override;

  private:
    void erase();

    Console& console_;
    const std::function<std::optional<TerminalSize>()> size_;
    const bool tellsOfEach_;
    LiveArea area_;
};

}  // namespace vark::cli
