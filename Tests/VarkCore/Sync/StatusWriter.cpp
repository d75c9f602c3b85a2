#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "VarkCore/Sync/SharedSync.h"

// One of several processes that share the files of one folder, for the tests that start them.

namespace {

using namespace vark;

const Date noon = Date::fromSince1970(1'740'000'000);

/// Each round begins ten changes of its own and finishes them, and all of them must show.
int changeBoard(const std::filesystem::path& folder, const std::string& name, int rounds) {
    constexpr std::int64_t records = 10;
    for (int step = 0; step < 2 * rounds; ++step) {
        const bool begins = step % 2 == 0;
        for (std::int64_t number = 0; number < records; ++number) {
            const SyncOp op(SyncOp::Kind::upload, fmt::format("{}/{}", name, number), 1, noon);
            if (begins) {
                SharedSync::begin(op, folder);
            } else {
                SharedSync::finish(op.id, std::nullopt, folder, noon);
            }
        }
        const std::int64_t standing =
            std::ranges::count(SharedSync::read(folder, noon), name, &SyncOp::folderPath);
        if (standing == (begins ? records : 0)) continue;
        fmt::print(stderr, "{} of {} stand in step {}\n", standing, name, step);
        return 1;
    }
    return 0;
}

}  // namespace

/// StatusWriter FOLDER NAME ROUNDS
int main(int count, char** arguments) {
    return count == 4 ? changeBoard(arguments[1], arguments[2], std::stoi(arguments[3])) : 2;
}
