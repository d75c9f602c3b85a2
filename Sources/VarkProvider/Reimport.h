#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "VarkCore/API/Messages/BinnedItem.h"
#include "VarkCore/API/Messages/Items.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark {

/// What to do with an item that a system holds and offers as if it were new, so that taking stock neither
/// fills the vark with copies nor brings back what somebody binned. Pure functions.
struct Reimport {
    /// It is in the Bin and stays deleted.
    struct BackToDeleted {
        std::int64_t binnedID = 0;
        bool operator==(const BackToDeleted&) const = default;
    };
    /// The vark has it: the system gets the vark's item.
    struct HandBack {
        bool operator==(const HandBack&) const = default;
    };
    /// It is new.
    struct PutItInTheVark {
        bool operator==(const PutItInTheVark&) const = default;
    };
    using Answer = std::variant<BackToDeleted, HandBack, PutItInTheVark>;

    /// `varkKnows` is what the vark says of the item's identifier, `varkHas` of its path, `binned` what its
    /// Bin has of that path. A thing of the other kind never counts as known.
    static Answer answer(const std::optional<VarkItem>& varkKnows, const std::optional<VarkItem>& varkHas,
                         const std::optional<BinnedItem>& binned, bool wantFolder, std::int64_t localSize,
                         const std::optional<std::string>& localSHA256);
    /// Whether the local hash could decide; only then is it worth the reading.
    static bool bytesWorthChecking(const std::optional<BinnedItem>& binned, bool wantFolder,
                                   std::int64_t localSize);
};

/// Whether stock is to be taken at all: once for each new version of the program, an hour apart at least, and
/// whenever a person asks. Pure.
struct ReimportPolicy {
    static bool wanted(std::string_view thisVersion, const std::optional<std::string>& lastVersion,
                       const std::optional<Date>& lastReimport, Date now, bool askedByPerson);
};

}  // namespace vark
