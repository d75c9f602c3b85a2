#include <charconv>
#include <cmath>

#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Transfer/Queue/QueueCoding.h"

namespace vark {
namespace {

/// Appends the members of records. A key comes with its punctuation, `,"size":`, so that it is one copy.
class QueueWriter {
  public:
    explicit QueueWriter(std::size_t expectedBytes) { text_.reserve(expectedBytes); }

    void raw(std::string_view punctuated) { text_ += punctuated; }
    void member(std::string_view key, std::string_view text) {
        text_ += key;
        appendJSONString(text_, text);
    }
    void member(std::string_view key, bool flag) {
        text_ += key;
        text_ += flag ? std::string_view("true") : std::string_view("false");
    }
    void member(std::string_view key, std::int64_t number) {
        text_ += key;
        integer(number);
    }
    void member(std::string_view key, double number) {
        text_ += key;
        appendJSONNumber(text_, number);
    }
    void member(std::string_view key, const UUID& id) {
        char quoted[38];
        quoted[0] = quoted[37] = '"';
        id.write(quoted + 1);
        text_ += key;
        text_.append(quoted, sizeof quoted);
    }
    void member(std::string_view key, Date date) {
        char quoted[iso8601Length + 2];
        quoted[0] = quoted[iso8601Length + 1] = '"';
        writeISO8601(date, quoted + 1);
        text_ += key;
        text_.append(quoted, sizeof quoted);
    }
    void member(std::string_view key, const ContentHash& hash) {
        char quoted[ContentHash::textLength + 2];
        quoted[0] = quoted[ContentHash::textLength + 1] = '"';
        hash.write(quoted + 1);
        text_ += key;
        text_.append(quoted, sizeof quoted);
    }
    template <class Optional>
    void memberIfThere(std::string_view key, const Optional& value) {
        if (value) member(key, *value);
    }
    void integers(std::string_view key, const std::vector<std::int64_t>& numbers) {
        text_ += key;
        text_ += '[';
        for (const std::int64_t number : numbers) {
            if (text_.back() != '[') text_ += ',';
            integer(number);
        }
        text_ += ']';
    }

    std::string take() { return std::move(text_); }

  private:
    void integer(std::int64_t number) {
        char digits[24];
        text_.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
    }

    std::string text_;
};

void write(QueueWriter& json, const TransferItem& item) {
    json.member(R"({"alreadyThere":)", item.alreadyThere);
    json.member(R"(,"attempts":)", std::int64_t{item.attempts});
    if (item.changedWhileSent) json.member(R"(,"changedWhileSent":)", true);
    json.memberIfThere(R"(,"chunkSize":)", item.chunkSize);
    json.integers(R"(,"doneChunks":)", item.doneChunks);
    json.member(R"(,"entryID":)", item.entryID);
    json.memberIfThere(R"(,"error":)", item.error);
    json.memberIfThere(R"(,"finishedAt":)", item.finishedAt);
    json.member(R"(,"id":)", item.id);
    json.member(R"(,"localPath":)", item.localPath);
    json.member(R"(,"mtime":)", item.mtime);
    json.member(R"(,"relativePath":)", item.relativePath);
    json.member(R"(,"replace":)", item.replace);
    json.memberIfThere(R"(,"sha256":)", item.sha256);
    json.member(R"(,"size":)", item.size);
    if (item.standing) {
        json.memberIfThere(R"(,"standingMtime":)", item.standing->mtime);
        json.memberIfThere(R"(,"standingSize":)", item.standing->size);
    }
    json.member(R"(,"state":)", text(item.state));
    json.memberIfThere(R"(,"uploadID":)", item.uploadID);
    json.raw("}");
}

void write(QueueWriter& json, const TransferEntry& entry) {
    json.member(R"({"addedAt":)", entry.addedAt);
    json.member(R"(,"fileCount":)", entry.fileCount);
    json.member(R"(,"id":)", entry.id);
    json.member(R"(,"isFolder":)", entry.isFolder);
    json.member(R"(,"localPath":)", entry.localPath);
    json.member(R"(,"name":)", entry.name);
    json.member(R"(,"totalBytes":)", entry.totalBytes);
    json.memberIfThere(R"(,"volumeName":)", entry.volumeName);
    json.raw("}");
}

template <class Record>
void writeArray(QueueWriter& json, std::string_view key, const std::vector<Record>& records) {
    json.raw(key);
    std::string_view before = "[";
    for (const Record& record : records) {
        json.raw(before);
        write(json, record);
        before = ",";
    }
    json.raw(records.empty() ? "[]" : "]");
}

void write(QueueWriter& json, const IngestInfo::Unlisted& one) {
    json.member(R"({"kind":)", IngestInfo::Unlisted::kindNames[static_cast<std::size_t>(one.kind)]);
    json.member(R"(,"mtime":)", one.mtime);
    json.member(R"(,"size":)", one.size);
    json.member(R"(,"source":)", one.source);
    json.raw("}");
}

void write(QueueWriter& json, const IngestInfo& ingest) {
    json.member(R"({"drive":)", ingest.drive);
    json.member(R"(,"emailMe":)", ingest.emailMe);
    json.member(R"(,"id":)", ingest.id);
    json.member(R"(,"keepAwake":)", ingest.keepAwake);
    json.raw(R"(,"leftOut":[)");
    std::string_view before = "";
    for (const std::string& path : ingest.leftOut) {
        json.member(before, path);
        before = ",";
    }
    json.member(R"(],"reported":)", ingest.reported);
    json.member(R"(,"startedAt":)", ingest.startedAt);
    writeArray(json, R"(,"unlisted":)", ingest.unlisted);
    json.member(R"(,"volumePath":)", ingest.volumePath);
    json.memberIfThere(R"(,"volumeUUID":)", ingest.volumeUUID);
    json.raw("}");
}

/// A little above what most queues need, so that the buffer does not grow and move.
std::size_t expectedBytes(const TransferJob& job) {
    constexpr std::size_t aroundTheTexts = 380;
    constexpr std::size_t forEachChunk = 4;
    std::size_t bytes = 4096 + job.entries.size() * 1024;
    for (const TransferItem& item : job.items) {
        bytes += aroundTheTexts + item.localPath.size() + item.relativePath.size();
        bytes += item.doneChunks.size() * forEachChunk;
    }
    if (job.ingest) bytes += job.ingest->unlisted.size() * aroundTheTexts;
    return bytes;
}

}  // namespace

std::string encodeQueue(const TransferJob& job, Date savedAt) {
    QueueWriter json(expectedBytes(job));
    json.member(R"({"job":{"clientName":)", job.clientName);
    json.member(R"(,"createdAt":)", job.createdAt);
    json.member(R"(,"destination":)", job.destination);
    writeArray(json, R"(,"entries":)", job.entries);
    json.member(R"(,"id":)", job.id);
    if (job.ingest) {
        json.raw(R"(,"ingest":)");
        write(json, *job.ingest);
    }
    json.member(R"(,"isPaused":)", job.isPaused);
    writeArray(json, R"(,"items":)", job.items);
    json.memberIfThere(R"(,"pausedByVark":)", job.pausedByVark);
    json.member(R"(,"title":)", job.title);
    json.member(R"(},"savedAt":)", savedAt);
    json.raw(R"(,"version":1})");
    return json.take();
}

}  // namespace vark
