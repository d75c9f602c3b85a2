#include "VarkCore/Sync/SyncProblem.h"

#include <fmt/format.h>

#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Foundation/Overloaded.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

SyncProblem waiting(std::string_view reason) {
    return {SyncOp::State::waiting, std::string(reason)};
}

SyncProblem problem(std::string reason) {
    return {SyncOp::State::problem, std::move(reason)};
}

SyncProblem carryOn() {
    return waiting(SyncProblem::carriesOn);
}

SyncProblem waitForTheInternet() {
    return waiting("Waiting for the internet. Your files are safe on this Mac.");
}

SyncProblem signInAgain() {
    return problem("Vark needs you to sign in again. Open Settings from the menu bar.");
}

SyncProblem notAsItIs() {
    return problem("Vark can't take this as it is. Rename it, then try again.");
}

SyncProblem nameTaken(const SyncOp& op) {
    return problem(
        fmt::format("Something with this name is already in {}. Rename one of them, then try again.",
                    op.folderPath().empty() ? "this folder" : op.folderName()));
}

/// "an admin at Acme", with "an" or "An" in front.
std::string admin(std::string_view article, std::string_view client) {
    return client.empty() ? fmt::format("{} admin where you work", article)
                          : fmt::format("{} admin at {}", article, client);
}

SyncProblem refusedForItsName(const std::optional<std::string>& message) {
    if (!message || !lowercased(*message).contains("name")) return notAsItIs();
    return problem(
        "Names can't end in a space or a full stop, or use some symbols. Rename it, then try again.");
}

SyncProblem answered(const VarkAPIError::Server& server, std::string_view client) {
    switch (server.status) {
        case 400:
            return refusedForItsName(server.message);
        case 403:
            return problem(fmt::format("This folder is set to read-only for you. Ask {} if it should change.",
                                       admin("an", client)));
        case 404:
        case 410:
            return problem(
                "Someone moved or binned this before your change arrived. Anything binned can be put back "
                "from the Bin.");
        case 413:
            return problem(
                fmt::format("Your vark is full. {} can make room or add space.", admin("An", client)));
        case 422:
            return notAsItIs();
        default:
            return carryOn();
    }
}

SyncProblem fromNetwork(const HTTPError& error) {
    const bool isCutOff =
        error.code() == HTTPError::notConnectedToInternet || error.code() == HTTPError::connectionLost;
    return isCutOff ? waitForTheInternet() : carryOn();
}

SyncProblem fromTransport(const VarkAPIError::Transport& transport) {
    const std::string sentence = lowercased(transport.sentence);
    const bool isCutOff =
        sentence.contains("offline") || sentence.contains("internet") || sentence.contains("not connected");
    return isCutOff ? waitForTheInternet() : carryOn();
}

}  // namespace

SyncProblem SyncProblem::from(const std::exception& error, const SyncOp& op, std::string_view client) {
    if (const auto* network = dynamic_cast<const HTTPError*>(&error)) return fromNetwork(*network);
    const auto* refusal = dynamic_cast<const VarkAPIError*>(&error);
    if (refusal == nullptr) return carryOn();
    using Error = VarkAPIError;
    return std::visit(Overloaded{
                          [](const Error::Unauthorized&) { return signInAgain(); },
                          [](const Error::NotConnected&) { return signInAgain(); },
                          [&](const Error::NameTaken&) { return nameTaken(op); },
                          [&](const Error::Server& server) { return answered(server, client); },
                          [](const Error::Transport& transport) { return fromTransport(transport); },
                          [](const Error::WrongChunkRoute&) { return carryOn(); },
                          [](const Error::BadResponse&) { return carryOn(); },
                          [](const Error::UploadGone&) { return carryOn(); },
                      },
                      refusal->which());
}

}  // namespace vark
