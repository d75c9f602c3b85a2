#include <gtest/gtest.h>
#include <sched.h>

#include <chrono>
#include <condition_variable>
#include <thread>

#include "Tests/Support/Process.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkPlatform/Linux/Network/NetlinkPathMonitor.h"

namespace vark::test {
namespace {

/// Runs the test on a thread with a network of its own, in which nothing is up; threads that it starts share
/// that.
void inOwnNetwork(const std::function<void()>& test) {
    bool isPossible = false;
    std::jthread([&] {
        isPossible = unshare(CLONE_NEWNET) == 0;
        if (isPossible) test();
    }).join();
    if (!isPossible)
        GTEST_SKIP() << "SKIPPED: this needs the right to make a network namespace (run it as root).";
}

/// A script of `ip` and the like. Throws when it fails.
void runScript(const std::string& script) {
    runTool({"sh", "-ec", script});
}

/// A monitor that runs, and what it has reported, in order.
class Watched {
  public:
    explicit Watched(std::optional<std::string> host = std::nullopt) : monitor_(std::move(host)) {
        monitor_.start([this](bool usable) {
            Locked hold(lock_);
            reports_.push_back(usable);
            changed_.notify_all();
        });
    }
    std::vector<bool> first(std::size_t count) {
        Locked hold(lock_);
        while (reports_.size() < count) {
            if (changed_.wait_for(lock_, std::chrono::seconds(20)) == std::cv_status::timeout) break;
        }
        return reports_;
    }

  private:
    Mutex lock_;
    std::condition_variable_any changed_;
    std::vector<bool> reports_ VARK_GUARDED_BY(lock_);
    NetlinkPathMonitor monitor_;
};

TEST(NetlinkPathMonitor, ReportsTheStateAndThenEachChange) {
    inOwnNetwork([] {
        Watched watched;
        std::vector<bool> expected{false};
        EXPECT_EQ(watched.first(1), expected);
        for (const char* change : {"ip link set lo up; ip route add default dev lo", "ip route del default",
                                   "ip route add default dev lo", "ip link set lo down"}) {
            runScript(change);
            expected.push_back(!expected.back());
            EXPECT_EQ(watched.first(expected.size()), expected) << change;
        }
    });
}

TEST(NetlinkPathMonitor, JudgesByTheWorldOrByTheHostOfTheVark) {
    const std::optional<std::string> anybody;
    struct Case {
        const char* setUp;
        std::vector<std::optional<std::string>> usable;
        std::vector<std::optional<std::string>> unusable;
    };
    const std::vector<Case> cases{
        {"true", {"127.0.0.1", "::1", "localhost"}, {anybody, "10.1.2.3"}},
        {"ip link set lo up; ip route add 10.1.2.0/24 dev lo", {"10.1.2.3"}, {anybody, "10.9.9.9"}},
        {"ip link set lo up; ip route add default dev lo", {anybody, "10.9.9.9"}, {}},
        // A cable that is not plugged in: the other end of it is down.
        {"ip link add cable type veth peer name end; ip address add 10.1.2.1/24 dev cable; "
         "ip link set cable up; ip route add default dev cable",
         {},
         {anybody, "10.1.2.3"}},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.setUp);
        inOwnNetwork([&] {
            runScript(one.setUp);
            for (const auto& host : one.usable)
                EXPECT_EQ(Watched(host).first(1), std::vector{true}) << host.value_or("anybody");
            for (const auto& host : one.unusable)
                EXPECT_EQ(Watched(host).first(1), std::vector{false}) << host.value_or("anybody");
        });
    }
}

}  // namespace
}  // namespace vark::test
