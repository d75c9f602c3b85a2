#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Tests/Support/AvahiWorld.h"
#include "Tests/Support/LoopbackPort.h"
#include "VarkBox/Nodes/AvahiAnnouncer.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkCore/Services/Dialer.h"
#include "VarkPlatform/Linux/Avahi/AvahiBrowser.h"

namespace vark::test {
namespace {

using box::AvahiAnnouncer;
using testing::ElementsAre;
using testing::HasSubstr;

class AvahiTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!world.isPossible()) GTEST_SKIP() << OwnNamespaces::whySkipped;
    }

    void startBrowsing() {
        browser.start(
            "_vark-node._tcp",
            [this](const BrowsingState& state) {
                const auto* failed = std::get_if<BrowsingFailed>(&state);
                states.push_back(failed != nullptr ? failed->description : "ready");
            },
            [this](std::vector<FoundService> services) { found = std::move(services); });
    }
    void waitUntilSeen(const std::string& name) {
        executor.runUntil([&] { return found.size() == 1 && found[0].name == name; });
    }
    std::string located(const FoundService& service, bool isWanted = true) {
        const TaskHandle<std::string> handle = scope.start(browser.locate(service));
        if (!isWanted) handle.cancel();
        executor.runUntil([&] { return handle.done(); });
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
    startBrowsing();
    const LoopbackPort port;
    port.listen();
    const std::map<std::string, std::string> text{{"host", "one.node.test"}, {"api", "TRUE"}, {"empty", ""}};
    std::optional<AvahiAnnouncer> node(
        std::in_place, AvahiAnnouncer::Announcement{"Büro 1.2", port.port(), {text.begin(), text.end()}});
    waitUntilSeen("Büro 1.2");
    const FoundService service = found[0];
    EXPECT_EQ(states, std::vector<std::string>{"ready"});
    EXPECT_EQ(service.text, text);
    EXPECT_EQ(located(service), "127.0.0.1");
    EXPECT_EQ(located(service, false), "cancelled");
    shutdown(port.descriptor(), SHUT_RDWR);
    EXPECT_EQ(located(service), "Connection refused");

    node.reset();
    executor.runUntil([&] { return found.empty(); });
    EXPECT_THAT(located(service), HasSubstr("not announced"));
}

TEST_F(AvahiTest, WaitsForADaemonAndForTheNextOne) {
    world.startBus();
    startBrowsing();
    const AvahiAnnouncer node({"Office", 8443, {{"host", "node.test"}}});
    world.startDaemon();
    waitUntilSeen("Office");
    world.stopDaemon();
    executor.runUntil([&] { return found.empty(); });
    world.startDaemon();
    waitUntilSeen("Office");
    EXPECT_THAT(states, ElementsAre("ready", "ready"));
}

TEST_F(AvahiTest, SaysWhatToDoWithoutABus) {
    startBrowsing();
    executor.runUntil([&] { return !states.empty(); });
    EXPECT_THAT(states, ElementsAre(HasSubstr("install and start dbus and avahi-daemon")));
}

}  // namespace
}  // namespace vark::test
