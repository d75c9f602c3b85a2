#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/json/parse.hpp>
#include <string>
#include <vector>

#include "Tests/Support/RealBox.h"
#include "Tests/Support/RealVark.h"
#include "Tests/Support/SampleFiles.h"

namespace vark::test {

/// A person with a `vark` that is connected to a box with small chunks.
class EndToEndTest : public testing::Test {
  protected:
    static constexpr std::int64_t chunkSize = 256 << 10;

    explicit EndToEndTest(RealBox::Options options = {.chunkSize = chunkSize}) : box(options) {}

    void SetUp() override { vark.connect(box); }

    /// A file in the person's home, whose bytes no other file has.
    SampleFile file(const std::string& name, std::int64_t size) {
        return writeSample(vark.home(), name, size, ++seed_);
    }
    std::string pathOf(const SampleFile& file) const { return (vark.home() / file.relativePath).string(); }
    Process startSend(const SampleFile& file, std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"send", pathOf(file)});
        return vark.start(std::move(options));
    }
    Finished send(const SampleFile& file, std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"send", pathOf(file)});
        return vark.run(std::move(options));
    }
    void fault(std::string_view json) const { box.fault(boost::json::parse(json).as_object()); }

    /// Waits until one request of this kind was answered so.
    bool untilAnswered(std::string_view method, std::string_view targetPart, std::int64_t status) {
        return box.untilRequests([&](const std::vector<LoggedRequest>& requests) {
            return std::ranges::any_of(requests, [&](const LoggedRequest& request) {
                return request.method == method && request.status == status &&
                       request.target.find(targetPart) != std::string::npos;
            });
        });
    }
    /// Waits until the diary holds the words.
    bool untilDiary(std::string_view words, const Process& process) const {
        std::filesystem::create_directories(vark.diaryFile().parent_path());
        FileWatch watch(vark.diaryFile().parent_path());
        return watch.until([&] { return vark.diary().find(words) != std::string::npos; },
                           std::chrono::minutes(1), process.descriptor());
    }

    /// The file is on the box, once, and whole.
    void expectHeld(const SampleFile& file) const {
        std::vector<std::string> hashes;
        for (const HeldFile& held : box.files()) {
            if (held.path == file.relativePath) hashes.push_back(held.sha256);
        }
        EXPECT_EQ(hashes, std::vector<std::string>{file.sha256}) << file.relativePath;
    }
    void expectExit(const Finished& run, int code) const {
        EXPECT_EQ(run.exit, exitCode(code)) << run.output << run.errors << vark.diary();
    }

    RealBox box;
    RealVark vark;

  private:
    std::uint64_t seed_ = 0;
};

}  // namespace vark::test
