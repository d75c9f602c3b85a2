#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <boost/json/parse.hpp>
#include <sstream>

#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
using testing::Not;

/// A terminal of 100 columns, seen from the side of the person.
class Terminal {
  public:
    Terminal() {
        int mine = -1;
        int programs = -1;
        winsize size{40, 100, 0, 0};
        if (::openpty(&mine, &programs, nullptr, nullptr, &size) != 0)
            throw std::runtime_error("There is no terminal to be had here.");
        mine_ = Descriptor(mine);
        programs_ = Descriptor(programs);
        ::fcntl(mine, F_SETFD, FD_CLOEXEC);
        ::fcntl(programs, F_SETFD, FD_CLOEXEC);
    }

    int programsEnd() const { return programs_.get(); }

    /// Everything that reaches the terminal until the program ends.
    std::string readUntilEndOf(Process& process) {
        programs_.close();
        std::string shown;
        std::string piece(1 << 16, '\0');
        while (true) {
            pollfd event{mine_.get(), POLLIN, 0};
            if (::poll(&event, 1, 60'000) <= 0) break;
            ssize_t count = ::read(mine_.get(), piece.data(), piece.size());
            if (count <= 0) break;
            shown.append(piece, 0, static_cast<std::size_t>(count));
        }
        process.wait();
        return shown;
    }
    void type(char key) const { EXPECT_EQ(::write(mine_.get(), &key, 1), 1); }

  private:
    Descriptor mine_;
    Descriptor programs_;
};

class Output : public EndToEndTest {
  protected:
    /// Each would do something to a terminal that shows it as it is.
    const std::vector<std::string> hostileNames = {"\x1b[31mred\x1b[0m",
                                                   "title\x1b]0;owned\a",
                                                   "\x9b"
                                                   "5m",
                                                   "line\nbreak",
                                                   "back\b\b\b\r",
                                                   "\u202Egnp.exe",
                                                   "\u009B31m",
                                                   "tab\tand \x7f"};

    void writeHostileFiles() {
        for (const std::string& name : hostileNames)
            if (name.front() != '\x9b') file("Shoot/" + name, 3000);
        box.put("Shoot/" + hostileNames.front(), "another file");
        fault(R"({"kind": "fail_check", "path_contains": "/finish", "count": 2})");
    }

    void expectHarmless(const std::string& shown) const {
        EXPECT_THAT(shown, HasSubstr("red"));
        for (const char* raw :
             {"\x1b[31m", "\x1b]", "\a", "line\nbreak", "line\r\nbreak", "\b", "\u202E", "\u009B", "\x7f"})
            EXPECT_THAT(shown, Not(HasSubstr(raw)));
    }
};

TEST_F(Output, OnATerminalShowsNoNameRaw) {
    writeHostileFiles();
    Terminal terminal;
    Process sending = vark.startOn(terminal.programsEnd(), {"send", (vark.home() / "Shoot").string()});
    std::string shown = terminal.readUntilEndOf(sending);
    EXPECT_EQ(sending.wait(), exitCode(1)) << shown;
    expectHarmless(shown);

    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"queue"}, {"ls", "Shoot"}, {"log"}}) {
        Terminal another;
        Process showing = vark.startOn(another.programsEnd(), command);
        expectHarmless(another.readUntilEndOf(showing));
    }
}

TEST_F(Output, OnATerminalEndsAtTheKeyThatQuits) {
    SampleFile take = file("Take.mov", 40 * chunkSize);
    Terminal terminal;
    Process sending = vark.startOn(terminal.programsEnd(), {"send", pathOf(take), "--rate", "1MB"});
    ASSERT_TRUE(untilAnswered("PUT", "/u/", 200));
    terminal.type('q');
    std::string shown = terminal.readUntilEndOf(sending);
    EXPECT_EQ(sending.wait(), exitCode(130)) << shown;
    EXPECT_THAT(shown, HasSubstr("vark send"));
}

TEST_F(Output, OnATerminalThatCannotDrawIsPlainLines) {
    vark.moveTo({.environment = {{"TERM", "dumb"}}});
    SampleFile take = file("Take.mov", 8 * chunkSize);
    Terminal terminal;
    Process sending = vark.startOn(terminal.programsEnd(), {"send", pathOf(take), "--rate", "1MB"});
    std::string shown = terminal.readUntilEndOf(sending);
    EXPECT_EQ(sending.wait(), exitCode(0)) << shown;
    EXPECT_THAT(shown, HasSubstr("Landed: Take.mov"));
    EXPECT_THAT(shown, Not(HasSubstr("\x1b")));
}

TEST_F(Output, NeverGoesIntoAFileOfTheProgramsOwnAndIsNotLostUnsaid) {
    const auto with = [](const char* redirection) {
        return RealVark::Place{{"/bin/sh", "-c", std::string("exec \"$@\" ") + redirection, "sh"}, {}};
    };
    SampleFile take = file("Take.mov", chunkSize);
    vark.moveTo(with("<&- >&- 2>&-"));
    expectExit(send(take), 0);
    expectHeld(take);
    ASSERT_TRUE(vark.find("running.lock"));
    EXPECT_EQ(std::filesystem::file_size(*vark.find("running.lock")), 0U);

    vark.moveTo(with("> /dev/full"));
    const Finished cut = vark.run({"queue"});
    expectExit(cut, 1);
    EXPECT_THAT(cut.errors, HasSubstr("The output cannot be written"));
}

TEST_F(Output, ForProgramsIsOneObjectALine) {
    writeHostileFiles();
    std::vector<std::vector<std::string>> commands = {{"send", (vark.home() / "Shoot").string()},
                                                      {"queue"},
                                                      {"ls"},
                                                      {"ls", "Shoot"},
                                                      {"log"},
                                                      {"whoami"},
                                                      {"retry"},
                                                      {"resolve", "--skip"},
                                                      {"clear"}};
    for (std::vector<std::string>& command : commands) {
        command.emplace_back("--json");
        Finished run = vark.run(command);
        std::istringstream lines(run.output);
        int count = 0;
        for (std::string line; std::getline(lines, line); ++count) {
            boost::json::error_code wrong;
            EXPECT_TRUE(boost::json::parse(line, wrong).is_object()) << command.front() << ": " << line;
        }
        EXPECT_GE(count, 1) << command.front() << run.errors;
    }
}

}  // namespace
}  // namespace vark::test
