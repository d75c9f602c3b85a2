#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Documentation/Documentation.h"
#include "VarkApp/Connect/Addresses.h"
#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

struct DocumentationOptions {
    std::string folder;
};

struct NoOptions {};

ExitCode write(CommandSurroundings&, const DocumentationOptions& options) {
    Chosen chosen;
    CLI::App program;
    declareProgram(program, chosen);
    const std::vector<CommandWords> commands = commandsOf(program);
    std::vector<Document> documents = manPages(CommandWords::of(program), commands);
    for (Document& completion : shellCompletions(commands))
        documents.push_back(std::move(completion));
    for (const Document& document : documents) {
        const std::filesystem::path path = std::filesystem::path(options.folder) / document.path;
        std::filesystem::create_directories(path.parent_path());
        writeAtomically(path, document.content, 0644, Durability::cached);
    }
    return ExitCode::allLanded;
}

struct RemoteOptions {
    std::string typed;
    bool foldersOnly = false;
};

/// A shell that waits for longer is in the way.
constexpr Duration longestCompletion = std::chrono::seconds(2);

Task<std::vector<VarkItem>> firstPage(std::shared_ptr<VarkAPI> api, std::string folder, std::int64_t rootID) {
    constexpr std::int64_t mostOffered = 1000;
    if (folder.empty() && rootID == 0) {
        std::vector<VarkItem> items;
        for (const VarkFolder& top : co_await api->folders("")) {
            items.push_back({.path = top.name, .name = top.name, .isDir = true});
        }
        co_return items;
    }
    std::int64_t id = rootID;
    if (!folder.empty()) {
        const VarkItem item = co_await api->item(std::move(folder));
        id = item.id;
    }
    VarkPage page = co_await api->children(id, "", mostOffered);
    co_return std::move(page.items);
}

/// For the shells: what may stand for a path of the vark. By the record of the connection alone, and nothing
/// at all when anything is in the way.
ExitCode listRemote(CommandSurroundings& surroundings, const RemoteOptions& options) {
    const std::optional<SharedConnection> connection = surroundings.connection();
    if (!connection || !connection->serverURL()) return ExitCode::allLanded;
    const std::size_t end = options.typed.rfind('/');
    const std::string before = end == std::string::npos ? "" : options.typed.substr(0, end + 1);
    std::string folder = joinedVarkPath(connection->rootPath, before);
    if (folder == connection->rootPath && connection->rootID != 0) folder.clear();
    try {
        const std::vector<VarkItem> items = surroundings.await(withTimeout(
            longestCompletion, firstPage(surroundings.api(*connection), folder, connection->rootID)));
        for (const VarkItem& item : items) {
            const std::string path = before + item.name;
            const bool isOffered = path.starts_with(options.typed) && (item.isDir || !options.foldersOnly) &&
                                   escapedForTerminal(path) == path;
            if (isOffered) surroundings.console.print(path + (item.isDir ? "/" : ""));
        }
    } catch (const VarkAPIError&) {
        return ExitCode::somethingFailed;
    } catch (const TimeoutError&) {
        return ExitCode::somethingFailed;
    }
    return ExitCode::allLanded;
}

/// For the shells: what may stand for a VOLUME.
ExitCode listVolumes(CommandSurroundings& surroundings, const NoOptions&) {
    for (const Volume& volume : surroundings.platform.volumes().volumes()) {
        if (escapedForTerminal(volume.name) == volume.name) surroundings.console.print(volume.name);
    }
    return ExitCode::allLanded;
}

/// For the shells: what may stand for an ENTRY. Names that hold line ends cannot be completed.
ExitCode listEntries(CommandSurroundings& surroundings, const NoOptions&) {
    std::optional<TransferJob> job = surroundings.store().load();
    if (!job) return ExitCode::allLanded;
    for (const TransferEntry& entry : job->entries) {
        if (escapedForTerminal(entry.name) == entry.name) surroundings.console.print(entry.name);
    }
    return ExitCode::allLanded;
}

}  // namespace

void declareDocumentation(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<DocumentationOptions>();
    CLI::App& command =
        addCommand(program, chosen, "generate-docs", "Write man pages and completions", options, write);
    command.add_option("FOLDER", options->folder, "Where they go")->required();
    command.group("");
    addCommand(program, chosen, "complete-entries", "Names of what is in the queue",
               std::make_shared<NoOptions>(), listEntries)
        .group("");
    addCommand(program, chosen, "complete-volumes", "Names of disks and cards", std::make_shared<NoOptions>(),
               listVolumes)
        .group("");
    auto remote = std::make_shared<RemoteOptions>();
    CLI::App& paths = addCommand(program, chosen, "complete-remote", "Paths of the vark", remote, listRemote);
    paths.add_option("TYPED", remote->typed);
    paths.add_flag("--folders", remote->foldersOnly);
    paths.group("");
}

}  // namespace vark::cli
