#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "Tests/VarkPlatform/ChangedVariables.h"
#include "VarkPlatform/Linux/AppBundle.h"
#include "VarkPlatform/Linux/XDGFolders.h"

namespace vark::test {
namespace {

using Path = std::filesystem::path;

TEST(XDGFolders, FollowsTheVariablesAndFallsBackToTheHomeFolder) {
    const TemporaryFolder config;
    // Neither of the other two counts unless it is an absolute path.
    const ChangedVariables changed({{"HOME", "/people/ann"},
                                    {"XDG_CONFIG_HOME", config.path().string()},
                                    {"XDG_DATA_HOME", "/data"},
                                    {"XDG_STATE_HOME", "state"}});
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
    const ChangedVariables changed({{"XDG_DATA_HOME", base / "not/there/yet"}});
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

TEST(AppBundle, SpeaksForTheExecutableInIt) {
    struct Case {
        const char* executable;
        const char* file;
        const char* content;
        std::optional<std::string> identifier;
    };
    const char* list =
        "<plist "
        "version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>dev.v&amp;\xC3\xA4</string></dict></"
        "plist>";
    const std::vector<Case> cases{
        {"Vark.app/Contents/MacOS/vark", "Vark.app/Contents/Info.plist", list, "dev.v&\xC3\xA4"},
        {"Vark.app/Contents/Other/vark", "Vark.app/Contents/Info.plist", list, std::nullopt},
        {"Vark.app/Contents/MacOS/vark", "Vark.app/Contents/Info.plist", "<plist><dict><key>CFBun",
         std::nullopt},
        // In the tree that it was built in, and not in another.
        {"Hosts/CLI/vark", "vark-build-tree", "", "dev.vark.mac.dev"},
        {"Hosts/CLI/vark", "CMakeCache.txt", "", std::nullopt},
    };
    for (const Case& one : cases) {
        const TemporaryFolder folder;
        folder.file(one.file, one.content);
        EXPECT_EQ(AppBundle(folder / one.executable).identifier(), one.identifier) << one.file;
    }
}

}  // namespace
}  // namespace vark::test
