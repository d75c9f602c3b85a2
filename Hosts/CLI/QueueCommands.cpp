#include <unistd.h>

#include "Hosts/CLI/Commands.h"
#include "Hosts/CLI/LiveArea.h"
#include "Hosts/CLI/QueueHolder.h"
#include "Hosts/CLI/QueueOutput.h"
#include "Hosts/CLI/QueueWords.h"
#include "Hosts/CLI/Terminal.h"
#include "Hosts/CLI/TextWidth.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

using Command = QueueRequest::Command;

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
    bool skip = false;
    bool json = false;
};

struct Shown {
    std::optional<QueueView> view;
    std::vector<std::string> problems;
    ExitCode code = ExitCode::allLanded;
};

Shown lookAtQueue(Surroundings& surroundings) {
    const Asked asked = surroundings.await(takeQueueOrAsk(surroundings, QueueRequest{}));
    if (!asked.lock) return {asked.answer.queue, asked.answer.problems, asked.answer.code};
    std::optional<TransferJob> job = savedQueue(surroundings);
    if (!job) return {};
    return {QueueView::of(*job), {}, ExitCode::allLanded};
}

void printShown(Console& console, const Shown& shown, bool json) {
    for (const std::string& problem : shown.problems)
        console.say(problem);
    if (shown.view) printQueue(console, *shown.view, json);
}

Task<void> waitASecond() {
    co_await sleepFor(std::chrono::seconds(1));
}

/// Until nobody is sending any more; then the queue as it was left stays on the screen.
ExitCode watch(Surroundings& surroundings, const QueueOptions& options) {
    Console& console = surroundings.console;
    const bool draws = !options.json && Terminal::isTerminal(STDOUT_FILENO);
    LiveArea area;
    while (console.isRead()) {
        Shown shown = lookAtQueue(surroundings);
        if (!draws) {
            printShown(console, shown, options.json);
        } else if (std::optional<TerminalSize> size = Terminal::size()) {
            std::vector<std::string> lines;
            if (shown.view) lines = queueLines(*shown.view);
            if (lines.size() + 1 > static_cast<std::size_t>(size->rows))
                lines.resize(static_cast<std::size_t>(size->rows - 1));
            for (std::string& line : lines)
                line = clippedToWidth(escapedForTerminal(line), size->columns - 1);
            console.printText(area.replace(lines, size->columns));
        }
        if (!shown.view || !shown.view->running) return shown.code;
        surroundings.await(waitASecond());
    }
    return ExitCode::allLanded;
}

ExitCode showQueue(Surroundings& surroundings, const QueueOptions& options) {
    if (options.watch) return watch(surroundings, options);
    Shown shown = lookAtQueue(surroundings);
    printShown(surroundings.console, shown, options.json);
    if (!shown.view && shown.problems.empty())
        surroundings.console.say("Nothing is in the queue. Put something in with: vark send PATH...");
    return shown.code;
}

ExitCode change(Surroundings& surroundings, const ChangeOptions& options) {
    QueueRequest request;
    request.command = options.command;
    for (const std::string& name : options.named)
        request.named.push_back(QueueRequest::Named::of(name));
    request.finishedOnly = options.finishedOnly;
    request.replace = options.replace;
    return printAnswer(surroundings.console, changeQueue(surroundings, request), options.json);
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
    decision->require_option(1);
    resolve
        .add_option("ENTRY-OR-FILE", resolving->named, "What \"vark queue\" shows; all that wait without it")
        ->type_name("ENTRY");
}

}  // namespace vark::cli
