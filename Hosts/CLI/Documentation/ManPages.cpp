#include <fmt/format.h>

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

}  // namespace

std::vector<Document> manPages(const CommandWords& program, const std::vector<CommandWords>& commands) {
    std::vector<Document> pages;
    std::string whole = heading("vark", program.help);
    whole += ".SH SYNOPSIS\n.B vark\nCOMMAND [OPTIONS] ...\n.SH COMMANDS\n";
    for (const CommandWords& command : commands)
        whole += fmt::format(".TP\n.BR {} (1)\n{}\n", roff(pageOf(command)), roff(command.help));
    whole += listed("OPTIONS", program.options) + exitStatus();
    pages.push_back({"man/vark.1", whole});

    for (const CommandWords& command : commands) {
        std::string page = heading(pageOf(command), command.help);
        page += fmt::format(".SH SYNOPSIS\n.B {}\n", roff(command.usage()));
        page += listed("ARGUMENTS", command.arguments) + listed("OPTIONS", command.options);
        page += paragraphs("NOTES", command.footer);
        page += exitStatus() + ".SH SEE ALSO\n.BR vark (1)\n";
        pages.push_back({fmt::format("man/{}.1", pageOf(command)), page});
    }
    return pages;
}

}  // namespace vark::cli
