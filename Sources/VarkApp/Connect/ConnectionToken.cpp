#include "VarkApp/Connect/ConnectionToken.h"

#include <sys/stat.h>

#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedStore.h"

namespace vark::app {

ConnectionToken::Stamp ConnectionToken::stampNow() const {
    struct stat status{};
    if (stat(SharedFiles::connection(folder_).c_str(), &status) != 0) return {};
    return {status.st_ino, std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec};
}

std::optional<std::string> ConnectionToken::current() {
    Locked hold(lock_);
    // Taken before reading: a record that is replaced in between is read again at the next call.
    Stamp stamp = stampNow();
    if (readAt_ == stamp) return token_;
    std::optional<SharedConnection> connection = SharedStore::read(folder_);
    readAt_ = stamp;
    token_.reset();
    if (connection && connection->server == server_) token_ = connection->token;
    return token_;
}

}  // namespace vark::app
