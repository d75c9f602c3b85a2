#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/LiveArea.h"
#include "Hosts/CLI/Display/QueueLines.h"
#include "Hosts/CLI/Display/QueueOutput.h"
#include "Hosts/CLI/Display/Terminal.h"
#include "Hosts/CLI/NextWords.h"
#include "VarkApp/Queue/QueueHolder.h"

namespace vark::cli {

namespace {

using Command = QueueRequest::Command;

constexpr Duration queueIsLookedAtEvery = std::chrono::seconds(1);

struct QueueOptions {
    bool watch = false;
    bool json = false;
};

/// Of all commands that change the queue; each uses what it has options for.
struct ChangeOptions {
    Command command = Command::show;
    std::vector<std::string> named;
    bool finishedOnly = false;
    bool replace = false;
    bool newer = false;
    bool keepBoth = false;
    bool skip = false;
    bool json = false;
};

struct Shown {
    std::optional<QueueView> view;
    std::vector<Said> problems;
    ExitCode code = ExitCode::allLanded;
};

Task<Shown> lookAtQueue(CommandSurroundings& surroundings) {
    const Asked asked = co_await takeQueueOrAsk(surroundings, QueueRequest{});
    if (!asked.lock)
        co_return Shown{asked.answer.queue, asked.answer.problems, exitCodeOf(asked.answer.outcome)};
    std::optional<TransferJob> job = savedQueue(surroundings);
    if (!job) co_return Shown{};
    co_return Shown{QueueView::of(*job), {}, ExitCode::allLanded};
}

void printShown(Console& console, const Shown& shown, bool json) {
    for (const Said& problem : shown.problems)
        console.say(inWords(problem));
    if (shown.view) printQueue(console, *shown.view, json);
}

/// The queue, drawn over and over on a terminal, and printed again and again elsewhere.
class WatchDisplay {
  public:
    WatchDisplay(Console& console, bool json)
        : console_(console), json_(json), draws_(!json && Terminal::canDraw()) {}

    void show(const Shown& shown) {
        if (!draws_) {
            printShown(console_, shown, json_);
            return;
        }
        size_ = Terminal::size();
        if (!size_) return;
        lines_ =
            shown.view ? watchedLines(*shown.view, console_.signs(), *size_) : std::vector<std::string>();
        console_.printText(area_.replace(lines_));
    }
    /// What was shown last stays.
    void leave() {
        if (draws_ && size_) console_.printText(area_.leave(lines_));
    }

  private:
    Console& console_;
    const bool json_;
    const bool draws_;
    LiveArea area_;
    std::vector<std::string> lines_;
    std::optional<TerminalSize> size_;
};

/// Until nobody is sending any more.
Task<ExitCode> watching(CommandSurroundings& surroundings, WatchDisplay& display) {
    for (;;) {
        const Shown shown = co_await lookAtQueue(surroundings);
        display.show(shown);
        const bool goesOn = shown.view && shown.view->running && surroundings.console.isRead();
        if (!goesOn) co_return shown.code;
        co_await sleepFor(queueIsLookedAtEvery);
    }
}

ExitCode watch(CommandSurroundings& surroundings, const QueueOptions& options) {
    WatchDisplay display(surroundings.console, options.json);
    TaskScope scope(surroundings.executor, surroundings.clock);
    const TaskHandle<ExitCode> work = scope.start(watching(surroundings, display));
    Terminal terminal(false, [work](std::optional<char>) { work.cancel(); });
    surroundings.executor.runUntil([&] { return work.done(); });
    display.leave();
    try {
        return work.result();
    } catch (const CancellationError&) {
        return ExitCode::interrupted;
    }
}

ExitCode showQueue(CommandSurroundings& surroundings, const QueueOptions& options) {
    if (options.watch) return watch(surroundings, options);
    const Shown shown = surroundings.await(lookAtQueue(surroundings));
    printShown(surroundings.console, shown, options.json);
    if (!shown.view && shown.problems.empty())
        surroundings.console.say("Nothing is in the queue. Put something in with: vark send PATH...");
    return shown.code;
}

ExitCode change(CommandSurroundings& surroundings, const ChangeOptions& options) {
    QueueRequest request;
    request.command = options.command;
    for (const std::string& name : options.named)
        request.named.push_back(QueueRequest::Named::of(name));
    request.finishedOnly = options.finishedOnly;
    if (options.replace) request.rule = ConflictRule::replace;
    if (options.newer) request.rule = ConflictRule::newer;
    if (options.keepBoth) request.rule = ConflictRule::keepBoth;
    return printAnswer(surroundings.console,
                       surroundings.await(changeQueue(surroundings, std::move(request))), options.json);
}

CLI::App& addChange(CLI::App& program, Chosen& chosen, const std::string& name, const std::string& help,
                    const std::shared_ptr<ChangeOptions>& options) {
    CLI::App& command = addCommand(program, chosen, name, help, options, change);
    addJSON(command, options->json);
    return command;
}

std::shared_ptr<ChangeOptions> optionsFor(Command command) {
    auto options = std::make_shared<ChangeOptions>();
    options->command = command;
    return options;
}

}  // namespace

void declareQueueCommands(CLI::App& program, Chosen& chosen) {
    auto showing = std::make_shared<QueueOptions>();
    CLI::App& queue = addCommand(program, chosen, "queue", "Show the queue", showing, showQueue);
    queue.add_flag("--watch", showing->watch, "Go on showing it while a vark is sending");
    addJSON(queue, showing->json);

    addChange(program, chosen, "pause", "Pause the queue, also for later runs", optionsFor(Command::pause));
    addChange(program, chosen, "resume", "Let a paused queue go on", optionsFor(Command::resume));
    addChange(program, chosen, "retry", "Queue again what failed", optionsFor(Command::retry));

    auto removing = optionsFor(Command::remove);
    addChange(program, chosen, "remove", "Take things out of the queue; what has landed stays in the vark",
              removing)
        .add_option("ENTRY", removing->named, "A name, a path, or a number that \"vark queue\" shows")
        ->required()
        ->type_name("ENTRY");

    auto clearing = optionsFor(Command::clear);
    addChange(program, chosen, "clear", "Empty the queue; what has landed stays in the vark", clearing)
        .add_flag("--finished", clearing->finishedOnly, "Only what has landed whole");

    auto resolving = optionsFor(Command::resolve);
    CLI::App& resolve =
        addChange(program, chosen, "resolve", "Decide about files that differ from the vark's", resolving);
    CLI::Option_group* decision = resolve.add_option_group("Decision");
    decision->add_flag("--replace", resolving->replace, "Overwrite what is in the vark");
    decision->add_flag("--skip", resolving->skip, "Leave what is in the vark");
    decision->add_flag("--newer", resolving->newer,
                       "Overwrite what is older in the vark, and leave the rest");
    decision->add_flag("--keep-both", resolving->keepBoth,
                       "Put it beside what is in the vark, under a free name");
    decision->require_option(1);
    resolve
        .add_option("ENTRY-OR-FILE", resolving->named, "What \"vark queue\" shows; all that wait without it")
        ->type_name("ENTRY");
}

}  // namespace vark::cli
