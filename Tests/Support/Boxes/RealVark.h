#pragma once

#include "Tests/Support/Boxes/RealBox.h"

namespace vark::test {

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

    /// A run that goes on beside the test.
    Process start(std::vector<std::string> arguments) { return Process(options(std::move(arguments))); }
    /// A run to its end; one that takes longer than two minutes fails the test.
    Finished run(std::vector<std::string> arguments);
    /// Connects to the box, by another name of it if one is given. Throws when that does not succeed.
    void connect(const RealBox& box, const std::string& url = "");

    const std::filesystem::path& home() const { return folder_.path(); }
    /// Writes a file below the person's home.
    std::filesystem::path write(std::string_view name, std::string_view content) const {
        return folder_.file(name, content);
    }
    /// Where the queue stands on disk, or would.
    std::filesystem::path queueFile() const;
    /// The state of each item of the saved queue by the path below what was added; none when there is none.
    std::map<std::string, std::string> savedStates() const;
    /// The diary's sentences.
    std::string diary() const;
    /// Waits until it holds the words. False when the process ended before, or a minute passed.
    bool untilDiary(std::string_view words, const Process& process) const;
    /// A file of the program's own, by its name.
    std::optional<std::filesystem::path> find(std::string_view name) const;

  private:
    Process::Options options(std::vector<std::string> arguments);
    std::filesystem::path diaryFile() const;

    Place place_;
    TemporaryFolder folder_;
    int runs_ = 0;
};

}  // namespace vark::test
