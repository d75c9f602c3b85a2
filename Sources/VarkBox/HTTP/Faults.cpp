#include "VarkBox/HTTP/Faults.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <boost/json/serialize.hpp>
#include <ranges>

namespace vark::box {

namespace {

// In the order of FaultKind.
constexpr std::array<std::string_view, 10> kindNames = {
    "latency",    "status",      "reset",        "stall",       "stall_after_body",
    "short_body", "lose_upload", "refuse_token", "wrong_route", "fail_check"};

FaultKind kindNamed(std::string_view name) {
    auto found = std::ranges::find(kindNames, name);
    if (found == kindNames.end()) {
        throw Refusal(400, fmt::format("There is no fault \"{}\". The kinds are: {}.", name,
                                       fmt::join(kindNames, ", ")));
    }
    return static_cast<FaultKind>(found - kindNames.begin());
}

Listener listenerNamed(std::string_view name) {
    for (Listener listener : {Listener::app, Listener::chunk, Listener::node}) {
        if (name == nameOf(listener)) return listener;
    }
    throw Refusal(400,
                  fmt::format("There is no listener \"{}\". It is \"app\", \"chunk\" or \"node\".", name));
}

// A status fault may carry any body; the others that answer have a sentence of their own.
std::string bodyFrom(const JSONBody& json) {
    const boost::json::value* body = json.object().if_contains("body");
    if (body == nullptr || body->is_null()) return {};
    if (body->is_string()) return std::string(body->get_string());
    return boost::json::serialize(*body);
}

void answerInstead(Visit& visit, const Fault& fault, const Refusal& usual) {
    BoxReply reply = usual.reply();
    if (!fault.body.empty()) reply.body = fault.body;
    visit.sink = std::make_unique<DiscardingSink>(std::move(reply));
    if (!fault.afterBytes) return;
    visit.mishap = Mishap::answerEarly;
    visit.afterBytes = *fault.afterBytes;
}

}  // namespace

Fault Fault::fromJSON(const JSONBody& json) {
    Fault fault;
    if (auto listener = json.optional<std::string>("listener")) fault.listener = listenerNamed(*listener);
    fault.method = json.optional<std::string>("method").value_or("");
    fault.path = json.optional<std::string>("path").value_or("");
    fault.pathContains = json.optional<std::string>("path_contains").value_or("");
    fault.kind = kindNamed(json.required<std::string>("kind"));
    fault.status = json.optional<int>("status").value_or(500);
    if (fault.status < 200 || fault.status > 599) throw Refusal(400, "A status lies between 200 and 599.");
    fault.body = bodyFrom(json);
    fault.delay = std::chrono::milliseconds(json.optional<std::int64_t>("ms").value_or(0));
    fault.afterBytes = json.optional<std::uint64_t>("after_bytes");
    fault.skip = json.optional<std::int64_t>("skip").value_or(0);
    fault.count = json.optional<std::int64_t>("count");
    fault.probability = json.optional<double>("probability").value_or(1);
    return fault;
}

boost::json::object Fault::toJSON() const {
    boost::json::object json;
    if (listener) json["listener"] = nameOf(*listener);
    if (!method.empty()) json["method"] = method;
    if (!path.empty()) json["path"] = path;
    if (!pathContains.empty()) json["path_contains"] = pathContains;
    json["kind"] = kindNames.at(static_cast<std::size_t>(kind));
    return json;
}

bool Fault::matches(const BoxRequest& request) const {
    return (!listener || *listener == request.listener) && (method.empty() || method == request.method) &&
           request.target.starts_with(path) && request.target.find(pathContains) != std::string::npos;
}

void Fault::befall(Visit& visit) const {
    auto breakIn = [&](Mishap mishap) {
        visit.mishap = mishap;
        visit.afterBytes = afterBytes.value_or(0);
    };
    switch (kind) {
        case FaultKind::latency:
            visit.delay += delay;
            return;
        case FaultKind::status:
            return answerInstead(visit, *this, Refusal(status, "The vark was told to answer like this."));
        case FaultKind::refuseToken:
            return answerInstead(visit, *this,
                                 Refusal(401, "The vark does not know this device. Sign in again."));
        case FaultKind::wrongRoute:
            return answerInstead(visit, *this,
                                 Refusal(400, "This part of the vark does not take file bytes."));
        case FaultKind::reset:
            return breakIn(Mishap::reset);
        case FaultKind::stall:
            return breakIn(Mishap::stall);
        case FaultKind::stallAfterBody:
            return breakIn(Mishap::stallAfterBody);
        case FaultKind::shortBody:
            return breakIn(Mishap::shortBody);
        case FaultKind::loseUpload:
        case FaultKind::failCheck:
            return;
    }
}

std::int64_t Faults::add(Fault fault) {
    Locked guard(lock_);
    armed_.emplace(++lastID_, Armed{std::move(fault)});
    return lastID_;
}

void Faults::clear() {
    Locked guard(lock_);
    armed_.clear();
}

boost::json::array Faults::list() const {
    Locked guard(lock_);
    boost::json::array faults;
    for (const auto& [id, armed] : armed_) {
        boost::json::object json = armed.fault.toJSON();
        json["id"] = id;
        json["fired"] = armed.fired;
        faults.push_back(std::move(json));
    }
    return faults;
}

std::vector<Fault> Faults::strike(const BoxRequest& request) {
    Locked guard(lock_);
    std::vector<Fault> firing;
    for (Armed& armed : armed_ | std::views::values) {
        const Fault& fault = armed.fault;
        if (!fault.matches(request) || armed.matched++ < fault.skip) continue;
        if (fault.count && armed.fired >= *fault.count) continue;
        if (std::uniform_real_distribution<>()(random_) >= fault.probability) continue;
        ++armed.fired;
        firing.push_back(fault);
    }
    return firing;
}

}  // namespace vark::box
