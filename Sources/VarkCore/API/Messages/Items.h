#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

/// A file or folder on the vark. Of what the vark says only `id` must be there.
struct VarkItem {
    std::int64_t id = 0;
    std::string path{};
    std::string name{};
    std::optional<std::int64_t> parent{};
    bool isDir = false;
    std::int64_t size = 0;
    /// Seconds since 1970.
    std::optional<double> mtime{};
    /// Lower-case hexadecimal; empty when not known.
    std::string sha256{};
    std::string kind{};

    static VarkItem fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;

    /// The path of the child of that name.
    std::string child(std::string_view childName) const;
    /// Changes when the bytes do. Stored and compared across versions of this client, so its form stays.
    std::string contentVersion() const;
    /// Changes when the place or the name does; its form stays too.
    std::string metadataVersion() const;

    bool operator==(const VarkItem&) const = default;
};

/// One page of a folder's children.
struct VarkPage {
    std::vector<VarkItem> items{};
    /// Where the next page starts; empty when the vark gave none.
    std::string cursor{};
    bool more = false;
    /// First pages of sub-folders that came along, by the folder's id; theirs are empty.
    std::map<std::int64_t, VarkPage> ahead{};

    static VarkPage fromJSON(const boost::json::value& value);
    bool operator==(const VarkPage&) const = default;
};

/// One page of the change feed.
struct VarkChanges {
    std::vector<VarkItem> changed{};
    /// Ids of items that went away.
    std::vector<std::int64_t> gone{};
    std::string cursor{};
    bool more = false;

    static VarkChanges fromJSON(const boost::json::value& value);
    bool operator==(const VarkChanges&) const = default;
};

}  // namespace vark
