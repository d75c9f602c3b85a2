#include <fmt/format.h>

#include <cstdio>
#include <map>
#include <string>

#include "VarkCore/Activity/SharedActivity.h"
#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Sync/SharedSync.h"

// One of several processes that share the files of one folder, for the tests that start them.

namespace {

using namespace vark;

const Date noon = Date::fromSince1970(1'740'000'000);

/// What one writer has put on the board, kept a second time.
class Writer {
  public:
    Writer(SharedStore::Folder folder, std::string name)
        : folder_(std::move(folder)), name_(std::move(name)) {}

    /// Makes the change of that number, and tells whether all of this writer's records read as they must.
    bool change(int number) {
        constexpr int records = 5;
        SyncOp op(SyncOp::Kind::upload, fmt::format("{}/{}", name_, number % records), 1, noon);
        switch (number / records % 4) {
            case 0:
                SharedSync::begin(op, folder_);
                expected_[op.id] = op;
                break;
            case 1:
                SharedSync::progress(op.id, number, 0, folder_, noon + number);
                expected_[op.id].done = number;
                expected_[op.id].touched = noon + number;
                break;
            case 2:
                SharedSync::stop(op.id, {SyncOp::State::problem, op.path}, folder_, noon);
                expected_[op.id].state = SyncOp::State::problem;
                expected_[op.id].reason = op.path;
                expected_[op.id].touched = noon;
                expected_[op.id].stoppedAt = noon;
                break;
            default:
                SharedSync::finish(op.id, std::nullopt, folder_, noon);
                expected_.erase(op.id);
        }
        return written() == expected_;
    }

  private:
    std::map<std::string, SyncOp> written() const {
        std::map<std::string, SyncOp> own;
        for (const SyncOp& op : SharedSync::read(folder_, noon)) {
            if (op.path.starts_with(name_ + "/")) own[op.id] = op;
        }
        return own;
    }

    SharedStore::Folder folder_;
    std::string name_;
    std::map<std::string, SyncOp> expected_;
};

int changeBoard(const std::filesystem::path& folder, const std::string& name, int changes) {
    Writer writer(folder, name);
    for (int number = 0; number < changes; ++number) {
        if (writer.change(number)) continue;
        fmt::print(stderr, "Change {} of {} was lost\n", number, name);
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

/// StatusWriter sync FOLDER NAME CHANGES | sync-for-ever FOLDER | lines FOLDER NAME LINES LONGEST
int main(int count, char** arguments) {
    const std::vector<std::string> words(arguments, arguments + count);
    if (count == 5 && words[1] == "sync") return changeBoard(words[2], words[3], std::stoi(words[4]));
    if (count == 3 && words[1] == "sync-for-ever") return changeBoardForEver(words[2]);
    if (count == 6 && words[1] == "lines")
        return addLines(words[2], words[3], std::stoi(words[4]), std::stoi(words[5]));
    return 2;
}
