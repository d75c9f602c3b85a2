#include "Hosts/CLI/QueueView.h"

namespace vark::cli {

namespace {

constexpr std::size_t mostFilesOfAState = 1000;

FileView viewOf(const TransferItem& item) {
    FileView view;
    view.relativePath = item.relativePath;
    view.localPath = item.localPath;
    view.state = item.state;
    view.size = item.size;
    view.bytesDone = std::min(item.size, item.bytesDone());
    view.error = item.error;
    return view;
}

void describeHead(QueueView& view, const TransferJob& job) {
    view.destination = job.destination;
    view.title = job.title;
    view.paused = job.isPaused;
    view.pausedByVark = job.pausedByVark.value_or(false);
}

void describeContent(QueueView& view, const TransferJob& job,
                     const std::unordered_map<UUID, EntryProgress>& progress) {
    view.entries.reserve(job.entries.size());
    for (const TransferEntry& entry : job.entries) {
        EntryView shown;
        shown.number = static_cast<std::int64_t>(view.entries.size()) + 1;
        shown.id = entry.id.text();
        shown.name = entry.name;
        shown.localPath = entry.localPath;
        if (auto found = progress.find(entry.id); found != progress.end()) shown.progress = found->second;
        view.entries.push_back(std::move(shown));
    }
    for (ItemState state : {ItemState::failed, ItemState::conflict}) {
        for (FileView& file : filesIn(job, state, mostFilesOfAState))
            view.files.push_back(std::move(file));
    }
}

ItemState stateNamed(const std::string& name) {
    std::optional<ItemState> state = itemState(name);
    if (!state) throw DecodingError("an unknown state: " + name);
    return *state;
}

Overall overallFrom(const JSONFields& fields) {
    Overall overall;
    overall.filesTotal = fields.required<std::int64_t>("files");
    overall.filesVerified = fields.required<std::int64_t>("verified");
    overall.filesFailed = fields.required<std::int64_t>("failed");
    overall.filesConflict = fields.required<std::int64_t>("conflicts");
    overall.filesSkipped = fields.required<std::int64_t>("skipped");
    overall.bytesTotal = fields.required<std::int64_t>("bytesTotal");
    overall.bytesDone = fields.required<std::int64_t>("bytesDone");
    overall.rate = fields.required<double>("rate");
    overall.secondsLeft = fields.optional<double>("secondsLeft");
    return overall;
}

template <class T>
void encodeList(JSONWriter& json, std::string_view key, const std::vector<T>& elements) {
    json.key(key).beginArray();
    for (const T& element : elements) {
        json.beginObject();
        element.encode(json);
        json.endObject();
    }
    json.endArray();
}

}  // namespace

EntryView EntryView::fromJSON(const boost::json::value& value) {
    JSONFields fields(value);
    EntryView view;
    view.number = fields.required<std::int64_t>("number");
    view.id = fields.required<std::string>("id");
    view.name = fields.required<std::string>("name");
    view.localPath = fields.required<std::string>("localPath");
    view.progress.files = fields.required<std::int64_t>("files");
    view.progress.verified = fields.required<std::int64_t>("verified");
    view.progress.failed = fields.required<std::int64_t>("failed");
    view.progress.conflicts = fields.required<std::int64_t>("conflicts");
    view.progress.skipped = fields.required<std::int64_t>("skipped");
    view.progress.bytesTotal = fields.required<std::int64_t>("bytesTotal");
    view.progress.bytesDone = fields.required<std::int64_t>("bytesDone");
    return view;
}

void EntryView::encode(JSONWriter& json) const {
    json.field("number", number).field("id", id).field("name", name).field("localPath", localPath);
    json.field("files", progress.files).field("verified", progress.verified).field("failed", progress.failed);
    json.field("conflicts", progress.conflicts).field("skipped", progress.skipped);
    json.field("bytesTotal", progress.bytesTotal).field("bytesDone", progress.bytesDone);
}

FileView FileView::fromJSON(const boost::json::value& value) {
    JSONFields fields(value);
    FileView view;
    view.relativePath = fields.required<std::string>("path");
    view.localPath = fields.required<std::string>("localPath");
    view.state = stateNamed(fields.required<std::string>("state"));
    view.size = fields.required<std::int64_t>("size");
    view.bytesDone = fields.required<std::int64_t>("bytesDone");
    view.error = fields.optional<std::string>("error");
    return view;
}

void FileView::encode(JSONWriter& json) const {
    json.field("path", relativePath).field("localPath", localPath).field("state", text(state));
    json.field("size", size).field("bytesDone", bytesDone).field("error", error);
}

QueueView QueueView::of(const TransferJob& job) {
    QueueTotals totals;
    for (const TransferEntry& entry : job.entries)
        totals.addEntry(entry.id);
    for (const TransferItem& item : job.items)
        totals.add(item.entryID, {item.size, std::min(item.size, item.bytesDone()), item.state});
    QueueView view;
    view.overall = totals.overall();
    describeHead(view, job);
    describeContent(view, job, totals.entries());
    return view;
}

QueueView QueueView::glance(const TransferEngine& engine) {
    QueueView view;
    view.running = true;
    view.hold = engine.hold();
    view.overall = engine.overall();
    view.files = filesUnderWay(engine);
    if (engine.job()) describeHead(view, *engine.job());
    return view;
}

QueueView QueueView::of(const TransferEngine& engine) {
    QueueView view = glance(engine);
    if (engine.job()) describeContent(view, *engine.job(), engine.entryProgress());
    return view;
}

QueueView QueueView::fromJSON(const boost::json::value& value) {
    JSONFields fields(value);
    QueueView view;
    view.destination = fields.required<std::string>("destination");
    view.title = fields.required<std::string>("title");
    view.running = fields.required<bool>("running");
    view.paused = fields.required<bool>("paused");
    view.pausedByVark = fields.required<bool>("pausedByVark");
    view.hold = fields.optional<std::string>("hold");
    view.overall = overallFrom(fields);
    view.entries = fields.required<std::vector<EntryView>>("entries");
    view.files = fields.required<std::vector<FileView>>("unsettled");
    return view;
}

void QueueView::encodeHead(JSONWriter& json) const {
    json.field("destination", destination).field("title", title).field("running", running);
    json.field("paused", paused).field("pausedByVark", pausedByVark).field("hold", hold);
    json.field("files", overall.filesTotal).field("verified", overall.filesVerified);
    json.field("failed", overall.filesFailed).field("conflicts", overall.filesConflict);
    json.field("skipped", overall.filesSkipped).field("bytesTotal", overall.bytesTotal);
    json.field("bytesDone", overall.bytesDone).field("rate", overall.rate);
    json.field("secondsLeft", overall.secondsLeft);
}

void QueueView::encode(JSONWriter& json) const {
    encodeHead(json);
    encodeList(json, "entries", entries);
    encodeList(json, "unsettled", files);
}

std::vector<FileView> filesUnderWay(const TransferEngine& engine) {
    std::vector<FileView> files;
    for (const UUID& id : engine.activeItemIDs()) {
        const TransferItem* item = engine.item(id);
        if (item == nullptr || !isInFlight(item->state)) continue;
        FileView file = viewOf(*item);
        file.bytesDone = item->state == ItemState::hashing
                             ? engine.hashingBytes(id)
                             : std::min(item->size, item->bytesDone() + engine.inFlightBytes(id));
        files.push_back(std::move(file));
    }
    return files;
}

std::vector<FileView> filesIn(const TransferJob& job, ItemState state, std::size_t most) {
    std::vector<FileView> files;
    for (const TransferItem& item : job.items) {
        if (item.state != state) continue;
        if (files.size() == most) break;
        files.push_back(viewOf(item));
    }
    return files;
}

}  // namespace vark::cli
