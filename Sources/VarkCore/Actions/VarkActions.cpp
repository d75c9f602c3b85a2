#include "VarkCore/Actions/VarkActions.h"

#include <fmt/format.h>

#include <utility>

#include "VarkCore/Foundation/Overloaded.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

bool saysThatThereIsNoRoute(const VarkAPIError& error) {
    const auto* server = std::get_if<VarkAPIError::Server>(&error.which());
    return server != nullptr && (server->status == 404 || server->status == 405);
}

}  // namespace

VarkActions::Refusal::Refusal(Case which)
    : case_(std::move(which)),
      description_(std::visit(
          Overloaded{
              [](const NotOurs& refusal) {
                  return fmt::format("Vark does not know what to do with {}.", refusal.action);
              },
              [](const NothingChosen&) -> std::string { return "Nothing was chosen."; },
              [](const NoJobBook&) -> std::string { return "This vark has no job book connected."; },
          },
          case_)) {}

Task<VarkShare> VarkActions::perform(std::string action, std::vector<std::int64_t> ids) const {
    if (action != copyLinkAction) throw Refusal::notOurs(std::move(action));
    co_return co_await copyLink(std::move(ids));
}

Task<std::vector<VarkItem>> VarkActions::items(std::vector<std::int64_t> ids) const {
    if (ids.empty()) throw Refusal::nothingChosen();
    std::vector<VarkItem> items;
    for (const std::int64_t id : ids) {
        VarkItem item = co_await api_.item(id);
        items.push_back(std::move(item));
    }
    co_return items;
}

Task<std::vector<std::string>> VarkActions::paths(std::vector<std::int64_t> ids) const {
    const std::vector<VarkItem> chosen = co_await items(std::move(ids));
    std::vector<std::string> paths;
    for (const VarkItem& item : chosen)
        paths.push_back(item.path);
    co_return paths;
}

Task<VarkShare> VarkActions::copyLink(std::vector<std::int64_t> ids) const {
    std::vector<std::string> chosen = co_await paths(std::move(ids));
    co_return co_await api_.createShare(std::move(chosen));
}

Task<VarkShare> VarkActions::share(std::vector<std::int64_t> ids, ShareAudience audience,
                                   std::optional<ShareExpiry> expiry, std::string message) const {
    ShareRequest request;
    request.paths = co_await paths(std::move(ids));
    request.audience = audience;
    request.expiry = expiry;
    request.message = trimmed(message);
    co_return co_await api_.createShare(std::move(request));
}

Task<std::vector<VarkJob>> VarkActions::findJobs(std::string query) const {
    try {
        co_return co_await api_.findJobs(std::move(query));
    } catch (const VarkAPIError& error) {
        if (saysThatThereIsNoRoute(error)) throw Refusal::noJobBook();
        throw;
    }
}

Task<std::int64_t> VarkActions::fileAgainstJob(std::vector<std::int64_t> ids, VarkJob job) const {
    std::vector<std::string> chosen = co_await paths(std::move(ids));
    try {
        co_return co_await api_.fileAgainstJob(std::move(chosen), job.id);
    } catch (const VarkAPIError& error) {
        if (saysThatThereIsNoRoute(error)) throw Refusal::noJobBook();
        throw;
    }
}

std::string VarkActions::describe(const std::vector<VarkItem>& items) {
    if (items.empty()) return "";
    const std::string name = items.front().name.empty() ? "the vark" : items.front().name;
    if (items.size() == 1) return name;
    return fmt::format("{} and {} more", name, items.size() - 1);
}

}  // namespace vark
