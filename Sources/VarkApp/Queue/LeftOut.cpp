#include "VarkApp/Queue/LeftOut.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "VarkCore/Transfer/Format.h"

namespace vark::app {

namespace {

using Kind = Walker::PassedOver::Kind;

constexpr std::int64_t mostListed = 20;

}  // namespace

LeftOut LeftOut::of(const std::vector<Walker::PassedOver>& passedOver) {
    LeftOut left;
    for (const Walker::PassedOver& one : passedOver) {
        switch (one.kind) {
            case Kind::ignored:
                break;
            case Kind::hidden:
                ++left.hidden;
                break;
            case Kind::link:
                ++left.links;
                break;
            case Kind::special:
                ++left.special;
                break;
            case Kind::emptyFolder:
                ++left.emptyFolders;
                break;
            case Kind::excluded:
                ++left.excluded;
                break;
            case Kind::unreadable:
            case Kind::nameIsNotText:
                ++left.unreadable;
                break;
        }
    }
    return left;
}

std::optional<std::string> LeftOut::sentence() const {
    if (!hasAny()) return std::nullopt;
    std::vector<std::string> words;
    if (hidden > 0) words.push_back(Format::number(hidden) + " hidden");
    if (links > 0) words.push_back(Format::count(links, "link"));
    if (special > 0) words.push_back(Format::count(special, "special file"));
    if (emptyFolders > 0) words.push_back(Format::count(emptyFolders, "empty folder"));
    if (excluded > 0) words.push_back(Format::number(excluded) + " excluded");
    return fmt::format("Left out: {}.", fmt::join(words, ", "));
}

LeftOut LeftOut::fromJSON(const boost::json::value& value) {
    JSONFields fields(value);
    LeftOut left;
    left.hidden = fields.required<std::int64_t>("hidden");
    left.links = fields.required<std::int64_t>("links");
    left.special = fields.required<std::int64_t>("special");
    left.emptyFolders = fields.required<std::int64_t>("emptyFolders");
    left.excluded = fields.valueOr<std::int64_t>("excluded", 0);
    left.unreadable = fields.required<std::int64_t>("unreadable");
    return left;
}

void LeftOut::encode(JSONWriter& json) const {
    json.field("hidden", hidden).field("links", links).field("special", special);
    json.field("emptyFolders", emptyFolders).field("excluded", excluded).field("unreadable", unreadable);
}

std::vector<std::string> unreadableSentences(const std::vector<Walker::PassedOver>& passedOver) {
    std::vector<std::string> sentences;
    std::int64_t more = 0;
    for (const Walker::PassedOver& one : passedOver) {
        if (one.kind != Kind::unreadable && one.kind != Kind::nameIsNotText) continue;
        if (std::ssize(sentences) == mostListed) {
            ++more;
        } else if (one.kind == Kind::unreadable) {
            sentences.push_back("This folder cannot be read and is not sent: " + one.relativePath);
        } else {
            sentences.push_back(
                "This name is not UTF-8 text and is not sent. Rename it, then add it again: " +
                one.relativePath);
        }
    }
    if (more > 0) sentences.push_back(fmt::format("{} more cannot be read.", Format::number(more)));
    return sentences;
}

}  // namespace vark::app
