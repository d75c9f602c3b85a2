#pragma once

#include <cstdint>

#include "VarkCore/Services/SecretStore.h"

namespace vark {

/// One operation of a secret store, whose steps end it by a throw and whose caller sees a status. Functions
/// only; any thread.
struct SecretOperation {
    /// With a status other than `done`.
    struct Ended {
        std::int32_t status;
    };

    template <class Operation>
    static std::int32_t statusOf(Operation operation) {
        try {
            operation();
            return SecretStatus::done;
        } catch (const Ended& ended) {
            return ended.status;
        }
    }
};

}  // namespace vark
