#include "VarkProvider/ProviderError.h"

#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Overloaded.h"

namespace vark {
namespace {

int codeFor(const VarkAPIError& error) {
    return std::visit(
        Overloaded{
            [](const VarkAPIError::Unauthorized&) { return ProviderError::notAuthenticated; },
            [](const VarkAPIError::NotConnected&) { return ProviderError::notAuthenticated; },
            [](const VarkAPIError::Server& server) {
                switch (server.status) {
                    case 403:
                        return ProviderError::notAuthenticated;
                    case 404:
                    case 410:
                        return ProviderError::noSuchItem;
                    case 413:
                        return ProviderError::insufficientQuota;
                    default:
                        return ProviderError::serverUnreachable;
                }
            },
            [](const VarkAPIError::Transport&) { return ProviderError::serverUnreachable; },
            [](const VarkAPIError::BadResponse&) { return ProviderError::serverUnreachable; },
            [](const VarkAPIError::WrongChunkRoute&) { return ProviderError::serverUnreachable; },
            [](const VarkAPIError::UploadGone&) { return ProviderError::serverUnreachable; },
            [](const VarkAPIError::NameTaken&) { return ProviderError::cannotSynchronize; },
        },
        error.which());
}

}  // namespace

ProviderError providerError(const std::exception_ptr& failure) {
    using Domain = ProviderError::Domain;
    try {
        std::rethrow_exception(failure);
    } catch (const CancellationError&) {
        return {Domain::cocoa, ProviderError::userCancelled};
    } catch (const VarkAPIError& error) {
        const std::string& said = error.errorDescription();
        return {Domain::fileProvider, codeFor(error), said.empty() ? "Vark could not do that." : said};
    } catch (const FileError& error) {
        return {Domain::posix, error.errorNumber(), error.what(), failure};
    } catch (const std::exception& error) {
        return {Domain::other, 0, error.what(), failure};
    } catch (...) {
        return {Domain::other, 0, std::nullopt, failure};
    }
}

}  // namespace vark
