#include "VarkBox/BoxSite.h"

namespace vark::box {

namespace {

void answerInstead(Visit& visit, BoxReply reply, const Fault& fault) {
    visit.sink = std::make_unique<DiscardingSink>(std::move(reply));
    if (!fault.afterBytes) return;
    visit.mishap = Mishap::answerEarly;
    visit.afterBytes = *fault.afterBytes;
}

BoxReply answerOf(const Fault& fault, const Refusal& usual) {
    BoxReply reply = usual.reply();
    if (!fault.body.empty()) reply.body = fault.body;
    return reply;
}

/// The upload that a request is about: the piece behind "upload" or "u".
std::string_view uploadIDOf(const BoxRequest& request) {
    std::size_t position = request.listener == Listener::chunk ? 1 : 2;
    return request.segments.size() > position ? std::string_view(request.segments[position])
                                              : std::string_view();
}

}  // namespace

BoxSite::BoxSite(Services& services, RequestLog& log)
    : services_(services), log_(log), application_(services.account), chunks_(services.account) {
    addTreeRoutes(application_, services);
    addFileRoutes(application_, services);
    addUploadRoutes(application_, services);
    addDeskRoutes(application_, services);
    addControlRoutes(application_, services);
    addChunkRoutes(chunks_, services);
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
    for (const Fault& fault : services_.faults.strike(request))
        apply(fault, request, visit);
}

void BoxSite::apply(const Fault& fault, const BoxRequest& request, Visit& visit) {
    auto befall = [&](Mishap mishap) {
        visit.mishap = mishap;
        visit.afterBytes = fault.afterBytes.value_or(0);
    };
    switch (fault.kind) {
        case FaultKind::latency:
            visit.delay += fault.delay;
            return;
        case FaultKind::status:
            answerInstead(visit,
                          answerOf(fault, Refusal(fault.status, "The vark was told to answer like this.")),
                          fault);
            return;
        case FaultKind::refuseToken:
            answerInstead(visit,
                          answerOf(fault, Refusal(401, "The vark does not know this device. Sign in again.")),
                          fault);
            return;
        case FaultKind::wrongRoute:
            answerInstead(visit,
                          answerOf(fault, Refusal(400, "This part of the vark does not take file bytes.")),
                          fault);
            return;
        case FaultKind::reset:
            return befall(Mishap::reset);
        case FaultKind::stall:
            return befall(Mishap::stall);
        case FaultKind::stallAfterBody:
            return befall(Mishap::stallAfterBody);
        case FaultKind::shortBody:
            return befall(Mishap::shortBody);
        case FaultKind::loseUpload:
            services_.uploads.lose(uploadIDOf(request));
            return;
        case FaultKind::failCheck:
            services_.uploads.failNextCheck(uploadIDOf(request));
            return;
    }
}

}  // namespace vark::box
