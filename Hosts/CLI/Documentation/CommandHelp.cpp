#include "Hosts/CLI/Documentation/CommandHelp.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Commands/Commands.h"

namespace vark::cli {

namespace {

struct HelpOptions {
    std::vector<std::string> words;
};

struct NoOptions {};

std::vector<const CLI::App*> commandsBelow(const CLI::App& command) {
    return command.get_subcommands([](const CLI::App* inner) { return !inner->get_name().empty(); });
}

const CLI::App* commandBelow(const CLI::App& command, const std::string& name) {
    for (const CLI::App* inner : commandsBelow(command)) {
        if (inner->get_name() == name) return inner;
    }
    return nullptr;
}

ExitCode help(CommandSurroundings& surroundings, const HelpOptions& options) {
    Chosen none;
    CLI::App program;
    declareProgram(program, none);
    const CommandsNamed named = commandsNamed(program, options.words);
    if (named.isUnknown) return refuseUnknown(surroundings.console, named);
    surroundings.console.printText(helpOn(named.words));
    return ExitCode::allLanded;
}

ExitCode version(CommandSurroundings& surroundings, const NoOptions&) {
    surroundings.console.print("vark " VARK_VERSION);
    return ExitCode::allLanded;
}

}  // namespace

CommandsNamed commandsNamed(const CLI::App& program, const std::vector<std::string>& arguments) {
    CommandsNamed named;
    const CLI::App* command = &program;
    for (const std::string& argument : arguments) {
        if (argument.starts_with('-')) continue;
        if (commandsBelow(*command).empty()) break;
        named.words.push_back(argument);
        const CLI::App* inner = commandBelow(*command, argument);
        named.isUnknown = inner == nullptr;
        if (named.isUnknown) break;
        command = inner;
    }
    for (const CLI::App* inner : commandsBelow(*command)) {
        if (!inner->get_group().empty()) named.known.push_back(inner->get_name());
    }
    named.lacksOne = !named.isUnknown && !commandsBelow(*command).empty();
    return named;
}

ExitCode refuseUnknown(Console& console, const CommandsNamed& named) {
    std::vector<std::string> words = named.words;
    std::string sentence = fmt::format("There is no command \"{}\".", fmt::join(words, " "));
    if (std::optional<std::string> meant = nearestWord(words.back(), named.known)) {
        words.back() = *meant;
        sentence += fmt::format(" Did you mean \"{}\"?", fmt::join(words, " "));
    }
    console.say(sentence + " All of them are listed by: vark help");
    return ExitCode::usage;
}

std::string helpOn(const std::vector<std::string>& words) {
    // A fresh one: after its parsing, a program only tells of the command that was chosen.
    Chosen none;
    CLI::App program;
    declareProgram(program, none);
    const CLI::App* command = &program;
    std::string before;
    for (const std::string& word : words) {
        before += (before.empty() ? "" : " ") + command->get_name();
        command = commandBelow(*command, word);
    }
    return command->help(before);
}

void declareHelp(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<HelpOptions>();
    addCommand(program, chosen, "help", "Tell what a command does, or which there are", options, help)
        .add_option("COMMAND", options->words, "The command; all of them without it");
    addCommand(program, chosen, "version", "Print the version", std::make_shared<NoOptions>(), version);
}

}  // namespace vark::cli
