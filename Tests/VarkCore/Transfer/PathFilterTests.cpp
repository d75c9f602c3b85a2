#include "VarkCore/Transfer/PathFilter.h"

#include <gtest/gtest.h>

#include "Tests/Support/Fakes/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Transfer/Walker.h"

namespace vark {
namespace {

TEST(PathFilter, PatternsAreThoseOfAShell) {
    struct Case {
        const char* pattern;
        const char* text;
        bool matches;
    };
    const Case cases[] = {
        {"", "", true},
        {"*.mov", "Take.mov", true},
        {"*.mov", "a/Take.mov", false},
        {"*.mov", "Take.MOV", false},
        {"*a*b*c", "xaybzbc", true},
        {"*a*b*c", "xaybzb", false},
        {"?", "é", true},
        {"?", "/", false},
        {"[a-c]x", "bx", true},
        {"[!a-c]x", "bx", false},
        {"[]x]", "]", true},
        {"[é-ü]", "ö", true},
        {"[a", "[a", true},
        {"a[/]b", "a/b", false},
        {"\\*", "*", true},
        {"\\*", "x", false},
        {"a/**/b", "a/b", true},
        {"a/**/b", "a/x/y/b", true},
        {"a/**/b", "a/xb", false},
        {"a/**", "a/x/y", true},
        {"a/**", "a", false},
        {"**/b*/c", "x/ba/y/bb/c", true},
        {"a**c", "a/b/c", true},
        {"*/b", "a/x/b", false},
    };
    for (const Case& one : cases)
        EXPECT_EQ(PathFilter::matches(one.pattern, one.text), one.matches) << one.pattern << " " << one.text;
}

TEST(PathFilter, AWalkLeavesOutWhatIsNotWanted) {
    const TemporaryFolder folder;
    for (const char* name :
         {"R/a.mov", "R/a.tmp", "R/Cache/a.mov", "R/DCIM/b.mov", "R/DCIM/Cache/c.mov", "R/.x.tmp"})
        folder.file(name);
    const FakeVolumes volumes;
    struct Case {
        PathFilter filter;
        std::vector<std::string> files;
        std::vector<std::string> excluded;
    };
    using Names = std::vector<std::string>;
    const Case cases[] = {
        {{.exclude = {"*.tmp", "Cache/"}},
         {"R/a.mov", "R/DCIM/b.mov"},
         {"R/.x.tmp", "R/Cache", "R/DCIM/Cache", "R/a.tmp"}},
        {{.exclude = {"/Cache", "a.*"}},
         {"R/DCIM/b.mov", "R/DCIM/Cache/c.mov"},
         {"R/Cache", "R/a.mov", "R/a.tmp"}},
        {{.include = {"*.tmp"}},
         {"R/a.tmp"},
         {"R/Cache/a.mov", "R/DCIM/Cache/c.mov", "R/DCIM/b.mov", "R/a.mov"}},
        {{.exclude = {"c*"}, .include = {"DCIM/"}},
         {"R/DCIM/b.mov"},
         {"R/.x.tmp", "R/Cache/a.mov", "R/DCIM/Cache/c.mov", "R/a.mov", "R/a.tmp"}},
    };
    for (const Case& one : cases) {
        const Walker::Result result = Walker::walk(folder / "R", volumes, {.filter = one.filter}, {});
        Names files;
        for (const Walker::Found& file : result.files)
            files.push_back(file.relativePath);
        Names excluded;
        for (const Walker::PassedOver& passed : result.passedOver)
            if (passed.kind == Walker::PassedOver::Kind::excluded) excluded.push_back(passed.relativePath);
        EXPECT_EQ(files, one.files);
        EXPECT_EQ(excluded, one.excluded);
    }
    const Walker::Result alone =
        Walker::walk(folder / "R/a.tmp", volumes, {.filter = {.exclude = {"*.tmp"}}}, {});
    EXPECT_TRUE(alone.files.empty());
    EXPECT_EQ(alone.passedOver.size(), 1U);
}

}  // namespace
}  // namespace vark
