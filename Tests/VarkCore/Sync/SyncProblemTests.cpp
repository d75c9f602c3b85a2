#include "VarkCore/Sync/SyncProblem.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "VarkCore/Errors/VarkAPIError.h"

namespace vark {
namespace {

using State = SyncOp::State;
using Error = VarkAPIError;

constexpr const char* internet = "Waiting for the internet. Your files are safe on this Mac.";
constexpr const char* carriesOn = "Vark will carry on in a moment. Nothing to do.";
constexpr const char* signIn = "Vark needs you to sign in again. Open Settings from the menu bar.";
constexpr const char* moved =
    "Someone moved or binned this before your change arrived. Anything binned can be put back from the Bin.";
constexpr const char* name =
    "Names can't end in a space or a full stop, or use some symbols. Rename it, then try again.";
constexpr const char* asItIs = "Vark can't take this as it is. Rename it, then try again.";

std::shared_ptr<std::exception> network(HTTPError::Code code) {
    return std::make_shared<HTTPError>(code, "The Internet connection appears to be offline.");
}

std::shared_ptr<std::exception> refusal(VarkAPIError error) {
    return std::make_shared<VarkAPIError>(std::move(error));
}

TEST(SyncProblem, TellsWhetherAPersonHasToDoSomethingAndWhat) {
    struct Case {
        std::shared_ptr<std::exception> error;
        State state;
        const char* reason;
    };
    const Case cases[] = {
        {network(HTTPError::notConnectedToInternet), State::waiting, internet},
        {network(HTTPError::connectionLost), State::waiting, internet},
        {network(HTTPError::cannotConnect), State::waiting, carriesOn},
        {refusal(Error::unauthorized("Revoked.", "VARK-410")), State::problem, signIn},
        {refusal(Error::notConnected()), State::problem, signIn},
        {refusal(Error::nameTaken("taken")), State::problem,
         "Something with this name is already in Edits. Rename one of them, then try again."},
        {refusal(Error::server(403, "no")), State::problem,
         "This folder is set to read-only for you. Ask an admin at Acme if it should change."},
        {refusal(Error::server(404)), State::problem, moved},
        {refusal(Error::server(410)), State::problem, moved},
        {refusal(Error::server(409)), State::waiting, carriesOn},
        {refusal(Error::server(413)), State::problem,
         "Your vark is full. An admin at Acme can make room or add space."},
        {refusal(Error::server(400, "Bad NAME.")), State::problem, name},
        {refusal(Error::server(400, "Bad path.")), State::problem, asItIs},
        {refusal(Error::server(400)), State::problem, asItIs},
        {refusal(Error::server(422, "Bad name.")), State::problem, asItIs},
        {refusal(Error::server(500, "name")), State::waiting, carriesOn},
        {refusal(Error::transport("You are OFFLINE.")), State::waiting, internet},
        {refusal(Error::transport("No Internet here.")), State::waiting, internet},
        {refusal(Error::transport("This is Not Connected.")), State::waiting, internet},
        {refusal(Error::transport("The connection dropped.")), State::waiting, carriesOn},
        {refusal(Error::badResponse("offline")), State::waiting, carriesOn},
        {std::make_shared<std::runtime_error>("offline"), State::waiting, carriesOn},
    };
    const SyncOp op(SyncOp::Kind::upload, "Jobs/Edits/clip.mov", 1, Date{});
    for (const Case& each : cases) {
        EXPECT_EQ(SyncProblem::from(*each.error, op, "Acme"), (SyncProblem{each.state, each.reason}))
            << each.error->what();
    }
}

TEST(SyncProblem, SpeaksWithoutTheNameOfTheClientOrOfAFolder) {
    struct Case {
        VarkAPIError error;
        const char* reason;
    };
    const SyncOp atTheTop(SyncOp::Kind::upload, "/clip.mov", 1, Date{});
    for (const Case& each : {
             Case{
                 Error::server(403),
                 "This folder is set to read-only for you. Ask an admin where you work if it should change."},
             Case{Error::server(413),
                  "Your vark is full. An admin where you work can make room or add space."},
             Case{Error::nameTaken(),
                  "Something with this name is already in this folder. Rename one of them, then try again."},
         }) {
        EXPECT_EQ(SyncProblem::from(each.error, atTheTop, "").reason, each.reason);
    }
}

}  // namespace
}  // namespace vark
