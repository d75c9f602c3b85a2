#include "VarkCore/Actions/ActionLines.h"

#include <fmt/format.h>

#include "VarkCore/Actions/VarkActions.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

/// As it reads in the middle of a sentence.
std::string withSmallFirstLetter(std::string_view text) {
    std::size_t end = 0;
    if (text.empty() || !nextCharacter(text, end)) return std::string(text);
    return lowercased(text.substr(0, end)) + std::string(text.substr(end));
}

}  // namespace

ActivityEntry ActionLines::shared(const std::vector<VarkItem>& items, const VarkShare& share,
                                  ShareAudience audience, std::string_view client, Date now) {
    const std::string who = share.audience.value_or(label(audience, client));
    const std::string expires = share.expires.value_or("");
    const std::string end = expires.empty() ? "no expiry given" : "runs out " + expires;
    return {.at = now,
            .text = fmt::format("Shared {} with {}, {}", VarkActions::describe(items),
                                withSmallFirstLetter(who), end),
            .kind = "share"};
}

ActivityEntry ActionLines::filed(const std::vector<VarkItem>& items, const VarkJob& job, Date now) {
    return {.at = now,
            .text = fmt::format("Put job number {} on {}", job.ref, VarkActions::describe(items)),
            .kind = "job"};
}

ActivityEntry ActionLines::sent(std::string_view path, Date now) {
    const std::string_view name = lastPathComponent(path);
    std::string folder = tidiedVarkPath(path.substr(0, path.size() - name.size()));
    return {.at = now,
            .text = fmt::format("Sent {}", name),
            .kind = "put",
            .place = ActivityEntry::placeOf(folder),
            .group = "put:" + folder,
            .many = "Sent %d files",
            .folder = std::move(folder)};
}

}  // namespace vark
