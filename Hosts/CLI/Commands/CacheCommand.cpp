#include <fmt/format.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "VarkApp/Machine/CachePlaces.h"
#include "VarkCore/Foundation/Paths.h"
#include "VarkCore/Transfer/Format.h"
#include "VarkCore/Transfer/Rescue.h"

namespace vark::cli {

namespace {

struct CacheOptions {
    bool free = false;
    bool json = false;
};

struct RescueOptions {
    std::string folder;
    bool json = false;
};

void print(Console& console, const LocalCache::Report& report, bool json) {
    if (json) {
        JSONWriter record;
        record.beginObject().field("bytes", report.total()).key("places").beginArray();
        for (const LocalCache::Line& line : report.lines)
            record.beginObject().field("name", line.name).field("bytes", line.bytes).endObject();
        console.printJSON(record.endArray().endObject().text());
        return;
    }
    console.print(fmt::format("Vark holds {} on this machine.",
                              report.isEmpty() ? "nothing" : Format::bytes(report.total())));
    for (const LocalCache::Line& line : report.lines)
        console.print(fmt::format("  {}: {}", line.name, Format::bytes(line.bytes)));
}

ExitCode showCache(CommandSurroundings& surroundings, const CacheOptions& options) {
    if (!options.free) {
        print(surroundings.console, measureCache(surroundings), options.json);
        return ExitCode::allLanded;
    }
    const LocalCache::Freed freed = freeCache(surroundings);
    if (options.json) {
        JSONWriter record;
        record.beginObject().field("freed", freed.bytes).field("left", freed.left).endObject();
        surroundings.console.printJSON(record.text());
    } else {
        surroundings.console.print(freed.describe());
    }
    return ExitCode::allLanded;
}

/// The folder itself, as the system calls it.
std::filesystem::path folderMeant(const std::string& given) {
    const std::filesystem::path named = standardised(given);
    std::error_code failure;
    if (std::filesystem::is_symlink(named, failure))
        throw Failure(Outcome::misuse,
                      fmt::format("{} is a link. Give the folder that it leads to: {}", given,
                                  std::filesystem::weakly_canonical(named, failure).string()));
    if (!std::filesystem::is_directory(named, failure))
        throw Failure(Outcome::misuse, fmt::format("{} is no folder.", given));
    return std::filesystem::canonical(named);
}

Rescue::Kept keepOf(CommandSurroundings& surroundings, const std::filesystem::path& folder,
                    const std::filesystem::path& downloads) {
    try {
        return Rescue::keep(folder, downloads, surroundings.date(), surroundings.calendar())
            .value_or(Rescue::Kept{});
    } catch (const FileError& error) {
        throw Failure(Outcome::failed, fmt::format("{} Nothing has been moved.", error.what()));
    }
}

ExitCode rescue(CommandSurroundings& surroundings, const RescueOptions& options) {
    const std::filesystem::path folder = folderMeant(options.folder);
    const std::filesystem::path downloads = Rescue::downloads(surroundings.platform.folders());
    if (liesIn(std::filesystem::weakly_canonical(downloads), folder))
        throw Failure(Outcome::misuse,
                      fmt::format("Your Downloads lie in {} themselves, so it cannot be emptied into them.",
                                  folder.string()));
    const Rescue::Kept kept = keepOf(surroundings, folder, downloads);
    const bool hadNothing = kept.folder.empty() && kept.left.empty();
    if (options.json) {
        JSONWriter record;
        record.beginObject();
        if (!kept.folder.empty()) record.field("folder", kept.folder.string());
        record.field("files", kept.files).field("bytes", kept.bytes).key("left").beginArray();
        for (const CarryAcross::Left& one : kept.left)
            record.beginObject().field("path", one.path.string()).field("why", one.why).endObject();
        surroundings.console.printJSON(record.endArray().endObject().text());
    } else if (hadNothing) {
        surroundings.console.say("There was nothing to keep.");
    } else {
        surroundings.console.print(kept.sentence());
    }
    for (const CarryAcross::Left& one : kept.left)
        surroundings.console.say(one.why);
    return kept.left.empty() ? ExitCode::allLanded : ExitCode::somethingFailed;
}

}  // namespace

void declareCache(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<CacheOptions>();
    CLI::App& command = addCommand(program, chosen, "cache", "Say how much room Vark takes on this machine",
                                   options, showCache);
    command.add_flag("--free", options->free, "Give back what can be given back; the queue stays");
    addJSON(command, options->json);

    auto rescuing = std::make_shared<RescueOptions>();
    CLI::App& saving = addCommand(
        program, chosen, "rescue",
        "Move all of a folder that is about to go into a new folder in your Downloads", rescuing, rescue);
    saving.add_option("FOLDER", rescuing->folder, "The folder; it is gone afterwards")
        ->required()
        ->type_name("FILE");
    addJSON(saving, rescuing->json);
}

}  // namespace vark::cli
