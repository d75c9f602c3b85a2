#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <sstream>

#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class Output : public EndToEndTest {
  protected:
    /// Starts a run on a terminal of 100 columns.
    Process startOnTerminal(const std::vector<std::string>& arguments) {
        int person = -1;
        int program = -1;
        const winsize size{40, 100, 0, 0};
        if (openpty(&person, &program, nullptr, nullptr, &size) != 0)
            throw std::runtime_error("There is no terminal to be had here.");
        terminal_ = Descriptor(person);
        const Descriptor programsEnd(program);
        return vark.startOn(program, arguments);
    }
    /// Everything that reaches the terminal until the program ends.
    std::string shownUntilEndOf(Process& process, int code) const {
        std::string shown;
        std::string piece(1 << 16, '\0');
        while (true) {
            pollfd event{terminal_.get(), POLLIN, 0};
            const ssize_t count =
                poll(&event, 1, 60'000) <= 0 ? 0 : read(terminal_.get(), piece.data(), piece.size());
            if (count <= 0) break;
            shown.append(piece, 0, static_cast<std::size_t>(count));
        }
        EXPECT_EQ(process.wait(), exitCode(code)) << shown;
        return shown;
    }
    std::string shownBy(const std::vector<std::string>& arguments, int code) {
        Process process = startOnTerminal(arguments);
        return shownUntilEndOf(process, code);
    }
    void type(char key) const { EXPECT_EQ(write(terminal_.get(), &key, 1), 1); }

    void writeHostileFiles() {
        // Each would do something to a terminal that shows it as it is.
        for (const char* name : {"\x1b[31mred\x1b[0m", "title\x1b]0;owned\a", "line\nbreak", "back\b\b\b\r",
                                 "\u202Egnp.exe", "\u009B31m", "tab\tand \x7f"})
            file(std::string("Shoot/") + name, 3000);
        box.put("Shoot/\x1b[31mred\x1b[0m", "another file");
        fault(R"({"kind": "fail_check", "path_contains": "/finish", "count": 2})");
    }

  private:
    Descriptor terminal_;
};

TEST_F(Output, OnATerminalShowsNoNameRaw) {
    writeHostileFiles();
    const std::string sent = shownBy({"send", pathOf("Shoot")}, 1);
    for (const std::string& shown :
         {sent, shownBy({"queue"}, 0), shownBy({"ls", "Shoot"}, 0), shownBy({"log"}, 0)}) {
        EXPECT_THAT(shown, HasSubstr("red"));
        for (const char* raw :
             {"\x1b[31m", "\x1b]", "\a", "line\nbreak", "line\r\nbreak", "\b", "\u202E", "\u009B", "\x7f"})
            EXPECT_THAT(shown, Not(HasSubstr(raw)));
    }
}

TEST_F(Output, OnATerminalEndsAtTheKeyThatQuitsAndIsPlainWhereItCannotDraw) {
    const SampleFile take = file("Take.mov", 40 * chunkSize);
    Process sending = startOnTerminal({"send", pathOf(take), "--rate", "1MB"});
    ASSERT_TRUE(untilAnswered("PUT", "/u/", 200));
    type('q');
    EXPECT_THAT(shownUntilEndOf(sending, 130), HasSubstr("vark send"));

    vark.moveTo({.environment = {{"TERM", "dumb"}}});
    const std::string shown = shownBy({"send"}, 0);
    EXPECT_THAT(shown, HasSubstr("Landed: Take.mov"));
    EXPECT_THAT(shown, Not(HasSubstr("\x1b")));
}

TEST_F(Output, NeverGoesIntoAFileOfTheProgramsOwn) {
    const SampleFile take = file("Take.mov", chunkSize);
    vark.moveTo({.prefix = {"/bin/sh", "-c", "exec \"$@\" <&- >&- 2>&-", "sh"}});
    expectExit(send(take), 0);
    expectHeld(take);
    EXPECT_EQ(std::filesystem::file_size(vark.find("running.lock").value()), 0U);
}

TEST_F(Output, ForProgramsIsOneObjectALine) {
    writeHostileFiles();
    const std::vector<std::vector<std::string>> commands{
        {"send", pathOf("Shoot")}, {"queue"}, {"ls", "Shoot"}, {"log"}, {"whoami"}, {"retry"},
        {"resolve", "--skip"},     {"clear"}};
    for (std::vector<std::string> command : commands) {
        SCOPED_TRACE(command.front());
        command.emplace_back("--json");
        const Finished run = vark.run(command);
        EXPECT_NE(run.output, "") << run.errors;
        std::istringstream lines(run.output);
        for (std::string line; std::getline(lines, line);) {
            boost::json::error_code wrong;
            EXPECT_TRUE(boost::json::parse(line, wrong).is_object()) << line;
        }
    }
}

}  // namespace
}  // namespace vark::test
