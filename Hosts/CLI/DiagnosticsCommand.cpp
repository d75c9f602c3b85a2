#include <unistd.h>

#include "Hosts/CLI/Commands.h"
#include "Hosts/CLI/QueueHolder.h"
#include "VarkCore/Connection/SharedFile.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Policies/Diagnostics.h"
#include "VarkCore/Sync/SharedSync.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

/// Bytes of each log in one report.
constexpr std::int64_t mostOfALog = 262'144;
/// For what other programs of this machine may have and this one has not.
constexpr const char* notHere = "none";

struct DiagnosticsOptions {
    bool send = false;
    bool json = false;
};

std::map<std::string, std::filesystem::path> logsOf(Surroundings& surroundings) {
    std::map<std::string, std::filesystem::path> logs{{"transfer", surroundings.locations().transferLog()}};
    if (const SharedStore::Folder& folder = surroundings.sharedFolder())
        logs["extensions"] = SharedFiles::extensionsLog(*folder);
    return logs;
}

std::string writability(const std::filesystem::path& folder) {
    if (access(folder.c_str(), W_OK) == 0) return "writable";
    return std::filesystem::exists(folder) ? "not writable" : "not there yet";
}

DiagnosticsReport::Snapshot snapshotOf(Surroundings& surroundings) {
    DiagnosticsReport::Snapshot snapshot;
    try {
        if (const std::optional<TransferJob> job = surroundings.store().load())
            Diagnostics::addQueue(snapshot, *job);
    } catch (const std::exception& error) {
        snapshot.problems = 1;
        snapshot.problemReasons = {std::string("The saved queue cannot be read: ") + error.what()};
    }
    Diagnostics::addOwed(snapshot,
                         SyncSummary(SharedSync::read(surroundings.sharedFolder(), surroundings.date())));
    const Locations& locations = surroundings.locations();
    snapshot.permissions = {{"storage folder", writability(locations.storageFolder())},
                            {"logs folder", writability(locations.logsFolder())}};
    if (surroundings.sharedFolder())
        snapshot.permissions["shared folder"] = writability(*surroundings.sharedFolder());
    snapshot.finder = notHere;
    snapshot.updater = notHere;
    snapshot.lanNodes = static_cast<std::int64_t>(surroundings.lan().all().size());
    std::error_code unknown;
    const std::filesystem::space_info space =
        std::filesystem::space(locations.storageFolder().parent_path(), unknown);
    if (!unknown) snapshot.freeBytes = static_cast<std::int64_t>(space.available);
    return snapshot;
}

void printText(Console& console, const std::string& text) {
    for (const std::string& line : splitKeepingEmpty(text, '\n')) {
        if (!line.empty()) console.print("  " + line);
    }
}

void print(Console& console, const DiagnosticsReport& report, bool json) {
    if (json) {
        console.printRecord(report);
        return;
    }
    const DiagnosticsReport::Snapshot& snapshot = report.snapshot;
    console.print(fmt::format("Version: {} on {}", report.appVersion, report.osVersion));
    console.print(fmt::format("{} to go, {}, {} waiting", Format::count(snapshot.queued, "file"),
                              Format::count(snapshot.problems, "problem"), Format::number(snapshot.waiting)));
    for (const std::string& reason : snapshot.problemReasons)
        console.print("  " + reason);
    for (const auto& [name, state] : snapshot.permissions)
        console.print(fmt::format("The {}: {}", name, state));
    console.print(fmt::format("Nodes in sight: {}", snapshot.lanNodes));
    if (snapshot.freeBytes) console.print(fmt::format("Free: {}", Format::bytes(*snapshot.freeBytes)));
    for (const auto& [name, text] : report.logs) {
        console.print(fmt::format("New in the log \"{}\":", name));
        printText(console, text);
    }
}

ExitCode diagnose(Surroundings& surroundings, const DiagnosticsOptions& options) {
    const std::optional<SharedConnection> connection = surroundings.connection();
    const std::filesystem::path cursorFile = surroundings.locations().logCursors();
    Diagnostics::NewInLogs news =
        Diagnostics::newIn(logsOf(surroundings), Diagnostics::readCursors(cursorFile), mostOfALog);
    DiagnosticsReport report;
    report.appVersion = VARK_VERSION;
    report.osVersion = surroundings.platform.systemVersion();
    report.logs = std::move(news.logs);
    report.snapshot = snapshotOf(surroundings);
    report = Diagnostics::without(connection ? connection->token : "", std::move(report));
    print(surroundings.console, report, options.json);
    if (!options.send) {
        surroundings.console.say(
            "Nothing has been sent. Send this to the vark with: vark diagnostics --send");
        return ExitCode::allLanded;
    }
    const SharedConnection needed = surroundings.neededConnection();
    surroundings.await(surroundings.api(needed)->sendDiagnostics(std::move(report)));
    SharedFile::write(cursorFile, Diagnostics::encodeCursors(news.next), Durability::cached);
    surroundings.console.say(fmt::format("Sent to {}.", needed.server));
    return ExitCode::allLanded;
}

}  // namespace

void declareDiagnostics(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<DiagnosticsOptions>();
    CLI::App& command = addCommand(program, chosen, "diagnostics",
                                   "Show what this machine would report of its health", options, diagnose);
    command.add_flag("--send", options->send, "Send it to the vark after showing it");
    addJSON(command, options->json);
}

}  // namespace vark::cli
