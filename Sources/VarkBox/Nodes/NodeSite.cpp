#include "VarkBox/Nodes/NodeSite.h"

#include "VarkBox/Routes/Services.h"

namespace vark::box {

namespace {

bool breaksBeforeTheAnswer(Mishap mishap) {
    return mishap == Mishap::reset || mishap == Mishap::stall || mishap == Mishap::stallAfterBody;
}

}  // namespace

NodeSite::NodeSite(const Uplink& chunks, const Uplink* application, Faults& faults, RequestLog& log)
    : chunks_(chunks), application_(application), faults_(faults), log_(log) {
    addFaultRoutes(control_, faults, false);
}

Visit NodeSite::arrive(BoxRequest request) {
    Visit visit;
    if (request.listener == Listener::control) {
        visit.sink = control_.open(std::move(request));
        return visit;
    }
    for (const Fault& fault : faults_.strike(request))
        fault.befall(visit);
    if (visit.sink) return visit;
    visit.onward = wayFor(request);
    if (visit.onward == nullptr) {
        visit.sink = std::make_unique<DiscardingSink>(BoxReply::plain(404, "There is no such page.\n"));
    } else if (breaksBeforeTheAnswer(visit.mishap)) {
        // The vark must not take a chunk of which its sender will never hear.
        visit.onward = nullptr;
        visit.sink = std::make_unique<DiscardingSink>(BoxReply());
    }
    return visit;
}

const Uplink* NodeSite::wayFor(const BoxRequest& request) const {
    std::string_view first = request.segments.empty() ? std::string_view() : request.segments.front();
    if (first == "u" || first == "f") return &chunks_;
    return first == "api" ? application_ : nullptr;
}

}  // namespace vark::box
