#include "Hosts/CLI/Sending/DryRun.h"

#include <fmt/format.h>

#include "Hosts/CLI/Commands/Interruptible.h"
#include "VarkApp/Connect/Addresses.h"
#include "VarkApp/Queue/LeftOut.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

class DryRun {
  public:
    DryRun(CommandSurroundings& surroundings, const QueueRequest& request, bool json)
        : surroundings_(surroundings), request_(request), json_(json) {}

    Task<ExitCode> run() {
        const std::stop_token cancelled = co_await thisToken();
        for (const QueueRequest::Named& named : request_.named) {
            const auto walk = [&] {
                return Walker::walk(named.path, surroundings_.platform.volumes(), request_.walk, cancelled);
            };
            try {
                const Walker::Result found = co_await surroundings_.pool().run(walk);
                tellOf(named, found);
            } catch (const std::runtime_error& error) {
                fail(error.what());
            }
        }
        tellTheSum();
        co_return code_;
    }

  private:
    void tellOf(const QueueRequest::Named& named, const Walker::Result& found) {
        const std::filesystem::path around = std::filesystem::path(named.path).parent_path();
        for (const Walker::Found& file : found.files) {
            const std::string to = joinedVarkPath(request_.destination.value_or(""), file.relativePath);
            if (json_) {
                JSONWriter record;
                record.beginObject().field("event", "wouldSend").field("path", to);
                record.field("localPath", (around / file.relativePath).string()).field("size", file.size);
                surroundings_.console.printJSON(record.endObject().text());
            } else {
                surroundings_.console.print(fmt::format("Would send: {} ({})", to, Format::bytes(file.size)));
            }
        }
        files_ += std::ssize(found.files);
        bytes_ += found.totalBytes();
        passedOver_.insert(passedOver_.end(), found.passedOver.begin(), found.passedOver.end());
    }

    void tellTheSum() {
        Console& console = surroundings_.console;
        const LeftOut left = LeftOut::of(passedOver_);
        for (const std::string& sentence : unreadableSentences(passedOver_))
            fail(sentence);
        if (json_) {
            JSONWriter record;
            record.beginObject().field("event", "finished").field("files", files_).field("bytes", bytes_);
            record.key("leftOut").beginObject();
            left.encode(record);
            console.printJSON(
                record.endObject().field("exitCode", static_cast<int>(code_)).endObject().text());
            return;
        }
        if (const std::optional<std::string> sentence = left.sentence()) console.say(*sentence);
        console.say(
            fmt::format("{}, {}. Nothing was sent.", Format::count(files_, "file"), Format::bytes(bytes_)));
    }

    void fail(const std::string& sentence) {
        code_ = ExitCode::somethingFailed;
        surroundings_.console.say(sentence);
    }

    CommandSurroundings& surroundings_;
    const QueueRequest& request_;
    const bool json_;
    std::int64_t files_ = 0;
    std::int64_t bytes_ = 0;
    std::vector<Walker::PassedOver> passedOver_;
    ExitCode code_ = ExitCode::allLanded;
};

}  // namespace

ExitCode dryRun(CommandSurroundings& surroundings, const QueueRequest& request, bool json) {
    DryRun run(surroundings, request, json);
    return awaitUnlessInterrupted(surroundings, run.run()).value_or(ExitCode::interrupted);
}

}  // namespace vark::cli
