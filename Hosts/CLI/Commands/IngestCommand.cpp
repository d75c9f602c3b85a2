#include <fmt/format.h>

#include <sys/stat.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/QueueOutput.h"
#include "Hosts/CLI/NextWords.h"
#include "Hosts/CLI/Sending/Sending.h"
#include "VarkApp/Cards/VolumeLook.h"
#include "VarkApp/Connect/Addresses.h"
#include "VarkApp/Queue/QueueHolder.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Cards/CardNaming.h"

namespace vark::cli {

namespace {

constexpr const char* aboutIngest =
    "A card that is pulled out is waited for. Giving the command again carries on with a run that was "
    "ended,\n"
    "and tries again what failed. When all has settled the card is looked through once more, and the vark "
    "is\n"
    "told once what of it has not come. Hidden files, links and what systems leave on cards (.Trashes, ._*,\n"
    "Thumbs.db) are not sent, but named. The exit code is 0 only when nothing is on the card that the vark\n"
    "does not have: then it is safe to clear.";

struct IngestOptions {
    std::string volume;
    std::optional<std::string> destination;
    std::vector<std::string> leaveOut;
    bool emailMe = false;
    SendingOptions sending;
};

std::string choicesAmong(const std::vector<Volume>& volumes) {
    std::string places;
    for (const Volume& volume : volumes)
        places += (places.empty() ? "" : ", ") + volume.path.string();
    return places;
}

/// The one mounted volume that the person means; nothing when there is none of that name.
std::optional<Volume> volumeMeant(CommandSurroundings& surroundings, const std::string& given) {
    const std::vector<Volume> meant = volumesMeant(surroundings.platform.volumes().volumes(), given);
    if (meant.empty()) return std::nullopt;
    if (meant.size() > 1)
        throw Failure(Outcome::misuse, fmt::format("Several volumes are called {}. Give the place of one: {}",
                                                   given, choicesAmong(meant)));
    if (meant.front().isBoot)
        throw Failure(Outcome::misuse,
                      fmt::format("{} is the start-up disk of this machine. Send folders of it with: vark "
                                  "send PATH...",
                                  given));
    return meant.front();
}

/// The card that the saved queue brings in, when the person means that one and it is not done with, even if
/// it is not there now.
std::optional<Volume> cardUnderWay(CommandSurroundings& surroundings, const std::string& given) {
    const std::optional<TransferJob> job = savedQueue(surroundings);
    if (!job || !job->ingest) return std::nullopt;
    const IngestInfo& ingest = *job->ingest;
    if (ingest.drive != given && ingest.volumePath != given) return std::nullopt;
    const bool isWhole = std::ranges::all_of(job->items, isFinished, &TransferItem::state);
    if (ingest.reported && isWhole) return std::nullopt;
    return Volume{.name = ingest.drive, .path = ingest.volumePath, .id = ingest.volumeUUID};
}

/// Why a place that people name is no card to us.
std::string whyItIsNoCard(const std::string& given) {
    struct stat place{};
    struct stat above{};
    const bool isFolder = given.contains('/') && stat(given.c_str(), &place) == 0 && S_ISDIR(place.st_mode);
    if (isFolder && stat((given + "/..").c_str(), &above) == 0 && place.st_dev != above.st_dev) {
        return fmt::format(
            "{0} is mounted where disks that belong to this machine are. Only what is mounted below /media, "
            "/run/media or /mnt, or is removable, is taken for a card or a disk of its own. Mount it there, "
            "or "
            "send it as a folder with: vark send {0}",
            given);
    }
    if (isFolder)
        return fmt::format("{0} is a folder, and no card or disk. Send it with: vark send {0}", given);
    return fmt::format("No card or disk is called {}. Look at what there is with: vark volumes", given);
}

/// A path on the card as people give it: from its top, or whole.
std::string relativeToCard(const std::string& given, const Volume& volume) {
    std::string_view path = given;
    const std::string top = volume.path.string() + "/";
    if (path.starts_with(top)) path.remove_prefix(top.size());
    return tidiedVarkPath(path);
}

IngestWish wishFrom(CommandSurroundings& surroundings, const IngestOptions& options, const Volume& volume,
                    const std::string& rootPath) {
    IngestWish wish;
    wish.volume = volume;
    wish.isCard = VolumeLook::at(volume).isCard;
    wish.title = CardNaming::title(volume.name, surroundings.date(), surroundings.calendar());
    wish.asksForDestination = options.destination.has_value();
    wish.destination = joinedVarkPath(rootPath, options.destination.value_or(CardNaming::folder(wish.title)));
    for (const std::string& name : options.leaveOut)
        wish.leaveOut.push_back(relativeToCard(name, volume));
    wish.emailMe = options.emailMe;
    return wish;
}

ExitCode ingest(CommandSurroundings& surroundings, const IngestOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    std::optional<Volume> volume = volumeMeant(surroundings, options.volume);
    if (!volume) volume = cardUnderWay(surroundings, options.volume);
    if (!volume) throw Failure(Outcome::misuse, whyItIsNoCard(options.volume));
    SendRun::Settings settings = settingsFrom(surroundings, options.sending);
    settings.ingest = wishFrom(surroundings, options, *volume, connection.rootPath);
    const bool json = options.sending.json;
    if (QueueLock lock = takeQueue(surroundings))
        return sendHere(surroundings, connection, std::move(lock), std::move(settings), json);
    refuseWhatCannotBeHandedOver(options.sending);
    QueueRequest request;
    request.command = QueueRequest::Command::ingest;
    request.ingest = settings.ingest;
    request.wish.onConflict = settings.onConflict;
    Asked asked = surroundings.await(takeQueueOrAsk(surroundings, std::move(request)));
    if (asked.lock)
        return sendHere(surroundings, connection, std::move(asked.lock), std::move(settings), json);
    if (asked.answer.entries.empty()) return printAnswer(surroundings.console, asked.answer, json);
    for (const Said& result : asked.answer.results)
        surroundings.console.say(inWords(result));
    return sendThere(surroundings, connection, std::move(settings), std::move(asked.answer), json);
}

}  // namespace

void declareIngest(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<IngestOptions>();
    CLI::App& command =
        addCommand(program, chosen, "ingest", "Bring a card or a disk into the vark whole", options, ingest);
    command.footer(aboutIngest);
    command.add_option("VOLUME", options->volume, "Its name or its place, as \"vark volumes\" shows them")
        ->required()
        ->type_name("VOLUME");
    command
        .add_option(
            "--to", options->destination,
            "The folder of the vark that it goes to; without it a new one, called after the day and the "
            "card")
        ->type_name("FOLDER")
        ->check(isVarkFolder());
    command
        .add_option("--leave-out", options->leaveOut, "Files and folders of the card that are not to be sent")
        ->type_name("NAME");
    command.add_flag("--email-me", options->emailMe, "Have the vark mail you when it is done");
    addSendingOptions(command, options->sending);
}

}  // namespace vark::cli
