#include "VarkCore/LAN/NodeBrowser.h"

#include <fmt/format.h>

#include <algorithm>
#include <cassert>
#include <charconv>
#include <utility>

#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Services/Dialer.h"

namespace vark {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view serviceType = "_vark-node._tcp";
constexpr Duration resolveLimit = 6s;
constexpr Duration retryPause = 10s;
constexpr std::uint16_t usualPort = 443;

std::string_view textOf(const FoundService& service, const std::string& key) {
    const auto found = service.text.find(key);
    return found == service.text.end() ? std::string_view() : found->second;
}

std::uint16_t portFrom(std::string_view text) {
    std::uint16_t port = 0;
    const std::from_chars_result read = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool isNumber = read.ec == std::errc() && read.ptr == text.data() + text.size();
    return isNumber && port != 0 ? port : usualPort;
}

bool isYes(std::string_view text) {
    const std::string word = lowercased(text);
    return word == "1" || word == "true" || word == "yes";
}

/// What the announcement says of the node; its address is still to be learnt.
LANNode announcedNode(const FoundService& service) {
    LANNode node;
    node.name = service.name;
    node.host = textOf(service, "host");
    node.port = portFrom(textOf(service, "port"));
    node.api = isYes(textOf(service, "api"));
    return node;
}

}  // namespace

NodeBrowser::NodeBrowser(LANRouter& router, Host host)
    : router_(router), host_(std::move(host)), scope_(host_.executor, host_.clock) {}

NodeBrowser::~NodeBrowser() {
    stop();
}

void NodeBrowser::start() {
    assert(host_.executor.isCurrent());
    if (std::exchange(isBrowsing_, true)) return;
    host_.services.start(
        serviceType, [this](const BrowsingState& state) { stateChanged(state); },
        [this](std::vector<FoundService> results) { resultsChanged(std::move(results)); });
}

void NodeBrowser::stop() {
    assert(host_.executor.isCurrent());
    if (std::exchange(isBrowsing_, false)) host_.services.stop();
}

void NodeBrowser::stateChanged(const BrowsingState& state) {
    if (std::holds_alternative<BrowsingReady>(state)) {
        say("Looking for vark nodes on this network");
        tellAllowed(true);
    } else if (const auto* failed = std::get_if<BrowsingFailed>(&state)) {
        say(fmt::format("Node browsing stopped: {}", failed->description));
    } else {
        say("macOS is not letting Vark look on this network");
        tellAllowed(false);
    }
}

void NodeBrowser::resultsChanged(std::vector<FoundService> results) {
    // A result proves that looking is allowed.
    if (!results.empty()) tellAllowed(true);
    latest_ = std::move(results);
    handle(latest_);
}

void NodeBrowser::handle(const std::vector<FoundService>& results) {
    std::set<std::string> names;
    for (const FoundService& service : results) {
        names.insert(service.name);
        LANNode node = announcedNode(service);
        if (node.host.empty() || found_.contains(service.name)) continue;
        if (!resolving_.insert(service.name).second) continue;
        scope_.start(resolve(service, std::move(node)));
    }
    forgetAllBut(names);
}

void NodeBrowser::forgetAllBut(const std::set<std::string>& names) {
    std::vector<std::string> gone;
    std::ranges::set_difference(found_, names, std::back_inserter(gone));
    if (gone.empty()) return;
    for (const std::string& name : gone) {
        found_.erase(name);
        router_.remove(name);
        say(fmt::format("Vark node {} left this network", name));
    }
    publish();
}

Task<void> NodeBrowser::resolve(FoundService service, LANNode node) {
    const std::optional<std::string> address = co_await locate(std::move(service));
    if (!address) {
        co_await sleepFor(retryPause);
        tryAgain(node.name);
        co_return;
    }
    // The next change of the results tries a node without an address again.
    if (address->empty()) co_return;
    // No URL can hold the zone of an IPv6 address.
    node.ip = address->substr(0, address->find('%'));
    node.seen = host_.now();
    appeared(node);
}

Task<std::optional<std::string>> NodeBrowser::locate(FoundService service) {
    const std::string name = service.name;
    std::optional<std::string> address;
    std::string trouble;
    try {
        Task<std::string> locating = host_.services.locate(std::move(service));
        address = co_await withTimeout(resolveLimit, std::move(locating));
    } catch (const TimeoutError&) {
        trouble = fmt::format("Vark node {} did not answer in time; trying again shortly", name);
    } catch (const DialError& error) {
        const std::string_view description = error.what();
        trouble =
            description.empty()
                ? fmt::format("Could not reach vark node {} to learn its address; trying again shortly", name)
                : fmt::format("Vark node {} is not reachable yet ({}); trying again shortly", name,
                              description);
    }
    resolving_.erase(name);
    if (!trouble.empty()) say(std::move(trouble));
    co_return address;
}

void NodeBrowser::appeared(const LANNode& node) {
    found_.insert(node.name);
    router_.add(node);
    say(fmt::format("Vark node {} is on this network at {}:{} for {}{}", node.name, node.ip, node.port,
                    node.host, node.api ? ", with the API" : ""));
    publish();
}

void NodeBrowser::tryAgain(const std::string& name) {
    const bool isThere = std::ranges::find(latest_, name, &FoundService::name) != latest_.end();
    if (isThere && !found_.contains(name)) handle(latest_);
}

void NodeBrowser::publish() {
    hasNews_ = true;
    if (publishing_.done()) publishing_ = scope_.start(publishWhatIsNew());
}

Task<void> NodeBrowser::publishWhatIsNew() {
    // One write at a time, so that the last one is of the last table.
    while (std::exchange(hasNews_, false)) {
        auto save = [this, nodes = router_.all()] { LANRouter::save(nodes, host_.sharedFolder); };
        co_await host_.files.run(std::move(save));
    }
}

void NodeBrowser::say(std::string sentence) const {
    if (log) log(std::move(sentence));
}

void NodeBrowser::tellAllowed(bool isAllowed) const {
    if (onAllowed) onAllowed(isAllowed);
}

}  // namespace vark
