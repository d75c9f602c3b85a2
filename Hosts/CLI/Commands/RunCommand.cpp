#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/Terminal.h"
#include "Hosts/CLI/Sending/Running.h"
#include "Hosts/CLI/Sending/Sending.h"
#include "VarkApp/Queue/Asking.h"

namespace vark::cli {

namespace {

constexpr const char* aboutRun =
    "It has the queue from its start to its end: vark send hands over to it, and pause, retry and the like "
    "ask it.\n"
    "Without a connection it waits for one. SIGTERM ends it; the queue is saved. There is a unit for it: "
    "systemctl\n"
    "--user enable --now vark.service";
constexpr Duration longestSleep = std::chrono::hours(24);

struct RunOptions {};

Task<void> runWhenTheQueueIsFree(CommandSurroundings& surroundings) {
    Asking asking(surroundings);
    QueueLock lock = co_await asking.waitForTheQueue(Duration(0));
    if (!lock) surroundings.console.say("Another vark is sending. Waiting until the queue is free.");
    while (!lock)
        lock = co_await asking.waitForTheQueue(longestSleep);
    Running running(surroundings, std::move(lock));
    co_await running.run();
}

ExitCode runWithoutATerminal(CommandSurroundings& surroundings, const RunOptions&) {
    TaskScope scope(surroundings.executor, surroundings.clock);
    const TaskHandle<void> running = scope.start(runWhenTheQueueIsFree(surroundings));
    Terminal terminal(false, [running](std::optional<char>) { running.cancel(); });
    surroundings.executor.runUntil([&] { return running.done(); });
    try {
        running.result();
    } catch (const CancellationError&) {
        // That is how it ends.
    }
    return ExitCode::allLanded;
}

}  // namespace

void declareRun(CLI::App& program, Chosen& chosen) {
    CLI::App& command = addCommand(program, chosen, "run", "Send what is in the queue, and wait for more",
                                   std::make_shared<RunOptions>(), runWithoutATerminal);
    command.footer(aboutRun);
}

}  // namespace vark::cli
