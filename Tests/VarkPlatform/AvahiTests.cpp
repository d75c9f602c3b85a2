#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Tests/Support/AvahiWorld.h"
#include "VarkBox/AvahiAnnouncer.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkCore/Services/Dialer.h"
#include "VarkPlatform/Linux/AvahiBrowser.h"

namespace vark::test {
namespace {

using box::AvahiAnnouncer;
using testing::ElementsAre;
using testing::HasSubstr;

/// Takes connections of the loopback, and does nothing with them.
class Listener {
  public:
    Listener() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* any = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(socket_.get(), any, length), 0);
        EXPECT_EQ(listen(socket_.get(), SOMAXCONN), 0);
        EXPECT_EQ(getsockname(socket_.get(), any, &length), 0);
        port_ = ntohs(address.sin_port);
    }
    std::uint16_t port() const { return port_; }
    void close() { socket_.close(); }

  private:
    Descriptor socket_;
    std::uint16_t port_ = 0;
};

class AvahiTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!world.isPossible()) GTEST_SKIP() << AvahiWorld::whySkipped;
    }

    void startBrowsing(AvahiBrowser& chosen) {
        chosen.start(
            "_vark-node._tcp", [this](const BrowsingState& state) { states.push_back(words(state)); },
            [this](std::vector<FoundService> services) { found = std::move(services); });
    }
    void waitUntil(const std::function<bool()>& condition) { executor.runUntil(condition); }
    void waitUntilSeen(const std::string& name) {
        waitUntil([&] { return found.size() == 1 && found[0].name == name; });
    }
    static std::string words(const BrowsingState& state) {
        if (std::holds_alternative<BrowsingReady>(state)) return "ready";
        if (std::holds_alternative<BrowsingDenied>(state)) return "denied";
        return std::get<BrowsingFailed>(state).description;
    }
    std::string outcome(Task<std::string> task) { return outcome(scope.start(std::move(task))); }
    std::string outcome(const TaskHandle<std::string>& handle) {
        waitUntil([&] { return handle.done(); });
        try {
            return handle.result();
        } catch (const DialError& error) {
            return error.what();
        } catch (const CancellationError&) {
            return "cancelled";
        }
    }

    AvahiWorld world;
    SerialExecutor executor;
    SystemClock clock;
    std::vector<std::string> states;
    std::vector<FoundService> found;
    AvahiBrowser browser{executor};
    TaskScope scope{executor, clock};
};

TEST_F(AvahiTest, FindsAServiceWithItsTextAndItsAddressUntilItLeaves) {
    world.startBus();
    world.startDaemon();
    startBrowsing(browser);
    Listener listener;
    std::optional<AvahiAnnouncer> node(
        std::in_place, AvahiAnnouncer::Announcement{
                           "Büro 1.2",
                           listener.port(),
                           {{"host", "one.node.test"}, {"port", "8443"}, {"api", "TRUE"}, {"empty", ""}}});
    waitUntilSeen("Büro 1.2");
    EXPECT_EQ(states, std::vector<std::string>{"ready"});
    const std::map<std::string, std::string> text{
        {"host", "one.node.test"}, {"port", "8443"}, {"api", "TRUE"}, {"empty", ""}};
    EXPECT_EQ(found[0].text, text);
    EXPECT_EQ(outcome(browser.locate(found[0])), "127.0.0.1");
    const TaskHandle<std::string> unwanted = scope.start(browser.locate(found[0]));
    unwanted.cancel();
    EXPECT_EQ(outcome(unwanted), "cancelled");

    listener.close();
    EXPECT_EQ(outcome(browser.locate(found[0])), "Connection refused");
    const FoundService gone = found[0];
    node.reset();
    waitUntil([&] { return found.empty(); });
    EXPECT_THAT(outcome(browser.locate(gone)), HasSubstr("not announced"));
}

TEST_F(AvahiTest, WaitsForADaemonAndForTheNextOne) {
    world.startBus();
    startBrowsing(browser);
    const AvahiAnnouncer node({"Office", 8443, {{"host", "node.test"}}});
    EXPECT_THAT(node.trouble().value_or(""), HasSubstr("avahi-daemon is not running"));
    world.startDaemon();
    waitUntilSeen("Office");
    EXPECT_EQ(states, std::vector<std::string>{"ready"});

    world.stopDaemon();
    waitUntil([&] { return found.empty(); });
    while (!node.trouble())
        std::this_thread::yield();
    world.startDaemon();
    waitUntilSeen("Office");
    EXPECT_EQ(states, (std::vector<std::string>{"ready", "ready"}));
}

TEST_F(AvahiTest, SaysWhatToDoWithoutABusAndWhenLookingIsForbidden) {
    startBrowsing(browser);
    waitUntil([&] { return !states.empty(); });
    EXPECT_THAT(states, ElementsAre(HasSubstr("install and start dbus and avahi-daemon")));
    const AvahiAnnouncer node({"Office", 8443, {}});
    EXPECT_THAT(node.trouble().value_or(""), HasSubstr("Install and start dbus and avahi-daemon"));

    states.clear();
    world.startClosedBus();
    world.startDaemon();
    startBrowsing(browser);
    waitUntil([&] { return !states.empty(); });
    EXPECT_THAT(states, ElementsAre("denied"));
}

TEST_F(AvahiTest, SaysNothingOnceItIsStopped) {
    world.startBus();
    world.startDaemon();
    startBrowsing(browser);
    browser.stop();
    const AvahiAnnouncer node({"Office", 8443, {{"host", "node.test"}}});
    // A second browser sees what the first one would have.
    const std::vector<std::string> before = states;
    AvahiBrowser second(executor);
    startBrowsing(second);
    waitUntilSeen("Office");
    EXPECT_EQ(states.size(), before.size() + 1);
    EXPECT_THAT(outcome(browser.locate(found[0])), HasSubstr("not announced"));
}

}  // namespace
}  // namespace vark::test
