#pragma once

#include <ostream>
#include <string_view>

#include "VarkCore/Foundation/JSON.h"

namespace vark::cli {

/// Where the words of a command go: results to one stream, what went wrong and what to do next to the other.
/// Owned by the main; the main thread only.
class Console {
  public:
    Console(std::ostream& results, std::ostream& advice) : results_(results), advice_(advice) {}

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
    /// Text of this program's own with its line ends.
    void printText(std::string_view text) { results_ << text << std::flush; }
    void sayText(std::string_view text) { advice_ << text << std::flush; }
    /// Whether anybody still reads the results.
    bool isRead() const { return results_.good(); }

    /// For whoever draws on the terminal itself.
    std::ostream& results() { return results_; }

  private:
    std::ostream& results_;
    std::ostream& advice_;
};

}  // namespace vark::cli
