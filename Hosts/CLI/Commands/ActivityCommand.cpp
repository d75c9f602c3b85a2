#include <fmt/format.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/TextWidth.h"
#include "VarkCore/Activity/ActivityHistory.h"
#include "VarkCore/Activity/SharedActivity.h"

namespace vark::cli {

namespace {

struct ActivityOptions {
    bool history = false;
    bool json = false;
};

std::string lineOf(const ActivityEntry& entry, Date now, const Calendar& calendar, const Signs& signs) {
    constexpr int widthOfWhen = 12;
    std::string line = paddedToWidth(SharedActivity::when(entry.at, now, calendar), widthOfWhen);
    line += "  " + entry.text;
    if (entry.place && !entry.place->empty()) line += fmt::format("{}{}", signs.between, *entry.place);
    return line;
}

/// Without what only serves to fold lines into one.
void printJSON(Console& console, const ActivityEntry& entry) {
    JSONWriter record;
    record.beginObject().field("id", entry.id.text()).field("at", iso8601(entry.at));
    record.field("text", entry.text).field("kind", entry.kind).field("count", entry.count.value_or(1));
    record.field("place", entry.place).field("folder", entry.folder).endObject();
    console.printJSON(record.text());
}

std::vector<ActivityEntry> entriesFor(CommandSurroundings& surroundings, const ActivityOptions& options,
                                      Date now) {
    const SharedStore::Folder& folder = surroundings.sharedFolder();
    if (options.history) return ActivityHistory::folded(ActivityHistory::read(folder, now));
    return SharedActivity::read(folder);
}

ExitCode showActivity(CommandSurroundings& surroundings, const ActivityOptions& options) {
    Console& console = surroundings.console;
    const Date now = surroundings.date();
    const std::vector<ActivityEntry> entries = entriesFor(surroundings, options, now);
    if (entries.empty()) console.say("Nothing has been done with the vark yet.");
    for (const ActivityEntry& entry : entries) {
        if (!console.isRead()) break;
        if (options.json) {
            printJSON(console, entry);
        } else {
            console.print(lineOf(entry, now, surroundings.calendar(), console.signs()));
        }
    }
    return ExitCode::allLanded;
}

}  // namespace

void declareActivity(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<ActivityOptions>();
    CLI::App& command = addCommand(program, chosen, "activity", "Show what was done with the vark lately",
                                   options, showActivity);
    command.add_flag("--history", options->history, "All of the last 90 days, not only the newest lines");
    addJSON(command, options->json);
}

}  // namespace vark::cli
