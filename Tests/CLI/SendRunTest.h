#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>

#include "Hosts/CLI/Sending/SendRun.h"
#include "Tests/CLI/CLIWorld.h"
#include "VarkApp/Queue/QueueHolder.h"

namespace vark::cli {

/// Something said whose text holds the words.
MATCHER_P(Telling, words, "") {
    return arg.text.contains(words);
}

/// Walks that stand still from the first one on until they may go on.
class WalkGate {
  public:
    explicit WalkGate(FakeVolumes& volumes) : volumes_(volumes) {
        volumes_.walked = [this] {
            reached_ = true;
            open_.wait();
        };
    }
    ~WalkGate() { open(); }
    WalkGate(const WalkGate&) = delete;
    WalkGate& operator=(const WalkGate&) = delete;

    bool isReached() const { return reached_; }
    void open() {
        if (!open_.try_wait()) open_.count_down();
    }

  private:
    FakeVolumes& volumes_;
    std::atomic<bool> reached_ = false;
    std::latch open_{1};
};

/// A person who sends two files to a vark in memory.
class SendRunTest : public ::testing::Test {
  public:
    static SendRun::Settings adding(const std::vector<std::filesystem::path>& paths) {
        SendRun::Settings settings;
        settings.add.command = QueueRequest::Command::add;
        for (const std::filesystem::path& path : paths)
            settings.add.named.push_back(QueueRequest::Named::of(path.string()));
        return settings;
    }
    SendRun& begin(SendRun::Settings settings) {
        sending.emplace(world.surroundings, connection, nullptr, std::move(settings), display);
        world.settle();
        return *sending;
    }
    /// Runs it to its end, and lets it go.
    ExitCode run(SendRun::Settings settings) {
        begin(std::move(settings));
        return runOn();
    }
    ExitCode runOn() {
        EXPECT_TRUE(world.passTime([&] { return sending->ended().has_value(); })) << "it does not end";
        ExitCode code = sending->ended().value_or(ExitCode::usage);
        sending.reset();
        return code;
    }
    std::optional<TransferJob> saved() { return world.surroundings.store().load(); }
    /// As another process does.
    UUID leaveRequest(const QueueRequest& request) {
        const UUID id = folder.ask(request);
        world.platform.watches.ring(world.surroundings.locations().requests());
        return id;
    }
    QueueAnswer ask(const QueueRequest& request) {
        const UUID id = leaveRequest(request);
        std::optional<QueueAnswer> answer;
        EXPECT_TRUE(world.passTime([&] { return (answer = folder.takeAnswer(id)).has_value(); },
                                   std::chrono::seconds(1)));
        return answer.value_or(QueueAnswer{});
    }
    QueueAnswer ask(QueueRequest::Command command) {
        QueueRequest request;
        request.command = command;
        return ask(request);
    }
    QueueRequest toAdd(const std::vector<std::filesystem::path>& paths) { return adding(paths).add; }
    /// As time passes, but for walks: they are not waited for.
    bool passTimeBeside(const std::function<bool()>& done) {
        const auto realEnd = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!done() && std::chrono::steady_clock::now() < realEnd) {
            world.executor.runReady();
            const Instant later = world.clock.now() + std::chrono::seconds(1);
            world.clock.moveTo(world.clock.nextDeadline().value_or(later));
            std::this_thread::yield();
        }
        return done();
    }
    std::string printed() const { return world.results.str(); }
    std::string said() const { return world.advice.str(); }

    test::CLIWorld world;
    SharedConnection connection = world.connect();
    RequestFolder folder{world.surroundings.locations().requests()};
    test::FakeVark& vark = *world.platform.vark;
    std::filesystem::path a = world.home.file("in/a.mov", std::string(250, 'a'));
    std::filesystem::path b = world.home.file("in/b.mov", std::string(250, 'b'));
    PlainDisplay display{world.console};
    std::optional<SendRun> sending;
};

}  // namespace vark::cli
