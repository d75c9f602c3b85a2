#pragma once

#include <array>
#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Rare.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Foundation/UUID.h"
#include "VarkCore/Upload/ContentHash.h"

namespace vark {

class Volumes;

// The upload queue as data. Plain values: whoever holds one may read it on its thread. `fromJSON` fails with
// `DecodingError` when a key that is not optional is missing. Every field has a default, so that a record can
// be built from the names of those that matter.

enum class ItemState : std::uint8_t {
    queued,
    hashing,
    uploading,
    checking,
    verified,
    conflict,
    skipped,
    failed
};

/// The stored name, "queued".
std::string_view text(ItemState state);
std::optional<ItemState> itemState(std::string_view text);
/// Verified or skipped; what failed or waits for a decision is not finished.
bool isFinished(ItemState state);
/// Hashing, uploading or checking.
bool isInFlight(ItemState state);
bool needsDecision(ItemState state);

/// One file of the queue. There may be a million of them in memory, so the hash is kept as bytes and texts
/// that few items have take one pointer in the others.
struct TransferItem {
    /// What stands at the destination of a file, as far as the vark has said.
    struct Standing {
        std::optional<std::int64_t> size{};
        /// Seconds since 1970.
        std::optional<double> mtime{};
        bool operator==(const Standing&) const = default;
    };

    UUID id{};
    UUID entryID{};
    /// Absolute.
    std::string localPath{};
    /// Below the entry's parent folder: its first component is the entry's own name.
    std::string relativePath{};
    /// Bytes, and seconds since 1970: as the file was when it was hashed, and before that when it was added.
    std::int64_t size = 0;
    double mtime = 0;
    /// Set once hashing has finished. A stored text that is no SHA-256 reads as absent, and the file is
    /// hashed again.
    std::optional<ContentHash> sha256{};
    ItemState state = ItemState::queued;
    Rare<std::string> uploadID{};
    /// Bytes, as the vark chose it for this upload.
    std::optional<std::int64_t> chunkSize{};
    /// The indexes of chunks that the vark is known to hold.
    std::vector<std::int64_t> doneChunks{};
    /// A person decided to overwrite what is at the destination.
    bool replace = false;
    /// The vark had this very file before anything was sent.
    bool alreadyThere = false;
    /// What landed was no longer what lay on the disk.
    bool changedWhileSent = false;
    /// The sentence that is shown for a failed or conflicting item.
    Rare<std::string> error{};
    /// While it waits for a decision about that.
    Rare<Standing> standing{};
    /// How many times this item has failed since it was last reset.
    std::int32_t attempts = 0;
    std::optional<Date> finishedAt{};

    bool operator==(const TransferItem&) const = default;
    static TransferItem fromJSON(const boost::json::value& value);

    std::string_view name() const;
    std::int64_t bytesDone() const;
    /// An item in flight becomes queued again; what is known of its upload stays.
    void prepareForResume();
    TransferItem preparedForResume() const;
    /// What was known of its bytes is known no more: the file is hashed and its upload begun as if for the
    /// first time.
    void forgetContent();
    /// As if it had just been added.
    void startAfresh(const FileStamp& file);
};

/// One thing that a person added.
struct TransferEntry {
    UUID id{};
    /// Standardised and absolute; also what keeps the same thing from being added twice.
    std::string localPath{};
    std::string name{};
    bool isFolder = false;
    std::int64_t fileCount = 0;
    std::int64_t totalBytes = 0;
    /// Of the removable volume that it was on.
    std::optional<std::string> volumeName{};
    Date addedAt{};

    bool operator==(const TransferEntry&) const = default;
    static TransferEntry fromJSON(const boost::json::value& value);
};

/// What is remembered of a card import.
struct IngestInfo {
    /// Something that was on the card and is none of the items of the queue.
    struct Unlisted {
        enum class Kind : std::uint8_t {
            // What is never taken into a queue.
            hidden,
            ignored,
            link,
            special,
            unreadable,
            nameIsNotText,
            // Files that were items, and have been taken off the list.
            landed,
            skipped,
            removed
        };
        /// As they are stored.
        static constexpr std::array<std::string_view, 9> kindNames = {
            "hidden",        "ignored", "link",    "special", "unreadable",
            "nameIsNotText", "landed",  "skipped", "removed"};

        Kind kind = Kind::hidden;
        /// On the card.
        std::string source{};
        /// As an item has them, of what was one.
        std::int64_t size = 0;
        double mtime = 0;

        bool operator==(const Unlisted&) const = default;
        static Unlisted fromJSON(const boost::json::value& value);
    };

    /// The vark's number for it.
    std::int64_t id = 0;
    /// The volume's name as people see it.
    std::string drive{};
    std::string volumePath{};
    std::optional<std::string> volumeUUID{};
    /// Mail the person when the import ends.
    bool emailMe = false;
    bool keepAwake = false;
    /// Paths deliberately left out.
    std::vector<std::string> leftOut{};
    Date startedAt{};
    /// The final report has reached the vark.
    bool reported = false;
    /// With the items and `leftOut` all that was on the card when the import began.
    std::vector<Unlisted> unlisted{};

    bool operator==(const IngestInfo&) const = default;
    static IngestInfo fromJSON(const boost::json::value& value);

    /// By its place and the table of mounts, so that neither the empty place of a card that has gone counts
    /// nor another card of the same name.
    bool driveIsHere(const Volumes& volumes) const;
    /// As much of it as it takes to look for the card, without what may be long.
    IngestInfo place() const;
    std::string waitingLine() const;
    /// The path relative to the card, or as it is when it lies elsewhere.
    std::string source(std::string_view localPath) const;
    /// Whether a path is that of `folder` or leads into it.
    static bool isAtOrBelow(std::string_view path, std::string_view folder);
    /// Whether something of the card is, or lies in, what was left out.
    bool leavesOut(std::string_view source) const;
    /// Keeps what becomes of a file that leaves the list of items, which is otherwise all that tells of it.
    void keepAccountOf(const TransferItem& item);
};

/// The queue as a whole. There is at most one.
struct TransferJob {
    UUID id{};
    /// May be empty.
    std::string title{};
    /// Below the vark's root; empty means the root.
    std::string destination{};
    /// May be empty.
    std::string clientName{};
    /// In order of adding.
    std::vector<TransferEntry> entries{};
    /// In order of adding, which is the order of sending.
    std::vector<TransferItem> items{};
    Date createdAt{};
    bool isPaused = false;
    /// True when the vark's refusal caused the pause, false when a person paused, absent when not paused.
    std::optional<bool> pausedByVark{};
    std::optional<IngestInfo> ingest{};

    bool operator==(const TransferJob&) const = default;

    std::string serverPath(const TransferItem& item) const;
    /// The same for every item; a paused job stays paused.
    TransferJob preparedForResume() &&;
};

}  // namespace vark
