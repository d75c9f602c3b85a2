#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

/// The vark's answer to the announcement of a card or a drive.
struct IngestStart {
    std::int64_t id = 0;
    /// Whether the vark has room for it.
    bool fits = false;
    /// Bytes free there.
    std::optional<std::int64_t> free{};

    static IngestStart fromJSON(const boost::json::value& value);
    bool operator==(const IngestStart&) const = default;
};

/// A file that is told of at the end of an ingest.
struct IngestFile {
    /// Where it lay on the card.
    std::string source{};
    /// Its path on the vark.
    std::string path{};
    std::int64_t size = 0;
    /// The reason, in words.
    std::string why{};

    void encode(JSONWriter& json) const;
    bool operator==(const IngestFile&) const = default;
};

}  // namespace vark
