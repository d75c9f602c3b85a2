#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "VarkCore/Activity/SharedActivity.h"
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

/// Until it is killed. One record always stands.
int changeBoardForEver(const std::filesystem::path& folder) {
    for (std::int64_t number = 1;; ++number) {
        SyncOp stands(SyncOp::Kind::upload, "stands", 1, noon);
        SharedSync::begin(stands, folder);
        SharedSync::progress(stands.id, number, 0, folder, noon);
        SyncOp passes(SyncOp::Kind::folder, std::string(static_cast<std::size_t>(number % 5000), 'x'), 1,
                      noon);
        SharedSync::begin(passes, folder);
        SharedSync::finish(passes.id, std::nullopt, folder, noon);
    }
}

/// Lines "NAME NUMBER xxx", up to `longest` bytes long.
int addLines(const std::filesystem::path& folder, const std::string& name, int lines, int longest) {
    for (int number = 0; number < lines; ++number) {
        ActivityEntry entry{.at = noon, .text = fmt::format("{} {} ", name, number), .kind = "put"};
        entry.text.append(static_cast<std::size_t>(number * 977 % longest), 'x');
        if (!SharedActivity::append(entry, folder)) return 1;
    }
    return 0;
}

}  // namespace

/// StatusWriter sync FOLDER NAME ROUNDS | sync-for-ever FOLDER | lines FOLDER NAME LINES LONGEST
int main(int count, char** arguments) {
    const std::vector<std::string> words(arguments, arguments + count);
    if (count == 5 && words[1] == "sync") return changeBoard(words[2], words[3], std::stoi(words[4]));
    if (count == 3 && words[1] == "sync-for-ever") return changeBoardForEver(words[2]);
    if (count == 6 && words[1] == "lines")
        return addLines(words[2], words[3], std::stoi(words[4]), std::stoi(words[5]));
    return 2;
}
