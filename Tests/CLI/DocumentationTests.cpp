#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Documentation/Documentation.h"
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
    EXPECT_THAT(page("man/vark-send.1"), HasSubstr(".B \\-\\-outside\\-office\\-hours[=HOURS]\n"));
    EXPECT_THAT(page("man/vark-job-file.1"), HasSubstr("vark job file [OPTIONS] \\-\\-job REF PATH..."));
    for (const Document& one : pages)
        EXPECT_THAT(one.content, Not(HasSubstr("generate")));
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
