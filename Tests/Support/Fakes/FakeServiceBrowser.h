#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Support/UntilCancelled.h"
#include "VarkCore/Services/Dialer.h"
#include "VarkCore/Services/ServiceBrowser.h"

namespace vark::test {

/// How an attempt to locate a service ends: with an address, with a failure, or, with neither, never.
struct Location {
    std::optional<std::string> address = std::nullopt;
    std::optional<DialError> failure = std::nullopt;
};

/// A network on which the test announces the services. All on the test's executor.
class FakeServiceBrowser final : public ServiceBrowser {
  public:
    /// By name. What was queued is used up first, and then the last of it again.
    std::map<std::string, std::deque<Location>> locations;

    std::vector<std::string> located;
    /// Attempts that have not ended.
    int locating = 0;

    bool isStarted() const { return onResults_ != nullptr; }
    void announce(std::vector<FoundService> services) { onResults_(std::move(services)); }
    void change(BrowsingState state) { onState_(std::move(state)); }

    void start(std::string_view, OnState onState, OnResults onResults) override {
        onState_ = std::move(onState);
        onResults_ = std::move(onResults);
    }
    void stop() override {
        onState_ = nullptr;
        onResults_ = nullptr;
    }
    Task<std::string> locate(FoundService service) override {
        const std::unique_ptr<int, void (*)(int*)> counted(&++locating, [](int* count) { --*count; });
        located.push_back(service.name);
        co_await checkCancellation();
        std::deque<Location>& queued = locations.at(service.name);
        const Location location = queued.front();
        if (queued.size() > 1) queued.pop_front();
        if (location.failure) throw DialError(*location.failure);
        if (location.address) co_return *location.address;
        co_await UntilCancelled();
        throw CancellationError();
    }

  private:
    OnState onState_;
    OnResults onResults_;
};

}  // namespace vark::test
