#pragma once

#include <boost/json/value.hpp>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Transfer/TransferEngine.h"

namespace vark::app {

/// One thing of the queue that a person added.
struct EntryView {
    /// Its place in the queue, from 1.
    std::int64_t number = 0;
    std::string id;
    std::string name;
    std::string localPath;
    EntryProgress progress;
    /// It was taken out of the queue, and the numbers are its last.
    bool isGone = false;

    /// Whether nothing more becomes of it until a person does something.
    bool isSettled() const;
    /// Files that were taken out of the queue before they had landed.
    std::int64_t takenAway() const;

    static EntryView fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    bool operator==(const EntryView&) const = default;
};

/// One file that is under way, has failed, or waits for a decision.
struct FileView {
    std::string relativePath;
    std::string localPath;
    ItemState state = ItemState::queued;
    std::int64_t size = 0;
    /// Bytes that have been hashed or sent, as the state says.
    std::int64_t bytesDone = 0;
    std::optional<std::string> error;
    /// Seconds since 1970.
    std::optional<double> mtime;
    /// Of what it stands against in the vark, while it waits for a decision.
    std::optional<TransferItem::Standing> standing;

    static FileView fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    bool operator==(const FileView&) const = default;
};

/// That no call gets through to the vark.
struct OutageView {
    Date since;
    /// A finished sentence.
    std::string why;
    /// Until it is tried again.
    double secondsLeft = 0;

    static OutageView fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    bool operator==(const OutageView&) const = default;
};

/// The queue as it is shown. A value, made of the saved queue or of a running engine.
struct QueueView {
    std::string destination;
    std::string title;
    bool running = false;
    bool paused = false;
    bool pausedByVark = false;
    std::optional<std::string> hold;
    std::optional<OutageView> outage;
    Overall overall;
    std::vector<EntryView> entries;
    /// What is under way, then what failed, then what waits; of the latter two a limited number.
    std::vector<FileView> files;

    static QueueView of(const TransferJob& job);
    static QueueView of(const TransferEngine& engine, Date now);
    /// Without entries, and of the files only those under way: what can be looked at often, however long the
    /// queue is.
    static QueueView glance(const TransferEngine& engine, Date now);
    /// As if the queue were these entries alone. Files that failed or wait stand in it only once all has
    /// settled, so that it too can be looked at often.
    static QueueView of(const TransferJob& job, const std::vector<UUID>& entries);
    static QueueView of(const TransferEngine& engine, const std::vector<UUID>& entries, Date now);

    bool isSettled() const;
    std::int64_t filesTakenAway() const;

    static QueueView fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    /// The queue itself, without its entries and files.
    void encodeHead(JSONWriter& json) const;
    bool operator==(const QueueView&) const = default;
};

}  // namespace vark::app
