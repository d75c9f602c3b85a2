#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/DiaryLines.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

constexpr std::int64_t mostLines = 1'000'000;

struct LogOptions {
    std::size_t lines = 20;
    bool json = false;
};

ExitCode showLog(CommandSurroundings& surroundings, const LogOptions& options) {
    // The piece behind the last line end is empty and counts.
    std::vector<std::string> lines = splitKeepingEmpty(surroundings.log().tail(options.lines + 1), '\n');
    if (lines.back().empty()) lines.pop_back();
    if (lines.empty()) surroundings.console.say("Nothing has been written into the diary yet.");
    for (const DiaryLine& line : joinedDiaryLines(lines, surroundings.calendar())) {
        if (!options.json) {
            surroundings.console.print(line.text);
            continue;
        }
        JSONWriter record;
        record.beginObject();
        if (line.at) record.field("at", iso8601(*line.at));
        record.field("message", line.message).endObject();
        surroundings.console.printJSON(record.text());
    }
    return ExitCode::allLanded;
}

}  // namespace

void declareLog(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<LogOptions>();
    CLI::App& command = addCommand(program, chosen, "log", "Show the diary of the queue", options, showLog);
    command.add_option("-n,--lines", options->lines, "How many of the last lines")
        ->type_name("N")
        ->check(wholeNumber(1, mostLines))
        ->capture_default_str();
    addJSON(command, options->json);
}

}  // namespace vark::cli
