#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkBox/Store/Database.h"
#include "VarkBox/Store/Tree.h"

namespace vark::box {

enum class UploadState { receiving, checking, done, failed };

std::string_view nameOf(UploadState state);

/// What a client says of a file before it sends it.
struct UploadRequest {
    std::string path;
    Content content;
    bool replaces = false;
    std::optional<std::int64_t> ingest;
    std::optional<std::string> source;
};

struct UploadRecord {
    std::string id;
    UploadRequest file;
    std::int64_t chunkSize = 0;
    UploadState state = UploadState::receiving;
    std::string error;

    std::int64_t chunkCount() const;
    std::int64_t chunkOffset(std::int64_t index) const { return index * chunkSize; }
    std::int64_t chunkLength(std::int64_t index) const;
    bool isOpen() const { return state == UploadState::receiving || state == UploadState::checking; }
};

/// The rows of uploads and of the chunks that have landed, for the length of one turn. A chunk's row is
/// written only after all its bytes are in the upload's file.
class UploadRecords {
  public:
    explicit UploadRecords(Turn& turn) : turn_(turn) {}

    void insert(const UploadRecord& upload);
    std::optional<UploadRecord> find(std::string_view id);
    /// An upload of the same bytes to the same path that has not ended.
    std::optional<UploadRecord> findOpen(const UploadRequest& file);
    std::vector<UploadRecord> open();
    /// A later announcement of the same file may differ in the time and in whether it replaces.
    void update(std::string_view id, const UploadRequest& file);
    void setState(std::string_view id, UploadState state, std::string_view error = "");
    void remove(std::string_view id);

    /// False when the upload no longer takes chunks.
    bool landChunk(std::string_view id, std::int64_t index);
    /// Ascending.
    std::vector<std::int64_t> chunks(std::string_view id);
    void forgetChunks(std::string_view id);

  private:
    Turn& turn_;
};

}  // namespace vark::box
