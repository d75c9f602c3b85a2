#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/API/VarkDownload.h"

namespace vark {
namespace {

class VarkDownloadTest : public testing::Test {
  public:
    test::TestLoop loop;
    std::atomic<int> stops = 0;
    std::shared_ptr<VarkDownload> download =
        std::make_shared<VarkDownload>(std::make_shared<Progress>(100), [this] { ++stops; });

    std::string endOf(const TaskHandle<void>& waiting) {
        loop.settle();
        if (!waiting.done()) return "waits";
        try {
            waiting.result();
            return "done";
        } catch (const CancellationError&) {
            return "cancelled";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }
};

TEST_F(VarkDownloadTest, ItsFirstEndIsTheEndForAllWhoWaitAndWhoComeLater) {
    struct Case {
        std::function<void(VarkDownload&)> first;
        std::string end;
        int stops;
    };
    const auto failing = [](VarkDownload& one) {
        one.finish(std::make_exception_ptr(std::runtime_error("lost")));
    };
    const auto succeeding = [](VarkDownload& one) { one.finish(nullptr); };
    const auto cancelling = [](VarkDownload& one) { one.cancel(); };
    for (const Case& c :
         {Case{failing, "lost", 1}, Case{succeeding, "done", 1}, Case{cancelling, "cancelled", 2}}) {
        stops = 0;
        download = std::make_shared<VarkDownload>(std::make_shared<Progress>(100), [this] { ++stops; });
        const TaskHandle<void> one = loop.start(download->value());
        const TaskHandle<void> other = loop.start(download->value());
        EXPECT_EQ(endOf(one), "waits");
        c.first(*download);
        cancelling(*download);
        failing(*download);
        succeeding(*download);
        EXPECT_EQ(endOf(one), c.end);
        EXPECT_EQ(endOf(other), c.end);
        EXPECT_EQ(endOf(loop.start(download->value())), c.end);
        EXPECT_EQ(stops, c.stops);
    }
}

TEST_F(VarkDownloadTest, AWaitingTaskThatIsCancelledCancelsItForAll) {
    const TaskHandle<void> one = loop.start(download->value());
    const TaskHandle<void> other = loop.start(download->value());
    loop.settle();
    one.cancel();
    // The work may still be putting a file into place.
    EXPECT_EQ(endOf(one), "waits");
    EXPECT_EQ(stops, 1);
    download->finish(nullptr);
    EXPECT_EQ(endOf(one), "cancelled");
    EXPECT_EQ(endOf(other), "cancelled");
}

TEST_F(VarkDownloadTest, OneThatWasCancelledBeforeItWaitsCancelsToo) {
    const TaskHandle<void> one = loop.start(download->value());
    one.cancel();
    loop.settle();
    EXPECT_EQ(stops, 1);
    download->finish(nullptr);
    EXPECT_EQ(endOf(one), "cancelled");
}

TEST_F(VarkDownloadTest, EndsThatMeetAreOneEnd) {
    for (int round = 0; round < 200; ++round) {
        download = std::make_shared<VarkDownload>(std::make_shared<Progress>(100), [] {});
        std::vector<TaskHandle<void>> waiting;
        for (int i = 0; i < 3; ++i)
            waiting.push_back(loop.start(download->value()));
        std::jthread finisher([this] { download->finish(nullptr); });
        std::jthread canceller([&] { waiting[1].cancel(); });
        loop.executor.runUntil(
            [&] { return std::ranges::all_of(waiting, [](const auto& one) { return one.done(); }); });
        const std::string end = endOf(waiting[0]);
        EXPECT_EQ(endOf(waiting[1]), end);
        EXPECT_EQ(endOf(waiting[2]), end);
    }
}

}  // namespace
}  // namespace vark
