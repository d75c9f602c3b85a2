#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <set>

#include "Tests/Support/OwnMounts.h"
#include "Tests/Support/RealBox.h"
#include "Tests/Support/RealVark.h"
#include "Tests/Support/SampleFiles.h"

namespace vark::test {
namespace {

constexpr int chunksAtOnce = 4;

struct Scale {
    SampleSet files;
    int varkKills = 0;
    int boxKills = 0;
};

/// The ordinary run has small chunks, so that its bound on bytes sent twice is as sharp as that of the full
/// one.
Scale scale() {
    if (std::getenv("VARK_FULL_SCALE") != nullptr) {
        return {{.count = 1000,
                 .totalBytes = std::int64_t{2} << 30,
                 .largest = 200'000'000,
                 .chunkSize = 8 << 20},
                20,
                5};
    }
    return {{.count = 300, .totalBytes = 200'000'000, .largest = 20'000'000, .chunkSize = 256 << 10}, 8, 2};
}

std::uint64_t seedOfThisRun() {
    if (const char* given = std::getenv("VARK_SEED")) return std::strtoull(given, nullptr, 10);
    return std::random_device{}();
}

struct Kill {
    enum class Kind : std::uint8_t {
        vark,
        /// Within the first second of a run, wherever that has come to.
        varkEarly,
        /// And for three seconds the vark's name leads nowhere, from before the next run on.
        varkAndName,
        box
    };
    /// How far the whole has come when it happens, from 0 to 1.
    double progress = 0;
    Kind kind = Kind::vark;
};

/// Programs for which the vark has a name that the test can take away.
class Names {
  public:
    Names() : hosts_(folder_.file("hosts", "")), rules_(folder_.file("rules", "hosts: files\n")) {
        giveBack();
        mounts_.emplace(fmt::format("mount --bind '{}' /etc/hosts\nmount --bind '{}' /etc/nsswitch.conf",
                                    hosts_.string(), rules_.string()));
    }

    bool canBeTaken() const { return mounts_->isThere(); }
    std::vector<std::string> prefix() const { return mounts_->prefix(); }
    // In place, since the mount is of this very file.
    void takeAway() const { std::ofstream(hosts_) << "127.0.0.1 localhost\n"; }
    void giveBack() const { std::ofstream(hosts_) << "127.0.0.1 localhost " << ofTheVark << "\n"; }

    static constexpr const char* ofTheVark = "vark.box.test";

  private:
    TemporaryFolder folder_;
    const std::filesystem::path hosts_;
    const std::filesystem::path rules_;
    std::optional<OwnMounts> mounts_;
};

/// Sends a folder with everything being killed on the way, and looks at what has become of it.
class KilledSending {
  public:
    KilledSending(const Scale& scale, std::uint64_t seed) : scale_(scale), random_(seed), box_(boxOptions()) {
        scale_.files.seed = seed;
        files_ = writeSamples(vark_.home() / "Shoot", scale_.files);
        for (const SampleFile& file : files_)
            bytes_ += file.size;
        if (!names_.canBeTaken()) {
            fmt::print("THIS KERNEL GIVES NO MOUNTS OF ONE'S OWN: the vark's name is not taken away.\n");
            vark_.connect(box_);
            return;
        }
        // The certificate has the names of all nodes that were ever attached.
        box_.control("POST", "/control/nodes", {{"host", Names::ofTheVark}});
        box_.control("DELETE", fmt::format("/control/nodes/{}", Names::ofTheVark));
        vark_.moveTo({.prefix = names_.prefix()});
        vark_.connect(box_, Names::ofTheVark);
    }

    void run() {
        start();
        for (const Kill& kill : kills())
            await(kill);
        Exit exit = process_->wait(std::chrono::minutes(10));
        EXPECT_EQ(exit, exitCode(0)) << process_->output() << process_->errors() << vark_.diary();
    }

    void expectEachFileOnce() {
        EXPECT_EQ(vark_.savedStates(), (std::map<std::string, int>{{"verified", scale_.files.count}}));
        std::vector<HeldFile> held = box_.files();
        EXPECT_EQ(held.size(), files_.size());
        std::map<std::string, HeldFile> byPath;
        for (const HeldFile& file : held)
            byPath[file.path] = file;
        box::BoxClient client = box_.client();
        for (const SampleFile& file : files_) {
            auto found = byPath.find("Shoot/" + file.relativePath);
            ASSERT_NE(found, byPath.end()) << file.relativePath;
            EXPECT_EQ(found->second.sha256, file.sha256) << file.relativePath;
            box::Answer bytes =
                client.send("GET", fmt::format("/api/file/{}", found->second.id), {}, {}, 120'000);
            EXPECT_EQ(box::sha256(bytes.body), file.sha256) << file.relativePath;
        }
    }

    /// What the box took in for chunks, broken-off ones included, against the files themselves: beyond those
    /// only what was in flight at a kill may have gone twice, which is as many chunks as go at once. What was
    /// in flight when the box itself was killed is missing from its log.
    void expectFewBytesTwice() {
        std::int64_t received = 0;
        for (const LoggedRequest& request : box_.requests())
            received += request.isChunk() ? request.bodyBytes : 0;
        std::int64_t kills = scale_.varkKills + scale_.boxKills;
        std::int64_t mostInFlight = kills * chunksAtOnce * scale_.files.chunkSize;
        fmt::print("{} files of {} bytes; the box received {} bytes of chunks more, and {} may be.\n",
                   files_.size(), bytes_, received - bytes_, mostInFlight);
        // A box that is killed may have kept a chunk and not come to noting it.
        EXPECT_GE(received, bytes_ - scale_.boxKills * chunksAtOnce * scale_.files.chunkSize);
        EXPECT_LE(received, bytes_ + mostInFlight);
    }

  private:
    RealBox::Options boxOptions() const { return {.chunkSize = scale_.files.chunkSize}; }

    std::vector<Kill> kills() {
        std::vector<Kill> kills;
        std::uniform_real_distribution<> anywhere(0.01, 0.9);
        for (int i = 0; i < scale_.varkKills + scale_.boxKills; ++i) {
            Kill::Kind kind = Kill::Kind::vark;
            if (i < scale_.boxKills) {
                kind = Kill::Kind::box;
            } else if (i % 4 == 0) {
                kind = Kill::Kind::varkEarly;
            } else if (i % 4 == 1 && names_.canBeTaken()) {
                kind = Kill::Kind::varkAndName;
            }
            kills.push_back({anywhere(random_), kind});
        }
        std::ranges::sort(kills, {}, &Kill::progress);
        return kills;
    }

    /// The first run is told what to send. A later one needs that only when nothing had been saved yet.
    void start() {
        std::vector<std::string> arguments = {"send", "--chunks", std::to_string(chunksAtOnce)};
        if (vark_.savedStates().empty()) arguments.push_back((vark_.home() / "Shoot").string());
        process_.reset();
        process_.emplace(vark_.start(arguments));
    }

    void await(const Kill& kill) {
        const bool isEarly = kill.kind == Kill::Kind::varkEarly;
        std::chrono::milliseconds moment(std::uniform_int_distribution<>(0, isEarly ? 1000 : 30)(random_));
        if (!isEarly) {
            box_.untilRequests([&](const auto& requests) { return progress(requests) >= kill.progress; },
                               process_->descriptor());
        }
        // Also one that would have landed all in its first second.
        if (process_->exitWithin(moment)) return;
        fmt::print("killing {} at {:.1f} %\n", kill.kind == Kill::Kind::box ? "the box" : "vark",
                   100 * progress(box_.requests()));
        if (kill.kind == Kill::Kind::box) {
            box_.restart();
            return;
        }
        process_->kill();
        if (kill.kind == Kill::Kind::varkAndName) names_.takeAway();
        start();
        if (kill.kind != Kill::Kind::varkAndName) return;
        EXPECT_FALSE(process_->exitWithin(std::chrono::seconds(3)))
            << process_->output() << process_->errors();
        names_.giveBack();
    }

    /// Half by the bytes and half by the files, so that kills fall among large files and among small ones.
    double progress(const std::vector<LoggedRequest>& requests) {
        for (; counted_ < requests.size(); ++counted_) {
            const LoggedRequest& request = requests[counted_];
            if (request.status < 200 || request.status > 299) continue;
            if (request.isChunk()) landedBytes_ += request.bodyBytes;
            if (request.target.ends_with("/finish")) ++finishedFiles_;
        }
        auto share = [](std::int64_t part, std::int64_t whole) {
            return static_cast<double>(part) / static_cast<double>(whole);
        };
        return (share(landedBytes_, bytes_) + share(finishedFiles_, scale_.files.count)) / 2;
    }

    Scale scale_;
    std::mt19937_64 random_;
    Names names_;
    RealBox box_;
    RealVark vark_;
    std::vector<SampleFile> files_;
    std::int64_t bytes_ = 0;
    std::optional<Process> process_;
    std::size_t counted_ = 0;
    std::int64_t landedBytes_ = 0;
    std::int64_t finishedFiles_ = 0;
};

TEST(Killed, LosesNothingAndSendsHardlyAnythingTwice) {
    std::uint64_t seed = seedOfThisRun();
    fmt::print("VARK_SEED={}\n", seed);
    KilledSending sending(scale(), seed);
    sending.run();
    sending.expectEachFileOnce();
    sending.expectFewBytesTwice();
}

}  // namespace
}  // namespace vark::test
