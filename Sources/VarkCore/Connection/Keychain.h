#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "VarkCore/Connection/AppIdentity.h"
#include "VarkCore/Services/SecretStore.h"

namespace vark {

/// The device's token in the secret store, under the name of the running build. A value without a state of
/// its own; any thread may call, and its calls block as the store's do. The store outlives it.
class Keychain {
  public:
    /// What came of reading. A store that would not say never reads as one without a token.
    class TokenRead {
      public:
        struct Found {
            std::string token;
            bool operator==(const Found&) const = default;
        };
        struct Unreadable {
            std::int32_t status;
            bool operator==(const Unreadable&) const = default;
        };
        struct Missing {
            bool operator==(const Missing&) const = default;
        };
        using Case = std::variant<Found, Unreadable, Missing>;

        TokenRead(Found found) : case_(std::move(found)) {}
        TokenRead(Unreadable unreadable) : case_(unreadable) {}
        TokenRead(Missing missing) : case_(missing) {}

        std::optional<std::string> token() const;
        bool isUnreadable() const { return std::holds_alternative<Unreadable>(case_); }
        bool isMissing() const { return std::holds_alternative<Missing>(case_); }
        const Case& which() const { return case_; }
        bool operator==(const TokenRead&) const = default;

      private:
        Case case_;
    };

    /// Why the store did not do what it was asked to.
    class Failure : public std::exception {
      public:
        Failure(const SecretStore& store, std::int32_t status);
        std::int32_t status() const { return status_; }
        const std::string& errorDescription() const { return description_; }
        const char* what() const noexcept override { return description_.c_str(); }

      private:
        std::int32_t status_;
        std::string description_;
    };

    Keychain(SecretStore& store, AppIdentity identity) : store_(store), identity_(std::move(identity)) {}

    // Without a service and an account, the token of the running build is meant.
    using Name = std::optional<std::string>;

    TokenRead readToken(const Name& service = {}, const Name& account = {}) const;
    /// The token, if it is found. Cannot tell one that is missing from one that cannot be read.
    std::optional<std::string> read(const Name& service = {}, const Name& account = {}) const;
    /// Changes the item that is there, or adds one: the old token is never lost. Fails with `Failure`.
    void write(std::string_view token, const Name& service = {}, const Name& account = {}) const;
    /// Gives what the store says to it; a token that is not there is no trouble.
    std::int32_t remove(const Name& service = {}, const Name& account = {}) const;
    /// Carries the token over from the name that earlier versions gave it: in the shipping build, when it has
    /// none of its own. Gives whether a token was moved.
    bool migrateFromLegacy() const;

  private:
    SecretName nameOf(const Name& service, const Name& account) const;

    SecretStore& store_;
    AppIdentity identity_;
};

}  // namespace vark
