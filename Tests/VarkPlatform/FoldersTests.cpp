#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkPlatform/Linux/XDGFolders.h"

namespace vark::test {
namespace {

using Path = std::filesystem::path;

TEST(XDGFolders, FollowsTheVariablesAndFallsBackToTheHomeFolder) {
    const TemporaryFolder config;
    // Neither of the other two counts unless it is an absolute path.
    for (const auto& [variable, value] :
         std::map<const char*, std::string>{{"HOME", "/people/ann"},
                                            {"XDG_CONFIG_HOME", config.path()},
                                            {"XDG_DATA_HOME", "/data"},
                                            {"XDG_STATE_HOME", "state"}})
        setenv(variable, value.c_str(), 1);
    EXPECT_EQ(XDGFolders().applicationSupport(), "/data");
    EXPECT_EQ(XDGFolders().library(), "/people/ann/.local/state");
    const std::map<const char*, Path> downloads{
        {"", "/people/ann/Downloads"},
        {"XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n  XDG_DOWNLOAD_DIR=\"$HOME/Herunter\"\n",
         "/people/ann/Herunter"},
        {"XDG_DOWNLOAD_DIR=\"/big disk/in \\\"out\\\"\"", "/big disk/in \"out\""},
        {"XDG_DOWNLOAD_DIR=\"$HOME/\"", "/people/ann/Downloads"},
        {"XDG_DOWNLOAD_DIR=\"relative\"\nXDG_DOWNLOAD_DIR=\"/cut off", "/people/ann/Downloads"},
    };
    for (const auto& [list, expected] : downloads) {
        config.file("user-dirs.dirs", list);
        EXPECT_EQ(XDGFolders().downloads(), expected) << list;
    }
}

TEST(XDGFolders, MakesAGroupContainerThatIsPrivate) {
    const TemporaryFolder base;
    setenv("XDG_DATA_HOME", (base / "not/there/yet").c_str(), 1);
    const XDGFolders folders;
    const Path container = folders.groupContainer("dev.vark.group").value_or("");
    std::filesystem::permissions(container, std::filesystem::perms::all);
    EXPECT_EQ(folders.groupContainer("dev.vark.group"), container);
    for (const Path& folder : {container, container.parent_path()})
        EXPECT_EQ(std::filesystem::status(folder).permissions(), std::filesystem::perms::owner_all);
    std::filesystem::create_directory_symlink(base.path(), container.parent_path() / "a.link");
    for (const char* noFolder : {"", "..", "a/b", "a.link"})
        EXPECT_TRUE(folders.groupContainerTrouble(noFolder)) << noFolder;
}

}  // namespace
}  // namespace vark::test
