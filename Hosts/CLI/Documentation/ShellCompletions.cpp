#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Hosts/CLI/Documentation/Documentation.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

bool namesAFile(const OptionWords& option) {
    return option.kind == "FILE";
}

/// What this program lists by itself, one a line; nothing for values of other kinds. `{}` is where the shell
/// puts what has been typed so far.
std::optional<std::string_view> listFor(const OptionWords& option) {
    constexpr std::pair<std::string_view, std::string_view> lists[] = {
        {"ENTRY", "vark complete-entries 2>/dev/null"},
        {"REMOTE", "vark complete-remote -- {} 2>/dev/null"},
        {"FOLDER", "vark complete-remote --folders -- {} 2>/dev/null"},
        {"VOLUME", "vark complete-volumes 2>/dev/null"},
    };
    for (const auto& [kind, list] : lists) {
        if (option.kind == kind) return list;
    }
    return std::nullopt;
}

std::string withTyped(std::string_view list, std::string_view typed) {
    std::string text(list);
    if (const std::size_t place = text.find("{}"); place != std::string::npos) text.replace(place, 2, typed);
    return text;
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

/// Names may hold blanks, so each line is one of them; one that ends in "/" is gone on with.
std::string bashReply(std::string_view list) {
    return fmt::format("_vark_list \"$({})\"", withTyped(list, "\"${word//\\\\/}\""));
}

std::string bashValues(const CommandWords& command) {
    std::string cases;
    for (const OptionWords& option : command.options) {
        if (option.value.empty() || option.valueIsOptional) continue;
        std::string reply = "COMPREPLY=()";
        if (namesAFile(option)) reply = "mapfile -t COMPREPLY < <(compgen -f -- \"$word\")";
        if (const std::optional<std::string_view> list = listFor(option)) reply = bashReply(*list);
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
        if (const std::optional<std::string_view> list = listFor(argument))
            return fmt::format("    \"{}\") {} ;;\n", command.name, bashReply(*list));
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
_vark_list() {{
  local line
  COMPREPLY=()
  while IFS= read -r line; do
    [[ -n $line && $line == "${{word//\\/}}"* ]] && COMPREPLY+=("$line")
  done <<< "$1"
  [[ ${{COMPREPLY[0]-}} == */ ]] && compopt -o nospace 2>/dev/null
  return 0
}}
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
    if (option.kind == "ENTRY") return "_vark_entries";
    if (option.kind == "REMOTE") return "_vark_remote";
    if (option.kind == "FOLDER") return "_vark_folders";
    if (option.kind == "VOLUME") return "_vark_volumes";
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
_vark_entries() {{ local -a found=("${{(@f)$(vark complete-entries 2>/dev/null)}}"); compadd -a found }}
_vark_volumes() {{ local -a found=("${{(@f)$(vark complete-volumes 2>/dev/null)}}"); compadd -a found }}
_vark_remote() {{
  local -a found=("${{(@f)$(vark complete-remote $1 -- "${{(Q)PREFIX}}" 2>/dev/null)}}")
  local -a folders=("${{(@M)found:#*/}}") files=("${{(@)found:#*/}}")
  compadd -S '' -a folders
  compadd -a files
}}
_vark_folders() {{ _vark_remote --folders }}
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
                       described, inner, cases);
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

std::string fishList(std::string_view list) {
    return fmt::format(" -a '({})'", withTyped(list, "(commandline -ct)"));
}

std::string fishOption(const CommandWords& command, const OptionWords& option) {
    std::string line = "complete -c vark -n " + fishCondition(command);
    for (const std::string& name : option.names)
        line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    if (!option.value.empty() && !option.valueIsOptional) {
        line += namesAFile(option) ? " -r -F" : " -x";
        if (const std::optional<std::string_view> list = listFor(option)) line += fishList(*list);
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
            if (const std::optional<std::string_view> list = listFor(argument))
                text += fmt::format("complete -c vark -n {}{}\n", fishCondition(command), fishList(*list));
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
