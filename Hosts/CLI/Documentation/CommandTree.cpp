#include "Hosts/CLI/Documentation/CommandTree.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

OptionWords wordsOf(const CLI::Option& option) {
    OptionWords words;
    for (const std::string& name : option.get_snames())
        words.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        words.names.push_back("--" + name);
    words.help = option.get_description();
    words.isRequired = option.get_required();
    words.isRepeated = option.get_expected_max() > 1;
    const bool isFlag = option.get_expected_min() == 0;
    words.valueIsOptional = isFlag && !option.get_type_name().empty();
    words.kind = option.get_type_name();
    words.value = words.names.empty() ? option.get_name() : words.kind;
    return words;
}

void gather(const CLI::App& command, CommandWords& words) {
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_group().empty()) continue;
        std::vector<OptionWords>& list = option->get_positional() ? words.arguments : words.options;
        list.push_back(wordsOf(*option));
    }
    for (const CLI::App* group :
         command.get_subcommands([](const CLI::App* inner) { return inner->get_name().empty(); }))
        gather(*group, words);
}

}  // namespace

std::string OptionWords::text() const {
    std::string all = fmt::format("{}", fmt::join(names, ", "));
    if (value.empty()) return all;
    if (names.empty()) return value;
    return valueIsOptional ? fmt::format("{}[={}]", all, value) : fmt::format("{} {}", all, value);
}

std::vector<std::string> OptionWords::choices() const {
    if (!value.contains('|')) return {};
    return splitKeepingEmpty(value, '|');
}

CommandWords CommandWords::of(const CLI::App& command) {
    CommandWords words;
    words.name = command.get_name();
    words.help = command.get_description();
    words.footer = command.get_footer();
    gather(command, words);
    return words;
}

std::string CommandWords::usage() const {
    std::string text = "vark " + name + " [OPTIONS]";
    for (const OptionWords& option : options) {
        if (option.isRequired) text += " " + option.text();
    }
    for (const OptionWords& argument : arguments) {
        std::string shown = argument.value + (argument.isRepeated ? "..." : "");
        text += argument.isRequired ? " " + shown : " [" + shown + "]";
    }
    return text;
}

std::vector<CommandWords> commandsOf(const CLI::App& program) {
    std::vector<CommandWords> commands;
    for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; })) {
        if (command->get_group().empty() || command->get_name().empty()) continue;
        std::vector<CommandWords> inner = commandsOf(*command);
        for (CommandWords& words : inner) {
            words.name = command->get_name() + " " + words.name;
            commands.push_back(std::move(words));
        }
        if (inner.empty()) commands.push_back(CommandWords::of(*command));
    }
    return commands;
}

}  // namespace vark::cli
