#pragma once

#include <boost/json/value.hpp>
#include <string>
#include <vector>

#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Services/Volumes.h"

namespace vark::app {

/// A card or a drive that is to be brought into the vark. A value.
struct IngestWish {
    Volume volume;
    bool isCard = false;
    /// Counted from the vark's root.
    std::string destination;
    /// Whether the person asked for that place, and did not leave it to us.
    bool asksForDestination = false;
    std::string title;
    /// Paths relative to the card.
    std::vector<std::string> leaveOut{};
    bool emailMe = false;

    static IngestWish fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    bool operator==(const IngestWish&) const = default;
};

}  // namespace vark::app
