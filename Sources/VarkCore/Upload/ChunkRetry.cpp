#include "VarkCore/Upload/ChunkRetry.h"

#include "VarkCore/Errors/VarkAPIError.h"

namespace vark {

bool ChunkRetry::worthAnotherGo(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const VarkAPIError& error) {
        return error.isRetryable() && !error.beginsAgain();
    } catch (...) {
        return false;
    }
}

}  // namespace vark
