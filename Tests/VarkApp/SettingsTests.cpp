#include "VarkApp/Settings.h"

#include <gtest/gtest.h>

#include <boost/json/parse.hpp>

#include "Tests/Support/Fakes/FakeSystem.h"
#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark::app {
namespace {

TEST(Settings, WhatMakesNoSenseIsAsItIsByItself) {
    Settings limited;
    limited.bytesPerSecond = 5;
    Settings cards;
    cards.volumes = {{"EOS", Settings::OnVolume::never}};
    Settings later;
    later.others["later"] = boost::json::parse(R"({"a": 1})");
    struct Case {
        const char* file;
        Settings expected;
    };
    const Case cases[] = {
        {"{}", {}},
        {R"({"bytesPerSecond": 5})", limited},
        {R"({"bytesPerSecond": -5, "onConflict": "burn", "look": 7, "notifications": "no"})", {}},
        {R"({"volumes": {"EOS": "never", "DISK": "eat"}})", cards},
        {R"({"later": {"a": 1}})", later},
    };
    for (const Case& one : cases) {
        const Settings settings = Settings::fromJSON(parseJSON(one.file));
        EXPECT_EQ(settings, one.expected) << one.file;
        EXPECT_EQ(Settings::fromJSON(parseJSON(settings.toJSON())), settings) << one.file;
    }
}

TEST(SettingsFile, AChangeLeavesWhatSomebodyElseHasSet) {
    const TemporaryFolder home;
    const FakeBundle bundle;
    const FakeUserFolders folders(home.path());
    const Locations locations(bundle, folders);
    const SettingsFile file(locations);
    EXPECT_EQ(file.read(), Settings());
    file.change([](Settings& settings) { settings.bytesPerSecond = 7; });
    SettingsFile(locations).change([](Settings& settings) { settings.others["later"] = true; });
    EXPECT_EQ(file.read().bytesPerSecond, 7);
    EXPECT_TRUE(file.read().others.contains("later"));

    writeAtomically(file.path(), "{ torn", 0600);
    EXPECT_EQ(file.read(), Settings());
    file.change([](Settings& settings) { settings.diskOn = true; });
    EXPECT_TRUE(file.read().diskOn);
    EXPECT_EQ(readWholeFile(locations.damagedSettings()), "{ torn")
        << "it may hold what somebody wrote by hand";
}

}  // namespace
}  // namespace vark::app
