#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "VarkCore/Services/HTTPSession.h"

namespace vark {

/// Why a call of the vark's API failed, with a finished sentence for the person. Callers act on the
/// predicates and not on the cases. A value; never holds a token.
class VarkAPIError : public std::exception {
  public:
    struct Unauthorized {
        std::optional<std::string> message;
        std::optional<std::string> code;
        bool operator==(const Unauthorized&) const = default;
    };
    struct WrongChunkRoute {
        std::optional<std::string> message;
        bool operator==(const WrongChunkRoute&) const = default;
    };
    struct NameTaken {
        std::optional<std::string> message;
        bool operator==(const NameTaken&) const = default;
    };
    struct Server {
        int status;
        std::optional<std::string> message;
        bool operator==(const Server&) const = default;
    };
    struct Transport {
        std::string sentence;
        bool operator==(const Transport&) const = default;
    };
    struct BadResponse {
        std::string whatWasRead;
        bool operator==(const BadResponse&) const = default;
    };
    struct NotConnected {
        bool operator==(const NotConnected&) const = default;
    };
    struct UploadGone {
        bool operator==(const UploadGone&) const = default;
    };
    using Case = std::variant<Unauthorized, WrongChunkRoute, NameTaken, Server, Transport, BadResponse,
                              NotConnected, UploadGone>;

    /// The vark answered 401 to a call that carried the token.
    static VarkAPIError unauthorized(std::optional<std::string> message = std::nullopt,
                                     std::optional<std::string> code = std::nullopt) {
        return VarkAPIError(Unauthorized{std::move(message), std::move(code)});
    }
    /// A chunk reached a part of the vark that does not take file bytes.
    static VarkAPIError wrongChunkRoute(std::optional<std::string> message = std::nullopt) {
        return VarkAPIError(WrongChunkRoute{std::move(message)});
    }
    static VarkAPIError nameTaken(std::optional<std::string> message = std::nullopt) {
        return VarkAPIError(NameTaken{std::move(message)});
    }
    /// Any other unwanted status.
    static VarkAPIError server(int status, std::optional<std::string> message = std::nullopt) {
        return VarkAPIError(Server{status, std::move(message)});
    }
    /// The network failed; `sentence` is finished.
    static VarkAPIError transport(std::string sentence) {
        return VarkAPIError(Transport{std::move(sentence)});
    }
    /// The vark's answer made no sense.
    static VarkAPIError badResponse(std::string whatWasRead) {
        return VarkAPIError(BadResponse{std::move(whatWasRead)});
    }
    /// No token is at hand.
    static VarkAPIError notConnected() { return VarkAPIError(NotConnected{}); }
    /// The vark no longer knows an upload.
    static VarkAPIError uploadGone() { return VarkAPIError(UploadGone{}); }

    /// The device must sign in again.
    bool isSignOut() const;
    bool isNameTaken() const;
    /// What the call was about does not exist any more.
    bool isGone() const;
    /// The upload is to be begun afresh.
    bool beginsAgain() const;
    /// The same call may well succeed a little later.
    bool isRetryable() const;

    const std::string& errorDescription() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }
    const Case& which() const { return case_; }

    bool operator==(const VarkAPIError& other) const { return case_ == other.case_; }

  private:
    explicit VarkAPIError(Case which);

    Case case_;
    std::string description_;
};

/// What a sign-out said.
struct RefusedToken {
    std::optional<std::string> said;
    std::optional<std::string> code;

    /// Nothing when the error is no sign-out.
    static std::optional<RefusedToken> from(const std::exception& error);
    bool operator==(const RefusedToken&) const = default;
};

/// The error for an unwanted status, with what the body says about it.
VarkAPIError serverErrorFor(int status, std::string_view body);

/// The sentence for a transfer that came to no answer.
std::string describeURLError(const HTTPError& error);

}  // namespace vark
