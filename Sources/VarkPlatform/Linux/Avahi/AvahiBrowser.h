#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "VarkCore/Services/ServiceBrowser.h"

namespace vark {

/// Looks through the eyes of the avahi-daemon, over the system's bus and on a thread of its own. A daemon
/// that is not there is waited for without a word, and one that has gone likewise; only without a bus there
/// is nothing to wait for. A service that several interfaces show is one, by IPv4 if it can be. Owned by the
/// host, used and ended on the thread of `executor`, and not by its own callbacks, when no `locate` is left.
/// Its end waits for the daemon's answer if the thread is just asking.
class AvahiBrowser final : public ServiceBrowser {
  public:
    explicit AvahiBrowser(Executor& executor);
    ~AvahiBrowser() override;

    void start(std::string_view type, OnState onState, OnResults onResults) override;
    void stop() override;
    Task<std::string> locate(FoundService service) override;

  private:
    class Machinery;
    class Locating;

    Executor& executor_;
    // Made when it is first needed.
    std::unique_ptr<Machinery> machinery_;
};

}  // namespace vark
