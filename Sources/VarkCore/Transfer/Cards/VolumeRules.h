#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vark {

/// Which volumes are camera cards, and how loudly one that has appeared is offered. Pure functions.
struct VolumeRules {
    /// What the person said about this volume before.
    enum class Answer : std::uint8_t { never, ask };
    enum class Offer : std::uint8_t { sheet, notify, silent };

    struct Seen {
        bool isCard = false;
        std::optional<Answer> remembered{};
        bool isEjectableOrRemovable = false;
        bool isBootVolume = false;
    };

    /// By the folders that cameras make at the top of a card, in whatever case of letters.
    static bool isCard(const std::vector<std::string>& topLevelNames);
    static Offer offer(const Seen& seen);
};

}  // namespace vark
