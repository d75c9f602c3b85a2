#pragma once

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Tests/Support/Fakes/FakeSystem.h"
#include "Tests/Support/Fakes/FakeVark.h"
#include "Tests/Support/Fakes/FakeWatches.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/TestLoop.h"
#include "VarkCore/Transfer/TransferEngine.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark::test {

/// An engine with files in a temporary folder, a vark in memory and time that stands still.
class EngineTest : public ::testing::Test {
  protected:
    EngineTest() { makeEngine(); }
    ~EngineTest() override {
        engine.reset();
        loop.settle();
    }

    /// The saved queue is written on the loop's own pool, or on another one whose jobs `settle` does not wait
    /// for.
    void makeEngine(int chunkSlots = 3, BlockingPool* savingPool = nullptr) {
        engine.reset();
        events.clear();
        const auto makeMonitor = [this] {
            auto monitor = std::make_unique<FakePathMonitor>();
            network = monitor->remote();
            return monitor;
        };
        const auto makeClockWatch = [this] {
            auto watch = std::make_unique<FakeClockWatch>();
            clockWatch = watch->remote();
            return watch;
        };
        BlockingPool& saving = savingPool != nullptr ? *savingPool : loop.pool;
        const auto wallClock = [this] { return date(); };
        TransferEngine::Host host{loop.executor, loop.clock, wallClock,   Calendar("UTC"), loop.pool,
                                  saving,        volumes,    makeMonitor, makeClockWatch};
        engine = std::make_unique<TransferEngine>(vark, store, log, chunkSlots, host);
        engine->onEvent = [this](const TransferEngine::Event& event) { note(event); };
    }

    /// 12:00 on Wednesday 1 October 2025 when the loop's clock stands at its beginning, until somebody sets
    /// it.
    Date date() const {
        return Date::fromSince1970(1'759'320'000) + inSeconds(loop.clock.now().time_since_epoch()) + setAhead;
    }

    std::filesystem::path write(const std::string& name, std::size_t size, char fill = 'a') {
        return folder.file("files/" + name, std::string(size, fill));
    }
    TransferEngine::Added add(std::vector<std::filesystem::path> paths, Walker::Options options = {}) {
        TaskHandle<TransferEngine::Added> handle = loop.start(engine->add(std::move(paths), options));
        loop.settle();
        return handle.result();
    }
    /// Writes a file and gives it to the engine, which runs.
    TransferEngine::Added send(const std::string& name = "a.mov", std::size_t size = 100) {
        const std::filesystem::path file = write(name, size);
        engine->start(false);
        return add({file});
    }
    /// An empty queue, and a vark that has nothing and does as it is asked.
    void startOver() {
        engine->clearAll();
        loop.settle();
        events.clear();
        vark->calls.clear();
        vark->files.clear();
        vark->failures.clear();
        vark->lasting.clear();
    }
    const TransferItem& item(const std::string& name) const {
        for (const TransferItem& one : engine->job()->items) {
            if (one.name() == name) return one;
        }
        throw std::out_of_range("no item " + name);
    }
    std::vector<std::string> states() const {
        std::vector<std::string> list;
        for (const TransferItem& one : engine->job()->items)
            list.emplace_back(text(one.state));
        return list;
    }
    std::vector<std::string> statesAfter(Duration duration) {
        loop.advance(duration);
        return states();
    }
    /// The log's sentences, without their times.
    std::vector<std::string> logged() const {
        std::vector<std::string> lines;
        std::ifstream file(folder.path() / "transfer.log");
        for (std::string line; std::getline(file, line);)
            lines.push_back(line.substr(line.find("  ") + 2));
        return lines;
    }
    /// What stands in queue.json now.
    std::optional<TransferJob> saved() { return QueueStore(folder.path() / "queue.json").load(); }

    void note(const TransferEngine::Event& event) {
        if (const auto* finished = std::get_if<TransferEngine::JobFinished>(&event)) {
            events.push_back(fmt::format("finished {} {} {} {}", finished->verified, finished->failed,
                                         finished->skipped, finished->conflicts));
        } else if (const auto* failed = std::get_if<TransferEngine::ItemFailed>(&event)) {
            events.push_back(fmt::format("failed {}: {}", failed->name, failed->error));
        } else if (const auto* decision = std::get_if<TransferEngine::DecisionNeeded>(&event)) {
            events.push_back("decide " + decision->name);
        } else if (const auto* signedOut = std::get_if<TransferEngine::SignedOut>(&event)) {
            events.push_back("signed out " + signedOut->refused.code.value_or("-") +
                             (signedOut->hadProgress ? "" : ", without progress"));
        } else if (std::holds_alternative<TransferEngine::NoToken>(event)) {
            events.push_back("no token");
        }
    }

    TemporaryFolder folder;
    TestLoop loop;
    std::shared_ptr<FakeVark> vark = std::make_shared<FakeVark>();
    FakeVolumes volumes;
    int encodings = 0;
    QueueStore store{folder.path() / "queue.json", [this] {
                         ++encodings;
                         return date();
                     }};
    TransferLog log{folder.path() / "transfer.log", 1'000'000, [this] { return date(); }, Calendar("UTC")};
    std::shared_ptr<FakePathMonitor::Remote> network;
    std::shared_ptr<FakeClockWatch::Remote> clockWatch;
    double setAhead = 0;  // Seconds.
    std::vector<std::string> events;
    std::unique_ptr<TransferEngine> engine;
};

}  // namespace vark::test
