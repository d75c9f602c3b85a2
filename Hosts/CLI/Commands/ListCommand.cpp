#include "Hosts/CLI/Commands/Commands.h"
#include "VarkApp/Connect/Addresses.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

constexpr std::int64_t itemsOfAPage = 1000;

struct ListOptions {
    std::string path;
    bool isLong = false;
    bool json = false;
};

class Listing {
  public:
    Listing(CommandSurroundings& surroundings, const ListOptions& options)
        : surroundings_(surroundings), options_(options) {}

    void print(const VarkItem& item) {
        Console& console = surroundings_.console;
        if (options_.json) {
            JSONWriter record;
            record.beginObject().field("name", item.name).field("path", item.path).field("id", item.id);
            record.field("isFolder", item.isDir).field("size", item.size);
            if (item.mtime) record.field("modified", iso8601(Date::fromSince1970(*item.mtime)));
            record.field("sha256", item.sha256).endObject();
            console.printJSON(record.text());
            return;
        }
        const std::string name = item.name + (item.isDir ? "/" : "");
        if (!options_.isLong) {
            console.print(name);
            return;
        }
        const std::string size = item.isDir ? "-" : Format::bytes(item.size);
        const std::string date =
            item.mtime ? Format::date(Date::fromSince1970(*item.mtime), surroundings_.calendar()) : "-";
        console.print(fmt::format("{:>12}  {:<18}  {}", size, date, name));
    }

    void printChildren(VarkAPI& api, std::int64_t folder, const std::optional<std::set<std::string>>& shown) {
        std::string cursor;
        do {
            VarkPage page = surroundings_.await(api.children(folder, cursor, itemsOfAPage));
            for (const VarkItem& item : page.items) {
                if (!shown || shown->contains(item.name)) print(item);
            }
            if (page.more && page.cursor == cursor)
                throw Failure(Outcome::failed,
                              "The vark sends the same page again and again. The list is not complete.");
            cursor = page.more ? page.cursor : "";
        } while (!cursor.empty() && surroundings_.console.isRead());
    }

    /// The top of a vark that has no item for it: names are all that is known.
    void printTopFolders(VarkAPI& api, const std::optional<std::set<std::string>>& shown) {
        for (const VarkFolder& folder : surroundings_.await(api.folders(""))) {
            if (shown && !shown->contains(folder.name)) continue;
            VarkItem item;
            item.name = folder.name;
            item.path = folder.name;
            item.isDir = true;
            print(item);
        }
    }

  private:
    CommandSurroundings& surroundings_;
    const ListOptions& options_;
};

ExitCode list(CommandSurroundings& surroundings, const ListOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    std::shared_ptr<VarkAPI> api = surroundings.api(connection);
    const std::string path = joinedVarkPath(connection.rootPath, options.path);
    Listing listing(surroundings, options);
    if (path == connection.rootPath) {
        const auto shown = path.empty() ? connection.shownFolders() : std::nullopt;
        if (connection.rootID == 0) {
            listing.printTopFolders(*api, shown);
        } else {
            listing.printChildren(*api, connection.rootID, shown);
        }
        return ExitCode::allLanded;
    }
    const VarkItem item = surroundings.neededItem(*api, path);
    if (item.isDir) {
        listing.printChildren(*api, item.id, std::nullopt);
    } else {
        listing.print(item);
    }
    return ExitCode::allLanded;
}

}  // namespace

void declareListing(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<ListOptions>();
    CLI::App& command = addCommand(program, chosen, "ls", "List a folder of the vark", options, list);
    command.add_option("PATH", options->path, "Below the connection's folder; the top without it")
        ->type_name("REMOTE");
    command.add_flag("-l,--long", options->isLong, "With sizes and dates");
    addJSON(command, options->json);
}

}  // namespace vark::cli
