#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Transfer/Walker.h"

namespace vark::app {

/// How much lies in what a person named and is not among the files that are sent, by kind. A value. What
/// systems leave in folders is not counted.
struct LeftOut {
    std::int64_t hidden = 0;
    std::int64_t links = 0;
    std::int64_t special = 0;
    std::int64_t emptyFolders = 0;
    /// The person did not want these.
    std::int64_t excluded = 0;
    /// Folders that could not be listed and names that are no text: these were to be sent.
    std::int64_t unreadable = 0;

    static LeftOut of(const std::vector<Walker::PassedOver>& passedOver);
    /// Left out by rule and to be told of: without what could not be read, which is told one by one.
    bool hasAny() const { return hidden + links + special + emptyFolders + excluded > 0; }
    /// "Left out: 2 hidden, 1 link."; nothing when nothing was.
    std::optional<std::string> sentence() const;

    static LeftOut fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    bool operator==(const LeftOut&) const = default;
};

/// A sentence for each thing that was to be sent and could not be read, and one for those beyond twenty.
std::vector<std::string> unreadableSentences(const std::vector<Walker::PassedOver>& passedOver);

}  // namespace vark::app
