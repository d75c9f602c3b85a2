#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

using testing::HasSubstr;

const std::string hostile = "Jobs/\x1b[2J \"q\" <b> \\ \xE2\x80\xAE ?#%&+;'$(x)\n..mov";

class Share : public EndToEndTest {
  protected:
    explicit Share(RealBox::Options options = {}) : EndToEndTest(std::move(options)) {}

    void SetUp() override {
        EndToEndTest::SetUp();
        box.put("Jobs/Take.mov", "take");
        box.put(hostile, "hostile");
    }
    /// The page of a share, which anyone may see.
    std::string page(const std::string& link) { return box.client().send("GET", link).body; }
    std::string job(std::string_view key) { return std::string(jobs().at(0).at(key).as_string()); }
    boost::json::array jobs() {
        return box.client().control("GET", "/control/jobs").json().at("jobs").as_array();
    }
};

TEST_F(Share, MakesALinkThatShowsWhatWasShared) {
    const Finished plain = vark.run({"share", "/Jobs/Take.mov"});
    expectExit(plain, 0);
    ASSERT_TRUE(plain.output.starts_with(box.url() + "/s/"));
    EXPECT_EQ(plain.errors, "");
    EXPECT_THAT(page(plain.output.substr(0, plain.output.size() - 1)), HasSubstr("Take.mov"));

    const Finished full = vark.run({"share", "Jobs/Take.mov", hostile, "--audience", "domain", "--expires",
                                    "7d", "--message", "  For <you>\n"});
    expectExit(full, 0);
    EXPECT_EQ(full.errors, "The link runs out in 7 days.\n");
    const std::string shown = page(full.output.substr(0, full.output.size() - 1));
    EXPECT_THAT(shown, HasSubstr("<p id=\"message\">For &lt;you&gt;</p>"));
    EXPECT_THAT(shown, HasSubstr("&lt;b&gt;"));

    const Finished record = vark.run({"share", hostile, "--audience", "domain", "--json"});
    expectExit(record, 0);
    EXPECT_EQ(boost::json::parse(record.output).at("audience"), "everyone at Acme");

    const Finished gone = vark.run({"share", "Jobs/Take.mov", "Jobs/gone"});
    expectExit(gone, 1);
    EXPECT_EQ(gone.errors, "There is no \"Jobs/gone\" on the vark.\n");
    EXPECT_EQ(gone.output, "");
}

TEST_F(Share, FilesAgainstAJobOfTheBook) {
    const Finished all = vark.run({"job", "find", job("title")});
    expectExit(all, 0);
    EXPECT_THAT(all.output, HasSubstr(job("ref") + " · " + job("title")));
    const Finished filed = vark.run({"job", "file", "Jobs/Take.mov", hostile, "--job", job("ref")});
    expectExit(filed, 0);
    EXPECT_THAT(filed.output, HasSubstr("Filed 2 under " + job("ref")));
    EXPECT_EQ(jobs().at(0).at("paths").as_array().size(), 2u);
    EXPECT_THAT(vark.run({"activity"}).output,
                HasSubstr("Put job number " + job("ref") + " on Take.mov and 1 more\n"));

    expectExit(vark.run({"job", "file", "Jobs/gone", "--job", job("ref")}), 1);
    expectExit(vark.run({"job", "file", "Jobs/Take.mov", "--job", "none of these"}), 2);
    box.control("POST", "/control/token", {{"level", 3}});
    const Finished reader = vark.run({"job", "file", "Jobs/Take.mov", "--job", job("ref")});
    expectExit(reader, 1);
    EXPECT_THAT(reader.errors, HasSubstr("may look at files but not change them"));
    expectExit(vark.run({"whoami"}), 0);
    EXPECT_THAT(readWholeFile(*vark.find("level.json")), HasSubstr("\"level\":3"));
    expectExit(vark.run({"share", "Jobs/Take.mov"}), 0);
}

class NoJobBook : public Share {
  protected:
    NoJobBook() : Share({.arguments = {"--no-job-book"}}) {}
};

TEST_F(NoJobBook, IsSaidInWords) {
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"job", "find", "x"}, {"job", "file", "Jobs/Take.mov", "--job", "J-1"}}) {
        const Finished run = vark.run(arguments);
        expectExit(run, 1);
        EXPECT_EQ(run.errors, "This vark has no job book connected.\n");
    }
}

}  // namespace
}  // namespace vark::test
