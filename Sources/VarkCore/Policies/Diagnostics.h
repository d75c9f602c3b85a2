#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "VarkCore/API/Messages/DiagnosticsReport.h"
#include "VarkCore/Policies/LogCursor.h"
#include "VarkCore/Sync/SyncSummary.h"
#include "VarkCore/Transfer/Queue/QueueModel.h"

namespace vark {

/// How far into each log the last report got, by the log's name.
using LogCursors = std::map<std::string, LogCursor>;

/// The pieces of a report on this program's health. Functions only.
struct Diagnostics {
    struct NewInLogs {
        /// Logs with nothing new are left out.
        std::map<std::string, std::string> logs;
        /// To be kept once the report has arrived.
        LogCursors next;
    };
    /// At most `cap` bytes of each log, in whole lines where something had to be left out.
    static NewInLogs newIn(const std::map<std::string, std::filesystem::path>& logs,
                           const LogCursors& cursors, std::int64_t cap);
    /// What the queue and the board of what is owed say; the other fields are left to the caller.
    static void addQueue(DiagnosticsReport::Snapshot& snapshot, const TransferJob& job);
    static void addOwed(DiagnosticsReport::Snapshot& snapshot, const SyncSummary& owed);
    /// The report with every occurrence of the token taken out of its texts: the answers of servers and
    /// proxies, which stand in logs, may repeat what they were sent.
    static DiagnosticsReport without(std::string_view token, DiagnosticsReport report);

    /// No cursors where the file is missing or makes no sense: then the logs are told from their beginnings.
    static LogCursors readCursors(const std::filesystem::path& file);
    static std::string encodeCursors(const LogCursors& cursors);
};

}  // namespace vark
