#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "VarkCore/API/Messages/Items.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkProvider/ItemIdentity.h"

namespace vark {

/// What kind of thing an item is: a folder, bytes of no known type, or a type under the host's own name.
class ContentType {
  public:
    enum class Kind : std::uint8_t { folder, data, named };

    static ContentType folder() { return ContentType(Kind::folder, {}); }
    static ContentType data() { return ContentType(Kind::data, {}); }
    static ContentType named(std::string name) { return ContentType(Kind::named, std::move(name)); }

    Kind kind() const { return kind_; }
    /// Empty unless the host has a name for it.
    const std::string& name() const { return name_; }

    bool operator==(const ContentType&) const = default;

  private:
    ContentType(Kind kind, std::string name) : kind_(kind), name_(std::move(name)) {}

    Kind kind_;
    std::string name_;
};

/// What may be done with an item, in the system's bits. Moving to the system's trash (16) is not among them:
/// what a person deletes goes to the vark's Bin.
enum class Capabilities : std::uint32_t {
    reading = 1,
    writing = 2,
    reparenting = 4,
    renaming = 8,
    deleting = 32,

    readsOnly = reading,
    takesChildren = reading | writing,
    everything = reading | writing | reparenting | renaming | deleting,
};

/// Two digests that tell whether a system holds what the vark has: `content` changes with bytes, size or
/// time, `metadata` with place or name. Systems store and compare them, so their form stays.
struct ItemVersion {
    std::string content;
    std::string metadata;
    bool operator==(const ItemVersion&) const = default;
};

/// The answers to all that a system asks about an item. A value; never changes.
class VarkProviderItem {
  public:
    /// The host's name for the type of files with that extension; nothing when it knows none that is a kind
    /// of data.
    using TypeOfExtension = std::function<std::optional<std::string>(std::string_view extension)>;

    /// `level` and `jobNumbers` are what the person may do, and whether the account has job numbers, at the
    /// time of making it.
    VarkProviderItem(VarkItem vark, ItemIdentity identity, std::int64_t level, bool jobNumbers)
        : vark_(std::move(vark)), identity_(identity), level_(level), jobNumbers_(jobNumbers) {}

    const VarkItem& vark() const { return vark_; }

    ItemIdentifier itemIdentifier() const { return identity_.identifier(vark_.id); }
    ItemIdentifier parentItemIdentifier() const;
    std::string filename() const { return vark_.name.empty() ? "Vark" : vark_.name; }
    ContentType contentType(const TypeOfExtension& typeOf) const;
    /// In bytes; none for a folder.
    std::optional<std::int64_t> documentSize() const;
    std::optional<Date> contentModificationDate() const;
    /// The vark keeps no date of its own for this.
    std::optional<Date> creationDate() const { return contentModificationDate(); }
    Capabilities capabilities() const;
    ItemVersion itemVersion() const;
    /// What rules of the actions are asked with.
    std::map<std::string, std::int64_t> userInfo() const { return {{"varkJobNumbers", jobNumbers_ ? 1 : 0}}; }

    bool operator==(const VarkProviderItem&) const = default;

  private:
    VarkItem vark_;
    ItemIdentity identity_;
    std::int64_t level_;
    bool jobNumbers_;
};

}  // namespace vark
