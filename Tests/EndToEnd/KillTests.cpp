#include <fmt/format.h>

#include <cstdlib>
#include <random>

#include "Tests/EndToEnd/EndToEndTest.h"

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
        return {{.count = 1000, .largest = 200'000'000, .chunkSize = 8 << 20}, 20, 5};
    return {{.count = 300, .largest = 40'000'000, .chunkSize = 256 << 10}, 8, 2};
}

struct Kill {
    enum class Kind : std::uint8_t {
        vark,
        /// Within the first second of a run, wherever that has come to.
        varkEarly,
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
        vark_.connect(box_);
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
        std::map<std::string, std::string> hashes;
        for (const HeldFile& file : box_.files())
            EXPECT_TRUE(hashes.emplace(file.path, file.sha256).second) << "twice: " << file.path;
        EXPECT_EQ(hashes.size(), files_.size());
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
            const Kill::Kind kind = i % 4 == 0 ? Kill::Kind::varkEarly : Kill::Kind::vark;
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

    void await(const Kill& kill) {
        const bool isEarly = kill.kind == Kill::Kind::varkEarly;
        const std::chrono::milliseconds moment(
            std::uniform_int_distribution<>(0, isEarly ? 1000 : 30)(random_));
        if (!isEarly) process_->until([&] { return progress(box_.requests()) >= kill.progress; });
        // Also one that would have landed all in its first second.
        if (process_->exitWithin(moment)) return;
        if (kill.kind == Kill::Kind::box) {
            box_.kill();
            box_.start();
            return;
        }
        process_->kill();
        start();
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
