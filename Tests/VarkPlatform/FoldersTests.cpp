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
    ChangedVariables::Values values{{"HOME", "/people/ann"},
                                    {"XDG_CONFIG_HOME", config.path().string()},
                                    {"XDG_DATA_HOME", "/data"},
                                    {"XDG_STATE_HOME", "/state"}};
    {
        const ChangedVariables changed(values);
        EXPECT_EQ(XDGFolders().applicationSupport(), "/data");
        EXPECT_EQ(XDGFolders().library(), "/state");
    }
    // Neither counts unless it is an absolute path.
    values["XDG_DATA_HOME"] = "data";
    values["XDG_STATE_HOME"] = "";
    const ChangedVariables changed(values);
    EXPECT_EQ(XDGFolders().applicationSupport(), "/people/ann/.local/share");
    EXPECT_EQ(XDGFolders().library(), "/people/ann/.local/state");
    EXPECT_EQ(XDGFolders().downloads(), "/people/ann/Downloads");
    struct Case {
        const char* list;
        Path downloads;
    };
    const std::vector<Case> cases{
        {"XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n  XDG_DOWNLOAD_DIR=\"$HOME/Herunter\"\n",
         "/people/ann/Herunter"},
        {"XDG_DOWNLOAD_DIR=\"/big disk/in \\\"out\\\"\"", "/big disk/in \"out\""},
        {"XDG_DOWNLOAD_DIR=\"$HOME/\"", "/people/ann/Downloads"},
        {"XDG_DOWNLOAD_DIR=\"relative\"\nXDG_DOWNLOAD_DIR=\"/cut off", "/people/ann/Downloads"},
    };
    for (const Case& one : cases) {
        config.file("user-dirs.dirs", one.list);
        EXPECT_EQ(XDGFolders().downloads(), one.downloads) << one.list;
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
    EXPECT_EQ(folders.groupContainerTrouble("dev.vark.group"), std::nullopt);

    std::filesystem::create_directory_symlink(base.path(), container.parent_path() / "a.link");
    for (const char* noFolder : {"", "..", "a/b", "a.link"}) {
        EXPECT_EQ(folders.groupContainer(noFolder), std::nullopt) << noFolder;
        EXPECT_TRUE(folders.groupContainerTrouble(noFolder)) << noFolder;
    }
}

TEST(AppBundle, SpeaksForTheExecutableInIt) {
    const char* list =
        "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>dev.vark.mac</string>"
        "<key>VARKAppGroup</key><string>V&amp;\xC3\xA4</string></dict></plist>";
    struct Case {
        const char* executable;
        const char* infoPath;
        const char* info;
        std::optional<std::string> identifier;
        std::optional<std::string> group;
    };
    // clang-format off
    const std::vector<Case> cases{
        {"Vark.app/Contents/MacOS/vark", "Vark.app/Contents/Info.plist", list, "dev.vark.mac", "V&\xC3\xA4"},
        {"Vark.app/Contents/Other/vark", "Vark.app/Contents/Info.plist", list, std::nullopt, std::nullopt},
        {"Vark.app/Contents/MacOS/vark", "Vark.app/Contents/Info.plist", "<plist><dict><key>CFBun", std::nullopt, std::nullopt},
        // In the tree that it was built in.
        {"Hosts/CLI/vark", "vark-build-tree", "", "dev.vark.mac.dev", "dev.vark.group.dev"},
        {"Hosts/CLI/vark", "CMakeCache.txt", "", std::nullopt, std::nullopt},
    };
    // clang-format on
    for (const Case& one : cases) {
        SCOPED_TRACE(one.infoPath);
        const TemporaryFolder folder;
        folder.file(one.infoPath, one.info);
        const AppBundle bundle(folder / one.executable);
        EXPECT_EQ(bundle.identifier(), one.identifier);
        EXPECT_EQ(bundle.infoText("VARKAppGroup"), one.group);
    }
}

}  // namespace
}  // namespace vark::test
