#include <gmock/gmock.h>
#include <sys/stat.h>

#include "Tests/Support/TemporaryFolder.h"
#include "Tests/VarkPlatform/ChangedVariables.h"
#include "VarkPlatform/Linux/AppBundle.h"
#include "VarkPlatform/Linux/XDGFolders.h"

namespace vark::test {
namespace {

using Path = std::filesystem::path;

mode_t permissionsOf(const Path& path) {
    struct stat status{};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

TEST(XDGFolders, FollowsTheVariablesAndFallsBackToTheHomeFolder) {
    struct Case {
        std::optional<std::string> data;
        std::optional<std::string> state;
        Path support;
        Path library;
    };
    const std::vector<Case> cases{
        {std::nullopt, std::nullopt, "/people/ann/.local/share", "/people/ann/.local/state"},
        {"/data", "/state", "/data", "/state"},
        // Neither counts unless it is an absolute path.
        {"data", "", "/people/ann/.local/share", "/people/ann/.local/state"},
    };
    for (const Case& one : cases) {
        const ChangedVariables changed(
            {{"HOME", "/people/ann"}, {"XDG_DATA_HOME", one.data}, {"XDG_STATE_HOME", one.state}});
        const XDGFolders folders;
        EXPECT_EQ(folders.home(), "/people/ann");
        EXPECT_EQ(folders.applicationSupport(), one.support);
        EXPECT_EQ(folders.library(), one.library);
    }
    const ChangedVariables changed({{"HOME", std::nullopt}});
    EXPECT_TRUE(XDGFolders().home().is_absolute());
}

TEST(XDGFolders, TakesTheDownloadsFromTheDesktopsList) {
    const TemporaryFolder config;
    const ChangedVariables changed({{"HOME", "/people/ann"}, {"XDG_CONFIG_HOME", config.path()}});
    EXPECT_EQ(XDGFolders().downloads(), "/people/ann/Downloads");
    struct Case {
        const char* list;
        Path downloads;
    };
    const std::vector<Case> cases{
        {"XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n  XDG_DOWNLOAD_DIR=\"$HOME/Herunter\"\n",
         "/people/ann/Herunter"},
        {"XDG_DOWNLOAD_DIR=\"/big disk/in \\\"out\\\"\"", "/big disk/in \"out\""},
        {"#XDG_DOWNLOAD_DIR=\"/no\"\nXDG_DOWNLOAD_DIRECTORY=\"/no\"\n", "/people/ann/Downloads"},
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
    EXPECT_EQ(permissionsOf(container), 0700U);
    EXPECT_EQ(permissionsOf(container.parent_path()), 0700U);
    EXPECT_NE(folders.groupContainer("dev.vark.group.dev"), container);

    std::filesystem::permissions(container, std::filesystem::perms::all);
    EXPECT_EQ(folders.groupContainer("dev.vark.group"), container);
    EXPECT_EQ(permissionsOf(container), 0700U);

    EXPECT_EQ(folders.groupContainerTrouble("dev.vark.group"), std::nullopt);

    std::filesystem::create_directory_symlink(base.path(), container.parent_path() / "a.link");
    base.file("not/there/yet/Vark Group Containers/a.file");
    for (const char* noFolder : {"", "..", "a/b", ".hidden", "a.link", "a.file"}) {
        EXPECT_EQ(folders.groupContainer(noFolder), std::nullopt) << noFolder;
        EXPECT_TRUE(folders.groupContainerTrouble(noFolder)) << noFolder;
    }
}

constexpr const char* infoList = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>CFBundleIdentifier</key><string>dev.vark.mac</string>
<key>VARKAppGroup</key><string>dev.vark.group</string>
<key>Number</key><integer>7</integer>
<key>Name</key><string>V&amp;ä</string>
</dict></plist>)";

TEST(AppBundle, SpeaksForTheExecutableInIt) {
    struct Case {
        const char* executable;
        const char* infoPath;
        const char* info;
        std::optional<std::string> identifier;
    };
    const std::vector<Case> cases{
        {"Vark.app/Contents/MacOS/vark", "Vark.app/Contents/Info.plist", infoList, "dev.vark.mac"},
        {"Vark.app/Contents/Other/vark", "Vark.app/Contents/Info.plist", infoList, std::nullopt},
        {"Vark/Contents/MacOS/vark", "Vark/Contents/Info.plist", infoList, std::nullopt},
        {"Vark.app/Contents/MacOS/vark", "Vark.app/Contents/Info.plist", "<plist><dict><key>CFBundle",
         std::nullopt},
        {"Vark.app/Contents/MacOS/vark", "Vark.app/Contents/Info.plist", "", std::nullopt},
        {"Vark.app/Contents/MacOS/vark", "elsewhere", infoList, std::nullopt},
        {"bin/vark", "elsewhere", "", std::nullopt},
        // In the tree that it was built in, but a bundle of such a tree speaks for itself.
        {"Hosts/CLI/vark", "vark-build-tree", "", "dev.vark.mac.dev"},
        {"Hosts/CLI/vark", "CMakeCache.txt", "", std::nullopt},
    };
    for (const Case& one : cases) {
        const TemporaryFolder folder;
        folder.file(one.infoPath, one.info);
        EXPECT_EQ(AppBundle(folder / one.executable).identifier(), one.identifier)
            << one.executable << " " << one.infoPath;
    }
}

TEST(AppBundle, GivesTextsAndNothingElse) {
    const TemporaryFolder folder;
    folder.file("Vark.app/Contents/Info.plist", infoList);
    folder.file("vark-build-tree");
    const AppBundle bundle(folder / "Vark.app/Contents/MacOS/vark");
    EXPECT_EQ(bundle.identifier(), "dev.vark.mac");
    EXPECT_EQ(bundle.infoText("VARKAppGroup"), "dev.vark.group");
    EXPECT_EQ(bundle.infoText("Name"), "V&ä");
    EXPECT_EQ(bundle.infoText("Number"), std::nullopt);
    EXPECT_EQ(bundle.infoText("Nothing"), std::nullopt);
    EXPECT_EQ(AppBundle(folder / "vark").infoText("VARKAppGroup"), "dev.vark.group.dev");
}

}  // namespace
}  // namespace vark::test
