#pragma once

#include <gtest/gtest.h>
#include <sched.h>

#include <thread>

#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

/// A network of the calling thread's own, in which nothing is up. So are its mounts.
class OwnNetwork {
  public:
    OwnNetwork() : isOwn_(unshare(CLONE_NEWNET | CLONE_NEWNS) == 0) {
        if (isOwn_) run("mount --make-rprivate /");
    }
    bool isOwn() const { return isOwn_; }

    /// A script of `ip` and the like. Throws when it fails.
    void run(const std::string& script) const { runTool({"sh", "-ec", script}); }

  private:
    bool isOwn_;
};

/// Runs the test on a thread with a network of its own; threads that it starts share that.
template <class Test>
void inOwnNetwork(Test test) {
    bool isPossible = true;
    std::jthread([&] {
        OwnNetwork network;
        isPossible = network.isOwn();
        if (isPossible) test(network);
    }).join();
    if (!isPossible)
        GTEST_SKIP() << "SKIPPED: this needs the right to make a network namespace (run it as root).";
}

}  // namespace vark::test
