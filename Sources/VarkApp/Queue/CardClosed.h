#pragma once

#include <boost/json/value.hpp>
#include <optional>

#include "VarkApp/Said.h"
#include "VarkCore/Transfer/Cards/IngestReport.h"

namespace vark::app {

/// How a card was closed. A value.
struct CardClosed {
    CardVerdict verdict;
    /// Whether the vark waited to be told until then.
    bool wasOpen = false;
    /// Why the vark could not be told.
    std::optional<Said> notReported;

    /// Whether a command about this card may end well: people clear cards on that. Of a card that was
    /// reported before, and may be cleared by now, nothing is left to say than that all of the queue has
    /// landed.
    bool endsWell() const {
        return !notReported && (verdict.isSafe() || (!wasOpen && verdict.missing.empty()));
    }

    static CardClosed fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    bool operator==(const CardClosed&) const = default;
};

}  // namespace vark::app
