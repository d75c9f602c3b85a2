#include "VarkProvider/Patience.h"

#include "VarkCore/Errors/VarkAPIError.h"

namespace vark {

bool Patience::worthWaiting(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const VarkAPIError& error) {
        const auto* server = std::get_if<VarkAPIError::Server>(&error.which());
        if (server == nullptr) return std::holds_alternative<VarkAPIError::Transport>(error.which());
        return server->status == 429 || server->status == 408 || server->status > 499;
    } catch (...) {
        return false;
    }
}

}  // namespace vark
