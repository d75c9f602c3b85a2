#include "VarkPlatform/Linux/DesktopTools.h"

#include <gtest/gtest.h>

#include "Tests/Support/TemporaryFolder.h"
#include "Tests/VarkPlatform/ChangedVariables.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::test {
namespace {

/// The tools of the desktop are scripts here.
TEST(DesktopTools, TheFirstThatTakesTheTextHasItAndNoneWithoutADesktop) {
    const TemporaryFolder folder;
    const auto tool = [&](const char* name, const char* script) {
        const std::filesystem::path path = folder.file(name, std::string("#!/bin/sh\n") + script);
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    };
    tool("wl-copy", "exit 1");
    tool("xclip", "cat > $OUT/xclip.out");
    tool("xsel", "cat > $OUT/xsel.out");
    ChangedVariables::Values values{{"PATH", folder.path().string() + ":/usr/bin:/bin"},
                                    {"OUT", folder.path().string()},
                                    {"DISPLAY", ""},
                                    {"WAYLAND_DISPLAY", std::nullopt}};
    {
        const ChangedVariables withoutDesktop(values);
        EXPECT_FALSE(DesktopTools::copyToClipboard("text") ||
                     DesktopTools::openInBrowser("https://vark.example/"));
    }
    values["DISPLAY"] = ":7";
    values["WAYLAND_DISPLAY"] = "wayland-0";
    const ChangedVariables onADesktop(values);
    EXPECT_TRUE(DesktopTools::copyToClipboard("https://vark.example/s/1?a=b&c"));
    EXPECT_EQ(readWholeFile(folder / "xclip.out"), "https://vark.example/s/1?a=b&c");
    EXPECT_FALSE(std::filesystem::exists(folder / "xsel.out"));
}

}  // namespace
}  // namespace vark::test
