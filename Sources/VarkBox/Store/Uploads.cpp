#include "VarkBox/Store/Uploads.h"

#include <fmt/format.h>

#include <numeric>

#include "VarkBox/Store/ChunkSink.h"
#include "VarkBox/Store/Names.h"

namespace vark::box {

namespace {

// A list of every gap of a huge file would help nobody.
constexpr std::size_t mostMissingTold = 1000;

Refusal unknown() {
    return Refusal(404, "The vark does not know this upload. Begin it again.");
}

Refusal ended() {
    return Refusal(410, "This upload has ended. Begin it again to send the file once more.");
}

Refusal conflict(const Item& existing) {
    boost::json::object extras{{"conflict", true}};
    if (existing.isDir) {
        return Refusal(409, fmt::format("A folder named \"{}\" is already there.", existing.name), extras);
    }
    extras["size"] = existing.size;
    if (existing.mtime) extras["mtime"] = *existing.mtime;
    return Refusal(409, fmt::format("A different file named \"{}\" is already there.", existing.name),
                   extras);
}

bool isSameFile(const Item& item, const Content& content) {
    return !item.isDir && item.sha256 == content.sha256 && item.size == content.size;
}

}  // namespace

Uploads::Uploads(Database& database, const ObjectFiles& files, UploadSettings settings)
    : database_(database), files_(files), settings_(settings) {
    recover();
}

void Uploads::recover() {
    std::vector<UploadRecord> left;
    {
        Turn turn = database_.write();
        UploadRecords records(turn);
        for (UploadRecord& upload : records.open()) {
            std::vector<std::int64_t> chunks = records.chunks(upload.id);
            std::int64_t extent =
                chunks.empty() ? 0 : upload.chunkOffset(chunks.back()) + upload.chunkLength(chunks.back());
            bool bytesLost = !filesHold(upload) && files_.receivedLength(upload.id) < extent;
            if (bytesLost) records.forgetChunks(upload.id);
            if (bytesLost && upload.state == UploadState::checking) {
                records.setState(
                    upload.id, UploadState::failed,
                    "The vark lost the bytes of this file before it could check them. Send it again.");
                continue;
            }
            left.push_back(std::move(upload));
        }
        turn.commit();
    }
    for (const std::string& id : files_.uploadsOnDisk()) {
        if (std::ranges::find(left, id, &UploadRecord::id) == left.end()) files_.discard(id);
    }
    for (const UploadRecord& upload : left) {
        if (upload.state == UploadState::checking) checkLater(open(upload));
    }
}

BeginAnswer Uploads::begin(const UploadRequest& file) {
    UploadRecord upload;
    {
        Turn turn = database_.write();
        Tree tree(turn);
        tree.checkWay(file.path);
        std::optional<Item> existing = tree.find(file.path);
        if (existing && isSameFile(*existing, file.content)) return {.exists = true};
        if (existing && (existing->isDir || !file.replaces)) throw conflict(*existing);

        UploadRecords records(turn);
        if (std::optional<UploadRecord> known = records.findOpen(file)) {
            upload = std::move(*known);
            records.update(upload.id, file);
        } else {
            upload.id = randomHex(16);
            upload.file = file;
            upload.chunkSize = settings_.chunkSize;
            records.insert(upload);
        }
        turn.commit();
    }
    std::shared_ptr<OpenUpload> opened = open(upload);
    return {.uploadID = upload.id, .chunkSize = upload.chunkSize, .have = heldChunks(*opened)};
}

std::unique_ptr<BodySink> Uploads::receive(std::string_view uploadID, std::int64_t index,
                                           std::uint64_t length) {
    std::shared_ptr<OpenUpload> upload;
    {
        Locked guard(lock_);
        auto found = open_.find(std::string(uploadID));
        if (found != open_.end()) upload = found->second;
    }
    if (!upload) {
        UploadRecord record = require(uploadID);
        if (!record.isOpen()) throw ended();
        upload = open(record);
    }
    const UploadRecord& record = upload->record();
    if (index < 0 || index >= record.chunkCount()) {
        throw Refusal(400, fmt::format("This file has {} chunks, counted from 0, so there is no chunk {}.",
                                       record.chunkCount(), index));
    }
    if (std::cmp_not_equal(length, record.chunkLength(index))) {
        throw Refusal(400, fmt::format("Chunk {} of this file is {} bytes long, and {} were announced.",
                                       index, record.chunkLength(index), length));
    }
    return std::make_unique<ChunkSink>(*this, upload, index, files_.openForWriting(record.id));
}

void Uploads::chunkLanded(const std::shared_ptr<OpenUpload>& upload, std::int64_t index) {
    {
        Turn turn = database_.write();
        if (!UploadRecords(turn).landChunk(upload->record().id, index)) throw unknown();
        turn.commit();
    }
    upload->noteLanded(index);
    if (upload->record().file.content.size < settings_.checkInlineBelow) return;
    if (upload->hashingQueued.exchange(true)) return;
    thread_.post([this, upload](const std::stop_token& stop) {
        upload->hashingQueued = false;
        Locked guard(upload->checking);
        // An upload that ended in the meantime has no bytes any more.
        if (files_.receivedLength(upload->record().id) > 0) upload->hashWhatLanded(files_, stop);
    });
}

UploadReport Uploads::finish(std::string_view uploadID) {
    UploadRecord record = require(uploadID);
    if (record.state != UploadState::receiving) return status(uploadID);
    std::shared_ptr<OpenUpload> upload = open(record);
    bool held = filesHold(record);
    std::vector<std::int64_t> missing = upload->missing();
    if (!held && !missing.empty()) {
        std::string sentence =
            fmt::format("{} of {} chunks of this file have not arrived yet. Send them first.", missing.size(),
                        record.chunkCount());
        missing.resize(std::min(missing.size(), mostMissingTold));
        throw Refusal(409, sentence, {{"missing", boost::json::array(missing.begin(), missing.end())}});
    }
    if (held || record.file.content.size < settings_.checkInlineBelow) {
        check(*upload, {});
        return status(uploadID);
    }
    {
        Turn turn = database_.write();
        UploadRecords(turn).setState(uploadID, UploadState::checking);
        turn.commit();
    }
    checkLater(upload);
    return status(uploadID);
}

UploadReport Uploads::status(std::string_view uploadID) {
    UploadRecord record = require(uploadID);
    UploadReport report{.state = record.state,
                        .path = record.file.path,
                        .error = record.error,
                        .receivedBytes = 0,
                        .totalBytes = record.file.content.size};
    if (record.state == UploadState::failed) return report;
    bool allIn = record.state != UploadState::receiving || filesHold(record);
    report.receivedBytes = allIn ? report.totalBytes : open(record)->receivedBytes();
    return report;
}

void Uploads::cancel(std::string_view uploadID) {
    UploadRecord record = require(uploadID);
    if (!record.isOpen()) throw ended();
    remove(uploadID);
}

void Uploads::lose(std::string_view uploadID) {
    remove(uploadID);
}

void Uploads::failNextCheck(std::string_view uploadID) {
    std::optional<UploadRecord> record;
    {
        Turn turn = database_.read();
        record = UploadRecords(turn).find(uploadID);
    }
    if (record && record->isOpen()) open(*record)->checkMustFail = true;
}

UploadRecord Uploads::require(std::string_view uploadID) {
    Turn turn = database_.read();
    std::optional<UploadRecord> record = UploadRecords(turn).find(uploadID);
    if (!record) throw unknown();
    return *record;
}

std::shared_ptr<OpenUpload> Uploads::open(const UploadRecord& record) {
    Locked guard(lock_);
    std::shared_ptr<OpenUpload>& upload = open_[record.id];
    if (!upload) {
        Turn turn = database_.read();
        upload = std::make_shared<OpenUpload>(record, UploadRecords(turn).chunks(record.id));
    }
    return upload;
}

std::vector<std::int64_t> Uploads::heldChunks(const OpenUpload& upload) const {
    if (!filesHold(upload.record())) return upload.held();
    std::vector<std::int64_t> all(static_cast<std::size_t>(upload.record().chunkCount()));
    std::iota(all.begin(), all.end(), 0);
    return all;
}

bool Uploads::filesHold(const UploadRecord& upload) const {
    return files_.holds(upload.file.content.sha256, upload.file.content.size);
}

void Uploads::forget(std::string_view uploadID) {
    Locked guard(lock_);
    open_.erase(std::string(uploadID));
}

void Uploads::remove(std::string_view uploadID) {
    {
        Turn turn = database_.write();
        UploadRecords(turn).remove(uploadID);
        turn.commit();
    }
    forget(uploadID);
    files_.discard(uploadID);
}

void Uploads::checkLater(std::shared_ptr<OpenUpload> upload) {
    thread_.post([this, upload = std::move(upload)](const std::stop_token& stop) { check(*upload, stop); });
}

void Uploads::check(OpenUpload& upload, const std::stop_token& stop) {
    Locked guard(upload.checking);
    UploadRecord record = require(upload.record().id);
    if (!record.isOpen()) return;
    if (!filesHold(record)) {
        if (record.file.content.size == 0) files_.openForWriting(record.id);
        upload.hashWhatLanded(files_, stop);
        if (stop.stop_requested()) return;
        if (!upload.hashIsRight()) {
            fail(record,
                 "The bytes that arrived are not the ones that were announced. Was the file changed while "
                 "it was sent? Send it again.");
            return;
        }
        if (!upload.checkMustFail) files_.adopt(record.id, record.file.content.sha256);
    }
    if (upload.checkMustFail) {
        fail(record, "The vark could not check this file after it landed. Send it again.");
        return;
    }
    land(record);
}

void Uploads::land(const UploadRecord& upload) {
    const UploadRequest& file = upload.file;
    try {
        Turn turn = database_.write();
        Tree tree(turn);
        tree.checkWay(file.path);
        std::optional<Item> existing = tree.find(file.path);
        bool isThere = existing && isSameFile(*existing, file.content);
        if (existing && !isThere && (existing->isDir || !file.replaces)) throw conflict(*existing);
        if (!isThere) tree.putFile(file.path, file.content);
        UploadRecords records(turn);
        records.setState(upload.id, UploadState::done);
        records.forgetChunks(upload.id);
        turn.commit();
    } catch (const Refusal& refusal) {
        fail(upload, refusal.what());
        return;
    }
    forget(upload.id);
    files_.discard(upload.id);
}

void Uploads::fail(const UploadRecord& upload, std::string_view sentence) {
    {
        Turn turn = database_.write();
        UploadRecords records(turn);
        records.setState(upload.id, UploadState::failed, sentence);
        records.forgetChunks(upload.id);
        turn.commit();
    }
    forget(upload.id);
    files_.discard(upload.id);
}

}  // namespace vark::box
