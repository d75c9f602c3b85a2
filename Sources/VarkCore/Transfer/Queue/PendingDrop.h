#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "VarkCore/Foundation/UUID.h"

namespace vark {

/// Where the files of a drop came from. A value.
class DropSource {
  public:
    struct Volume {
        std::string name;
        bool isCard = false;
        bool operator==(const Volume&) const = default;
    };
    struct Window {
        bool operator==(const Window&) const = default;
    };
    struct Dock {
        bool operator==(const Dock&) const = default;
    };
    struct Services {
        bool operator==(const Services&) const = default;
    };
    struct Menu {
        bool operator==(const Menu&) const = default;
    };
    using Case = std::variant<Volume, Window, Dock, Services, Menu>;

    explicit DropSource(Case which) : case_(std::move(which)) {}

    bool isVolume() const { return std::holds_alternative<Volume>(case_); }
    /// In words that follow on what was dropped: `from the card "EOS"`.
    std::string describe() const;

    bool operator==(const DropSource&) const = default;

  private:
    Case case_;
};

/// What a person has offered and not yet confirmed: from where, and once it has been counted, how much. A
/// value.
class PendingDrop {
  public:
    /// Without a title, that of a single path is its name, and that of more their number.
    PendingDrop(UUID id, std::vector<std::filesystem::path> urls, DropSource source,
                std::optional<std::string> suggestedTitle = std::nullopt, bool settling = false,
                bool wantsShare = false);

    const UUID& id() const { return id_; }
    const std::vector<std::filesystem::path>& urls() const { return urls_; }

    DropSource source;
    std::string suggestedTitle;
    /// Absent until it has been counted, as is `totalBytes`.
    std::optional<std::int64_t> fileCount;
    std::optional<std::int64_t> totalBytes;
    /// The disk has only just appeared.
    bool settling = false;
    /// The person wants a link once it is sent.
    bool wantsShare = false;

    /// "1,234 files · 12 GB", or that it is still being counted.
    std::string summary() const;

    bool operator==(const PendingDrop&) const = default;

  private:
    UUID id_;
    std::vector<std::filesystem::path> urls_;
};

}  // namespace vark
