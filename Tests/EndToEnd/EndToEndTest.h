#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/json/parse.hpp>

#include "Tests/Support/Boxes/RealVark.h"
#include "Tests/Support/SampleFiles.h"

namespace vark::test {

/// A person with a `vark` that is connected to a box with small chunks.
class EndToEndTest : public testing::Test {
  protected:
    static constexpr std::int64_t chunkSize = 256 << 10;

    explicit EndToEndTest(std::vector<std::string> boxArguments = {})
        : box({.chunkSize = chunkSize, .arguments = std::move(boxArguments)}) {}

    void SetUp() override { vark.connect(box); }

    /// A file in the person's home, whose bytes no other file has.
    SampleFile file(const std::string& name, std::int64_t size) {
        return writeSample(vark.home(), name, size, ++seed_);
    }
    /// As many small files in a folder there.
    std::vector<SampleFile> shoot(int count) {
        std::vector<SampleFile> files;
        for (int number = 0; number < count; ++number)
            files.push_back(file("Shoot/Take " + std::to_string(number), 100 + number));
        return files;
    }
    std::string pathOf(const std::string& name) const { return vark.home() / name; }
    std::string pathOf(const SampleFile& file) const { return pathOf(file.relativePath); }
    Process startSend(const SampleFile& file, std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"send", pathOf(file)});
        return vark.start(std::move(options));
    }
    Finished send(const SampleFile& file, std::vector<std::string> options = {}) {
        return startSend(file, std::move(options)).finish();
    }
    void fault(std::string_view json) const { box.fault(boost::json::parse(json).as_object()); }

    /// Waits until so many requests of this kind were answered so.
    bool untilAnswered(const char* method, const char* targetPart, std::int64_t status,
                       std::int64_t times = 1) {
        return box.until([&] { return box.count(method, targetPart, status) >= times; });
    }
    /// Sends slowly enough for a test to do something meanwhile, and waits until it has begun.
    Process sendSlowly(const SampleFile& file, const char* rate) {
        Process sending = startSend(file, {"--rate", rate});
        EXPECT_TRUE(untilAnswered("PUT", "/u/", 200));
        return sending;
    }

    /// Each file is on the box, once, and whole.
    void expectHeld(const std::vector<SampleFile>& files, const std::string& below = "") const {
        std::multimap<std::string, std::string> held;
        for (const HeldFile& file : box.files())
            held.emplace(file.path, file.sha256);
        for (const SampleFile& file : files) {
            const std::string path = below + file.relativePath;
            EXPECT_EQ(held.count(path), 1U) << path;
            EXPECT_EQ(held.contains(path) ? held.find(path)->second : "", file.sha256) << path;
        }
    }
    void expectHeld(const SampleFile& file) const { expectHeld(std::vector{file}); }
    void expectExit(const Finished& run, int code) const {
        EXPECT_EQ(run.exit, exitCode(code)) << run.output << run.errors << vark.diary();
    }

    RealBox box;
    RealVark vark;

  private:
    std::uint64_t seed_ = 0;
};

/// The name of a case as that of its test.
constexpr auto byName = [](const auto& info) { return std::string(info.param.name); };

}  // namespace vark::test
