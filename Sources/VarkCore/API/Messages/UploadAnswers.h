#pragma once

#include <boost/json/value.hpp>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace vark {

/// What the vark said to the announcement of a file. A value.
class BeginResult {
  public:
    /// The vark opened an upload, or an old one again.
    struct Start {
        std::string uploadID;
        /// Bytes.
        std::int64_t chunkSize = 0;
        /// The indexes of the chunks that it holds already.
        std::vector<std::int64_t> have;
        bool operator==(const Start&) const = default;
    };
    /// Another file stands at the path; nothing was opened.
    struct Conflict {
        std::optional<std::int64_t> existingSize;
        /// Seconds since 1970.
        std::optional<double> existingMtime;
        bool operator==(const Conflict&) const = default;
    };
    /// The vark already has this very file at this path.
    struct Exists {
        bool operator==(const Exists&) const = default;
    };

    template <class Case>
        requires std::constructible_from<std::variant<Start, Conflict, Exists>, Case>
    BeginResult(Case outcome) : outcome_(std::move(outcome)) {}

    /// The case, or null when it is another one.
    const Start* start() const { return std::get_if<Start>(&outcome_); }
    const Conflict* conflict() const { return std::get_if<Conflict>(&outcome_); }
    bool exists() const { return std::holds_alternative<Exists>(outcome_); }

    bool operator==(const BeginResult&) const = default;

  private:
    std::variant<Start, Conflict, Exists> outcome_;
};

/// The state of an open upload, in the vark's words and units. A value.
struct UploadStatus {
    std::string state;
    std::optional<std::int64_t> received;
    std::optional<std::int64_t> total;
    /// Never an empty text.
    std::optional<std::string> error;

    bool operator==(const UploadStatus&) const = default;

    /// Fails with `DecodingError`.
    static UploadStatus fromJSON(const boost::json::value& value);
};

}  // namespace vark
