#pragma once

#include <boost/json/value.hpp>
#include <optional>
#include <string>

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

/// A top-level folder of the vark. Its name is its identity.
struct VarkFolder {
    std::string name{};
    /// "fridge", "archive" or nothing.
    std::optional<std::string> area{};

    bool isFridge() const { return area == "fridge"; }
    bool isArchive() const { return area == "archive"; }
    /// How the area is called towards the person.
    std::optional<std::string> areaLabel() const;

    /// Also reads a bare text, which is the name.
    static VarkFolder fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    bool operator==(const VarkFolder&) const = default;
};

}  // namespace vark
