#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Documentation/Documentation.h"
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
}

}  // namespace vark::cli
