#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class Output : public EndToEndTest {
  protected:
    /// From the next run on, what is printed is what reaches a terminal of 100 columns.
    void sitAtATerminal(const std::map<std::string, std::string>& environment = {}) {
        const std::string keys = pathOf("keys");
        mkfifo(keys.c_str(), 0600);
        keys_ = Descriptor(open(keys.c_str(), O_RDWR | O_CLOEXEC));
        const std::string terminal =
            "exec script --quiet --return --command \"stty rows 40 cols 100; $*\" /dev/null < " + keys;
        vark.moveTo({.prefix = {"/bin/sh", "-c", terminal, "sh"}, .environment = environment});
    }
    void type(char key) const { EXPECT_EQ(write(keys_.get(), &key, 1), 1); }

    void writeHostileFiles() {
        // Each would do something to a terminal that shows it as it is.
        for (const char* name : {"\x1b[31mred\x1b[0m", "title\x1b]0;owned\a", "line\nbreak", "back\b\b\b\r",
                                 "\u202Egnp.exe", "\u009B31m", "tab\tand \x7f"})
            file(std::string("Shoot/") + name, 3000);
        box.put("Shoot/\x1b[31mred\x1b[0m", "another file");
        fault(R"({"kind": "fail_check", "path_contains": "/finish", "count": 2})");
    }

  private:
    Descriptor keys_;
};

TEST_F(Output, OnATerminalShowsNoNameRaw) {
    writeHostileFiles();
    sitAtATerminal();
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {"send", pathOf("Shoot")}, {"queue"}, {"ls", "Shoot"}, {"log"}}) {
        const std::string shown = vark.run(command).output;
        EXPECT_THAT(shown, HasSubstr("red"));
        for (const char* raw :
             {"\x1b[31m", "\x1b]", "\a", "line\nbreak", "line\r\nbreak", "\b", "\u202E", "\u009B", "\x7f"})
            EXPECT_THAT(shown, Not(HasSubstr(raw)));
    }
}

TEST_F(Output, OnATerminalEndsAtTheKeyThatQuitsAndIsPlainWhereItCannotDraw) {
    const SampleFile take = file("Take.mov", 40 * chunkSize);
    sitAtATerminal();
    Process sending = sendSlowly(take, "1MB");
    type('q');
    const Finished quit = sending.finish();
    expectExit(quit, 130);
    EXPECT_THAT(quit.output, HasSubstr("vark send"));

    sitAtATerminal({{"TERM", "dumb"}});
    const Finished plain = vark.run({"send"});
    expectExit(plain, 0);
    EXPECT_THAT(plain.output, HasSubstr("Landed: Take.mov"));
    EXPECT_THAT(plain.output, Not(HasSubstr("\x1b")));
}

TEST_F(Output, NeverGoesIntoAFileOfTheProgramsOwn) {
    const SampleFile take = file("Take.mov", chunkSize);
    vark.moveTo({.prefix = {"/bin/sh", "-c", "exec \"$@\" <&- >&- 2>&-", "sh"}});
    expectExit(send(take), 0);
    expectHeld(take);
    EXPECT_EQ(std::filesystem::file_size(vark.find("running.lock").value()), 0U);
}

}  // namespace
}  // namespace vark::test
