#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <filesystem>
#include <string>

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark {

/// How far into a log the last report got, so that each one carries only what is new. A value; one for each
/// log.
struct LogCursor {
    /// Bytes.
    std::uint64_t offset = 0;

    struct Unread {
        std::string text;
        std::uint64_t next = 0;
        bool operator==(const Unread&) const = default;
    };
    /// The newest bytes since `offset`, at most `cap` of them; older unread ones are passed over. A log that
    /// is shorter than that was rolled over and is read from its beginning. Bytes that are no UTF-8 are
    /// repaired. A log that cannot be read leaves the cursor alone, and so does a negative `cap`.
    static Unread unread(const std::filesystem::path& log, std::uint64_t offset, std::int64_t cap);

    static LogCursor fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    bool operator==(const LogCursor&) const = default;
};

}  // namespace vark
