#include "VarkReplica/DoubtedItems.h"

#include <algorithm>
#include <set>

#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Transfer/ExtensionLog.h"
#include "VarkProvider/WorkingSet.h"

namespace vark {
namespace {

constexpr std::string_view logTag = "disk";
constexpr std::size_t mostAtOnce = 200;
constexpr std::size_t width = 4;
constexpr Duration afterARefusal = std::chrono::hours(1);

}  // namespace

struct DoubtedItems::Answer {
    Record record;
    Asked asked{};
    WorkingSet::Said said = WorkingSet::Said::gone();

    bool isGone() const { return std::holds_alternative<WorkingSet::Said::Gone>(said.which()); }
    bool isUnclear() const { return std::holds_alternative<WorkingSet::Said::CouldNotSay>(said.which()); }
};

DoubtedItems::DoubtedItems(Replica& replica, VarkAPI& vark, std::int64_t root,
                           std::function<VarkEnumerator::Shown()> shown, ExtensionLog& log, Tell tell,
                           const Clock& clock)
    : replica_(replica),
      vark_(vark),
      root_(root),
      shown_(std::move(shown)),
      log_(log),
      tell_(std::move(tell)),
      clock_(clock) {}

std::vector<Record> DoubtedItems::due() {
    const Instant now = clock_.now();
    std::erase_if(notBefore_, [now](const auto& each) { return each.second <= now; });
    std::vector<Record> records = replica_.stale(mostAtOnce + notBefore_.size());
    std::erase_if(records, [this](const Record& record) {
        return !record.there || notBefore_.contains(record.there->id);
    });
    if (records.size() > mostAtOnce) records.resize(mostAtOnce);
    return records;
}

Task<void> DoubtedItems::ask() {
    std::vector<Answer> answers;
    for (Record& record : due())
        answers.push_back(Answer{std::move(record)});
    std::vector<Answer*> open;
    for (Answer& answer : answers)
        open.push_back(&answer);
    auto ask = [this](Answer* answer) { return askFor(answer); };
    co_await forEachBounded(std::move(open), width, ask);
    compare(answers);
}

Task<void> DoubtedItems::askFor(Answer* answer) {
    answer->asked = replica_.ask();
    try {
        VarkItem item = co_await vark_.item(answer->record.there->id);
        if (VarkEnumerator::isShown(item, root_, shown_()))
            tell_(replica_.learn({&item, 1}, answer->asked).news);
        answer->said = WorkingSet::Said::here(std::move(item));
    } catch (const VarkAPIError& error) {
        if (!error.isGone()) answer->said = WorkingSet::Said::couldNotSay(error.errorDescription());
    }
}

void DoubtedItems::compare(const std::vector<Answer>& answers) {
    if (std::ranges::none_of(answers, &Answer::isGone)) return;

    std::vector<WorkingSet::Item> items;
    std::vector<std::int64_t> gone;
    std::set<std::int64_t> answered;
    std::set<Ino> folders;
    Asked earliest = answers.front().asked;
    for (const Answer& answer : answers) {
        items.push_back(WorkingSet::Item{answer.record.there->id, answer.said});
        answered.insert(answer.record.there->id);
        earliest.at = std::min(earliest.at, answer.asked.at);
        if (!answer.isGone()) continue;
        gone.push_back(answer.record.there->id);
        if (answer.record.here.parent) folders.insert(*answer.record.here.parent);
    }
    for (const Ino folder : folders) {
        for (VarkItem& item : replica_.confirmed(folder)) {
            const std::int64_t id = item.id;
            if (answered.contains(id)) continue;
            items.push_back(WorkingSet::Item{id, WorkingSet::Said::here(std::move(item))});
        }
    }
    // Names are learnt from the answers themselves.
    const WorkingSet::Reconciled verdict = WorkingSet::reconcile(items, {});
    if (const auto* changes = std::get_if<WorkingSet::Changes>(&verdict)) {
        tell_(replica_.gone(changes->gone, earliest).news);
        return;
    }
    log_.note(logTag, std::get<WorkingSet::TryAgain>(verdict).why);
    if (std::ranges::any_of(answers, &Answer::isUnclear)) return;
    for (const std::int64_t id : gone)
        notBefore_.insert_or_assign(id, clock_.now() + afterARefusal);
}

}  // namespace vark
