#include "VarkCore/Actions/FolderPages.h"

#include <array>
#include <stdexcept>

#include "VarkCore/Concurrency/Clock.h"

namespace vark {
namespace {

constexpr std::int64_t itemsOfAPage = 1000;
/// Pages that nobody came for. Beyond them all are forgotten and asked for again.
constexpr std::size_t mostKept = 10'000;
constexpr std::array waits = {std::chrono::seconds(1), std::chrono::seconds(4), std::chrono::seconds(15)};

}  // namespace

template <class T>
Task<T> FolderPages::patiently(std::function<Task<T>()> call) {
    for (std::size_t tries = 0;; ++tries) {
        try {
            co_return co_await call();
        } catch (const VarkAPIError& error) {
            const bool goesOn = patience_ == Patience::some && tries < waits.size() && error.isRetryable();
            if (!goesOn) throw;
        }
        co_await sleepFor(waits.at(tries));
    }
}

Task<FolderPages::Page> FolderPages::page(std::int64_t folder, std::string cursor) {
    VarkPage page;
    const auto kept = cursor.empty() ? ahead_.find(folder) : ahead_.end();
    if (kept != ahead_.end()) {
        page = std::move(kept->second);
        ahead_.erase(kept);
    } else {
        const std::function<Task<VarkPage>()> ask = [&] {
            return api_->children(folder, cursor, itemsOfAPage, true);
        };
        page = co_await patiently(ask);
        if (ahead_.size() > mostKept) ahead_.clear();
        for (auto& [id, first] : page.ahead)
            ahead_.insert_or_assign(id, std::move(first));
    }
    if (!page.more) co_return Page{std::move(page.items), std::nullopt};
    if (page.cursor == cursor)
        throw std::runtime_error(
            "The vark sends the same page again and again, so the list is not complete. Try again later.");
    co_return Page{std::move(page.items), std::move(page.cursor)};
}

Task<std::optional<VarkItem>> FolderPages::find(std::string path) {
    const std::function<Task<VarkItem>()> ask = [&] { return api_->item(path); };
    try {
        co_return co_await patiently(ask);
    } catch (const VarkAPIError& error) {
        if (!error.isGone()) throw;
    }
    co_return std::nullopt;
}

}  // namespace vark
