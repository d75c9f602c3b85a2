#include <fmt/format.h>

#include <cstdlib>
#include <fstream>
#include <random>

#include "Tests/EndToEnd/EndToEndTest.h"
#include "Tests/Support/OwnNamespaces.h"

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
    if (std::getenv("VARK_FULL_SCALE") != nullptr)
        return {{.count = 1000,
                 .totalBytes = std::int64_t{2} << 30,
                 .largest = 200'000'000,
                 .chunkSize = 8 << 20},
                20,
                5};
    return {{.count = 300, .totalBytes = 200'000'000, .largest = 20'000'000, .chunkSize = 256 << 10}, 8, 2};
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

/// Sends a folder with everything being killed on the way, and looks at what has become of it.
class KilledSending {
  public:
    KilledSending(const Scale& scale, std::uint64_t seed)
        : scale_(scale), random_(seed), box_({.chunkSize = scale.files.chunkSize}) {
        scale_.files.seed = seed;
        files_ = writeSamples(vark_.home() / "Shoot", scale_.files);
        for (const SampleFile& file : files_)
            bytes_ += file.size;
        giveName();
        if (names_.areThere()) {
            vark_.moveTo({.prefix = names_.prefix()});
            vark_.connect(box_, box_.urlAs("vark.box.test"));
        } else {
            fmt::print("{} The vark's name is not taken away.\n", OwnNamespaces::whySkipped);
            vark_.connect(box_);
        }
    }

    void run() {
        start();
        for (const Kill& kill : kills())
            await(kill);
        const Finished run = process_->finish(std::chrono::minutes(10));
        EXPECT_EQ(run.exit, exitCode(0)) << run.output << run.errors << vark_.diary();
    }

    void expectEachFileOnce() {
        const std::map<std::string, std::string> states = vark_.savedStates();
        EXPECT_EQ(states.size(), files_.size());
        for (const auto& [path, state] : states)
            EXPECT_EQ(state, "verified") << path;
        const std::vector<HeldFile> held = box_.files();
        EXPECT_EQ(held.size(), files_.size());
        const TemporaryFolder fetched;
        box_.fetch(held, fetched.path());
        std::map<std::string, std::string> hashes;
        for (const HeldFile& file : held)
            hashes[file.path] = sha256(readWholeFile(fetched / std::to_string(file.id)));
        for (const SampleFile& file : files_)
            EXPECT_EQ(hashes["Shoot/" + file.relativePath], file.sha256) << file.relativePath;
    }

    /// What the box took in for chunks, broken-off ones included, against the files themselves: beyond those
    /// only what was in flight at a kill may have gone twice, which is as many chunks as go at once. What was
    /// in flight when the box itself was killed is missing from its log.
    void expectFewBytesTwice() {
        std::int64_t received = 0;
        for (const LoggedRequest& request : box_.requests())
            received += request.isChunk() ? request.bodyBytes : 0;
        const std::int64_t mostAtAKill = chunksAtOnce * scale_.files.chunkSize;
        const std::int64_t mostTwice = (scale_.varkKills + scale_.boxKills) * mostAtAKill;
        fmt::print("{} files of {} bytes; the box received {} bytes of chunks more, and {} may be.\n",
                   files_.size(), bytes_, received - bytes_, mostTwice);
        // A box that is killed may have kept a chunk and not come to noting it.
        EXPECT_GE(received, bytes_ - scale_.boxKills * mostAtAKill);
        EXPECT_LE(received, bytes_ + mostTwice);
    }

  private:
    std::vector<Kill> kills() {
        std::vector<Kill> kills;
        std::uniform_real_distribution<> anywhere(0.01, 0.9);
        for (int i = 0; i < scale_.boxKills; ++i)
            kills.push_back({anywhere(random_), Kill::Kind::box});
        for (int i = 0; i < scale_.varkKills; ++i) {
            Kill::Kind kind = Kill::Kind::vark;
            if (i % 4 == 0) kind = Kill::Kind::varkEarly;
            if (i % 4 == 1 && names_.areThere()) kind = Kill::Kind::varkAndName;
            kills.push_back({anywhere(random_), kind});
        }
        std::ranges::sort(kills, {}, &Kill::progress);
        return kills;
    }

    /// The first run is told what to send. A later one needs that only when nothing had been saved yet.
    void start() {
        std::vector<std::string> arguments{"send", "--chunks", std::to_string(chunksAtOnce)};
        if (vark_.savedStates().empty()) arguments.push_back(vark_.home() / "Shoot");
        process_.reset();
        process_.emplace(vark_.start(arguments));
    }

    // In place, since the mount is of this very file.
    void takeName() const { std::ofstream(hosts_) << "127.0.0.1 localhost\n"; }
    void giveName() const { std::ofstream(hosts_) << "127.0.0.1 localhost vark.box.test\n"; }

    void await(const Kill& kill) {
        const bool isEarly = kill.kind == Kill::Kind::varkEarly;
        const std::chrono::milliseconds moment(
            std::uniform_int_distribution<>(0, isEarly ? 1000 : 30)(random_));
        if (!isEarly) {
            box_.untilRequests([&](const auto& requests) { return progress(requests) >= kill.progress; },
                               process_->descriptor());
        }
        // Also one that would have landed all in its first second.
        if (process_->exitWithin(moment)) return;
        if (kill.kind == Kill::Kind::box) {
            box_.kill();
            box_.start();
            return;
        }
        process_->kill();
        if (kill.kind == Kill::Kind::varkAndName) takeName();
        start();
        if (kill.kind != Kill::Kind::varkAndName) return;
        EXPECT_FALSE(process_->exitWithin(std::chrono::seconds(3)))
            << process_->output() << process_->errors();
        giveName();
    }

    /// Half by the bytes and half by the files, so that kills fall among large files and among small ones.
    double progress(const LoggedRequests& requests) const {
        double bytes = 0;
        double files = 0;
        for (const LoggedRequest& request : requests) {
            if (request.status < 200 || request.status > 299) continue;
            if (request.isChunk()) bytes += static_cast<double>(request.bodyBytes);
            if (request.target.ends_with("/finish")) files += 1;
        }
        return (bytes / static_cast<double>(bytes_) + files / scale_.files.count) / 2;
    }

    Scale scale_;
    std::mt19937_64 random_;
    TemporaryFolder folder_;
    const std::filesystem::path hosts_ = folder_.file("hosts");
    /// Where the vark has a name that the test can take away.
    const OwnNamespaces names_{
        fmt::format("mount --bind '{}' /etc/hosts\nmount --bind '{}' /etc/nsswitch.conf", hosts_.string(),
                    folder_.file("rules", "hosts: files\n").string())};
    RealBox box_;
    RealVark vark_;
    std::vector<SampleFile> files_;
    std::int64_t bytes_ = 0;
    std::optional<Process> process_;
};

TEST(Killed, LosesNothingAndSendsHardlyAnythingTwice) {
    const char* given = std::getenv("VARK_SEED");
    const std::uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device{}();
    fmt::print("VARK_SEED={}\n", seed);
    KilledSending sending(scale(), seed);
    sending.run();
    sending.expectEachFileOnce();
    sending.expectFewBytesTwice();
}

}  // namespace
}  // namespace vark::test
