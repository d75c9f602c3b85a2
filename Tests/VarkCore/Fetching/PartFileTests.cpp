#include "VarkCore/Fetching/PartFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <thread>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkCore/Foundation/Files.h"

namespace vark {
namespace {

TEST(PartFile, WhatCameMeanwhileIsNotOverwritten) {
    const TemporaryFolder folder;
    const OpenFolder open = OpenFolder::named(folder.path());
    for (int round = 0; round < 20; ++round) {
        const std::filesystem::path place = folder / std::to_string(round);
        VarkItem item;
        item.sha256 = std::string(64, 'a');
        PartFile part(open, place.filename(), item);
        part.take(0, std::string(1 << 20, 'x'));
        // The part has its permissions once its place has been found free; then it goes to the disk.
        const std::filesystem::path unfinished = folder / PartFile::nameFor(place.filename(), item.sha256);
        bool came = false;
        std::jthread somebody([&](const std::stop_token& stop) {
            const auto before = status(unfinished).permissions();
            while (!stop.stop_requested() && status(unfinished).permissions() == before) {
            }
            const Descriptor theirs(::open(place.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
            came = static_cast<bool>(theirs);
            if (came) writeAll(theirs, "theirs", place);
        });
        try {
            part.moveIntoPlace(WhatStands::stays, std::nullopt);
        } catch (const FileError& error) {
            EXPECT_EQ(error.errorNumber(), EEXIST);
        }
        somebody.request_stop();
        somebody.join();
        if (came) EXPECT_EQ(readWholeFile(place), "theirs") << "in round " << round;
    }
}

}  // namespace
}  // namespace vark
