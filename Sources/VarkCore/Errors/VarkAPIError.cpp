#include "VarkCore/Errors/VarkAPIError.h"

#include <fmt/format.h>

#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Foundation/Overloaded.h"

namespace vark {
namespace {

/// The vark's own words; an empty message says nothing to anyone.
std::string wordsOr(const std::optional<std::string>& message, std::string otherwise) {
    return message && !message->empty() ? *message : std::move(otherwise);
}

std::string describe(const VarkAPIError::Case& which) {
    using Error = VarkAPIError;
    return std::visit(
        Overloaded{
            [](const Error::Unauthorized& error) {
                return wordsOr(error.message, "The vark no longer accepts this Mac. Sign in again.");
            },
            [](const Error::WrongChunkRoute& error) {
                return wordsOr(error.message,
                               "That part of the vark does not take file bytes; starting the upload again.");
            },
            [](const Error::NameTaken& error) {
                return wordsOr(error.message, "Something of that name is already there.");
            },
            [](const Error::Server& error) {
                return wordsOr(error.message, fmt::format("The vark answered {}.", error.status));
            },
            [](const Error::Transport& error) { return error.sentence; },
            [](const Error::BadResponse& error) {
                return "Unexpected answer from the vark: " + error.whatWasRead;
            },
            [](const Error::NotConnected&) -> std::string {
                return "Not connected to a vark. Connect with a code from Settings in the portal.";
            },
            [](const Error::UploadGone&) -> std::string {
                return "The vark forgot this upload; starting it again.";
            },
        },
        which);
}

/// What a body says about a failure.
struct ErrorBody {
    std::optional<std::string> error;
    std::optional<std::string> code;
    bool signOut = false;
    bool conflict = false;

    /// Nothing for every body that is not such an object.
    static std::optional<ErrorBody> from(std::string_view body) {
        try {
            const boost::json::value value = parseJSON(body);
            const JSONFields fields(value);
            return ErrorBody{fields.optional<std::string>("error"), fields.optional<std::string>("code"),
                             fields.valueOr("sign_out", false), fields.valueOr("conflict", false)};
        } catch (const DecodingError&) {
            return std::nullopt;
        }
    }
};

}  // namespace

VarkAPIError::VarkAPIError(Case which) : case_(std::move(which)), description_(describe(case_)) {}

bool VarkAPIError::isSignOut() const {
    return std::holds_alternative<Unauthorized>(case_);
}

bool VarkAPIError::isNameTaken() const {
    return std::holds_alternative<NameTaken>(case_);
}

bool VarkAPIError::isGone() const {
    const Server* server = std::get_if<Server>(&case_);
    if (server != nullptr) return server->status == 404 || server->status == 410;
    return std::holds_alternative<UploadGone>(case_);
}

bool VarkAPIError::beginsAgain() const {
    return std::holds_alternative<WrongChunkRoute>(case_) || std::holds_alternative<UploadGone>(case_);
}

bool VarkAPIError::isRetryable() const {
    const Server* server = std::get_if<Server>(&case_);
    if (server != nullptr) return server->status == 408 || server->status == 429 || server->status >= 500;
    return std::holds_alternative<Transport>(case_) || std::holds_alternative<WrongChunkRoute>(case_);
}

std::optional<RefusedToken> RefusedToken::from(const std::exception& error) {
    const auto* apiError = dynamic_cast<const VarkAPIError*>(&error);
    if (apiError == nullptr) return std::nullopt;
    const auto* refused = std::get_if<VarkAPIError::Unauthorized>(&apiError->which());
    if (refused == nullptr) return std::nullopt;
    return RefusedToken{refused->message, refused->code};
}

VarkAPIError serverErrorFor(int status, std::string_view body) {
    ErrorBody said = ErrorBody::from(body).value_or(ErrorBody{});
    if (status == 409 && said.conflict) return VarkAPIError::nameTaken(std::move(said.error));
    if (status != 401) return VarkAPIError::server(status, std::move(said.error));
    // A vark of before the codes says that it has decided a sign-out with "sign_out" alone.
    if (!said.code && said.signOut) said.code = "VARK-410";
    return VarkAPIError::unauthorized(std::move(said.error), std::move(said.code));
}

std::string describeURLError(const HTTPError& error) {
    switch (error.code()) {
        case HTTPError::notConnectedToInternet:
            return "No network connection.";
        case HTTPError::connectionLost:
            return "The connection dropped.";
        case HTTPError::cannotConnect:
        case HTTPError::cannotFindHost:
            return "Could not reach the vark.";
        case HTTPError::timedOut:
            return "The connection timed out.";
        case HTTPError::untrusted:
        case HTTPError::answerTooLong:
        case HTTPError::other:
            return error.what();
    }
}

}  // namespace vark
