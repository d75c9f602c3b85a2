#include "VarkApp/Queue/SettledFile.h"

#include <algorithm>
#include <utility>

namespace vark::app {

namespace {

/// Followers ask twice a second.
constexpr std::size_t mostNoted = 10'000;

}  // namespace

SettledFile SettledFile::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    SettledFile file;
    file.path = fields.required<std::string>("path");
    file.localPath = fields.required<std::string>("localPath");
    file.size = fields.required<std::int64_t>("size");
    const std::optional<ItemState> state = itemState(fields.required<std::string>("state"));
    if (!state) throw DecodingError("an unknown state");
    file.state = *state;
    file.alreadyThere = fields.valueOr("alreadyThere", false);
    file.changedWhileSent = fields.valueOr("changed", false);
    file.error = fields.optional<std::string>("error");
    const auto nodes = fields.valueOr<std::vector<std::string>>("nodes", {});
    file.ways.nodes = {nodes.begin(), nodes.end()};
    file.ways.internet = fields.valueOr("internet", false);
    return file;
}

void SettledFile::encode(JSONWriter& json) const {
    json.field("path", path).field("localPath", localPath).field("size", size).field("state", text(state));
    json.field("alreadyThere", alreadyThere).field("changed", changedWhileSent).field("error", error);
    json.field("nodes", std::vector<std::string>(ways.nodes.begin(), ways.nodes.end()));
    json.field("internet", ways.internet);
}

void SettledFiles::note(const UUID& entry, SettledFile file) {
    ++last_;
    noted_.push_back({entry, std::move(file)});
    if (noted_.size() > mostNoted) noted_.pop_front();
}

std::vector<SettledFile> SettledFiles::behind(std::int64_t number,
                                              const std::unordered_set<UUID>& entries) const {
    const std::int64_t known = number > last_ ? 0 : number;
    const auto count = std::min(static_cast<std::size_t>(last_ - known), noted_.size());
    std::vector<SettledFile> files;
    for (auto noted = noted_.end() - static_cast<std::ptrdiff_t>(count); noted != noted_.end(); ++noted) {
        if (entries.contains(noted->entry)) files.push_back(noted->file);
    }
    return files;
}

}  // namespace vark::app
