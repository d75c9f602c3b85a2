#include "VarkPlatform/Linux/DesktopTools.h"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "Tests/VarkPlatform/ChangedVariables.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

using test::ChangedVariables;

/// A desktop whose tools are scripts of the test.
class DesktopToolsTest : public testing::Test {
  protected:
    void tool(const std::string& name, const std::string& script) const {
        const std::filesystem::path path = folder.file("bin/" + name, "#!/bin/sh\n" + script + "\n");
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    }
    std::string content(const char* name) const {
        return std::filesystem::exists(folder / name) ? readWholeFile(folder / name) : std::string();
    }

    TemporaryFolder folder;
    ChangedVariables variables{{{"PATH", (folder / "bin").string() + ":/usr/bin:/bin"},
                                {"OUT", folder.path().string()},
                                {"DISPLAY", ":7"},
                                {"WAYLAND_DISPLAY", std::nullopt},
                                {"BROWSER", std::nullopt}}};
};

TEST_F(DesktopToolsTest, TheFirstToolThatTakesTheTextHasIt) {
    tool("wl-copy", "exit 1");
    tool("xclip", "cat > $OUT/xclip");
    tool("xsel", "cat > $OUT/xsel");
    EXPECT_TRUE(DesktopTools::copyToClipboard("https://vark.example/s/1?a=b&c"));
    EXPECT_EQ(content("xclip"), "https://vark.example/s/1?a=b&c");
    EXPECT_FALSE(std::filesystem::exists(folder / "xsel"));

    tool("xclip", "exit 1");
    const ChangedVariables both({{"WAYLAND_DISPLAY", std::string("wayland-0")}});
    EXPECT_TRUE(DesktopTools::copyToClipboard("text"));
    EXPECT_EQ(content("xsel"), "text");
    tool("xsel", "exit 1");
    EXPECT_FALSE(DesktopTools::copyToClipboard("text"));
}

TEST_F(DesktopToolsTest, WithoutADesktopNothingIsStarted) {
    for (const char* name : {"xclip", "xsel", "wl-copy", "xdg-open"})
        tool(name, "touch $OUT/started");
    const ChangedVariables none({{"DISPLAY", std::string()}});
    EXPECT_FALSE(DesktopTools::copyToClipboard("text"));
    EXPECT_FALSE(DesktopTools::openInBrowser("https://vark.example/"));
    EXPECT_FALSE(std::filesystem::exists(folder / "started"));
}

}  // namespace
}  // namespace vark
