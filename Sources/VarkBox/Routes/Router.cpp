#include "VarkBox/Routes/Router.h"

#include <fmt/format.h>

#include <cstdio>
#include <optional>

#include "VarkCore/Foundation/Text.h"

namespace vark::box {

namespace {

constexpr std::uint64_t longestBody = 8 << 20;
constexpr std::string_view placeholder = "{}";

BoxReply failureReply(const std::exception& failure) {
    if (const auto* refusal = dynamic_cast<const Refusal*>(&failure)) return refusal->reply();
    fmt::print(stderr, "vark-box: {}\n", failure.what());
    return Refusal(500, fmt::format("The vark had a problem of its own. {}", failure.what())).reply();
}

/// Turns a failure anywhere in the sink that it holds into the answer to the request.
class GuardedSink : public BodySink {
  public:
    explicit GuardedSink(std::unique_ptr<BodySink> sink) : sink_(std::move(sink)) {}

    void write(std::string_view piece) override {
        if (failure_) return;
        try {
            sink_->write(piece);
        } catch (const std::exception& failure) {
            failure_ = failureReply(failure);
        }
    }

    BoxReply finish() override {
        if (failure_) return std::move(*failure_);
        try {
            return sink_->finish();
        } catch (const std::exception& failure) {
            return failureReply(failure);
        }
    }

  private:
    std::unique_ptr<BodySink> sink_;
    std::optional<BoxReply> failure_;
};

class CollectingSink : public BodySink {
  public:
    CollectingSink(const Router::Handler& handler, BoxRequest request, Router::Arguments arguments)
        : handler_(handler), request_(std::move(request)), arguments_(std::move(arguments)) {
        if (request_.contentLength > longestBody) {
            throw Refusal(413, fmt::format("The body of this call may have {} bytes at most.", longestBody));
        }
        request_.body.reserve(request_.contentLength);
    }

    void write(std::string_view piece) override { request_.body += piece; }
    BoxReply finish() override { return handler_(request_, arguments_); }

  private:
    const Router::Handler& handler_;
    BoxRequest request_;
    Router::Arguments arguments_;
};

std::optional<Router::Arguments> match(const std::vector<std::string>& pattern,
                                       const std::vector<std::string>& segments) {
    if (pattern.size() != segments.size()) return std::nullopt;
    Router::Arguments arguments;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == placeholder) {
            arguments.push_back(segments[i]);
        } else if (pattern[i] != segments[i]) {
            return std::nullopt;
        }
    }
    return arguments;
}

}  // namespace

void Router::add(std::string_view method, std::string_view pattern, Door door, Handler handler) {
    addStreamed(method, pattern, door,
                [handler = std::move(handler)](const BoxRequest& request, const Arguments& arguments) {
                    return std::make_unique<CollectingSink>(handler, request, arguments);
                });
}

void Router::addStreamed(std::string_view method, std::string_view pattern, Door door, Opener opener) {
    std::vector<std::string> pieces = splitKeepingEmpty(pattern.substr(1), '/');
    routes_.push_back({std::string(method), std::move(pieces), door, std::move(opener)});
}

std::unique_ptr<BodySink> Router::open(BoxRequest request) const {
    try {
        return std::make_unique<GuardedSink>(find(request));
    } catch (const std::exception& failure) {
        return std::make_unique<DiscardingSink>(failureReply(failure));
    }
}

std::unique_ptr<BodySink> Router::find(const BoxRequest& request) const {
    bool pathIsKnown = false;
    for (const Route& route : routes_) {
        std::optional<Arguments> arguments = match(route.pattern, request.segments);
        if (!arguments) continue;
        pathIsKnown = true;
        if (route.method != request.method) continue;
        checkDoor(route.door, request);
        return route.opener(request, *arguments);
    }
    // Plain words and no "error": only a route that is known may say in JSON that something is not there.
    return std::make_unique<DiscardingSink>(
        pathIsKnown ? BoxReply::plain(405, fmt::format("{} is not possible here.\n", request.method))
                    : BoxReply::plain(404, "There is no such page.\n"));
}

void Router::checkDoor(Door door, const BoxRequest& request) const {
    if (door == Door::open) return;
    account_->checkToken(request.token);
    if (door == Door::writer) account_->checkMayWrite();
}

}  // namespace vark::box
