#include <array>
#include <iterator>

#include "Tests/Fuzz/FuzzTarget.h"
#include "Tests/Support/ScriptedAPI.h"
#include "VarkCore/Upload/ChunkPlan.h"

// Every call of the API with an answer that may hold anything. The first byte chooses the call, the second
// the status, and the rest is the body.

namespace vark::fuzz {
namespace {

constexpr std::string_view token = "6f1c-the-token-of-this-machine-93e2";
constexpr std::int64_t fileSize = 1'000'000;

struct World : test::ScriptedAPI {
    World() { token = fuzz::token; }
};

Task<void> begin(HTTPVarkAPI& api) {
    BeginResult result = co_await api.begin("a/b", fileSize, std::string(64, 'a'), 1.5, false);
    if (result.start() == nullptr) co_return;
    const BeginResult::Start& start = *result.start();
    // A vark that cuts the file into crumbs costs one index for each; that is its own matter.
    if (start.chunkSize < 1000) co_return;
    ChunkPlan plan(fileSize, start.chunkSize);
    require(plan.bytesDone(start.have) <= fileSize, "no more is done than there is");
    std::int64_t left = 0;
    for (std::int64_t index : plan.missing(start.have))
        left += plan.length(index);
    require(left + plan.bytesDone(start.have) == fileSize, "what is done and what is missing is the file");
}

template <class T>
Task<void> ignoring(Task<T> call) {
    co_await std::move(call);
}

using Call = Task<void> (*)(HTTPVarkAPI&);

// New ones go to the end: the corpus counts from the front.
constexpr std::array calls = {
    Call(begin),
    Call([](HTTPVarkAPI& api) { return ignoring(api.finish("u1")); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.status("u1")); }),
    Call([](HTTPVarkAPI& api) { return api.cancel("u1"); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.whoami()); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.folders("a")); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.item(std::int64_t{5})); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.item(std::string("a/b"))); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.children(5, "", 500, true)); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.changes(5, "1|2", 500)); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.child(5, "name")); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.binned("a/b")); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.tags()); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.tagFiles({"a"}, {"b"})); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.ingestBegin("CARD", "a", 5, 1000, true)); }),
    Call([](HTTPVarkAPI& api) { return api.ingestFinish(5, {}, {}, {}); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.createShare({"a"})); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.sharesSupported()); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.findJobs("a")); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.fileAgainstJob({"a"}, 5)); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.createFolder("a/b")); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.rename("a/b", "c")); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.move("a/b", "c")); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.bin("a/b")); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.claim("123456", "Mac")); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.beginDeviceSignIn("Mac")); }),
    Call([](HTTPVarkAPI& api) { return ignoring(api.pollDeviceSignIn("nonce")); }),
};

constexpr std::array statuses = {200, 201, 202, 204, 400, 401, 403, 404,
                                 408, 409, 410, 422, 429, 500, 503, 301};

void call(World& world, std::size_t which, int status, std::string_view body) {
    world.session.requests.clear();
    world.session.script = [&](const HTTPRequest&) { return test::answer(status, std::string(body)); };
    try {
        world.loop.run(calls.at(which)(world.api));
    } catch (const VarkAPIError& error) {
        require(!error.errorDescription().empty(), "a failure has a sentence");
        bool isLeaked = body.find(token) == std::string_view::npos &&
                        error.errorDescription().find(token) != std::string::npos;
        require(!isLeaked, "a failure holds no token");
    }
}

}  // namespace
}  // namespace vark::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vark::fuzz;
    if (size < 2) return 0;
    static World world;
    std::size_t which = (data[0] + 256U - 'a') % 256 % std::size(calls);
    int status = statuses.at((data[1] + 256U - 'A') % 256 % std::size(statuses));
    call(world, which, status, textOf(data + 2, size - 2));
    return 0;
}
