#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VarkBox/Account.h"
#include "VarkBox/Database.h"
#include "VarkBox/Faults.h"
#include "VarkBox/ObjectFiles.h"
#include "VarkBox/Router.h"
#include "VarkBox/Uploads.h"

namespace vark::box {

/// What the handlers work on. Owned by `Box`, which outlives every request.
struct Services {
    Database& database;
    const ObjectFiles& files;
    Uploads& uploads;
    Account& account;
    Faults& faults;
    /// Where chunks are taken without a token, once that is known; nothing when they go through the
    /// application.
    std::optional<std::string> chunkURL;
};

// Each adds the calls of one subject.
void addTreeRoutes(Router& router, Services& services);
void addFileRoutes(Router& router, Services& services);
void addUploadRoutes(Router& router, Services& services);
void addChunkRoutes(Router& router, Services& services);
void addDeskRoutes(Router& router, Services& services);
void addControlRoutes(Router& router, Services& services);

/// A whole number from outside, refused with 400 under the name that is given when it is none.
std::int64_t numberFrom(std::string_view text, std::string_view what);
/// Refuses with 400 a call without this part of the query.
std::string_view requireQuery(const BoxRequest& request, std::string_view name);

}  // namespace vark::box
