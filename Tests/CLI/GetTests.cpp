#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Tests/CLI/CommandLine.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Upload/FileHasher.h"

namespace vark::cli {
namespace {

using test::CommandLine;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// `vark get` of one person, who stands in a folder of a folder.
class Get : public CommandLine {
  public:
    /// What the vark answers when asked for `path`.
    VarkItem& serve(const std::string& path, const std::string& bytes) {
        VarkItem& item = server.items[path];
        item.id = std::ssize(server.items) + 100;
        item.path = path;
        item.name = lastPathComponent(path);
        item.size = std::ssize(bytes);
        item.sha256 = FileHasher::sha256(bytes);
        server.contents[item.id] = bytes;
        return item;
    }
    VarkItem& serveFolder(const std::string& path, const std::vector<VarkItem>& children) {
        VarkItem& item = server.items[path];
        item = folder(path, std::ssize(server.items) + 100);
        server.folders_[item.id] = children;
        return item;
    }
    std::string path(const std::string& name) const { return name.empty() ? "." : (here / name).string(); }
    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(top))
            names.push_back(entry.path().lexically_relative(top));
        std::ranges::sort(names);
        return names;
    }

    const std::filesystem::path top = world.home / "top";
    const std::filesystem::path here = top / "here";

    void SetUp() override {
        world.connect();
        std::filesystem::create_directories(here);
        std::filesystem::current_path(here);
    }
    void TearDown() override { std::filesystem::current_path("/"); }
};

TEST_F(Get, TheVarksAnswerHasNoSayInWhereTheTopItemGoes) {
    const VarkItem planted = serve("planted", "evil");
    for (const std::string said : {"a/..", "x/", "..", "../../top", "x/\x1b]0;evil\x07", ""}) {
        serveFolder("evil", {planted}).path = said;
        serve("file", "evil").path = said;
        for (const char* output : {"", "out/"}) {
            EXPECT_EQ(vark({"get", "--force", "-r", "evil", "-o", path(output)}), ExitCode::allLanded)
                << said;
            EXPECT_EQ(vark({"get", "--force", "file", "-o", path(output)}), ExitCode::allLanded) << said;
            for (const std::string& name : names())
                EXPECT_THAT(name, ::testing::AnyOf("here", ::testing::StartsWith("here/"))) << said;
            EXPECT_EQ(readWholeFile(here / output / "evil/planted"), "evil");
            EXPECT_EQ(readWholeFile(here / output / "file"), "evil");
        }
    }
}

TEST_F(Get, TheSameCommandGoesToTheSamePlace) {
    serveFolder("Jobs/Shoot", {serve("a", "aaa")});
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"get", "-r", "Jobs/Shoot"}, "Shoot/a"},
        {{"get", "a"}, "a"},
        {{"get", "a", "-o", "newdir/"}, "newdir/a"},
        {{"get", "a", "-o", path("Shoot")}, "Shoot/a"},
    };
    for (const auto& [command, landed] : cases) {
        EXPECT_EQ(vark(command), ExitCode::allLanded) << said();
        EXPECT_EQ(readWholeFile(here / landed), "aaa");
        EXPECT_EQ(vark(command), ExitCode::allLanded) << said();
        EXPECT_THAT(said(), HasSubstr("1 was here already"));
    }
    serve("a", "changed");
    EXPECT_EQ(vark({"get", "a"}), ExitCode::somethingFailed);
    EXPECT_THAT(said(), HasSubstr("other contents, and was left alone. Overwrite it with --force."));
    EXPECT_EQ(vark({"get", "a", "--force"}), ExitCode::allLanded);
    EXPECT_EQ(readWholeFile(here / "a"), "changed");
}

TEST_F(Get, WhatIsNamedAndIsNoFileIsNeverReplaced) {
    serve("a", "aaa");
    const std::filesystem::path file = world.home.file("file", "old");
    std::filesystem::create_symlink(file, here / "link");
    EXPECT_EQ(vark({"get", "a", "--force", "-o", "link"}), ExitCode::allLanded);
    EXPECT_TRUE(std::filesystem::is_symlink(here / "link"));
    EXPECT_EQ(readWholeFile(file), "aaa");

    std::filesystem::create_symlink("nowhere", here / "dangling");
    EXPECT_EQ(vark({"get", "a", "--force", "-o", "dangling"}), ExitCode::usage);

    EXPECT_EQ(vark({"get", "a", "--force", "-o", "/dev/null"}), ExitCode::allLanded);
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));

    ASSERT_EQ(mkfifo((here / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(vark({"get", "a", "--force", "-o", "pipe"}), ExitCode::somethingFailed);
    EXPECT_THAT(said(), HasSubstr("Nobody reads"));
}

TEST_F(Get, WhatIsStreamedIsJudgedAtTheEnd) {
    ASSERT_EQ(mkfifo((here / "pipe").c_str(), 0600), 0);
    const Descriptor reader(open((here / "pipe").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    const auto received = [&] {
        std::string bytes(1 << 20, '\0');
        const ssize_t count = read(reader.get(), bytes.data(), bytes.size());
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return bytes;
    };
    VarkItem& item = serve("a", "aaa");
    EXPECT_EQ(vark({"get", "a", "-o", "pipe"}), ExitCode::allLanded);
    EXPECT_EQ(received(), "aaa");
    EXPECT_EQ(printed() + said(), "");
    server.contents[item.id] = "bbb";
    EXPECT_EQ(vark({"get", "a", "-o", "pipe"}), ExitCode::somethingFailed);
    EXPECT_THAT(said(), HasSubstr("is not what the vark has"));
    EXPECT_EQ(vark({"get", "a", "-o", "pipe", "--json"}), ExitCode::usage);
}

}  // namespace
}  // namespace vark::cli
