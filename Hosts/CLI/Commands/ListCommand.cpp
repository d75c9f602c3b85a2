#include <fmt/format.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Commands/VarkFolders.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

constexpr int deepest = 1'000'000;

struct ListOptions {
    std::string path;
    bool isLong = false;
    bool inBytes = false;
    bool recursive = false;
    ItemOrder order;
    bool json = false;
};

struct TreeOptions {
    std::string path;
    int depth = deepest;
    bool inBytes = false;
    bool isLong = false;
    ItemOrder order;
    bool json = false;
};

void printRecord(Console& console, const VarkItem& item) {
    JSONWriter record;
    record.beginObject().field("name", item.name).field("path", item.path).field("id", item.id);
    record.field("isFolder", item.isDir).field("size", item.size);
    if (item.mtime) record.field("modified", iso8601(Date::fromSince1970(*item.mtime)));
    record.field("sha256", item.sha256).endObject();
    console.printJSON(record.text());
}

std::string shownName(const VarkItem& item) {
    return item.name + (item.isDir ? "/" : "");
}

std::string shownSize(const VarkItem& item, bool inBytes) {
    return inBytes ? fmt::to_string(item.size) : Format::bytes(item.size);
}

class Listing {
  public:
    Listing(CommandSurroundings& surroundings, const ListOptions& options)
        : surroundings_(surroundings), options_(options), folders_(surroundings) {}

    void run() {
        const VarkItem item = folders_.at(options_.path);
        if (!item.isDir) return print(item);
        std::vector<VarkItem> waiting = {item};
        while (!waiting.empty() && surroundings_.console.isRead()) {
            const VarkItem folder = std::move(waiting.back());
            waiting.pop_back();
            if (options_.recursive && !options_.json) printHeading(folder);
            std::vector<VarkItem> inside = list(folder);
            if (!options_.recursive) return;
            // The next one is the first of those that lie in this one.
            std::ranges::reverse(inside);
            std::ranges::move(inside, std::back_inserter(waiting));
        }
    }

  private:
    /// Gives the folders in it.
    std::vector<VarkItem> list(const VarkItem& folder) {
        std::vector<VarkItem> inside;
        const auto show = [&](const std::vector<VarkItem>& items) {
            for (const VarkItem& item : items) {
                print(item);
                if (item.isDir) inside.push_back(item);
            }
        };
        if (options_.order.isVarks()) {
            folders_.eachPage(folder, show);
        } else {
            show(folders_.items(folder, options_.order));
        }
        return inside;
    }

    void printHeading(const VarkItem& folder) {
        if (wasHeaded_) surroundings_.console.print("");
        wasHeaded_ = true;
        surroundings_.console.print((folder.path.empty() ? "/" : folder.path) + ":");
    }

    void print(const VarkItem& item) {
        Console& console = surroundings_.console;
        if (options_.json) return printRecord(console, item);
        if (!options_.isLong && !options_.inBytes) return console.print(shownName(item));
        const std::string size = item.isDir ? "-" : shownSize(item, options_.inBytes);
        const std::string date =
            item.mtime ? Format::date(Date::fromSince1970(*item.mtime), surroundings_.calendar()) : "-";
        console.print(fmt::format("{:>12}  {:<18}  {}", size, date, shownName(item)));
    }

    CommandSurroundings& surroundings_;
    const ListOptions& options_;
    VarkFolders folders_;
    bool wasHeaded_ = false;
};

ExitCode list(CommandSurroundings& surroundings, const ListOptions& options) {
    Listing(surroundings, options).run();
    return ExitCode::allLanded;
}

class Tree {
  public:
    Tree(CommandSurroundings& surroundings, const TreeOptions& options)
        : surroundings_(surroundings), options_(options), folders_(surroundings) {}

    void run() {
        const VarkItem top = folders_.at(options_.path);
        if (!options_.json) surroundings_.console.print(top.path.empty() ? "/" : top.path);
        if (top.isDir) printInside(top, "", 1);
        if (!options_.json)
            surroundings_.console.say(fmt::format("{}, {}, {}", Format::count(countOfFolders_, "folder"),
                                                  Format::count(countOfFiles_, "file"),
                                                  Format::bytes(bytes_)));
    }

  private:
    void printInside(const VarkItem& folder, const std::string& margin, int depth) {
        const std::vector<VarkItem> items = folders_.items(folder, options_.order);
        const Signs& signs = surroundings_.console.signs();
        for (std::size_t place = 0; place < items.size() && surroundings_.console.isRead(); ++place) {
            const VarkItem& item = items[place];
            const bool isLast = place + 1 == items.size();
            if (options_.json) {
                printRecord(surroundings_.console, item);
            } else {
                surroundings_.console.print(fmt::format("{}{}{}{}", margin,
                                                        isLast ? signs.lastBranch : signs.branch,
                                                        sizeBefore(item), shownName(item)));
            }
            ++(item.isDir ? countOfFolders_ : countOfFiles_);
            bytes_ += item.size;
            if (item.isDir && depth < options_.depth)
                printInside(item, margin + std::string(isLast ? signs.noBranch : signs.passingBranch),
                            depth + 1);
        }
    }

    std::string sizeBefore(const VarkItem& item) const {
        if (item.isDir || !(options_.isLong || options_.inBytes)) return "";
        return fmt::format("[{}] ", shownSize(item, options_.inBytes));
    }

    CommandSurroundings& surroundings_;
    const TreeOptions& options_;
    VarkFolders folders_;
    std::int64_t countOfFolders_ = 0;
    std::int64_t countOfFiles_ = 0;
    std::int64_t bytes_ = 0;
};

ExitCode showTree(CommandSurroundings& surroundings, const TreeOptions& options) {
    Tree(surroundings, options).run();
    return ExitCode::allLanded;
}

}  // namespace

void declareListing(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<ListOptions>();
    CLI::App& command = addCommand(program, chosen, "ls", "List a folder of the vark", options, list);
    command.add_option("PATH", options->path, "Below the connection's folder; the top without it")
        ->type_name("REMOTE");
    command.add_flag("-l,--long", options->isLong, "With sizes and dates");
    command.add_flag("--bytes", options->inBytes, "The same, with sizes to the byte");
    command.add_flag("-R,--recursive", options->recursive, "With all folders in it, one after the other");
    addOrder(command, options->order);
    addJSON(command, options->json);

    auto growing = std::make_shared<TreeOptions>();
    CLI::App& tree = addCommand(program, chosen, "tree", "Show a folder of the vark with all that is in it",
                                growing, showTree);
    tree.add_option("PATH", growing->path, "Below the connection's folder; the top without it")
        ->type_name("REMOTE");
    tree.add_option("--depth", growing->depth, "No deeper than so many folders")
        ->type_name("N")
        ->check(wholeNumber(1, deepest));
    tree.add_flag("-l,--long", growing->isLong, "With the sizes of files");
    tree.add_flag("--bytes", growing->inBytes, "The same, to the byte");
    addOrder(tree, growing->order);
    addJSON(tree, growing->json);
}

}  // namespace vark::cli
