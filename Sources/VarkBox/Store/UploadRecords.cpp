#include "VarkBox/Store/UploadRecords.h"

#include <algorithm>
#include <array>

namespace vark::box {

namespace {

constexpr std::array<std::string_view, 4> stateNames = {"receiving", "checking", "done", "failed"};

UploadState stateNamed(std::string_view name) {
    return static_cast<UploadState>(std::ranges::find(stateNames, name) - stateNames.begin());
}

// Reads a row of `SELECT * FROM uploads`, whose columns stand in this order.
UploadRecord recordFrom(const Query& query) {
    UploadRecord upload;
    upload.id = query.text(0);
    upload.file.path = query.text(1);
    upload.file.content.size = query.integer(2);
    upload.file.content.sha256 = query.text(3);
    upload.file.content.mtime = query.optionalReal(4);
    upload.file.replaces = query.integer(5) != 0;
    upload.file.ingest = query.optionalInteger(6);
    if (!query.isNull(7)) upload.file.source = query.text(7);
    upload.chunkSize = query.integer(8);
    upload.state = stateNamed(query.text(9));
    upload.error = query.text(10);
    return upload;
}

}  // namespace

std::string_view nameOf(UploadState state) {
    return stateNames.at(static_cast<std::size_t>(state));
}

std::int64_t UploadRecord::chunkCount() const {
    std::int64_t size = file.content.size;
    return size / chunkSize + (size % chunkSize == 0 ? 0 : 1);
}

std::int64_t UploadRecord::chunkLength(std::int64_t index) const {
    return std::min(chunkSize, file.content.size - chunkOffset(index));
}

void UploadRecords::insert(const UploadRecord& upload) {
    turn_
        .query(
            "INSERT INTO uploads(id, path, size, sha256, mtime, replaces, ingest, source, chunk_size, state) "
            "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")
        .with(upload.id, upload.file.path, upload.file.content.size, upload.file.content.sha256,
              upload.file.content.mtime, upload.file.replaces, upload.file.ingest, upload.file.source,
              upload.chunkSize, nameOf(upload.state))
        .run();
}

std::optional<UploadRecord> UploadRecords::find(std::string_view id) {
    Query query = turn_.query("SELECT * FROM uploads WHERE id = ?");
    if (!query.with(id).next()) return std::nullopt;
    return recordFrom(query);
}

std::optional<UploadRecord> UploadRecords::findOpen(const UploadRequest& file) {
    Query query = turn_.query(
        "SELECT * FROM uploads WHERE path = ? AND sha256 = ? AND size = ? AND state IN ('receiving', "
        "'checking')");
    if (!query.with(file.path, file.content.sha256, file.content.size).next()) return std::nullopt;
    return recordFrom(query);
}

std::vector<UploadRecord> UploadRecords::open() {
    Query query = turn_.query("SELECT * FROM uploads WHERE state IN ('receiving', 'checking')");
    std::vector<UploadRecord> uploads;
    while (query.next())
        uploads.push_back(recordFrom(query));
    return uploads;
}

void UploadRecords::update(std::string_view id, const UploadRequest& file) {
    turn_.query("UPDATE uploads SET mtime = ?, replaces = ?, ingest = ?, source = ? WHERE id = ?")
        .with(file.content.mtime, file.replaces, file.ingest, file.source, id)
        .run();
}

void UploadRecords::setState(std::string_view id, UploadState state, std::string_view error) {
    turn_.query("UPDATE uploads SET state = ?, error = ? WHERE id = ?").with(nameOf(state), error, id).run();
}

void UploadRecords::remove(std::string_view id) {
    forgetChunks(id);
    turn_.query("DELETE FROM uploads WHERE id = ?").with(id).run();
}

bool UploadRecords::landChunk(std::string_view id, std::int64_t index) {
    turn_
        .query(
            "INSERT OR REPLACE INTO chunks(upload, number) "
            "SELECT id, ? FROM uploads WHERE id = ? AND state = 'receiving'")
        .with(index, id)
        .run();
    return turn_.changedRows() > 0;
}

std::vector<std::int64_t> UploadRecords::chunks(std::string_view id) {
    Query query = turn_.query("SELECT number FROM chunks WHERE upload = ? ORDER BY number");
    query.with(id);
    std::vector<std::int64_t> indexes;
    while (query.next())
        indexes.push_back(query.integer(0));
    return indexes;
}

void UploadRecords::forgetChunks(std::string_view id) {
    turn_.query("DELETE FROM chunks WHERE upload = ?").with(id).run();
}

}  // namespace vark::box
