#pragma once

#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Support/Fakes/SilentVark.h"
#include "Tests/VarkReplica/ReplicaWorld.h"
#include "VarkCore/API/ContentSink.h"
#include "VarkCore/Concurrency/Clock.h"

namespace vark::test {

/// A vark with a tree of items and its change feed, whose answers are as old as the questions. Touched on the
/// test's thread alone.
class TreeVark final : public SilentVark {
  public:
    /// How long each answer takes.
    Duration thinking{};
    /// Whether it knows the route for the child of a name, and sends first pages of sub-folders along.
    bool knowsChildren = true;
    bool looksAhead = false;
    /// Failures of the next calls of a kind ("children", "changes", "item", "child").
    std::map<std::string, std::deque<VarkAPIError>> failures;
    /// What the files hold, sent in pieces of a quarter of a megabyte.
    std::map<std::int64_t, std::string> bytes;
    /// Each call in order: "fetch 2 from 0", "children 1 from 1000", "changes from 3", "item 2", "child f in
    /// 1".
    std::vector<std::string> calls;

    void set(const std::string& line) {
        for (VarkItem& item : items(line))
            set(std::move(item));
    }
    void set(VarkItem item) {
        feed_.emplace_back(item.id, false);
        items_[item.id] = std::move(item);
    }
    void remove(std::int64_t id) {
        feed_.emplace_back(id, true);
        items_.erase(id);
    }
    /// What the feed does not tell of.
    void setInSecret(const std::string& line) {
        for (VarkItem& item : items(line))
            items_[item.id] = std::move(item);
    }

    std::vector<std::string> taken() { return std::exchange(calls, {}); }

    Task<VarkItem> item(std::int64_t id) override {
        calls.push_back(fmt::format("item {}", id));
        std::exception_ptr failure = failureOf("item");
        if (!failure && !items_.contains(id)) failure = std::make_exception_ptr(VarkAPIError::server(404));
        VarkItem found = failure ? VarkItem() : items_.at(id);
        co_await sleepFor(thinking);
        if (failure) std::rethrow_exception(failure);
        co_return found;
    }

    Task<ChildAnswer> child(std::int64_t ofParent, std::string named) override {
        calls.push_back(fmt::format("child {} in {}", named, ofParent));
        const std::exception_ptr failure = failureOf("child");
        ChildAnswer found = knowsChildren ? ChildAnswer::none() : ChildAnswer::noRoute();
        for (const auto& [id, each] : items_) {
            if (knowsChildren && each.parent == ofParent && each.name == named)
                found = ChildAnswer::child(each);
        }
        co_await sleepFor(thinking);
        if (failure) std::rethrow_exception(failure);
        co_return found;
    }

    Task<VarkPage> children(std::int64_t of, std::string cursor, std::int64_t limit, bool ahead) override {
        calls.push_back(fmt::format("children {} from {}", of, cursor));
        const std::exception_ptr failure = failureOf("children");
        VarkPage page = pageOf(of, cursor.empty() ? 0 : std::stoll(cursor), limit);
        for (const VarkItem& each : std::vector(page.items)) {
            if (ahead && looksAhead && each.isDir) page.ahead.emplace(each.id, pageOf(each.id, 0, limit));
        }
        co_await sleepFor(thinking);
        if (failure) std::rethrow_exception(failure);
        co_return page;
    }

    Task<VarkChanges> changes(std::int64_t /*under*/, std::optional<std::string> since,
                              std::int64_t limit) override {
        calls.push_back(fmt::format("changes from {}", since.value_or("the end")));
        const std::exception_ptr failure = failureOf("changes");
        VarkChanges page;
        std::size_t at = since ? std::stoull(*since) : feed_.size();
        for (; at < feed_.size() && std::cmp_less(page.changed.size() + page.gone.size(), limit); ++at) {
            const auto& [id, isGone] = feed_[at];
            if (isGone) page.gone.push_back(id);
            if (!isGone && items_.contains(id)) page.changed.push_back(items_.at(id));
        }
        page.cursor = std::to_string(at);
        page.more = at < feed_.size();
        co_await sleepFor(thinking);
        if (failure) std::rethrow_exception(failure);
        co_return page;
    }

    Task<void> fetch(std::int64_t id, ContentSink& sink) override {
        std::int64_t at = sink.next();
        calls.push_back(fmt::format("fetch {} from {}", id, at));
        const std::exception_ptr failure = failureOf("fetch");
        co_await sleepFor(thinking);
        if (failure) std::rethrow_exception(failure);
        const std::string all = bytes.at(id);
        do {
            const std::string piece = all.substr(static_cast<std::size_t>(at), 256 * 1024);
            sink.take(at, piece);
            at += std::ssize(piece);
            co_await sleepFor(thinking);
        } while (at < std::ssize(all));
    }

  private:
    VarkPage pageOf(std::int64_t folder, std::int64_t begin, std::int64_t limit) const {
        VarkPage page;
        std::int64_t place = 0;
        for (const auto& [id, each] : items_) {
            if (each.parent != folder || place++ < begin) continue;
            page.more = std::cmp_equal(page.items.size(), limit);
            if (page.more) break;
            page.items.push_back(each);
        }
        if (page.more) page.cursor = std::to_string(begin + limit);
        return page;
    }

    std::exception_ptr failureOf(const std::string& kind) {
        std::deque<VarkAPIError>& next = failures[kind];
        if (next.empty()) return nullptr;
        const VarkAPIError failure = next.front();
        next.pop_front();
        return std::make_exception_ptr(failure);
    }

    std::map<std::int64_t, VarkItem> items_;
    std::vector<std::pair<std::int64_t, bool>> feed_;
};

}  // namespace vark::test
