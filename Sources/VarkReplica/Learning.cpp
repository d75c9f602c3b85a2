#include "VarkReplica/Learning.h"

#include <algorithm>
#include <cmath>

#include "VarkCore/Foundation/FileName.h"

namespace vark {
namespace {

constexpr mode_t modeOfFiles = 0644;
constexpr mode_t modeOfFolders = 0755;
/// How long an id that went is remembered. No list takes that long.
constexpr double removedFor = 24 * 3600.0;

/// Nanoseconds; within what a file system can hold, whatever the vark says.
std::int64_t nanoseconds(const std::optional<double>& time) {
    constexpr double most = 9'000'000'000.0;
    const double value = time.value_or(0);
    if (!std::isfinite(value)) return 0;
    return std::llround(std::clamp(value, -most, most) * 1e9);
}

There factsOf(const VarkItem& item) {
    return There{item.id,    item.parent, item.name, item.isDir ? 0 : std::max<std::int64_t>(item.size, 0),
                 item.mtime, item.sha256};
}

bool hasSameBytes(const There& one, const There& other) {
    if (one.size != other.size) return false;
    if (!one.sha256.empty() && !other.sha256.empty()) return one.sha256 == other.sha256;
    return one.mtime == other.mtime && one.sha256 == other.sha256;
}

Kind kindOf(const VarkItem& item) {
    return item.isDir ? Kind::folder : Kind::file;
}

/// Others are left out: they would lead elsewhere, or cannot be a name on a disk here.
bool canStandHere(const std::string& name) {
    const std::optional<NameFault> fault = faultOf(name);
    return !fault || *fault == NameFault::holdsControls;
}

}  // namespace

Learning::Learning(Turn& turn, std::int64_t root, Asked asked, std::int64_t now, Date at, IsOpen isOpen)
    : rows_(turn), turn_(turn), root_(root), asked_(asked), now_(now), at_(at), isOpen_(std::move(isOpen)) {}

void Learning::take(std::span<const VarkItem> items) {
    std::vector<Fact> facts = admitted(items);
    for (Fact& fact : facts)
        leavePlace(fact);
    // A folder may come behind what it holds, so folders are put until no more of them finds its own folder.
    while (putAll(facts, true)) {
    }
    putAll(facts, false);
    for (Fact& fact : facts) {
        if (fact.row) park(fact, false);
    }
}

bool Learning::putAll(std::vector<Fact>& facts, bool folders) {
    std::vector<Fact> waiting;
    for (Fact& fact : facts) {
        const bool isPut = fact.item->isDir == folders && put(fact);
        if (!isPut) waiting.push_back(std::move(fact));
    }
    facts.swap(waiting);
    return facts.size() < waiting.size();
}

std::vector<Learning::Fact> Learning::admitted(std::span<const VarkItem> items) {
    std::map<std::int64_t, std::size_t> last;
    for (std::size_t index = 0; index < items.size(); ++index)
        last[items[index].id] = index;

    std::vector<Fact> facts;
    for (std::size_t index = 0; index < items.size(); ++index) {
        const VarkItem& item = items[index];
        if (item.id == root_ || last.at(item.id) != index) continue;
        std::optional<Record> row = rows_.withID(item.id);
        if (!row && wasRemovedSince(item.id)) continue;
        if (row && row->learnt > asked_.at) {
            if (row->there != factsOf(item)) becomeStale(*row);
            continue;
        }
        if (row && row->here.kind != kindOf(item)) {
            if (row->here.parent) tellGone(*row->here.parent, row->here.name, row->ino);
            drop(*row);
            row.reset();
        }
        facts.push_back(Fact{&item, std::move(row)});
    }
    return facts;
}

bool Learning::wasRemovedSince(std::int64_t id) {
    Query query = turn_.query("SELECT learnt FROM removed WHERE id = ?");
    return query.with(id).next() && query.integer(0) > asked_.at;
}

void Learning::leavePlace(Fact& fact) {
    if (!fact.row || !fact.row->here.parent) return;
    Record& row = *fact.row;
    const There& was = *row.there;
    if (was.parent == fact.item->parent && was.name == fact.item->name) return;
    left_.emplace(row.ino, std::pair(*row.here.parent, row.here.name));
    row.here.parent.reset();
    rows_.set(row);
}

std::optional<Learning::Folder> Learning::folderOf(const VarkItem& item) {
    const std::int64_t id = item.parent.value_or(root_);
    if (const auto known = folders_.find(id); known != folders_.end()) return known->second;
    const std::optional<Record> row = rows_.withID(id);
    if (!row || !row->isFolder()) return std::nullopt;
    return folders_.emplace(id, Folder{row->ino, row->listed.has_value()}).first->second;
}

bool Learning::put(Fact& fact) {
    const std::optional<Folder> folder = folderOf(*fact.item);
    if (!folder) return false;
    // Of two folders that lie in each other one is out of date, and is stale already.
    const bool leadsIntoItself = fact.row && fact.item->isDir && liesWithin(folder->ino, fact.row->ino);
    if (canStandHere(fact.item->name) && !leadsIntoItself) {
        putInto(*folder, fact);
    } else if (fact.row) {
        park(fact, leadsIntoItself);
    }
    return true;
}

void Learning::putInto(Folder folder, Fact& fact) {
    const VarkItem& item = *fact.item;
    const bool isNew = !fact.row;
    if (isNew) {
        fact.row.emplace();
        fact.row->here.kind = kindOf(item);
        fact.row->here.mode = item.isDir ? modeOfFolders : modeOfFiles;
    }
    Record& row = *fact.row;
    const bool isElsewhere = row.here.parent != folder.ino || row.here.name != item.name;
    if (isElsewhere) makeWay(folder.ino, item.name, row.ino);
    if (!isNew) refresh(row, item);

    row.here.parent = folder.ino;
    row.here.name = item.name;
    row.there = factsOf(item);
    row.here.size = row.there->size;
    row.here.mtime = nanoseconds(item.mtime);
    row.stale = false;
    row.learnt = now_;
    ++taken_;
    tellLeft(row);
    if (row.ino == 0) {
        row.ino = rows_.add(row);
    } else {
        rows_.set(row);
    }
    if (isElsewhere && folder.isListed) tellPlace(folder.ino, item.name);
}

void Learning::refresh(Record& row, const VarkItem& item) {
    const There facts = factsOf(item);
    const bool looksTheSame = row.here.size == facts.size && row.here.mtime == nanoseconds(facts.mtime);
    const bool isOtherContent = !item.isDir && !hasSameBytes(*row.there, facts);
    if (!looksTheSame || isOtherContent) changed_.insert(row.ino);
    if (!isOtherContent) return;
    if (isOpen_(row.ino)) replaceOpen(row);
    ++row.content;
    row.held = Held::nothing;
}

void Learning::replaceOpen(Record& row) {
    Record orphan = row;
    orphan.here.parent.reset();
    orphan.there.reset();
    orphan.stale = false;
    rows_.set(orphan);
    changed_.erase(row.ino);
    if (row.here.parent) tellPlace(*row.here.parent, row.here.name);
    tellLeft(row);
    row.ino = 0;
    row.content = 0;
}

void Learning::makeWay(Ino folder, const std::string& name, Ino comer) {
    std::optional<Record> other = rows_.at(folder, name);
    if (!other || other->ino == comer) return;
    other->here.parent.reset();
    other->stale = true;
    rows_.set(*other);
    tellPlace(folder, name);
}

bool Learning::liesWithin(Ino folder, Ino within) {
    for (std::optional<Ino> at = folder; at && *at != rootIno;) {
        if (*at == within) return true;
        const std::optional<Record> row = rows_.withIno(*at);
        at = row ? row->here.parent : std::nullopt;
    }
    return false;
}

void Learning::park(Fact& fact, bool asksAgain) {
    Record& row = *fact.row;
    row.stale = asksAgain;
    if (row.here.parent) left_.emplace(row.ino, std::pair(*row.here.parent, row.here.name));
    if (const auto left = left_.find(row.ino); left != left_.end()) {
        tellGone(left->second.first, left->second.second, row.ino);
        left_.erase(left);
    }
    if (!fact.item->isDir && !hasSameBytes(*row.there, factsOf(*fact.item))) {
        ++row.content;
        row.held = Held::nothing;
    }
    row.here.parent.reset();
    row.there = factsOf(*fact.item);
    row.learnt = now_;
    rows_.set(row);
}

void Learning::becomeStale(Record row) {
    row.stale = true;
    rows_.set(row);
}

void Learning::remove(std::span<const std::int64_t> ids) {
    for (const std::int64_t id : ids) {
        if (id == root_) continue;
        const std::optional<Record> row = rows_.withID(id);
        // What this very page has brought as well, it calls gone behind it.
        if (row && row->learnt > asked_.at && row->learnt != now_) {
            becomeStale(*row);
            continue;
        }
        turn_.query("INSERT OR REPLACE INTO removed(id, learnt, at) VALUES(?, ?, ?)")
            .with(id, now_, at_.since1970())
            .run();
        if (!row) continue;
        if (row->here.parent) tellGone(*row->here.parent, row->here.name, row->ino);
        drop(*row);
    }
    if (ids.empty()) return;
    turn_.query("DELETE FROM removed WHERE at < ?").with(at_.since1970() - removedFor).run();
}

void Learning::drop(const Record& row) {
    std::vector<Record> rest{row};
    while (!rest.empty()) {
        Record each = std::move(rest.back());
        rest.pop_back();
        for (const Ino child : rows_.shownIn(each.ino))
            rest.push_back(*rows_.withIno(child));
        changed_.erase(each.ino);
        if (isOpen_(each.ino)) {
            each.here.parent.reset();
            each.there.reset();
            each.stale = false;
            rows_.set(each);
        } else {
            rows_.remove(each.ino);
        }
    }
}

void Learning::tellLeft(const Record& row) {
    const auto left = left_.find(row.ino);
    if (left == left_.end()) return;
    tellPlace(left->second.first, left->second.second);
    left_.erase(left);
}

void Learning::tellPlace(Ino folder, const std::string& name) {
    places_.emplace(folder, name);
}

void Learning::tellGone(Ino folder, const std::string& name, Ino ino) {
    gone_.emplace_back(GoneNews{folder, name, ino});
    changed_.insert(folder);
}

Learnt Learning::finish() {
    Learnt learnt;
    learnt.taken = taken_;
    learnt.news = std::move(gone_);
    for (const auto& [folder, name] : places_) {
        changed_.insert(folder);
        learnt.news.emplace_back(EntryNews{folder, name});
    }
    for (const Ino ino : changed_)
        learnt.news.emplace_back(InodeNews{ino});
    return learnt;
}

}  // namespace vark
