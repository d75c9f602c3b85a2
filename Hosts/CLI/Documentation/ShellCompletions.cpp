#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Hosts/CLI/Documentation/Documentation.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

bool namesAFile(const OptionWords& option) {
    return option.kind == "FILE";
}

/// Names of what is in the queue, one a line.
constexpr std::string_view entryNames = "vark complete-entries 2>/dev/null";

bool namesAnEntry(const OptionWords& argument) {
    return argument.kind == "ENTRY";
}

std::vector<std::string> allNames(const CommandWords& command) {
    std::vector<std::string> names;
    for (const OptionWords& option : command.options)
        names.insert(names.end(), option.names.begin(), option.names.end());
    return names;
}

/// The first words of all commands.
std::vector<std::string> firstWords(const std::vector<CommandWords>& commands) {
    std::vector<std::string> words;
    for (const CommandWords& command : commands) {
        std::string first = splitKeepingEmpty(command.name, ' ').front();
        if (std::ranges::find(words, first) == words.end()) words.push_back(std::move(first));
    }
    return words;
}

/// For each first word of names of two words: what may stand behind it.
std::vector<std::pair<std::string, std::vector<std::string>>> groups(
    const std::vector<CommandWords>& commands) {
    std::vector<std::pair<std::string, std::vector<std::string>>> found;
    for (const CommandWords& command : commands) {
        const std::vector<std::string> words = splitKeepingEmpty(command.name, ' ');
        if (words.size() != 2) continue;
        if (found.empty() || found.back().first != words[0]) found.push_back({words[0], {}});
        found.back().second.push_back(words[1]);
    }
    return found;
}

// Bash.

std::string bashValues(const CommandWords& command) {
    std::string cases;
    for (const OptionWords& option : command.options) {
        if (option.value.empty() || option.valueIsOptional) continue;
        std::string reply = "COMPREPLY=()";
        if (namesAFile(option)) reply = "mapfile -t COMPREPLY < <(compgen -f -- \"$word\")";
        if (std::vector<std::string> choices = option.choices(); !choices.empty())
            reply = fmt::format("mapfile -t COMPREPLY < <(compgen -W \"{}\" -- \"$word\")",
                                fmt::join(choices, " "));
        cases += fmt::format("      \"{}\":{}) {}; return ;;\n", command.name,
                             fmt::join(option.names, fmt::format("|\"{}\":", command.name)), reply);
    }
    return cases;
}

std::string bashArguments(const CommandWords& command) {
    for (const OptionWords& argument : command.arguments) {
        if (namesAFile(argument))
            return fmt::format("    \"{}\") mapfile -t COMPREPLY < <(compgen -f -- \"$word\") ;;\n",
                               command.name);
        if (namesAnEntry(argument))
            return fmt::format(
                "    \"{}\") local IFS=$'\\n'; mapfile -t COMPREPLY < <(compgen -W \"$({})\" -- \"$word\") "
                ";;\n",
                command.name, entryNames);
    }
    return {};
}

std::string bash(const std::vector<CommandWords>& commands) {
    std::string inner;
    for (const auto& [first, seconds] : groups(commands))
        inner += fmt::format(
            "    {0})\n      if [ \"$COMP_CWORD\" -eq 2 ]; then\n        mapfile -t COMPREPLY < <(compgen -W "
            "\"{1}\" -- \"$word\")\n        return\n      fi\n      command=\"{0} ${{COMP_WORDS[2]}}\" ;;\n",
            first, fmt::join(seconds, " "));
    std::string values;
    std::string options;
    std::string arguments;
    for (const CommandWords& command : commands) {
        values += bashValues(command);
        options +=
            fmt::format("      \"{}\") options=\"{}\" ;;\n", command.name, fmt::join(allNames(command), " "));
        arguments += bashArguments(command);
    }
    return fmt::format(R"(# Completes the vark command line.
_vark() {{
  local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD-1]}} command=${{COMP_WORDS[1]}} options=
  compopt -o filenames 2>/dev/null
  if [ "$COMP_CWORD" -eq 1 ]; then
    mapfile -t COMPREPLY < <(compgen -W "{} --help --version" -- "$word")
    return
  fi
  case "$command" in
{}  esac
  case "$command:$before" in
{}  esac
  if [[ $word == -* ]]; then
    case "$command" in
{}    esac
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    return
  fi
  case "$command" in
{}  esac
}}
complete -F _vark vark
)",
                       fmt::join(firstWords(commands), " "), inner, values, options, arguments);
}

// Zsh.

/// Inside single quotes, and with what has a meaning in a description of `_arguments`.
std::string zshQuoted(std::string_view text) {
    std::string quoted;
    for (const char character : text) {
        if (character == '\'') {
            quoted += "'\\''";
        } else if (character == '[' || character == ']' || character == ':') {
            quoted += '\\';
            quoted += character;
        } else {
            quoted += character;
        }
    }
    return quoted;
}

std::string zshValue(const OptionWords& option) {
    if (std::vector<std::string> choices = option.choices(); !choices.empty())
        return fmt::format("({})", fmt::join(choices, " "));
    if (namesAFile(option)) return "_files";
    if (namesAnEntry(option)) return "_vark_entries";
    return " ";
}

std::string zshOptions(const CommandWords& command) {
    std::string text;
    for (const OptionWords& option : command.options) {
        for (const std::string& name : option.names) {
            std::string value;
            if (!option.value.empty())
                value = fmt::format(":{}:{}", zshQuoted(option.value), zshValue(option));
            const char* sign = option.value.empty() ? "" : option.valueIsOptional ? "=-" : "=";
            if (option.valueIsOptional) value = ":" + value;
            text += fmt::format(" \\\n        '{}{}[{}]{}'", name, name.starts_with("--") ? sign : "",
                                zshQuoted(option.help), value);
        }
    }
    for (const OptionWords& argument : command.arguments) {
        text += fmt::format(" \\\n        '{}:{}:{}'", argument.isRepeated ? "*" : "",
                            zshQuoted(argument.value), zshValue(argument));
    }
    return text;
}

std::string zsh(const std::vector<CommandWords>& commands) {
    std::string described;
    std::string cases;
    for (const CommandWords& command : commands) {
        if (!command.name.contains(' '))
            described += fmt::format("    '{}:{}'\n", command.name, zshQuoted(command.help));
        cases += fmt::format("    '{}')\n      _arguments{} ;;\n", command.name, zshOptions(command));
    }
    std::string inner;
    for (const auto& [first, seconds] : groups(commands)) {
        described += fmt::format("    '{}:{}'\n", first, fmt::join(seconds, ", "));
        inner += fmt::format(
            "    {0})\n      if (( CURRENT == 2 )); then compadd {1}; return; fi\n"
            "      command=\"{0} $words[2]\"; shift words; (( CURRENT-- )) ;;\n",
            first, fmt::join(seconds, " "));
    }
    return fmt::format(R"(#compdef vark
# Completes the vark command line.
_vark_entries() {{
  local -a entries
  entries=("${{(@f)$({})}}")
  compadd -a entries
}}
_vark() {{
  local -a commands
  commands=(
{}  )
  if (( CURRENT == 2 )); then
    _describe 'command' commands
    return
  fi
  local command=$words[2]
  shift words
  (( CURRENT-- ))
  case $command in
{}  esac
  case $command in
{}  esac
}}
_vark "$@"
)",
                       entryNames, described, inner, cases);
}

// Fish.

std::string fishQuoted(std::string_view text) {
    std::string quoted;
    for (const char character : text) {
        if (character == '\'' || character == '\\') quoted += '\\';
        quoted += character;
    }
    return quoted;
}

/// When a command stands on the line.
std::string fishCondition(const CommandWords& command) {
    std::vector<std::string> seen;
    for (const std::string& word : splitKeepingEmpty(command.name, ' '))
        seen.push_back("__fish_seen_subcommand_from " + word);
    return fmt::format("'{}'", fmt::join(seen, "; and "));
}

std::string fishOption(const CommandWords& command, const OptionWords& option) {
    std::string line = "complete -c vark -n " + fishCondition(command);
    for (const std::string& name : option.names)
        line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    if (!option.value.empty() && !option.valueIsOptional) {
        line += namesAFile(option) ? " -r -F" : " -x";
        if (std::vector<std::string> choices = option.choices(); !choices.empty())
            line += fmt::format(" -a '{}'", fmt::join(choices, " "));
    }
    return line + fmt::format(" -d '{}'\n", fishQuoted(option.help));
}

std::string fish(const std::vector<CommandWords>& commands) {
    std::string text = "# Completes the vark command line.\ncomplete -c vark -f\n";
    for (const auto& [first, seconds] : groups(commands))
        text += fmt::format("complete -c vark -n __fish_use_subcommand -a {}\n", first);
    for (const CommandWords& command : commands) {
        const std::vector<std::string> words = splitKeepingEmpty(command.name, ' ');
        text += fmt::format("complete -c vark -n {} -a {} -d '{}'\n",
                            words.size() == 1 ? "__fish_use_subcommand"
                                              : fmt::format("'__fish_seen_subcommand_from {}'", words[0]),
                            words.back(), fishQuoted(command.help));
        for (const OptionWords& option : command.options)
            text += fishOption(command, option);
        for (const OptionWords& argument : command.arguments) {
            if (namesAFile(argument))
                text += fmt::format("complete -c vark -n {} -F\n", fishCondition(command));
            if (namesAnEntry(argument))
                text += fmt::format("complete -c vark -n {} -a '({})'\n", fishCondition(command), entryNames);
        }
    }
    return text;
}

}  // namespace

std::vector<Document> shellCompletions(const std::vector<CommandWords>& commands) {
    return {{"completions/bash/vark", bash(commands)},
            {"completions/zsh/_vark", zsh(commands)},
            {"completions/fish/vark.fish", fish(commands)}};
}

}  // namespace vark::cli
