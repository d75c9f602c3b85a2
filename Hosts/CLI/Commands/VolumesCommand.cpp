#include <fmt/format.h>

#include <map>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/Terminal.h"
#include "VarkApp/Cards/VolumeLook.h"

namespace vark::cli {

namespace {

struct VolumesOptions {
    bool watch = false;
    bool json = false;
};

std::string_view nameOf(VolumeRules::Offer offer) {
    switch (offer) {
        case VolumeRules::Offer::sheet:
            return "sheet";
        case VolumeRules::Offer::notify:
            return "notify";
        case VolumeRules::Offer::silent:
            return "silent";
    }
}

void printJSON(Console& console, const VolumeLook& look, std::string_view event) {
    JSONWriter json;
    json.beginObject().field("event", event).field("name", look.volume.name);
    json.field("path", look.volume.path.string()).field("id", look.volume.id);
    json.field("isCard", look.isCard).field("ejectable", look.volume.ejectable);
    json.field("isBoot", look.volume.isBoot).field("offer", nameOf(look.offer)).endObject();
    console.printJSON(json.text());
}

/// What is there, and from one look to the next what has come and gone.
class VolumeWatching {
  public:
    VolumeWatching(CommandSurroundings& surroundings, bool json)
        : surroundings_(surroundings), json_(json), scope_(surroundings.executor, surroundings.clock) {}

    void look() {
        std::map<std::filesystem::path, VolumeLook> now;
        for (const Volume& volume : surroundings_.platform.volumes().volumes()) {
            const auto known = known_.find(volume.path);
            const bool isSame = known != known_.end() && known->second.volume == volume;
            now.emplace(volume.path, isSame ? known->second : VolumeLook::at(volume));
        }
        for (const auto& [path, look] : known_) {
            const auto still = now.find(path);
            if (still == now.end() || still->second != look) tellOfGone(look);
        }
        for (const auto& [path, look] : now) {
            const auto before = known_.find(path);
            if (before == known_.end() || before->second != look) tellOfThere(look);
        }
        known_ = std::move(now);
        wasShown_ = true;
    }
    bool isEmpty() const { return known_.empty(); }

    void watchUntilTheEnd() {
        auto watch = surroundings_.platform.volumes().watch([this] { scope_.start(lookAgain(this)); });
        look();
        Terminal terminal(false, [&](std::optional<char>) { scope_.start(end(this)); });
        surroundings_.executor.runUntil([&] { return ended_ || !surroundings_.console.isRead(); });
    }

  private:
    static Task<void> lookAgain(VolumeWatching* self) {
        self->look();
        co_return;
    }
    static Task<void> end(VolumeWatching* self) {
        self->ended_ = true;
        co_return;
    }

    void tellOfThere(const VolumeLook& look) {
        const Volume& volume = look.volume;
        Console& console = surroundings_.console;
        if (json_) {
            printJSON(console, look, wasShown_ ? "came" : "there");
            return;
        }
        console.print(fmt::format("{}{}  {}  {}", wasShown_ ? "came  " : "", volume.name, look.kind(),
                                  volume.path.string()));
        // A card is offered for what is to be done with it, and any other disk only named.
        if (look.offer == VolumeRules::Offer::sheet)
            console.say(fmt::format("Bring this card in with: vark ingest \"{}\"", volume.path.string()));
    }
    void tellOfGone(const VolumeLook& look) {
        if (json_) {
            printJSON(surroundings_.console, look, "went");
        } else {
            surroundings_.console.print(fmt::format("went  {}", look.volume.name));
        }
    }

    CommandSurroundings& surroundings_;
    const bool json_;
    std::map<std::filesystem::path, VolumeLook> known_;
    bool wasShown_ = false;
    bool ended_ = false;
    TaskScope scope_;  // Last: its tasks use all of the above.
};

ExitCode showVolumes(CommandSurroundings& surroundings, const VolumesOptions& options) {
    VolumeWatching watching(surroundings, options.json);
    if (options.watch) {
        watching.watchUntilTheEnd();
        return ExitCode::allLanded;
    }
    watching.look();
    if (watching.isEmpty()) surroundings.console.say("No volume is mounted.");
    return ExitCode::allLanded;
}

}  // namespace

void declareVolumes(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<VolumesOptions>();
    CLI::App& command = addCommand(program, chosen, "volumes", "List the disks and cards of this machine",
                                   options, showVolumes);
    command.add_flag("--watch", options->watch, "Go on telling what comes and goes, until interrupted");
    addJSON(command, options->json);
}

}  // namespace vark::cli
