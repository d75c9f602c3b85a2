#pragma once

#include <string>
#include <string_view>

#include "VarkBox/Access/Account.h"
#include "VarkBox/Access/SignIns.h"
#include "VarkBox/Access/Tickets.h"
#include "VarkBox/HTTP/Faults.h"
#include "VarkBox/Nodes/Nodes.h"
#include "VarkBox/Routes/Router.h"
#include "VarkBox/Store/Database.h"
#include "VarkBox/Store/ObjectFiles.h"
#include "VarkBox/Store/Uploads.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark::box {

/// In seconds since 1970.
inline double now() {
    return systemDate().since1970();
}

/// What the handlers work on. Owned by `Box`, which outlives every request.
struct Services {
    Database& database;
    const ObjectFiles& files;
    Uploads& uploads;
    Account& account;
    Faults& faults;
    Nodes& nodes;
    const Tickets& tickets;
    SignIns& signIns;
    bool hasJobBook = true;
    /// The address of the application; set before the server starts.
    std::string url{};
    /// Where file bytes are taken and given without a token; set before the server starts.
    std::string chunkURL{};
    /// Whether uploads are told that address, or send their chunks through the application.
    bool givesChunkURL = true;
    /// Makes the server speak for these hosts too; set before the server starts.
    Nodes::OnNewHost certify{};
};

// Each adds the calls of one subject.
void addTreeRoutes(Router& router, Services& services);
void addFileRoutes(Router& router, Services& services);
void addUploadRoutes(Router& router, Services& services);
void addChunkRoutes(Router& router, Services& services);
void addDeskRoutes(Router& router, Services& services);
void addControlRoutes(Router& router, Services& services);
/// Shares, with their pages.
void addShareRoutes(Router& router, Services& services);
/// Nothing for a vark without a job book.
void addJobRoutes(Router& router, Services& services);
/// The calls of devices that sign in, and the pages of the portal for the person, whom everybody on this
/// machine is taken for.
void addSignInRoutes(Router& router, Services& services);
void addNodeRoutes(Router& router, Services& services);
/// What the chunk listener gives and takes.
void addTicketRoutes(Router& router, Services& services);
/// `hasUploads` is false where the faults of uploads have no meaning.
void addFaultRoutes(Router& router, Faults& faults, bool hasUploads);

/// The same listener under the name of a node.
std::string addressOn(std::string_view host, std::string_view url);

/// A whole number from outside, refused with 400 under the name that is given when it is none.
std::int64_t numberFrom(std::string_view text, std::string_view what);
/// Refuses with 400 a call without this part of the query.
std::string_view requireQuery(const BoxRequest& request, std::string_view name);

}  // namespace vark::box
