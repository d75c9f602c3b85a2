#include "VarkBox/BoxSite.h"

namespace vark::box {

namespace {

/// The upload that a request is about: the piece behind "upload" or "u".
std::string_view uploadIDOf(const BoxRequest& request) {
    std::size_t position = request.listener == Listener::chunk ? 1 : 2;
    return request.segments.size() > position ? std::string_view(request.segments[position])
                                              : std::string_view();
}

}  // namespace

BoxSite::BoxSite(Services& services, RequestLog& log)
    : services_(services), log_(log), application_(&services.account), chunks_(&services.account) {
    addTreeRoutes(application_, services);
    addFileRoutes(application_, services);
    addUploadRoutes(application_, services);
    addDeskRoutes(application_, services);
    addShareRoutes(application_, services);
    addJobRoutes(application_, services);
    addSignInRoutes(application_, services);
    addControlRoutes(application_, services);
    addNodeRoutes(application_, services);
    addChunkRoutes(chunks_, services);
    addTicketRoutes(chunks_, services);
}

Visit BoxSite::arrive(BoxRequest request) {
    Visit visit;
    if (!request.target.starts_with("/control/")) strike(request, visit);
    if (visit.sink) return visit;
    const Router& router = request.listener == Listener::app ? application_ : chunks_;
    visit.sink = router.open(std::move(request));
    return visit;
}

void BoxSite::strike(const BoxRequest& request, Visit& visit) {
    for (const Fault& fault : services_.faults.strike(request)) {
        if (fault.kind == FaultKind::loseUpload) services_.uploads.lose(uploadIDOf(request));
        if (fault.kind == FaultKind::failCheck) services_.uploads.failNextCheck(uploadIDOf(request));
        fault.befall(visit);
    }
}

}  // namespace vark::box
