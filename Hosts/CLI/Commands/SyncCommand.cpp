#include <fmt/ranges.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "VarkCore/Sync/SharedSync.h"
#include "VarkCore/Sync/SyncSummary.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

struct SyncOptions {
    bool json = false;
};

std::string_view verbOf(SyncOp::Kind kind) {
    switch (kind) {
        case SyncOp::Kind::upload:
            return "sending";
        case SyncOp::Kind::folder:
            return "making the folder";
        case SyncOp::Kind::rename:
            return "renaming";
        case SyncOp::Kind::move:
            return "moving";
        case SyncOp::Kind::bin:
            return "binning";
    }
}

/// ", 12 MB of 40 MB"; nothing for what has no bytes.
std::string bytesOf(std::int64_t done, std::int64_t total) {
    return total > 0 ? fmt::format(", {} of {}", Format::bytes(done), Format::bytes(total)) : "";
}

std::string headline(const SyncSummary& summary, const Signs& signs) {
    std::vector<std::string> words;
    if (!summary.sending.empty())
        words.push_back(fmt::format("{} under way{}", summary.sending.size(),
                                    bytesOf(summary.bytesDone(), summary.bytesTotal())));
    if (!summary.waiting.empty()) words.push_back(fmt::format("{} waiting", summary.waiting.size()));
    if (!summary.problems.empty())
        words.push_back(fmt::format("{} {} you", summary.problems.size(),
                                    summary.problems.size() == 1 ? "needs" : "need"));
    return fmt::format("{}", fmt::join(words, signs.between));
}

void printSending(Console& console, const SyncSummary& summary, Date now) {
    if (summary.sending.empty()) return;
    std::vector<SyncOp> shown = summary.moving(now);
    if (shown.empty()) shown.push_back(*summary.current());
    console.print("Under way:");
    for (const SyncOp& op : shown)
        console.print(fmt::format("  {}: {}{}", op.path, verbOf(op.kind),
                                  bytesOf(op.done, std::max(op.bytes, op.done))));
    if (summary.sending.size() > shown.size())
        console.print(fmt::format("  and {} more", summary.sending.size() - shown.size()));
}

void printWaiting(Console& console, const SyncSummary& summary) {
    if (summary.waiting.empty()) return;
    console.print("Waiting:");
    for (const SyncSummary::WaitingGroup& group : summary.waitingGroups()) {
        const std::string place = group.folder.empty() ? "at the top of the vark" : "in " + group.folder;
        console.print(fmt::format("  {} {}: {}", Format::count(group.count, "change"), place, group.reason));
    }
}

void printProblems(Console& console, const SyncSummary& summary) {
    if (summary.problems.empty()) return;
    console.print("Needs you:");
    for (const SyncOp& op : summary.problems)
        console.print(fmt::format("  {}: {}", op.path, op.reason.value_or("No reason is known.")));
}

ExitCode showSync(CommandSurroundings& surroundings, const SyncOptions& options) {
    Console& console = surroundings.console;
    const Date now = surroundings.date();
    const std::vector<SyncOp> ops = SharedSync::read(surroundings.sharedFolder(), now);
    if (ops.empty()) console.say("Nothing is owed to the vark, as far as this machine knows.");
    if (options.json) {
        for (const SyncOp& op : ops)
            console.printRecord(op);
        return ExitCode::allLanded;
    }
    if (ops.empty()) return ExitCode::allLanded;
    const SyncSummary summary(ops);
    console.print(headline(summary, console.signs()));
    printSending(console, summary, now);
    printWaiting(console, summary);
    printProblems(console, summary);
    return ExitCode::allLanded;
}

}  // namespace

void declareSync(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<SyncOptions>();
    CLI::App& command = addCommand(
        program, chosen, "sync", "Show the changes that this machine still owes the vark", options, showSync);
    addJSON(command, options->json);
}

}  // namespace vark::cli
