#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Tests/Support/Process.h"
#include "Tests/Support/RealBox.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

/// One run of `vark` that has ended.
struct Finished {
    Exit exit;
    std::string output;
    std::string errors;
    std::int64_t peakMemory = 0;
};

/// The program `vark` of one imaginary person: home, settings, queue and diary lie in a temporary folder. For
/// the test's thread alone.
class RealVark {
  public:
    /// Another place than the test's own: what starts the program there, and what it finds in its environment
    /// beside the usual or instead.
    struct Place {
        std::vector<std::string> prefix{};
        std::map<std::string, std::string> environment{};
    };

    RealVark() : RealVark(Place()) {}
    explicit RealVark(Place place);

    /// From the next run on.
    void moveTo(Place place) { place_ = std::move(place); }

    /// A run that goes on beside the test. Its output is in files of its own.
    Process start(std::vector<std::string> arguments, std::optional<rlim_t> largestFile = std::nullopt);
    /// The same on a terminal, whose program side is given.
    Process startOn(int terminal, std::vector<std::string> arguments);
    /// A run to its end; one that takes longer than the limit fails the test.
    Finished run(std::vector<std::string> arguments,
                 std::chrono::milliseconds limit = std::chrono::minutes(2));
    /// Connects, under another name of the box if one is given, and fails the test when that does not
    /// succeed.
    void connect(const RealBox& box, const std::string& name = "");

    const std::filesystem::path& home() const { return folder_.path(); }
    /// Writes a file below the person's home.
    std::filesystem::path write(std::string_view name, std::string_view content) const {
        return folder_.file(name, content);
    }
    /// Where the queue stands on disk, or would.
    std::filesystem::path queueFile() const;
    /// The saved queue. A failure when there is none.
    boost::json::object savedJob() const;
    /// An item of it by its path below what was added; nothing when it is not there.
    std::optional<boost::json::object> savedItem(std::string_view relativePath) const;
    /// The state of such an item, or an empty text.
    std::string savedState(std::string_view relativePath) const;
    /// How many items of the saved queue are in each state.
    std::map<std::string, int> savedStates() const;
    /// The diary's sentences.
    std::string diary() const;
    std::filesystem::path diaryFile() const;
    /// Where the output of all runs goes.
    std::filesystem::path runsFolder() const { return folder_ / "runs"; }
    /// A file of the program's own, by its name.
    std::optional<std::filesystem::path> find(std::string_view name) const;

  private:
    Process::Options options(std::vector<std::string> arguments);
    boost::json::array savedItems() const;

    Place place_;
    TemporaryFolder folder_;
    int runs_ = 0;
};

inline Exit exitCode(int code) {
    return Exit{code, std::nullopt};
}

}  // namespace vark::test
