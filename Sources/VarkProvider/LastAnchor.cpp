#include "VarkProvider/LastAnchor.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>

#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedFile.h"

namespace vark {
namespace {

using Anchors = std::map<std::string, std::string, std::less<>>;

constexpr std::string_view pendingSince = "pending:";

Anchors decode(const boost::json::value& value) {
    const JSONFields fields(value);
    Anchors anchors;
    for (const auto& [key, anchor] : value.get_object())
        anchors.emplace(key, fields.required<std::string>(key));
    return anchors;
}

std::string encode(const Anchors& anchors) {
    JSONWriter json;
    json.beginObject();
    for (const auto& [key, anchor] : anchors)
        json.field(key, anchor);
    json.endObject();
    return json.take();
}

/// A file that is missing or makes no sense counts as empty.
Anchors stored(const std::filesystem::path& folder) {
    return SharedFile::read(SharedFiles::anchors(folder), decode).value_or(Anchors());
}

/// The time of a pending anchor, in seconds since 1970, when it has one.
std::optional<double> timeOf(std::string_view anchor) {
    if (!anchor.starts_with(pendingSince)) return std::nullopt;
    anchor.remove_prefix(pendingSince.size());
    double seconds = 0;
    const auto [end, failure] = std::from_chars(anchor.data(), anchor.data() + anchor.size(), seconds);
    const bool isNumber =
        failure == std::errc() && end == anchor.data() + anchor.size() && std::isfinite(seconds);
    return isNumber ? std::optional(seconds) : std::nullopt;
}

}  // namespace

std::string LastAnchor::key(std::string_view server, std::int64_t rootID, std::int64_t container) {
    return fmt::format("{}#{}#{}", server, rootID, container);
}

bool LastAnchor::isPending(const std::optional<std::string>& anchor) {
    return anchor && (*anchor == pending || anchor->starts_with(pendingSince));
}

void LastAnchor::keep(std::string_view anchor, const std::string& key, const Folder& folder) {
    std::string place(anchor);
    if (place.empty() || isPending(place) || !folder) return;
    const std::optional<FileLock> lock = SharedFile::lock(SharedFiles::anchorsLock(*folder));
    if (!lock) return;
    Anchors anchors = stored(*folder);
    std::string& known = anchors[key];
    if (known == place) return;
    known = std::move(place);
    // What changed since a place that was lost with the power would be overlooked for good.
    SharedFile::write(SharedFiles::anchors(*folder), encode(anchors), Durability::synced);
}

std::optional<std::string> LastAnchor::last(const std::string& key, const Folder& folder) {
    if (!folder) return std::nullopt;
    const std::optional<FileLock> lock = SharedFile::lock(SharedFiles::anchorsLock(*folder));
    if (!lock) return std::nullopt;
    const Anchors anchors = stored(*folder);
    const auto found = anchors.find(key);
    return found == anchors.end() ? std::nullopt : std::optional(found->second);
}

std::string LastAnchor::answer(const std::optional<std::string>& varkSaid, const std::string& key,
                               const Folder& folder, Date now) {
    if (varkSaid && !varkSaid->empty() && !isPending(varkSaid)) {
        keep(*varkSaid, key, folder);
        return *varkSaid;
    }
    return last(key, folder).value_or(pendingNow(now));
}

std::string LastAnchor::pendingNow(Date now) {
    // Adding zero takes the sign from a zero.
    return fmt::format("{}{:.0f}", pendingSince, std::trunc(now.since1970()) + 0.0);
}

std::string LastAnchor::startFor(std::string_view anchor, double lookingBack, Date now) {
    const double since = timeOf(anchor).value_or(now.since1970());
    return fmt::format("{:.6f}|0", std::max(since - lookingBack, 0.0));
}

void LastAnchor::forgetAll(const Folder& folder) {
    if (folder) SharedFile::remove(SharedFiles::anchors(*folder));
}

}  // namespace vark
