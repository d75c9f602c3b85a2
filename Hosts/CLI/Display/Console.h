#pragma once

#include <ostream>
#include <string_view>

#include "Hosts/CLI/Display/Signs.h"
#include "Hosts/CLI/ExitCode.h"
#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark::cli {

/// Where the words of a command go: results to one stream, what went wrong and what to do next to the other.
/// Results that cannot be written are told of once, and no more of them are written. Owned by the main; the
/// main thread only.
class Console {
  public:
    Console(std::ostream& results, std::ostream& advice, Signs signs = {})
        : results_(results), advice_(advice), signs_(signs) {}

    /// One line of what was asked for. Whatever would drive the terminal comes out escaped.
    void print(std::string_view line);
    /// One JSON object, as it stands.
    void printJSON(std::string_view object);
    /// The same of a record, with the keys that it has in files.
    template <class Record>
    void printRecord(const Record& record) {
        JSONWriter object;
        record.encode(object);
        printJSON(object.text());
    }
    /// One line of what went wrong, or of what to do next.
    void say(std::string_view line);
    /// Text of this program's own with its line ends, and what draws on the terminal.
    void printText(std::string_view text);
    void sayText(std::string_view text) { advice_ << text << std::flush; }

    const Signs& signs() const { return signs_; }
    /// Whether results still get to anybody.
    bool isRead() const { return failure_ == 0; }
    /// Results could not be written, for the system's reason. A reader that has gone is none to speak of.
    void outputFailed(int systemError);
    /// How a run ends that would end with `code`: what was not printed whole is no success.
    ExitCode codeOfRun(ExitCode code) const;

  private:
    std::ostream& results_;
    std::ostream& advice_;
    const Signs signs_;
    int failure_ = 0;  // The system's error that ended the writing.
};

}  // namespace vark::cli
