#pragma once

#include <gtest/gtest.h>

#include "Tests/Support/Fakes/FakeSecretStore.h"
#include "Tests/Support/Fakes/FakeServiceBrowser.h"
#include "Tests/Support/Fakes/FakeSystem.h"
#include "Tests/Support/Fakes/FakeVark.h"
#include "Tests/Support/Fakes/FakeWatches.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkApp/Surroundings.h"
#include "VarkCore/API/ContentSink.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkPlatform/Linux/Secrets/FileSecretStore.h"

namespace vark::app::test {

using namespace vark::test;

/// A vark in memory with people and folders beside the uploads. On the test's thread alone.
class TestVark final : public FakeVark {
  public:
    WhoAmI who{"anna@acme.example", "Acme", 5, "Editor", "tower", false, 1'000'000, 4'000'000};
    /// What `whoami` fails with, call by call; afterwards it succeeds.
    std::deque<VarkAPIError> refusals;
    /// Happens once, while it is asked.
    std::function<void()> duringWhoami = [] {};
    std::map<std::string, VarkItem> items;
    std::map<std::int64_t, std::vector<VarkItem>> folders_;
    /// The one code that is good, and how a sign-in in the browser goes.
    std::string code = "GOOD-CODE";
    /// What the one good code is refused with, if it is.
    std::optional<VarkAPIError> claimRefusal;
    std::deque<DevicePoll> polls;
    std::string signInPage = "https://vark.example/device?n=1";
    std::string issuedToken = "issued";
    std::vector<std::string> deviceNames;
    /// What is answered to a share, or the status that refuses it.
    VarkShare share{.url = "https://vark.example/s/1", .expires = "tomorrow"};
    int shareStatus = 200;
    std::vector<ShareRequest> shares;
    bool makesShares = true;
    /// Without a value there is no job book.
    std::optional<std::vector<VarkJob>> jobs;
    std::vector<std::pair<std::vector<std::string>, std::int64_t>> filed;
    std::int64_t leftUnfiled = 0;

    Task<DeviceClaim> claim(std::string given, std::string deviceName) override {
        deviceNames.push_back(deviceName);
        co_await yieldNow();
        if (claimRefusal) throw *claimRefusal;
        if (given != code) throw VarkAPIError::server(404, "No such code.");
        co_return DeviceClaim{issuedToken, "Acme", "anna@acme.example"};
    }
    Task<DeviceBegin> beginDeviceSignIn(std::string deviceName) override {
        deviceNames.push_back(deviceName);
        co_return DeviceBegin{"n1", signInPage, 0};
    }
    Task<DevicePoll> pollDeviceSignIn(std::string) override {
        const DevicePoll answer = polls.front();
        polls.pop_front();
        co_return answer;
    }
    using VarkAPI::createShare;
    Task<VarkShare> createShare(ShareRequest request) override {
        co_await yieldNow();
        shares.push_back(std::move(request));
        if (shareStatus != 200) throw VarkAPIError::server(shareStatus, "Refused so.");
        co_return share;
    }
    Task<bool> sharesSupported() override { co_return makesShares; }
    Task<std::vector<VarkJob>> findJobs(std::string) override {
        co_await yieldNow();
        if (!jobs) throw VarkAPIError::server(404);
        co_return *jobs;
    }
    Task<std::int64_t> fileAgainstJob(std::vector<std::string> paths, std::int64_t jobID) override {
        const auto count = static_cast<std::int64_t>(paths.size());
        filed.emplace_back(std::move(paths), jobID);
        co_return count - leftUnfiled;
    }
    Task<VarkItem> item(std::int64_t id) override {
        co_await yieldNow();
        for (const auto& [path, one] : items) {
            if (one.id == id) co_return one;
        }
        throw VarkAPIError::server(404);
    }

    Task<WhoAmI> whoami() override {
        co_await yieldNow();
        std::exchange(duringWhoami, [] {})();
        failNext(refusals);
        co_return who;
    }
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

    int announced = 0;
    IngestStart ingestStart{7, true, std::nullopt};
    struct Report {
        std::int64_t id = 0;
        std::vector<IngestFile> notSent;
        std::vector<std::string> leftOut;
    };
    std::vector<Report> reports;
    /// What announcements and reports fail with, call by call.
    std::deque<VarkAPIError> ingestFailures;
    std::vector<DiagnosticsReport> diagnostics;

    Task<IngestStart> ingestBegin(std::string, std::string, std::int64_t, std::int64_t, bool) override {
        co_await yieldNow();
        failNext(ingestFailures);
        ++announced;
        co_return ingestStart;
    }
    Task<void> ingestFinish(std::int64_t id, std::vector<IngestFile>, std::vector<std::string> leftOut,
                            std::vector<IngestFile> notSent) override {
        co_await yieldNow();
        failNext(ingestFailures);
        reports.push_back({id, std::move(notSent), std::move(leftOut)});
    }
    Task<void> sendDiagnostics(DiagnosticsReport report) override {
        co_await yieldNow();
        diagnostics.push_back(std::move(report));
    }

    std::map<std::int64_t, std::string> contents;
    Task<void> fetch(std::int64_t id, ContentSink& sink) override {
        co_await yieldNow();
        const auto found = contents.find(id);
        if (found == contents.end()) throw VarkAPIError::server(404);
        sink.take(0, found->second);
    }

  private:
    static void failNext(std::deque<VarkAPIError>& failures) {
        if (failures.empty()) return;
        const VarkAPIError failure = failures.front();
        failures.pop_front();
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
    std::shared_ptr<FakeSecretStore> keychain = std::make_shared<FakeSecretStore>();
    bool isTrusted = true;
    int proofsAsked = 0;
    /// What the desktop was given; without a desktop it takes nothing.
    bool hasDesktop = true;
    std::vector<std::string> opened;
    std::vector<std::string> copied;
    std::optional<std::string> tokenGiven;
    std::vector<std::string> tokensGiven;
    FakeVolumes mounted;
    FakeFolderWatches watches;
    std::vector<std::int32_t> senders;

    const Bundle& bundle() override { return bundle_; }
    const UserFolders& folders() override { return folders_; }
    FakeBundle& changedBundle() { return bundle_; }
    FakeUserFolders& changedFolders() { return folders_; }
    std::string systemVersion() override { return "TestOS 1"; }
    Volumes& volumes() override { return mounted; }
    std::unique_ptr<FolderWatch> makeFolderWatch() override { return watches.make(); }
    std::unique_ptr<ClockWatch> makeClockWatch() override { return std::make_unique<FakeClockWatch>(); }
    std::vector<std::int32_t> otherSenders() override { return senders; }
    std::unique_ptr<PathMonitor> makePathMonitor(const std::string&) override {
        return std::make_unique<FakePathMonitor>();
    }
    std::shared_ptr<VarkAPI> makeAPI(const VarkAddress&, TokenProvider token, const APIHost&) override {
        tokenGiven = token();
        if (tokenGiven) tokensGiven.push_back(*tokenGiven);
        return vark;
    }
    std::shared_ptr<SecretStore> makeKeychain() override { return keychain; }
    std::shared_ptr<SecretStore> makeSecretFile(const std::filesystem::path& file) override {
        return std::make_shared<FileSecretStore>(file);
    }
    std::string machineName() override { return "tower"; }
    bool openInBrowser(const std::string& page) override {
        if (hasDesktop) opened.push_back(page);
        return hasDesktop;
    }
    bool copyToClipboard(const std::string& text) override {
        if (hasDesktop) copied.push_back(text);
        return hasDesktop;
    }
    std::unique_ptr<ServiceBrowser> makeServiceBrowser(Executor&) override {
        return std::make_unique<FakeServiceBrowser>();
    }
    Task<bool> provesItself(VarkAddress) override {
        ++proofsAsked;
        co_return isTrusted;
    }

  private:
    FakeBundle bundle_;
    FakeUserFolders folders_;
};

/// The world of one test: a machine, and time that stands still.
class World {
  public:
    virtual ~World() = default;

    TemporaryFolder home;
    TestPlatform platform{home.path()};
    SerialExecutor executor;
    ManualClock clock;
    const SecretName tokenName{"dev.vark.mac.test", "device-token"};

    SharedConnection connect(std::string rootPath = "") {
        SharedConnection connection{.server = "https://vark.example",
                                    .token = "secret",
                                    .clientName = "Acme",
                                    .rootPath = std::move(rootPath)};
        connection.level = 5;
        platform.keychain->secrets[tokenName] = {"Vark device token", "secret"};
        EXPECT_TRUE(SharedStore::write(connection, here().sharedFolder()));
        return connection;
    }

    /// Runs everything that can run without time moving.
    void settle() {
        do {
            executor.runReady();
            here().pool().waitUntilIdle();
            here().savingPool().waitUntilIdle();
        } while (executor.runReady() > 0 || !here().pool().isIdle() || !here().savingPool().isIdle());
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

  private:
    virtual Surroundings& here() = 0;
};

class AppWorld final : public World {
  public:
    Surroundings surroundings{platform, executor, clock};

  private:
    Surroundings& here() override { return surroundings; }
};

}  // namespace vark::app::test
