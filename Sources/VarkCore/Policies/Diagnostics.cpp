#include "VarkCore/Policies/Diagnostics.h"

#include <algorithm>

#include "VarkCore/Connection/SharedFile.h"

namespace vark {
namespace {

constexpr std::size_t mostReasons = 20;

std::string withoutFirstPiece(const std::string& text) {
    const std::size_t end = text.find('\n');
    return end == std::string::npos ? "" : text.substr(end + 1);
}

void addProblem(DiagnosticsReport::Snapshot& snapshot, const std::optional<std::string>& reason) {
    ++snapshot.problems;
    std::vector<std::string>& reasons = snapshot.problemReasons;
    if (reason && reasons.size() < mostReasons && std::ranges::count(reasons, *reason) == 0)
        reasons.push_back(*reason);
}

void takeOut(std::string& text, std::string_view token) {
    constexpr std::string_view inPlace = "[token]";
    for (std::size_t place = text.find(token); place != std::string::npos;
         place = text.find(token, place + inPlace.size()))
        text.replace(place, token.size(), inPlace);
}

}  // namespace

Diagnostics::NewInLogs Diagnostics::newIn(const std::map<std::string, std::filesystem::path>& logs,
                                          const LogCursors& cursors, std::int64_t cap) {
    NewInLogs news;
    for (const auto& [name, path] : logs) {
        const auto known = cursors.find(name);
        const std::uint64_t offset = known == cursors.end() ? 0 : known->second.offset;
        LogCursor::Unread unread = LogCursor::unread(path, offset, cap);
        const std::uint64_t start = unread.next < offset ? 0 : offset;
        // A cut may fall into the middle of a word that is to be taken out.
        const bool isCut = unread.next - start > static_cast<std::uint64_t>(std::max<std::int64_t>(cap, 0));
        if (isCut) unread.text = withoutFirstPiece(unread.text);
        if (!unread.text.empty()) news.logs[name] = std::move(unread.text);
        news.next[name] = {unread.next};
    }
    return news;
}

void Diagnostics::addQueue(DiagnosticsReport::Snapshot& snapshot, const TransferJob& job) {
    for (const TransferItem& item : job.items) {
        if (item.state == ItemState::queued || isInFlight(item.state)) ++snapshot.queued;
        if (needsDecision(item.state)) ++snapshot.waiting;
        if (item.state == ItemState::failed) addProblem(snapshot, item.error);
    }
}

void Diagnostics::addOwed(DiagnosticsReport::Snapshot& snapshot, const SyncSummary& owed) {
    snapshot.waiting += static_cast<std::int64_t>(owed.waiting.size());
    for (const SyncOp& op : owed.problems)
        addProblem(snapshot, op.reason);
}

DiagnosticsReport Diagnostics::without(std::string_view token, DiagnosticsReport report) {
    if (token.empty()) return report;
    for (auto& [name, text] : report.logs)
        takeOut(text, token);
    for (std::string& reason : report.snapshot.problemReasons)
        takeOut(reason, token);
    return report;
}

LogCursors Diagnostics::readCursors(const std::filesystem::path& file) {
    const auto decode = [](const boost::json::value& value) {
        if (!value.is_object()) throw DecodingError("not an object");
        LogCursors cursors;
        for (const auto& [name, cursor] : value.get_object())
            cursors[std::string(name)] = LogCursor::fromJSON(cursor);
        return cursors;
    };
    return SharedFile::read(file, decode).value_or(LogCursors());
}

std::string Diagnostics::encodeCursors(const LogCursors& cursors) {
    JSONWriter json;
    json.beginObject();
    for (const auto& [name, cursor] : cursors) {
        json.key(name);
        cursor.encode(json);
    }
    json.endObject();
    return json.take();
}

}  // namespace vark
