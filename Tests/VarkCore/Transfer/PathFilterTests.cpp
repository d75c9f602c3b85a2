#include "VarkCore/Transfer/PathFilter.h"

#include <gtest/gtest.h>

#include "Tests/Support/Fakes/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Transfer/Walker.h"

namespace vark {
namespace {

TEST(PathFilter, PatternsAreThoseOfAShell) {
    const std::pair<const char*, const char*> matching[] = {
        {"", ""},
        {"*.mov", "Take.mov"},
        {"*a*b*c", "xaybzbc"},
        {"?", "é"},
        {"[a-c]x", "bx"},
        {"[]x]", "]"},
        {"[é-ü]", "ö"},
        {"[a", "[a"},
        {"\\*", "*"},
        {"a/**/b", "a/b"},
        {"a/**/b", "a/x/y/b"},
        {"a/**", "a/x/y"},
        {"**/b*/c", "x/ba/y/bb/c"},
        {"a**c", "a/b/c"},
    };
    for (const auto& [pattern, text] : matching)
        EXPECT_TRUE(PathFilter::matches(pattern, text)) << pattern << " " << text;
    const std::pair<const char*, const char*> others[] = {
        {"*.mov", "a/Take.mov"}, {"*.mov", "Take.MOV"}, {"*a*b*c", "xaybzb"}, {"?", "/"},
        {"[!a-c]x", "bx"},       {"a[/]b", "a/b"},      {"\\*", "x"},         {"a/**/b", "a/xb"},
        {"a/**", "a"},           {"*/b", "a/x/b"},
    };
    for (const auto& [pattern, text] : others)
        EXPECT_FALSE(PathFilter::matches(pattern, text)) << pattern << " " << text;
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
}

}  // namespace
}  // namespace vark
