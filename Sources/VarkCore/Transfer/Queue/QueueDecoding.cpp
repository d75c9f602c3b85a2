#include <array>

#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Foundation/JSON/JSONPieces.h"
#include "VarkCore/Transfer/Queue/QueueCoding.h"

namespace vark {
namespace {

ItemState state(const JSONFields& fields, std::string_view key) {
    const std::optional<ItemState> state = itemState(fields.required<std::string_view>(key));
    if (!state) throw DecodingError(std::string(key) + " is not a state");
    return *state;
}

TransferJob jobOf(const boost::json::value& value) {
    const JSONFields fields(value);
    TransferJob job;
    job.id = fields.identifier("id");
    job.title = fields.required<std::string>("title");
    job.destination = fields.required<std::string>("destination");
    job.clientName = fields.required<std::string>("clientName");
    job.entries = fields.required<std::vector<TransferEntry>>("entries");
    job.items = fields.required<std::vector<TransferItem>>("items");
    job.createdAt = fields.iso8601("createdAt");
    job.isPaused = fields.required<bool>("isPaused");
    job.pausedByVark = fields.optional<bool>("pausedByVark");
    job.ingest = fields.optional<IngestInfo>("ingest");
    return job;
}

}  // namespace

TransferItem TransferItem::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    TransferItem item;
    item.id = fields.identifier("id");
    item.entryID = fields.identifier("entryID");
    item.localPath = fields.required<std::string_view>("localPath");
    item.relativePath = fields.required<std::string_view>("relativePath");
    item.size = fields.required<std::int64_t>("size");
    item.mtime = fields.required<double>("mtime");
    if (const auto hash = fields.optional<std::string_view>("sha256"))
        item.sha256 = ContentHash::parse(*hash);
    item.state = vark::state(fields, "state");
    item.uploadID = fields.optional<std::string>("uploadID");
    item.chunkSize = fields.optional<std::int64_t>("chunkSize");
    item.doneChunks = fields.required<std::vector<std::int64_t>>("doneChunks");
    item.replace = fields.required<bool>("replace");
    item.alreadyThere = fields.required<bool>("alreadyThere");
    item.changedWhileSent = fields.optional<bool>("changedWhileSent").value_or(false);
    item.error = fields.optional<std::string>("error");
    const TransferItem::Standing standing{fields.optional<std::int64_t>("standingSize"),
                                          fields.optional<double>("standingMtime")};
    if (standing != TransferItem::Standing()) item.standing = standing;
    item.attempts = fields.required<std::int32_t>("attempts");
    item.finishedAt = fields.optionalISO8601("finishedAt");
    return item;
}

TransferEntry TransferEntry::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    TransferEntry entry;
    entry.id = fields.identifier("id");
    entry.localPath = fields.required<std::string>("localPath");
    entry.name = fields.required<std::string>("name");
    entry.isFolder = fields.required<bool>("isFolder");
    entry.fileCount = fields.required<std::int64_t>("fileCount");
    entry.totalBytes = fields.required<std::int64_t>("totalBytes");
    entry.volumeName = fields.optional<std::string>("volumeName");
    entry.addedAt = fields.iso8601("addedAt");
    return entry;
}

IngestInfo::Unlisted IngestInfo::Unlisted::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    Unlisted one;
    one.kind = static_cast<Kind>(fields.choice("kind", kindNames));
    one.source = fields.required<std::string>("source");
    one.size = fields.required<std::int64_t>("size");
    one.mtime = fields.required<double>("mtime");
    return one;
}

IngestInfo IngestInfo::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    IngestInfo ingest;
    ingest.id = fields.required<std::int64_t>("id");
    ingest.drive = fields.required<std::string>("drive");
    ingest.volumePath = fields.required<std::string>("volumePath");
    ingest.volumeUUID = fields.optional<std::string>("volumeUUID");
    ingest.emailMe = fields.required<bool>("emailMe");
    ingest.keepAwake = fields.required<bool>("keepAwake");
    ingest.leftOut = fields.required<std::vector<std::string>>("leftOut");
    ingest.startedAt = fields.iso8601("startedAt");
    ingest.reported = fields.required<bool>("reported");
    // Earlier versions kept no such record.
    ingest.unlisted = fields.valueOr<std::vector<Unlisted>>("unlisted", {});
    return ingest;
}

std::optional<TransferJob> decodeQueue(std::string_view bytes) {
    std::vector<TransferItem> items;
    const std::array pieces = {JSONPieces{
        .key = "items",
        .begin = [&] { items.clear(); },
        .element = [&](const boost::json::value& value) { items.push_back(TransferItem::fromJSON(value)); },
    }};
    const boost::json::value document = parseJSONInPieces(bytes, "job", pieces);

    const JSONFields fields(document);
    fields.required<std::int64_t>("version");
    fields.iso8601("savedAt");
    const boost::json::value* value = fields.find("job");
    if (value == nullptr) return std::nullopt;
    TransferJob job = jobOf(*value);
    job.items = std::move(items);
    return job;
}

}  // namespace vark
