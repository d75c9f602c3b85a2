#include "VarkApp/Queue/QueueView.h"

#include <algorithm>
#include <unordered_set>

namespace vark::app {

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
    view.mtime = item.mtime;
    view.standing = item.standing;
    return view;
}

void describeHead(QueueView& view, const TransferJob& job) {
    view.destination = job.destination;
    view.title = job.title;
    view.paused = job.isPaused;
    view.pausedByVark = job.pausedByVark.value_or(false);
}

EntryView viewOf(const TransferEntry& entry, std::size_t place, const EntryProgress& progress) {
    EntryView view;
    view.number = static_cast<std::int64_t>(place) + 1;
    view.id = entry.id.text();
    view.name = entry.name;
    view.localPath = entry.localPath;
    view.progress = progress;
    return view;
}

using Progress = std::unordered_map<UUID, EntryProgress>;
using Chosen = std::unordered_set<UUID>;

/// All entries, or those chosen.
void describeEntries(QueueView& view, const TransferJob& job, const Progress& progress,
                     const Chosen* chosen = nullptr) {
    for (std::size_t place = 0; place < job.entries.size(); ++place) {
        const TransferEntry& entry = job.entries[place];
        if (chosen != nullptr && !chosen->contains(entry.id)) continue;
        const auto found = progress.find(entry.id);
        view.entries.push_back(
            viewOf(entry, place, found == progress.end() ? EntryProgress() : found->second));
    }
}

void describe(QueueView& view, const TransferJob& job, const IndexSet& places, const Chosen* chosen) {
    std::size_t described = 0;
    for (const std::size_t place : places) {
        const TransferItem& item = job.items[place];
        if (chosen != nullptr && !chosen->contains(item.entryID)) continue;
        if (++described > mostFilesOfAState) return;
        view.files.push_back(viewOf(item));
    }
}

/// What failed, then what waits.
struct Unsettled {
    const IndexSet& failed;
    const IndexSet& conflicts;

    void describe(QueueView& view, const TransferJob& job, const Chosen* chosen = nullptr) const {
        app::describe(view, job, failed, chosen);
        app::describe(view, job, conflicts, chosen);
    }
};

Unsettled unsettledOf(const TransferEngine& engine) {
    return {engine.failedItems(), engine.conflicts()};
}

IndexSet placesOf(const TransferJob& job, ItemState state) {
    IndexSet places;
    for (std::size_t place = 0; place < job.items.size(); ++place) {
        if (job.items[place].state == state) places.insert(place);
    }
    return places;
}

QueueTotals totalsOf(const TransferJob& job) {
    QueueTotals totals;
    for (const TransferEntry& entry : job.entries)
        totals.addEntry(entry.id);
    for (const TransferItem& item : job.items)
        totals.add(item.entryID, {item.size, std::min(item.size, item.bytesDone()), item.state});
    return totals;
}

/// The numbers of the entries in the view, as if there were no others.
void addUp(QueueView& view) {
    for (const EntryView& entry : view.entries) {
        view.overall.filesTotal += entry.progress.files;
        view.overall.filesVerified += entry.progress.verified;
        view.overall.bytesVerified += entry.progress.bytesVerified;
        view.overall.filesFailed += entry.progress.failed;
        view.overall.filesConflict += entry.progress.conflicts;
        view.overall.filesSkipped += entry.progress.skipped;
        view.overall.filesChanged += entry.progress.changed;
        view.overall.bytesTotal += entry.progress.bytesTotal;
        view.overall.bytesDone += entry.progress.bytesDone;
    }
}

void describeChosen(QueueView& view, const TransferJob& job, const Progress& progress,
                    const std::vector<UUID>& entries, const Unsettled& unsettled) {
    const Chosen chosen(entries.begin(), entries.end());
    describeEntries(view, job, progress, &chosen);
    addUp(view);
    if (view.isSettled()) unsettled.describe(view, job, &chosen);
}

/// What is told of the items that an engine is working on.
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
    overall.filesChanged = fields.valueOr<std::int64_t>("changed", 0);
    overall.bytesVerified = fields.valueOr<std::int64_t>("bytesVerified", 0);
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
    view.progress.changed = fields.valueOr<std::int64_t>("changed", 0);
    view.progress.bytesTotal = fields.required<std::int64_t>("bytesTotal");
    view.progress.bytesDone = fields.required<std::int64_t>("bytesDone");
    view.isGone = fields.valueOr("gone", false);
    return view;
}

void EntryView::encode(JSONWriter& json) const {
    json.field("number", number).field("id", id).field("name", name).field("localPath", localPath);
    json.field("files", progress.files).field("verified", progress.verified).field("failed", progress.failed);
    json.field("conflicts", progress.conflicts).field("skipped", progress.skipped);
    json.field("changed", progress.changed);
    if (isGone) json.field("gone", true);
    json.field("bytesTotal", progress.bytesTotal).field("bytesDone", progress.bytesDone);
}

bool EntryView::isSettled() const {
    const EntryProgress& now = progress;
    return isGone || now.verified + now.skipped + now.failed + now.conflicts == now.files;
}

std::int64_t EntryView::takenAway() const {
    return isGone ? progress.files - progress.verified - progress.skipped : 0;
}

OutageView OutageView::fromJSON(const boost::json::value& value) {
    JSONFields fields(value);
    return {fields.iso8601("since"), fields.required<std::string>("why"),
            fields.required<double>("secondsLeft")};
}

void OutageView::encode(JSONWriter& json) const {
    json.field("since", iso8601(since)).field("why", why).field("secondsLeft", secondsLeft);
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
    view.mtime = fields.optional<double>("mtime");
    const TransferItem::Standing standing{fields.optional<std::int64_t>("standingSize"),
                                          fields.optional<double>("standingMtime")};
    if (standing != TransferItem::Standing()) view.standing = standing;
    return view;
}

void FileView::encode(JSONWriter& json) const {
    json.field("path", relativePath).field("localPath", localPath).field("state", text(state));
    json.field("size", size).field("bytesDone", bytesDone).field("error", error).field("mtime", mtime);
    if (standing) json.field("standingSize", standing->size).field("standingMtime", standing->mtime);
}

QueueView QueueView::of(const TransferJob& job) {
    const QueueTotals totals = totalsOf(job);
    QueueView view;
    view.overall = totals.overall();
    describeHead(view, job);
    describeEntries(view, job, totals.entries());
    const IndexSet failed = placesOf(job, ItemState::failed);
    const IndexSet conflicts = placesOf(job, ItemState::conflict);
    Unsettled{failed, conflicts}.describe(view, job);
    return view;
}

QueueView QueueView::of(const TransferJob& job, const std::vector<UUID>& entries) {
    QueueView view;
    describeHead(view, job);
    const IndexSet failed = placesOf(job, ItemState::failed);
    const IndexSet conflicts = placesOf(job, ItemState::conflict);
    describeChosen(view, job, totalsOf(job).entries(), entries, {failed, conflicts});
    return view;
}

QueueView QueueView::glance(const TransferEngine& engine, Date now) {
    QueueView view;
    view.running = true;
    view.hold = engine.hold();
    if (const auto& outage = engine.outage())
        view.outage = OutageView{outage->since, outage->why, std::max(0.0, outage->nextTry - now)};
    view.overall = engine.overall();
    view.files = filesUnderWay(engine);
    if (engine.job()) describeHead(view, *engine.job());
    return view;
}

QueueView QueueView::of(const TransferEngine& engine, Date now) {
    QueueView view = glance(engine, now);
    if (!engine.job()) return view;
    describeEntries(view, *engine.job(), engine.entryProgress());
    unsettledOf(engine).describe(view, *engine.job());
    return view;
}

QueueView QueueView::of(const TransferEngine& engine, const std::vector<UUID>& entries, Date now) {
    QueueView view = glance(engine, now);
    const double rate = view.overall.rate;
    view.overall = Overall();
    if (!engine.job()) return view;
    const Chosen chosen(entries.begin(), entries.end());
    std::erase_if(view.files, [&](const FileView& file) {
        return std::ranges::none_of(engine.job()->entries, [&](const TransferEntry& entry) {
            return chosen.contains(entry.id) &&
                   (file.localPath == entry.localPath || file.localPath.starts_with(entry.localPath + "/"));
        });
    });
    if (!view.files.empty()) view.overall.rate = rate;
    describeChosen(view, *engine.job(), engine.entryProgress(), entries, unsettledOf(engine));
    return view;
}

bool QueueView::isSettled() const {
    return std::ranges::all_of(entries, &EntryView::isSettled);
}

std::int64_t QueueView::filesTakenAway() const {
    std::int64_t taken = 0;
    for (const EntryView& entry : entries)
        taken += entry.takenAway();
    return taken;
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
    view.outage = fields.optional<OutageView>("outage");
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
    json.field("skipped", overall.filesSkipped).field("changed", overall.filesChanged);
    json.field("bytesVerified", overall.bytesVerified).field("bytesTotal", overall.bytesTotal);
    json.field("bytesDone", overall.bytesDone).field("rate", overall.rate);
    json.field("secondsLeft", overall.secondsLeft);
    if (!outage) return;
    json.key("outage").beginObject();
    outage->encode(json);
    json.endObject();
}

void QueueView::encode(JSONWriter& json) const {
    encodeHead(json);
    encodeList(json, "entries", entries);
    encodeList(json, "unsettled", files);
}

}  // namespace vark::app
