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
using testing::AnyOf;
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
    std::string located(const FoundService& service) {
        try {
            return run(executor, clock, browser.locate(service));
        } catch (const DialError& error) {
            return error.what();
        }
    }

    AvahiWorld world;
    SerialExecutor executor;
    SystemClock clock;
    std::vector<std::string> states;
    std::vector<FoundService> found;
    AvahiBrowser browser{executor};
};

TEST_F(AvahiTest, FindsAServiceWithItsTextAndItsAddressWheneverThereIsADaemon) {
    world.startBus();
    startBrowsing();
    const LoopbackPort port;
    port.listen();
    const std::map<std::string, std::string> text{{"host", "one.node.test"}, {"api", "TRUE"}, {"empty", ""}};
    const AvahiAnnouncer node({"Büro 1.2", port.port(), {text.begin(), text.end()}});
    world.startDaemon();
    waitUntilSeen("Büro 1.2");
    EXPECT_EQ(found[0].text, text);
    EXPECT_EQ(located(found[0]), "127.0.0.1");
    shutdown(port.descriptor(), SHUT_RDWR);
    EXPECT_EQ(located(found[0]), "Connection refused");

    const FoundService before = found[0];
    world.stopDaemon();
    executor.runUntil([&] { return found.empty(); });
    // Which of the two depends on whether the end of the daemon or of the service is heard first.
    EXPECT_THAT(located(before), AnyOf(HasSubstr("not announced"), HasSubstr("does not find its address")));
    world.startDaemon();
    waitUntilSeen("Büro 1.2");
    EXPECT_THAT(states, ElementsAre("ready", "ready"));
}

TEST_F(AvahiTest, SaysWhatToDoWithoutABus) {
    startBrowsing();
    executor.runUntil([&] { return !states.empty(); });
    EXPECT_THAT(states, ElementsAre(HasSubstr("install and start dbus and avahi-daemon")));
}

}  // namespace
}  // namespace vark::test
