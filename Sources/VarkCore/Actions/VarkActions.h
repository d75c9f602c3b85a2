#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "VarkCore/API/VarkAPI.h"

namespace vark {

/// What a person can do with chosen items of the vark: copy a link, share, file against a job. A small value
/// that knows the vark and no window; it and the API outlive its tasks. Operations fail with `Refusal`,
/// `VarkAPIError` or `CancellationError`; whoever calls shows the sentence as it stands.
class VarkActions {
  public:
    static constexpr std::string_view copyLinkAction = "dev.vark.action.copylink";
    static constexpr std::string_view shareAction = "dev.vark.action.share";
    static constexpr std::string_view jobAction = "dev.vark.action.job";

    /// What cannot be done, with a finished sentence. Trying again does not help.
    class Refusal : public std::exception {
      public:
        struct NotOurs {
            std::string action;
            bool operator==(const NotOurs&) const = default;
        };
        struct NothingChosen {
            bool operator==(const NothingChosen&) const = default;
        };
        struct NoJobBook {
            bool operator==(const NoJobBook&) const = default;
        };
        using Case = std::variant<NotOurs, NothingChosen, NoJobBook>;

        static Refusal notOurs(std::string action) { return Refusal(NotOurs{std::move(action)}); }
        static Refusal nothingChosen() { return Refusal(NothingChosen{}); }
        static Refusal noJobBook() { return Refusal(NoJobBook{}); }

        const std::string& errorDescription() const { return description_; }
        const char* what() const noexcept override { return description_.c_str(); }
        bool operator==(const Refusal& other) const { return case_ == other.case_; }

      private:
        explicit Refusal(Case which);

        Case case_;
        std::string description_;
    };

    explicit VarkActions(VarkAPI& api) : api_(api) {}

    /// Carries out an action that needs no answers of the person: copying a link is the only one.
    Task<VarkShare> perform(std::string action, std::vector<std::int64_t> ids) const;
    /// In the order of the ids, one request after another, and all or none.
    Task<std::vector<VarkItem>> items(std::vector<std::int64_t> ids) const;
    Task<VarkShare> copyLink(std::vector<std::int64_t> ids) const;
    Task<VarkShare> share(std::vector<std::int64_t> ids, ShareAudience audience,
                          std::optional<ShareExpiry> expiry, std::string message) const;
    Task<std::vector<VarkJob>> findJobs(std::string query) const;
    /// Gives how many were filed.
    Task<std::int64_t> fileAgainstJob(std::vector<std::int64_t> ids, VarkJob job) const;

    /// The short name of a selection: "A and 2 more".
    static std::string describe(const std::vector<VarkItem>& items);

  private:
    Task<std::vector<std::string>> paths(std::vector<std::int64_t> ids) const;

    VarkAPI& api_;
};

}  // namespace vark
