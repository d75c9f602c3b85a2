#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

using testing::HasSubstr;

const std::string hostile = "Jobs/\x1b[2J \"q\" <b> \\ \xE2\x80\xAE ?#%&+;'$(x)\n..mov";

class Share : public EndToEndTest {
  protected:
    void SetUp() override {
        EndToEndTest::SetUp();
        box.put("Jobs/Take.mov", "take");
        box.put(hostile, "hostile");
    }
};

TEST_F(Share, MakesALinkThatShowsWhatWasShared) {
    const Finished shared = vark.run({"share", "/Jobs/Take.mov", hostile, "--audience", "domain", "--expires",
                                      "7d", "--message", "  For <you>\n"});
    expectExit(shared, 0);
    ASSERT_TRUE(shared.output.starts_with(box.url() + "/s/"));
    EXPECT_EQ(shared.errors, "The link runs out in 7 days.\n");
    const std::string page = box.page(shared.output.substr(0, shared.output.size() - 1));
    for (const char* part : {"Take.mov", "&lt;b&gt;", "For &lt;you&gt;</p>"})
        EXPECT_THAT(page, HasSubstr(part));
}

TEST_F(Share, FilesAgainstAJobOfTheBook) {
    const auto firstJob = [this] { return box.control("GET", "/control/jobs").at("jobs").at(0); };
    const std::string title(firstJob().at("title").as_string());
    const std::string ref(firstJob().at("ref").as_string());
    EXPECT_THAT(vark.run({"job", "find", title}).output, HasSubstr(ref + " · " + title));
    const Finished filed = vark.run({"job", "file", "Jobs/Take.mov", hostile, "--job", ref});
    expectExit(filed, 0);
    EXPECT_THAT(filed.output, HasSubstr("Filed 2 items under " + ref));
    EXPECT_EQ(firstJob().at("paths").as_array().size(), 2U);
}

}  // namespace
}  // namespace vark::test
