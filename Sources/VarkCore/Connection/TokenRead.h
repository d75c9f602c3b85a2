#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace vark {

/// What came of reading this machine's token: it was found, the store would not say, or there is none. The
/// two failures are kept apart, since only the second one is an answer.
class TokenRead {
  public:
    struct Found {
        std::string token;
        bool operator==(const Found&) const = default;
    };
    struct Unreadable {
        /// The store's own number.
        std::int32_t status = 0;
        bool operator==(const Unreadable&) const = default;
    };
    struct Missing {
        bool operator==(const Missing&) const = default;
    };
    using Case = std::variant<Found, Unreadable, Missing>;

    explicit TokenRead(Case which) : case_(std::move(which)) {}

    const Found* found() const { return std::get_if<Found>(&case_); }
    const Unreadable* unreadable() const { return std::get_if<Unreadable>(&case_); }
    bool isMissing() const { return std::holds_alternative<Missing>(case_); }

    bool operator==(const TokenRead&) const = default;

  private:
    Case case_;
};

}  // namespace vark
