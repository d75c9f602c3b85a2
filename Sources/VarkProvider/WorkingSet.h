#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "VarkCore/API/Messages/Items.h"
#include "VarkCore/Sync/SyncSummary.h"

namespace vark {

/// The last check before anything that is held here is declared gone: all that is held against what the vark
/// says of each. Nothing that the vark could not vouch for becomes a deletion. Functions only.
struct WorkingSet {
    /// What the vark said of one item.
    class Said {
      public:
        struct Here {
            VarkItem item;
            bool operator==(const Here&) const = default;
        };
        struct CouldNotSay {
            std::string reason;
            bool operator==(const CouldNotSay&) const = default;
        };
        struct Gone {
            bool operator==(const Gone&) const = default;
        };
        using Case = std::variant<Here, CouldNotSay, Gone>;

        static Said here(VarkItem item) { return Said(Here{std::move(item)}); }
        static Said couldNotSay(std::string reason) { return Said(CouldNotSay{std::move(reason)}); }
        static Said gone() { return Said(Gone{}); }

        const Case& which() const { return case_; }
        bool operator==(const Said&) const = default;

      private:
        explicit Said(Case which) : case_(std::move(which)) {}
        Case case_;
    };

    struct Item {
        std::int64_t id = 0;
        Said said;
        /// This machine still has a change of it on its way to the vark.
        bool unsent = false;
    };

    /// What a comparison comes to.
    struct Changes {
        std::vector<std::int64_t> gone{};
        std::vector<VarkItem> renamed{};
        bool operator==(const Changes&) const = default;
    };
    /// Nothing may be changed; the sentence is for the log.
    struct TryAgain {
        std::string why;
        bool operator==(const TryAgain&) const = default;
    };
    using Reconciled = std::variant<Changes, TryAgain>;

    /// `holding`: what is held now, by id, with the names. One doubtful answer spoils the pass, and so do
    /// more than a fifth gone: nothing is done by halves.
    static Reconciled reconcile(const std::vector<Item>& items,
                                const std::map<std::int64_t, std::string>& holding);
    /// Whether a change of exactly that path is on its way or stopped; a folder does not stand for what is
    /// in it.
    static bool unsent(std::string_view path, const SyncSummary& summary);
};

}  // namespace vark
