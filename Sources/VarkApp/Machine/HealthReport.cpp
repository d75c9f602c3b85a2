#include "VarkApp/Machine/HealthReport.h"

#include <fmt/format.h>

#include <unistd.h>

#include "VarkCore/Connection/SharedFile.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Sync/SharedSync.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::app {

namespace {

/// Bytes of each log in one report.
constexpr std::int64_t mostOfALog = 262'144;
/// For what other programs of this machine may have and this one has not.
constexpr const char* notHere = "none";

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

}  // namespace

HealthReport HealthReport::of(Surroundings& surroundings, std::string appVersion) {
    const std::optional<SharedConnection> connection = surroundings.connection();
    Diagnostics::NewInLogs news = Diagnostics::newIn(
        logsOf(surroundings), Diagnostics::readCursors(surroundings.locations().logCursors()), mostOfALog);
    DiagnosticsReport report;
    report.appVersion = std::move(appVersion);
    report.osVersion = surroundings.platform.systemVersion();
    report.logs = std::move(news.logs);
    report.snapshot = snapshotOf(surroundings);
    return {Diagnostics::without(connection ? connection->token : "", std::move(report)),
            std::move(news.next)};
}

std::vector<std::string> HealthReport::lines() const {
    const DiagnosticsReport::Snapshot& snapshot = report.snapshot;
    std::vector<std::string> lines = {
        fmt::format("Version: {} on {}", report.appVersion, report.osVersion),
        fmt::format("{} to go, {}, {} waiting", Format::count(snapshot.queued, "file"),
                    Format::count(snapshot.problems, "problem"), Format::number(snapshot.waiting))};
    for (const std::string& reason : snapshot.problemReasons)
        lines.push_back("  " + reason);
    for (const auto& [name, state] : snapshot.permissions)
        lines.push_back(fmt::format("The {}: {}", name, state));
    lines.push_back(fmt::format("Nodes in sight: {}", snapshot.lanNodes));
    if (snapshot.freeBytes) lines.push_back(fmt::format("Free: {}", Format::bytes(*snapshot.freeBytes)));
    for (const auto& [name, text] : report.logs) {
        lines.push_back(fmt::format("New in the log \"{}\":", name));
        for (const std::string& line : splitKeepingEmpty(text, '\n')) {
            if (!line.empty()) lines.push_back("  " + line);
        }
    }
    return lines;
}

Task<void> sendReport(Surroundings& surroundings, SharedConnection connection, HealthReport health) {
    const std::shared_ptr<VarkAPI> api = surroundings.api(connection);
    co_await api->sendDiagnostics(std::move(health.report));
    SharedFile::write(surroundings.locations().logCursors(), Diagnostics::encodeCursors(health.read),
                      Durability::cached);
}

}  // namespace vark::app
