#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Commands.h"
#include "Hosts/CLI/QueueHolder.h"
#include "Hosts/CLI/Sending.h"
#include "Hosts/CLI/VolumeLook.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/CardNaming.h"

namespace vark::cli {

namespace {

constexpr const char* explanation =
    "A card that is pulled out is waited for, and a run that was ended is carried on by giving the command\n"
    "again, or with: vark send. When all has settled the vark is told once what was skipped, left out and "
    "not\n"
    "sent, and the card is looked through again, to say whether it is safe to clear. Hidden files, and what\n"
    "systems leave on cards (.Trashes, ._*, Thumbs.db), are neither sent nor counted.";

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
std::optional<Volume> volumeMeant(Surroundings& surroundings, const std::string& given) {
    const std::vector<Volume> meant = volumesMeant(surroundings.platform.volumes().volumes(), given);
    if (meant.empty()) return std::nullopt;
    if (meant.size() > 1)
        throw CommandError(ExitCode::usage,
                           fmt::format("Several volumes are called {}. Give the place of one: {}", given,
                                       choicesAmong(meant)));
    if (meant.front().isBoot)
        throw CommandError(
            ExitCode::usage,
            fmt::format("{} is the start-up disk of this machine. Send folders of it with: vark "
                        "send PATH...",
                        given));
    return meant.front();
}

/// Whether the saved queue brings in that very card and is not done with it.
bool isUnderWay(Surroundings& surroundings, const std::string& given, const std::optional<Volume>& volume) {
    const std::optional<TransferJob> job = savedQueue(surroundings);
    if (!job || !job->ingest || job->ingest->reported) return false;
    const IngestInfo& ingest = *job->ingest;
    if (volume) return ingest.volumePath == volume->path && ingest.volumeUUID == volume->id;
    return ingest.drive == given || ingest.volumePath == given;
}

/// A path on the card as people give it: from its top, or whole.
std::string relativeToCard(const std::string& given, const Volume& volume) {
    std::string_view path = given;
    const std::string top = volume.path.string() + "/";
    if (path.starts_with(top)) path.remove_prefix(top.size());
    return tidiedVarkPath(path);
}

IngestWish wishFrom(Surroundings& surroundings, const IngestOptions& options, const Volume& volume,
                    const std::string& rootPath) {
    IngestWish wish;
    wish.volume = volume;
    wish.isCard = VolumeLook::at(volume).isCard;
    wish.title = CardNaming::title(volume.name, surroundings.date(), surroundings.calendar());
    wish.destination = joinedVarkPath(rootPath, options.destination.value_or(wish.title));
    for (const std::string& name : options.leaveOut)
        wish.leaveOut.push_back(relativeToCard(name, volume));
    wish.emailMe = options.emailMe;
    return wish;
}

ExitCode ingest(Surroundings& surroundings, const IngestOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    const std::optional<Volume> volume = volumeMeant(surroundings, options.volume);
    const QueueLock lock = takeQueue(surroundings);
    if (!lock)
        throw CommandError(
            ExitCode::somethingFailed,
            "Another vark is sending, and a card needs the queue for itself. Watch it with: vark "
            "queue --watch");
    SendSession::Settings settings = settingsFrom(options.sending);
    if (isUnderWay(surroundings, options.volume, volume)) {
        surroundings.console.say(fmt::format("Carrying on with {}.", options.volume));
    } else if (volume) {
        settings.ingest = wishFrom(surroundings, options, *volume, connection.rootPath);
    } else {
        throw CommandError(
            ExitCode::usage,
            fmt::format("No card or disk is called {}. Look at what there is with: vark volumes. "
                        "A folder is sent with: vark send PATH...",
                        options.volume));
    }
    return sendHere(surroundings, connection, std::move(settings), options.sending.json);
}

}  // namespace

void declareIngest(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<IngestOptions>();
    CLI::App& command =
        addCommand(program, chosen, "ingest", "Bring a card or a disk into the vark whole", options, ingest);
    command.footer(explanation);
    command.add_option("VOLUME", options->volume, "Its name or its place, as \"vark volumes\" shows them")
        ->required()
        ->type_name("FILE");
    command
        .add_option(
            "--to", options->destination,
            "The folder of the vark that it goes to; without it a new one, called after the day and the "
            "card")
        ->type_name("FOLDER");
    command
        .add_option("--leave-out", options->leaveOut, "Files and folders of the card that are not to be sent")
        ->type_name("NAME");
    command.add_flag("--email-me", options->emailMe, "Have the vark mail you when it is done");
    addSendingOptions(command, options->sending);
}

}  // namespace vark::cli
