#include "VarkCore/Transfer/Queue/PendingDrop.h"

#include <fmt/format.h>

#include "VarkCore/Transfer/Format.h"

namespace vark {
namespace {

struct Words {
    std::string operator()(const DropSource::Volume& volume) const {
        return fmt::format("from the {} \"{}\"", volume.isCard ? "card" : "disk", volume.name);
    }
    std::string operator()(const DropSource::Window&) const { return "dropped on the window"; }
    std::string operator()(const DropSource::Dock&) const { return "dropped on the Dock icon"; }
    std::string operator()(const DropSource::Services&) const { return "added from the Finder menu"; }
    std::string operator()(const DropSource::Menu&) const { return "added from the app"; }
};

std::string titleOf(const std::vector<std::filesystem::path>& urls) {
    if (urls.size() != 1) return fmt::format("{} items", urls.size());
    const std::filesystem::path& only = urls.front();
    return only.has_filename() ? only.filename().string() : only.parent_path().filename().string();
}

}  // namespace

std::string DropSource::describe() const {
    return std::visit(Words(), case_);
}

PendingDrop::PendingDrop(UUID id, std::vector<std::filesystem::path> urls, DropSource theSource,
                         std::optional<std::string> title, bool isSettling, bool share)
    : source(std::move(theSource)),
      suggestedTitle(title ? *std::move(title) : titleOf(urls)),
      settling(isSettling),
      wantsShare(share),
      id_(id),
      urls_(std::move(urls)) {}

std::string PendingDrop::summary() const {
    if (!fileCount || !totalBytes) return settling ? "Counting, the disk is still settling" : "Counting";
    if (*fileCount == 0) return "Nothing to send";
    return fmt::format("{} · {}", Format::count(*fileCount, "file"), Format::bytes(*totalBytes));
}

}  // namespace vark
