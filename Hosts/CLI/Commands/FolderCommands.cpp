#include <fmt/format.h>
#include <unistd.h>

#include <iostream>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/Terminal.h"
#include "Hosts/CLI/ErrorCodes.h"
#include "Hosts/CLI/Sending/Sending.h"
#include "VarkApp/Connect/Addresses.h"
#include "VarkCore/Actions/FolderPages.h"
#include "VarkCore/Foundation/Text.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

struct MakeOptions {
    std::vector<std::string> paths;
    bool withParents = false;
    bool json = false;
};

struct MoveOptions {
    std::vector<std::string> paths;
    bool json = false;
};

struct BinOptions {
    std::vector<std::string> paths;
    bool yes = false;
    bool json = false;
};

/// The vark as one of these commands works with it.
class Desk {
  public:
    Desk(CommandSurroundings& surroundings, bool json)
        : surroundings_(surroundings),
          connection_(surroundings.neededConnection()),
          api_(surroundings.api(connection_)),
          pages_(api_),
          json_(json) {}

    VarkAPI& api() { return *api_; }
    std::string whole(const std::string& path) const { return joinedVarkPath(connection_.rootPath, path); }
    bool isTop(const std::string& path) const { return path.empty() || path == connection_.rootPath; }
    std::optional<VarkItem> find(const std::string& path) { return surroundings_.await(pages_.find(path)); }
    template <class T>
    T await(Task<T> task) {
        return surroundings_.await(std::move(task));
    }

    void done(std::string_view event, const std::string& path, const std::string& to,
              const std::string& sentence) {
        if (!json_) {
            surroundings_.console.print(sentence);
            return;
        }
        JSONWriter json;
        json.beginObject().field("event", event).field("path", path);
        if (!to.empty()) json.field("to", to);
        surroundings_.console.printJSON(json.endObject().text());
    }
    void failed(const std::string& path, std::string_view code, const std::string& why) {
        code_ = ExitCode::somethingFailed;
        if (json_) {
            JSONWriter json;
            json.beginObject().field("event", "failed").field("path", path).field("code", code);
            surroundings_.console.printJSON(json.field("error", why).endObject().text());
        } else {
            surroundings_.console.say(fmt::format("{}: {}", path, why));
        }
    }
    /// Goes on to the next path after what is wrong with this one alone.
    template <class Act>
    void trying(const std::string& path, Act act) {
        try {
            act();
        } catch (const VarkAPIError& error) {
            if (error.isSignOut() || std::holds_alternative<VarkAPIError::Transport>(error.which())) throw;
            failed(path, codeOf(error), error.errorDescription());
        }
    }
    ExitCode code() const { return code_; }

  private:
    CommandSurroundings& surroundings_;
    const SharedConnection connection_;
    const std::shared_ptr<VarkAPI> api_;
    FolderPages pages_;
    const bool json_;
    ExitCode code_ = ExitCode::allLanded;
};

std::string folderOf(const std::string& path) {
    const std::size_t end = path.rfind('/');
    return end == std::string::npos ? "" : path.substr(0, end);
}

std::string quoted(const std::string& path) {
    return path.empty() ? "the top of the vark" : fmt::format("\"{}\"", path);
}

// Making.

void makeFolder(Desk& desk, const std::string& path, bool withParents) {
    const std::optional<VarkItem> there = desk.find(path);
    if (there && (!withParents || !there->isDir))
        return desk.failed(path, "nameTaken",
                           there->isDir ? "The folder is there already." : "A file of that name is there.");
    if (there) return;
    const std::string parent = folderOf(path);
    const bool lacksParent = !desk.isTop(parent) && !desk.find(parent);
    if (lacksParent && !withParents)
        return desk.failed(
            path, "notThere",
            fmt::format("There is no {} to make it in. Make the folders around it too with: vark mkdir -p",
                        quoted(parent)));
    if (lacksParent) makeFolder(desk, parent, true);
    // Somebody else may have made it since.
    desk.trying(path, [&] {
        const std::string made = desk.await(desk.api().createFolder(path));
        desk.done("made", made, "", made);
    });
}

ExitCode make(CommandSurroundings& surroundings, const MakeOptions& options) {
    Desk desk(surroundings, options.json);
    for (const std::string& path : options.paths)
        makeFolder(desk, desk.whole(path), options.withParents);
    return desk.code();
}

// Moving.

/// Where something goes, and under which name.
struct Target {
    std::string folder;
    std::string name;

    std::string path() const { return folder.empty() ? name : folder + "/" + name; }
};

/// Gives what the vark calls the place after the change, or says that it is still at it.
void reportMove(Desk& desk, const std::string& from, const Target& to, const std::string& answered) {
    const std::string wanted = to.path();
    const bool isSaid = answered != from;
    const bool isThere = isSaid || desk.find(wanted).has_value();
    const std::string place = isSaid ? answered : wanted;
    desk.done(isThere ? "moved" : "accepted", from, place,
              isThere
                  ? fmt::format("{} is now {}", from, place)
                  : fmt::format("The vark has taken it on that {} becomes {}, and does it a little later.",
                                from, place));
}

/// A change of place and of name takes two calls. The name that stands in between must be free, or the vark
/// refuses halfway.
void relocate(Desk& desk, const std::string& from, const Target& to) {
    const Target before{folderOf(from), std::string(lastPathComponent(from))};
    if (before.path() == to.path()) return;
    if (desk.find(to.path()))
        return desk.failed(from, "nameTaken",
                           fmt::format("{} is there already, and nothing is replaced.", quoted(to.path())));
    if (before.folder == to.folder)
        return reportMove(desk, from, to, desk.await(desk.api().rename(from, to.name)));
    if (before.name == to.name)
        return reportMove(desk, from, to, desk.await(desk.api().move(from, to.folder)));
    const bool movesFirst = !desk.find(Target{to.folder, before.name}.path());
    if (!movesFirst && desk.find(Target{before.folder, to.name}.path()))
        return desk.failed(
            from, "nameTaken",
            fmt::format("Both names are taken on the way, by {} and {}. Move it by way of another "
                        "name.",
                        quoted(Target{to.folder, before.name}.path()),
                        quoted(Target{before.folder, to.name}.path())));
    const Target half = movesFirst ? Target{to.folder, before.name} : Target{before.folder, to.name};
    if (movesFirst) {
        desk.await(desk.api().move(from, to.folder));
    } else {
        desk.await(desk.api().rename(from, to.name));
    }
    try {
        reportMove(desk, from, to,
                   movesFirst ? desk.await(desk.api().rename(half.path(), to.name))
                              : desk.await(desk.api().move(half.path(), to.folder)));
    } catch (const VarkAPIError& error) {
        desk.failed(from, "halfway",
                    fmt::format("It is {} by now, and could not become {}: {}", quoted(half.path()),
                                quoted(to.path()), error.errorDescription()));
    }
}

ExitCode move(CommandSurroundings& surroundings, const MoveOptions& options) {
    Desk desk(surroundings, options.json);
    std::vector<std::string> sources;
    for (std::size_t place = 0; place + 1 < options.paths.size(); ++place)
        sources.push_back(desk.whole(options.paths[place]));
    const std::string to = desk.whole(options.paths.back());
    const std::optional<VarkItem> there = desk.isTop(to) ? std::nullopt : desk.find(to);
    const bool goesInside = desk.isTop(to) || (there && there->isDir);
    if (!goesInside && (sources.size() > 1 || options.paths.back().ends_with('/')))
        throw Failure(Outcome::misuse, fmt::format("There is no folder {}. Nothing was moved.", quoted(to)));
    for (const std::string& from : sources) {
        if (desk.isTop(from))
            throw Failure(Outcome::misuse, "The folder that this machine works in cannot be moved.");
        desk.trying(from, [&] {
            if (!desk.find(from)) return desk.failed(from, "notThere", "It is not on the vark.");
            const std::string folder = goesInside ? to : folderOf(to);
            if (folder == from || folder.starts_with(from + "/"))
                return desk.failed(from, "refused", "A folder cannot be moved into itself.");
            relocate(desk, from, {folder, std::string(lastPathComponent(goesInside ? from : to))});
        });
    }
    return desk.code();
}

// To the Bin.

/// Whether the person says yes to it, on the terminal that they sit at.
bool agree(Console& console, const std::string& question) {
    console.sayText(escapedForTerminal(question) + " [y/N] ");
    std::string answer;
    std::getline(std::cin, answer);
    const std::string said = lowercased(trimmed(answer));
    return said == "y" || said == "yes";
}

ExitCode bin(CommandSurroundings& surroundings, const BinOptions& options) {
    const bool canAsk = Terminal::isTerminal(STDIN_FILENO) && !options.json;
    if (!options.yes && !canAsk)
        throw Failure(Outcome::misuse,
                      "Nobody is here to be asked. Move it to the Bin without asking with: vark rm "
                      "--yes");
    Desk desk(surroundings, options.json);
    std::vector<VarkItem> items;
    for (const std::string& typed : options.paths) {
        const std::string path = desk.whole(typed);
        if (desk.isTop(path))
            throw Failure(Outcome::misuse,
                          "The folder that this machine works in stays. Name what is in it.");
        if (std::optional<VarkItem> item = desk.find(path)) {
            item->path = path;
            items.push_back(*std::move(item));
        } else {
            desk.failed(path, "notThere", "It is not on the vark.");
        }
    }
    if (items.empty()) return desk.code();
    const VarkItem& first = items.front();
    const std::string what =
        items.size() > 1 ? fmt::format("these {} things", items.size())
                         : fmt::format("\"{}\"{}", first.path, first.isDir ? " with all that is in it" : "");
    if (!options.yes && !agree(surroundings.console, fmt::format("Move {} to the Bin of the vark?", what))) {
        surroundings.console.say("Nothing was moved.");
        return ExitCode::somethingFailed;
    }
    for (const VarkItem& item : items) {
        desk.trying(item.path, [&] {
            const std::string place = desk.await(desk.api().bin(item.path));
            desk.done("binned", item.path, place, fmt::format("In the Bin: {}", item.path));
        });
    }
    return desk.code();
}

}  // namespace

void declareFolderCommands(CLI::App& program, Chosen& chosen) {
    auto making = std::make_shared<MakeOptions>();
    CLI::App& mkdir = addCommand(program, chosen, "mkdir", "Make a folder in the vark", making, make);
    mkdir.add_option("PATH", making->paths, "Below the connection's folder")
        ->required()
        ->type_name("REMOTE")
        ->check(isVarkFolder());
    mkdir.add_flag("-p,--parents", making->withParents,
                   "Make the folders around it too, and be content with one that is there");
    addJSON(mkdir, making->json);

    auto moving = std::make_shared<MoveOptions>();
    CLI::App& mv = addCommand(program, chosen, "mv", "Move and rename what is in the vark", moving, move);
    mv.footer(
        "The last PATH says where to: a folder that is there takes in all that stand before it, under their "
        "names;\n"
        "any other is the new name of the one thing that stands before it. Nothing is ever replaced.");
    mv.add_option("PATH", moving->paths, "What is moved, and at the end where to")
        ->required()
        ->expected(2, CLI::detail::expected_max_vector_size)
        ->type_name("REMOTE")
        ->check(isVarkFolder());
    addJSON(mv, moving->json);

    auto binning = std::make_shared<BinOptions>();
    CLI::App& rm =
        addCommand(program, chosen, "rm", "Move files and folders of the vark to its Bin", binning, bin);
    rm.footer("Nothing is deleted for good: what is in the Bin can be put back in the portal.");
    rm.add_option("PATH", binning->paths, "Below the connection's folder")->required()->type_name("REMOTE");
    rm.add_flag("-y,--yes", binning->yes, "Do not ask; needed where nobody sits at a terminal");
    addJSON(rm, binning->json);
}

}  // namespace vark::cli
