#include "VarkPlatform/Linux/Avahi/AvahiBrowser.h"

#include <atomic>
#include <optional>
#include <utility>

#include "VarkCore/Concurrency/Coroutine.h"
#include "VarkCore/Services/Dialer.h"
#include "VarkPlatform/Linux/Avahi/AvahiSession.h"
#include "VarkPlatform/Linux/Avahi/AvahiThread.h"
#include "VarkPlatform/Linux/Avahi/BrowsingNews.h"

namespace vark {
namespace {

constexpr const char* nobodyToLookWith =
    "no avahi-daemon answers on this machine, so everything goes by the internet. For the nodes of an "
    "office, "
    "install and start dbus and avahi-daemon; the next run finds them.";

}  // namespace

/// The browsing on its thread: one session after another, as daemons come and go.
class AvahiBrowser::Machinery final : private AvahiSession::Listener {
  public:
    explicit Machinery(Executor& executor) : news_(executor) {}
    ~Machinery() {
        thread_.end();
        session_.reset();
    }

    void begin(std::string type, OnState onState, OnResults onResults) {
        const int round = news_.open(std::move(onState), std::move(onResults));
        thread_.post([this, round, type = std::move(type)] {
            round_ = round;
            type_ = type;
            told_.clear();
            isLooking_ = true;
            connect();
        });
    }
    void end() {
        news_.close();
        thread_.post([this] {
            isLooking_ = false;
            if (session_) session_->stopLooking();
        });
    }
    std::uint64_t nextNumber() { return ++lastNumber_; }
    void locate(std::uint64_t number, const std::string& name, AvahiLocation::OnEnd end) {
        thread_.post([this, number, name, end = std::move(end)] {
            if (session_) {
                session_->locate(number, name, end);
                return;
            }
            Outcome<std::string> outcome;
            outcome.setFailure(
                std::make_exception_ptr(DialError(DialError::network, "nobody is looking for services")));
            end(std::move(outcome));
        });
    }
    void abandon(std::uint64_t number) {
        thread_.post([this, number] {
            if (session_) session_->abandon(number);
        });
    }

  private:
    void connect() {
        session_.reset();
        Listener& listener = *this;
        session_.emplace(thread_.poll(), type_, listener);
    }

    void browsing() override { news_.add(round_, BrowsingReady()); }
    void denied() override { news_.add(round_, BrowsingDenied()); }
    void failed() override { news_.add(round_, BrowsingFailed(nobodyToLookWith)); }
    void found(std::vector<FoundService> services) override {
        if (services == told_) return;
        told_ = services;
        news_.add(round_, std::move(services));
    }
    void lost() override {
        found({});
        thread_.post([this] {
            session_.reset();
            if (isLooking_) connect();
        });
    }

    BrowsingNews news_;
    AvahiThread thread_;
    std::atomic<std::uint64_t> lastNumber_ = 0;

    // The thread's.
    int round_ = 0;
    std::string type_;
    std::vector<FoundService> told_;
    bool isLooking_ = false;
    std::optional<AvahiSession> session_;
};

class AvahiBrowser::Locating final : public StoppableWait {
  public:
    Locating(Machinery& machinery, std::string name)
        : machinery_(machinery), name_(std::move(name)), number_(machinery.nextNumber()) {}

    template <class Promise>
    bool await_suspend(std::coroutine_handle<Promise> handle) {
        return suspend(handle, [this](const TaskContext& context) {
            machinery_.locate(number_, name_, [this](Outcome<std::string> outcome) {
                outcome_ = std::move(outcome);
                complete();
            });
            watch(context.token);
        });
    }
    std::string await_resume() {
        unwatch();
        return outcome_.take();
    }

  private:
    void onStop() noexcept override { machinery_.abandon(number_); }

    Machinery& machinery_;
    const std::string name_;
    const std::uint64_t number_;
    Outcome<std::string> outcome_;
};

AvahiBrowser::AvahiBrowser(Executor& executor) : executor_(executor) {}
AvahiBrowser::~AvahiBrowser() = default;

void AvahiBrowser::start(std::string_view type, OnState onState, OnResults onResults) {
    if (!machinery_) machinery_ = std::make_unique<Machinery>(executor_);
    machinery_->begin(std::string(type), std::move(onState), std::move(onResults));
}

void AvahiBrowser::stop() {
    if (machinery_) machinery_->end();
}

Task<std::string> AvahiBrowser::locate(FoundService service) {
    co_await checkCancellation();
    if (!machinery_) throw DialError(DialError::network, "nobody is looking for services");
    co_return co_await Locating(*machinery_, std::move(service.name));
}

}  // namespace vark
