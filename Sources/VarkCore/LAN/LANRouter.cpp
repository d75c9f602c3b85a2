#include "VarkCore/LAN/LANRouter.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedFile.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

using Nodes = std::map<std::string, LANNode, std::less<>>;
using Dates = std::map<std::string, Date, std::less<>>;

Nodes byHost(std::vector<LANNode> nodes) {
    Nodes table;
    for (LANNode& node : nodes) {
        std::string host = lowercased(node.host);
        table.insert_or_assign(std::move(host), std::move(node));
    }
    return table;
}

std::vector<LANNode> sortedByName(const Nodes& table) {
    std::vector<LANNode> nodes;
    nodes.reserve(table.size());
    for (const auto& [host, node] : table)
        nodes.push_back(node);
    std::ranges::sort(nodes, {}, [](const LANNode& node) { return std::tie(node.name, node.host); });
    return nodes;
}

bool coolsOff(const Dates& badUntil, std::string_view host, Date now) {
    const auto found = badUntil.find(host);
    return found != badUntil.end() && found->second > now;
}

std::optional<LANRoute> routeThrough(const LANNode& node, const URL& url) {
    std::optional<URL> address = url.withHostAndPort(node.ip, node.port);
    if (!address) return std::nullopt;
    return LANRoute{*std::move(address), node.ip, node.port, node.host, url.path()};
}

}  // namespace

LANRouter::LANRouter(std::vector<LANNode> nodes) : nodes_(byHost(std::move(nodes))) {}

std::vector<LANNode> LANRouter::all() const {
    const Locked hold(lock_);
    return sortedByName(nodes_);
}

void LANRouter::update(std::vector<LANNode> nodes) {
    Nodes table = byHost(std::move(nodes));
    {
        const Locked hold(lock_);
        nodes_ = std::move(table);
    }
    tellChange();
}

void LANRouter::add(LANNode node) {
    std::string host = lowercased(node.host);
    {
        const Locked hold(lock_);
        nodes_.insert_or_assign(std::move(host), std::move(node));
    }
    tellChange();
}

void LANRouter::remove(std::string_view name) {
    {
        const Locked hold(lock_);
        std::erase_if(nodes_, [name](const auto& entry) { return entry.second.name == name; });
    }
    tellChange();
}

void LANRouter::tellChange() const {
    if (onChange) onChange(all());
}

std::optional<LANRoute> LANRouter::route(const URL& url, Date now) const {
    if (url.scheme() != "https") return std::nullopt;
    const std::string host = lowercased(url.host());
    const Locked hold(lock_);
    const auto found = nodes_.find(host);
    if (found == nodes_.end() || coolsOff(badUntil_, host, now)) return std::nullopt;
    return routeThrough(found->second, url);
}

std::optional<LANNode> LANRouter::apiNode(Date now, const Eligible& eligible) const {
    for (LANNode& node : all()) {
        if (node.api && !isBad(node.host, now) && eligible(node)) return std::move(node);
    }
    return std::nullopt;
}

std::optional<LANRoute> LANRouter::apiRoute(const URL& url, Date now, const Eligible& eligible) const {
    const std::optional<LANNode> node = apiNode(now, eligible);
    if (!node || url.scheme() != "https") return std::nullopt;
    return routeThrough(*node, url);
}

void LANRouter::markBad(std::string_view host, Date now) {
    const Locked hold(lock_);
    badUntil_.insert_or_assign(lowercased(host), now + penalty);
}

bool LANRouter::isBad(std::string_view host, Date now) const {
    const Locked hold(lock_);
    return coolsOff(badUntil_, lowercased(host), now);
}

bool LANRouter::isAPIVerified(std::string_view host) const {
    const Locked hold(lock_);
    return apiVerified_.contains(lowercased(host));
}

void LANRouter::setAPIVerified(std::string_view host) {
    const Locked hold(lock_);
    apiVerified_.insert(lowercased(host));
}

std::vector<LANNode> LANRouter::load(const std::optional<std::filesystem::path>& folder, Date now,
                                     double maxAge) {
    if (!folder) return {};
    std::vector<LANNode> nodes = SharedFile::records<LANNode>(SharedFiles::lanNodes(*folder));
    std::erase_if(nodes, [&](const LANNode& node) { return now - node.seen >= maxAge; });
    return nodes;
}

void LANRouter::save(const std::vector<LANNode>& nodes, const std::optional<std::filesystem::path>& folder) {
    if (folder) SharedFile::writeRecords(SharedFiles::lanNodes(*folder), nodes, Durability::cached);
}

}  // namespace vark
