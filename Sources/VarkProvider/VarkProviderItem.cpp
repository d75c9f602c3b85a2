#include "VarkProvider/VarkProviderItem.h"

#include "VarkCore/Connection/SharedLevel.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark {
namespace {

constexpr std::size_t digestLength = 32;

std::string digest(std::string_view text) {
    return FileHasher::sha256(text).substr(0, digestLength);
}

/// Empty for a name that has none, or begins with its only dot.
std::string_view pathExtension(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return {};
    return name.substr(dot + 1);
}

}  // namespace

ItemIdentifier VarkProviderItem::parentItemIdentifier() const {
    const bool isRoot = vark_.id == identity_.rootID;
    if (isRoot || !vark_.parent) return ItemIdentifier::root();
    return identity_.identifier(*vark_.parent);
}

ContentType VarkProviderItem::contentType(const TypeOfExtension& typeOf) const {
    if (vark_.isDir) return ContentType::folder();
    const std::string_view extension = pathExtension(vark_.name);
    if (extension.empty()) return ContentType::data();
    std::optional<std::string> name = typeOf(extension);
    return name ? ContentType::named(std::move(*name)) : ContentType::data();
}

std::optional<std::int64_t> VarkProviderItem::documentSize() const {
    return vark_.isDir ? std::nullopt : std::optional(vark_.size);
}

std::optional<Date> VarkProviderItem::contentModificationDate() const {
    return vark_.mtime ? std::optional(Date::fromSince1970(*vark_.mtime)) : std::nullopt;
}

Capabilities VarkProviderItem::capabilities() const {
    if (!VarkLevel::writes(level_)) return Capabilities::readsOnly;
    // The top takes what is put into it, but stays where and what it is.
    return vark_.id == identity_.rootID ? Capabilities::takesChildren : Capabilities::everything;
}

ItemVersion VarkProviderItem::itemVersion() const {
    return {digest(vark_.contentVersion()), digest(vark_.metadataVersion())};
}

}  // namespace vark
