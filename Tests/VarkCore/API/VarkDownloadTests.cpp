#include <gtest/gtest.h>

#include <stdexcept>

#include "Tests/Support/TestLoop.h"
#include "VarkCore/API/VarkDownload.h"

namespace vark {
namespace {

class VarkDownloadTest : public testing::Test {
  public:
    test::TestLoop loop;
    std::atomic<int> stops = 0;
    std::shared_ptr<VarkDownload> download;
    /// Who waits for it.
    std::vector<TaskHandle<void>> waiting;

    void begin() {
        stops = 0;
        download = std::make_shared<VarkDownload>(std::make_shared<Progress>(100), [this] { ++stops; });
        waiting.clear();
        for (int i = 0; i < 3; ++i)
            waiting.push_back(loop.start(download->value()));
    }
    std::string endOf(const TaskHandle<void>& one) {
        loop.settle();
        if (!one.done()) return "waits";
        try {
            one.result();
            return "done";
        } catch (const CancellationError&) {
            return "cancelled";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }
};

TEST_F(VarkDownloadTest, ItsFirstEndIsTheEndForAllWhoWaitAndWhoComeLater) {
    const auto lost = std::make_exception_ptr(std::runtime_error("lost"));
    for (const std::string first : {"lost", "done", "cancelled", "a waiting task cancelled"}) {
        SCOPED_TRACE(first);
        begin();
        EXPECT_EQ(endOf(waiting[0]), "waits");
        if (first == "lost") download->finish(lost);
        if (first == "done") download->finish(nullptr);
        if (first == "cancelled") download->cancel();
        if (first == "a waiting task cancelled") waiting[0].cancel();
        const bool isCancelled = first.ends_with("cancelled");
        if (isCancelled) EXPECT_EQ(endOf(waiting[0]), "waits") << "a file may be on its way into place";
        EXPECT_EQ(stops, isCancelled ? 1 : 0);
        download->cancel();
        download->finish(lost);
        waiting.push_back(loop.start(download->value()));
        for (const TaskHandle<void>& one : waiting)
            EXPECT_EQ(endOf(one), isCancelled ? "cancelled" : first);
    }
}

}  // namespace
}  // namespace vark
