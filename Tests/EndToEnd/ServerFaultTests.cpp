#include <boost/json/serialize.hpp>

#include "Tests/EndToEnd/EndToEndTest.h"

namespace vark::test {
namespace {

struct Trouble {
    const char* name;
    /// As the box takes them. The waits before another try are real, so each is a short one.
    std::vector<const char*> faults;
    std::vector<std::string> boxArguments{};
};

class PassingTrouble : public EndToEndTest, public testing::WithParamInterface<Trouble> {
  protected:
    PassingTrouble() : EndToEndTest(GetParam().boxArguments) {}
};

TEST_P(PassingTrouble, DoesNotKeepAFileFromLanding) {
    for (const char* json : GetParam().faults)
        fault(json);
    std::vector<SampleFile> files;
    for (const char* name : {"Shoot/1", "Shoot/2", "Shoot/3", "Shoot/4"})
        files.push_back(file(name, 2 * chunkSize + 1000));
    expectExit(vark.run({"send", pathOf("Shoot")}), 0);
    expectHeld(files);
    for (const boost::json::value& fault : box.faults())
        EXPECT_GE(fault.at("fired").to_number<int>(), 1) << boost::json::serialize(fault);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(EndToEnd, PassingTrouble, testing::Values(
    Trouble{"StormOfErrors", {
        R"({"kind": "status", "status": 500, "path": "/api/upload/begin", "count": 4})",
        R"({"kind": "status", "status": 503, "path_contains": "/finish", "count": 2})",
        R"({"kind": "status", "status": 429, "listener": "chunk", "count": 6, "after_bytes": 1000})",
        R"({"kind": "status", "status": 408, "method": "GET", "count": 2})"}},
    Trouble{"ResetsAndAnswersThatBreakOffAfterTheDeed", {
        R"({"kind": "reset", "listener": "chunk", "count": 3, "after_bytes": 100000})",
        R"({"kind": "short_body", "path": "/api/upload/begin", "count": 1})",
        R"({"kind": "short_body", "listener": "chunk", "count": 2})",
        R"({"kind": "short_body", "path_contains": "/finish", "count": 1})"}},
    Trouble{"LostUploads", {
        R"({"kind": "lose_upload", "method": "PUT", "count": 1})",
        R"({"kind": "lose_upload", "path_contains": "/finish", "count": 1})"}},
    Trouble{"RefusedByTheApplication", {R"({"kind": "wrong_route", "method": "PUT", "count": 1})"}, {"--no-chunk-url"}}), byName);
// clang-format on

}  // namespace
}  // namespace vark::test
