#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Hosts/CLI/Commands.h"
#include "Hosts/CLI/Documentation.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class DocumentationTest : public ::testing::Test {
  protected:
    void SetUp() override {
        declareProgram(program, chosen);
        commands = commandsOf(program);
    }
    const CommandWords& command(const std::string& name) const {
        return *std::ranges::find(commands, name, &CommandWords::name);
    }
    std::string page(const std::string& path) const {
        for (const Document& document : manPages(CommandWords::of(program), commands)) {
            if (document.path == path) return document.content;
        }
        return "no such page";
    }

    Chosen chosen;
    CLI::App program;
    std::vector<CommandWords> commands;
};

TEST_F(DocumentationTest, EveryCommandThatIsShownHasAPage) {
    std::vector<Document> pages = manPages(CommandWords::of(program), commands);
    EXPECT_EQ(pages.size(), commands.size() + 1);
    EXPECT_THAT(page("man/vark.1"), HasSubstr("vark\\-send (1)"));
    for (const Document& one : pages)
        EXPECT_THAT(one.content, Not(HasSubstr("generate")));
}

TEST_F(DocumentationTest, APageTellsOptionsAndArgumentsAsTheyAreTyped) {
    EXPECT_EQ(command("send").usage(), "vark send [OPTIONS] [PATH...]");
    EXPECT_EQ(command("connect").usage(), "vark connect [OPTIONS] URL");
    EXPECT_EQ(command("job file").usage(), "vark job file [OPTIONS] --job REF PATH...");
    EXPECT_EQ(command("remove").usage(), "vark remove [OPTIONS] ENTRY...");
    std::string send = page("man/vark-send.1");
    EXPECT_THAT(send, HasSubstr(".B \\-\\-outside\\-office\\-hours[=HOURS]\n"));
    EXPECT_THAT(send, HasSubstr(".B \\-\\-on\\-conflict ask|replace|skip\n"));
    EXPECT_THAT(page("man/vark-job-find.1"), HasSubstr("vark job find [OPTIONS] [QUERY...]"));
    EXPECT_THAT(page("man/vark-resolve.1"), HasSubstr(".B \\-\\-replace\n"));
}

TEST_F(DocumentationTest, CompletionsKnowCommandsOptionsAndChoices) {
    for (const Document& shell : shellCompletions(commands)) {
        for (const CommandWords& one : commands) {
            for (const std::string& word : splitKeepingEmpty(one.name, ' '))
                EXPECT_THAT(shell.content, HasSubstr(word)) << shell.path;
        }
        for (const char* known : {"on-conflict", "ask replace skip", "complete-entries", "json"})
            EXPECT_THAT(shell.content, HasSubstr(known)) << shell.path;
        EXPECT_THAT(shell.content, Not(HasSubstr("generate-docs"))) << shell.path;
    }
}

}  // namespace
}  // namespace vark::cli
