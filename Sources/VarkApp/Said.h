#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark::app {

/// Something that a person may do about what they are told. Whoever tells them makes a command of it, or a
/// button. A value.
struct Next {
    enum class Step : std::uint8_t {
        /// Put something into the queue.
        begin,
        /// Bring a card in.
        bringIn,
        carryOn,
        giveUp,
        connectAgain,
        openKeychain,
        useAFile,
        decide,
        retry,
        resume,
        watch,
        makeRoom,
        seeDiary,
        /// Trust an authority of the vark's own.
        trustAuthority,
        /// Sign in with a code from the portal.
        useACode,
        /// Work below one folder of the vark.
        chooseFolder,
        /// Look at the folders of the vark.
        lookAround,
    };

    Step step = Step::carryOn;
    /// How a sentence leads up to it, where the step's usual words do not fit: "Let it finish". One that ends
    /// in a comma or a full stop says all of it; one that ends in a colon stands right before what is to be
    /// done.
    std::string word{};

    bool operator==(const Next&) const = default;
};

/// A finished sentence or two for a person, with what to do next kept apart. A value.
struct Said {
    std::string text;
    std::vector<Next> next;

    Said() = default;
    Said(std::string theText, std::vector<Next> theNext = {})
        : text(std::move(theText)), next(std::move(theNext)) {}
    Said(const char* theText) : text(theText) {}

    /// Steps that this version does not know are passed over.
    static Said fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
    bool operator==(const Said&) const = default;
};

}  // namespace vark::app
