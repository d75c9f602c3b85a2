#include <fmt/format.h>

#include <span>

#include "Hosts/CLI/Documentation/Documentation.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

/// As it stands in a page: no character drives the formatter.
std::string roff(std::string_view text) {
    std::string safe;
    bool atLineStart = true;
    for (const char character : text) {
        if (atLineStart && (character == '.' || character == '\'')) safe += "\\&";
        if (character == '\\') {
            safe += "\\e";
        } else if (character == '-') {
            safe += "\\-";
        } else if (character == '~') {
            safe += "\\(ti";
        } else {
            safe += character;
        }
        atLineStart = character == '\n';
    }
    return safe;
}

/// The name of a command's page: "vark-job-find".
std::string pageOf(const CommandWords& command) {
    std::string page = "vark-" + command.name;
    std::ranges::replace(page, ' ', '-');
    return page;
}

std::string heading(std::string_view page, std::string_view help) {
    return fmt::format(".TH {} 1 \"\" \"Vark\" \"Vark\"\n.SH NAME\n{} \\- {}\n", lowercased(page), roff(page),
                       roff(help));
}

std::string listed(std::string_view title, const std::vector<OptionWords>& options) {
    if (options.empty()) return {};
    std::string text = fmt::format(".SH {}\n", title);
    for (const OptionWords& option : options)
        text += fmt::format(".TP\n.B {}\n{}\n", roff(option.text()), roff(option.help));
    return text;
}

std::string paragraphs(std::string_view title, const std::string& footer) {
    if (footer.empty()) return {};
    return fmt::format(".SH {}\n{}\n", title, roff(footer));
}

std::string exitStatus() {
    constexpr std::pair<int, std::string_view> meanings[] = {
        {0, "All that the command named has landed, or was done."},
        {1, "Something failed, was left behind or changed under way."},
        {2, "The command line could not be understood, or names something that cannot be used."},
        {3, "Not connected, or the vark refused the token."},
        {4, "A decision is waiting."},
        {5, "Handed over to another vark and, as asked, not followed."},
        {130, "Interrupted; the queue is saved."},
        {141, "Whoever read the output went away."},
    };
    std::string text = ".SH EXIT STATUS\n";
    for (const auto& [code, meaning] : meanings)
        text += fmt::format(".TP\n.B {}\n{}\n", code, roff(meaning));
    return text;
}

struct Meaning {
    std::string_view name;
    std::string_view meaning;
};

std::string defined(std::string_view title, std::span<const Meaning> meanings) {
    std::string text = fmt::format(".SH {}\n", title);
    for (const auto& [name, meaning] : meanings)
        text += fmt::format(".TP\n.B {}\n{}\n", roff(name), roff(meaning));
    return text;
}

std::string environment() {
    constexpr Meaning variables[] = {
        {"VARK_URL, VARK_TOKEN_FILE",
         "The vark, and a file of yours alone with a token for it in its first line: for a script, in place "
         "of the "
         "connection that this machine keeps."},
        {"VARK_CA_FILE", "The authority of that vark, when it has one of its own."},
        {"VARK_PROFILE",
         "The name of a profile: a connection, a queue and a diary of its own, so that one person can work "
         "with two "
         "varks."},
        {"VARK_SECRET_STORE",
         "\"file\" has \"vark connect\" keep the token in a file that only you can read, and not in the "
         "keychain."},
        {"XDG_DATA_HOME, XDG_STATE_HOME",
         "Where the folders below lie, if not in ~/.local/share and ~/.local/state."},
        {"LC_ALL, LC_CTYPE, LANG", "Whether lines may hold more than ASCII."},
    };
    return defined("ENVIRONMENT", variables);
}

std::string files() {
    constexpr Meaning places[] = {
        {"~/.local/share/Vark/queue.json", "The queue."},
        {"~/.local/share/Vark/settings.json", "The settings, as vark-config(1) shows them."},
        {"~/.local/share/Vark/spool/", "What \"vark send -\" has read, until the vark has it."},
        {"~/.local/state/Logs/Vark/transfer.log", "The diary, as vark-log(1) shows it."},
    };
    return defined("FILES", places);
}

std::string examples(const CommandWords& command) {
    std::string text;
    for (const Example& example : examplesOf(command.name))
        text +=
            fmt::format(".PP\n{}\n.PP\n.nf\n.RS 4\n{}\n.RE\n.fi\n", roff(example.what), roff(example.line));
    return text.empty() ? text : ".SH EXAMPLES\n" + text;
}

}  // namespace

std::vector<Document> manPages(const CommandWords& program, const std::vector<CommandWords>& commands) {
    std::vector<Document> pages;
    std::string whole = heading("vark", program.help);
    whole += ".SH SYNOPSIS\n.B vark\nCOMMAND [OPTIONS] ...\n.SH COMMANDS\n";
    for (const CommandWords& command : commands)
        whole += fmt::format(".TP\n.BR {} (1)\n{}\n", roff(pageOf(command)), roff(command.help));
    whole += listed("OPTIONS", program.options) + exitStatus() + environment() + files();
    pages.push_back({"man/vark.1", whole});

    for (const CommandWords& command : commands) {
        std::string page = heading(pageOf(command), command.help);
        page += fmt::format(".SH SYNOPSIS\n.B {}\n", roff(command.usage()));
        page += listed("ARGUMENTS", command.arguments) + listed("OPTIONS", command.options);
        page += paragraphs("NOTES", command.footer);
        page += examples(command) + exitStatus() + ".SH SEE ALSO\n.BR vark (1)\n";
        pages.push_back({fmt::format("man/{}.1", pageOf(command)), page});
    }
    return pages;
}

}  // namespace vark::cli
