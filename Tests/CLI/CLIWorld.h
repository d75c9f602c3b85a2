#pragma once

#include <sstream>

#include "Hosts/CLI/Surroundings.h"
#include "Tests/Support/FakePathMonitor.h"
#include "Tests/Support/FakeServiceBrowser.h"
#include "Tests/Support/FakeSystem.h"
#include "Tests/Support/FakeVark.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::cli::test {

using vark::test::FakeVark;
using vark::test::SilentVark;

/// A vark in memory with people and folders beside the uploads. On the test's thread alone.
class TestVark final : public SilentVark {
  public:
    FakeVark uploads;
    WhoAmI who{"anna@acme.example", "Acme", 5, "Editor", "tower", false, 1'000'000, 4'000'000};
    /// What `whoami` fails with, call by call; afterwards it succeeds.
    std::deque<VarkAPIError> refusals;
    std::map<std::string, VarkItem> items;
    std::map<std::int64_t, std::vector<VarkItem>> folders_;

    Task<WhoAmI> whoami() override {
        co_await yieldNow();
        if (!refusals.empty()) {
            VarkAPIError refusal = refusals.front();
            refusals.pop_front();
            throw refusal;
        }
        co_return who;
    }
    using SilentVark::item;
    Task<VarkItem> item(std::string path) override {
        co_await yieldNow();
        auto found = items.find(path);
        if (found == items.end()) throw VarkAPIError::server(404);
        co_return found->second;
    }
    using VarkAPI::children;
    /// One item a page.
    Task<VarkPage> children(std::int64_t of, std::string cursor, std::int64_t, bool) override {
        co_await yieldNow();
        const std::vector<VarkItem>& all = folders_.at(of);
        const std::size_t place = cursor.empty() ? 0 : std::stoul(cursor);
        VarkPage page;
        if (place < all.size()) page.items.push_back(all[place]);
        page.more = place + 1 < all.size();
        page.cursor = std::to_string(place + 1);
        co_return page;
    }

    struct Ingest {
        std::string drive;
        std::string destination;
        std::int64_t files = 0;
        std::int64_t bytes = 0;
        bool emailMe = false;
    };
    std::vector<Ingest> announced;
    IngestStart ingestStart{7, true, std::nullopt};
    struct Report {
        std::int64_t id = 0;
        std::vector<IngestFile> skipped;
        std::vector<std::string> leftOut;
        std::vector<IngestFile> notSent;
    };
    std::vector<Report> reports;
    /// What announcements and reports fail with, call by call.
    std::deque<VarkAPIError> ingestFailures;
    std::vector<DiagnosticsReport> diagnostics;

    Task<IngestStart> ingestBegin(std::string drive, std::string destination, std::int64_t files,
                                  std::int64_t bytes, bool emailMe) override {
        co_await yieldNow();
        failIngest();
        announced.push_back({drive, destination, files, bytes, emailMe});
        co_return ingestStart;
    }
    Task<void> ingestFinish(std::int64_t id, std::vector<IngestFile> skipped,
                            std::vector<std::string> leftOut, std::vector<IngestFile> notSent) override {
        co_await yieldNow();
        failIngest();
        reports.push_back({id, skipped, leftOut, notSent});
    }
    Task<void> sendDiagnostics(DiagnosticsReport report) override {
        co_await yieldNow();
        diagnostics.push_back(std::move(report));
    }

    std::map<std::int64_t, std::string> contents;
    std::optional<VarkAPIError> downloadRefusal;
    std::shared_ptr<VarkDownload> download(std::int64_t id, std::filesystem::path to) override {
        if (downloadRefusal) throw *downloadRefusal;
        auto download = std::make_shared<VarkDownload>(std::make_shared<Progress>(100), [] {});
        const auto found = contents.find(id);
        if (found == contents.end()) {
            download->finish(std::make_exception_ptr(VarkAPIError::server(404)));
        } else {
            writeAtomically(to, found->second, 0600);
            download->finish(nullptr);
        }
        return download;
    }

    Task<BeginResult> begin(std::string path, std::int64_t size, std::string sha256, double mtime,
                            bool replace) override {
        return uploads.begin(path, size, sha256, mtime, replace);
    }
    using VarkAPI::begin;
    Task<void> putChunk(std::string uploadID, std::int64_t index, std::filesystem::path file,
                        std::int64_t offset, std::int64_t length, TokenBucket* limiter,
                        ChunkProgress progress) override {
        return uploads.putChunk(uploadID, index, file, offset, length, limiter, progress);
    }
    Task<std::string> finish(std::string uploadID) override { return uploads.finish(uploadID); }
    Task<UploadStatus> status(std::string uploadID) override { return uploads.status(uploadID); }
    Task<void> cancel(std::string uploadID) override { return uploads.cancel(uploadID); }

  private:
    void failIngest() {
        if (ingestFailures.empty()) return;
        VarkAPIError failure = ingestFailures.front();
        ingestFailures.pop_front();
        throw failure;
    }
};

/// A machine with one person, whose folders all lie in a temporary one.
class TestPlatform final : public Platform {
  public:
    explicit TestPlatform(const std::filesystem::path& home) : folders_(home) {
        bundle_.id = "dev.vark.mac.test";
        bundle_.info["VARKAppGroup"] = "group.test";
    }

    std::shared_ptr<TestVark> vark = std::make_shared<TestVark>();
    bool isTrusted = true;
    std::optional<std::string> tokenGiven;
    FakeVolumes mounted;
    std::vector<std::int32_t> senders;

    const Bundle& bundle() override { return bundle_; }
    const UserFolders& folders() override { return folders_; }
    std::string systemVersion() override { return "TestOS 1"; }
    Volumes& volumes() override { return mounted; }
    std::vector<std::int32_t> otherSenders() override { return senders; }
    std::unique_ptr<PathMonitor> makePathMonitor(const std::string&) override {
        return std::make_unique<vark::test::FakePathMonitor>();
    }
    std::shared_ptr<VarkAPI> makeAPI(const VarkAddress&, TokenProvider token, const APIHost&) override {
        tokenGiven = token();
        return vark;
    }
    std::unique_ptr<ServiceBrowser> makeServiceBrowser(Executor&) override {
        return std::make_unique<vark::test::FakeServiceBrowser>();
    }
    Task<bool> provesItself(VarkAddress) override { co_return isTrusted; }

  private:
    FakeBundle bundle_;
    FakeUserFolders folders_;
};

/// The world of one test: a machine, a console that is read back, and time that stands still.
class CLIWorld {
  public:
    TemporaryFolder home;
    std::ostringstream results;
    std::ostringstream advice;
    TestPlatform platform{home.path()};
    Console console{results, advice};
    SerialExecutor executor;
    ManualClock clock;
    Surroundings surroundings{platform, console, executor, clock};

    SharedConnection connect(std::string rootPath = "") {
        SharedConnection connection;
        connection.server = "https://vark.example";
        connection.token = "secret";
        connection.clientName = "Acme";
        connection.rootPath = std::move(rootPath);
        connection.level = 5;
        EXPECT_TRUE(SharedStore::write(connection, surroundings.sharedFolder()));
        return connection;
    }

    /// Runs everything that can run without time moving.
    void settle() {
        do {
            executor.runReady();
            surroundings.pool().waitUntilIdle();
        } while (executor.runReady() > 0 || !surroundings.pool().isIdle());
    }
    /// Moves time from one deadline to the next until `done`, for at most that long.
    bool passTime(const std::function<bool()>& done, Duration longest = std::chrono::minutes(5)) {
        const Instant end = clock.now() + longest;
        settle();
        while (!done()) {
            std::optional<Instant> next = clock.nextDeadline();
            if (!next || *next > end) return false;
            clock.moveTo(*next);
            settle();
        }
        return true;
    }
};

}  // namespace vark::cli::test
