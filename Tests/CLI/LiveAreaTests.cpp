#include "Hosts/CLI/Display/LiveArea.h"

#include <gtest/gtest.h>

namespace vark::cli {
namespace {

using Lines = std::vector<std::string>;

/// What stands on a terminal that knows the sequences that the area uses. One byte is one column.
class Terminal {
  public:
    void write(std::string_view bytes) {
        for (std::size_t place = 0; place < bytes.size(); ++place) {
            if (bytes[place] != '\x1b') {
                put(bytes[place]);
                continue;
            }
            const std::size_t end = bytes.find_first_of("AJKhl", place);
            obey(bytes.substr(place + 2, end - place - 2), bytes[end]);
            place = end;
        }
    }
    Lines lines() const {
        Lines all = lines_;
        while (!all.empty() && all.back().empty())
            all.pop_back();
        return all;
    }

  private:
    void put(char character) {
        if (character == '\r' || character == '\n') {
            column_ = 0;
            if (character == '\n' && ++row_ == lines_.size()) lines_.emplace_back();
            return;
        }
        lines_[row_].resize(std::max(lines_[row_].size(), column_ + 1), ' ');
        lines_[row_][column_++] = character;
    }
    void obey(std::string_view argument, char command) {
        if (command == 'A') row_ -= std::stoul(std::string(argument));
        if (command == 'J') lines_.resize(row_ + 1);
        if (command == 'J' || command == 'K') lines_[row_].resize(std::min(lines_[row_].size(), column_));
    }

    Lines lines_ = Lines(1);
    std::size_t row_ = 0;
    std::size_t column_ = 0;
};

TEST(LiveArea, IsDrawnInItsPlaceAndLeavesAloneWhatStandsAbove) {
    Terminal terminal;
    LiveArea area;
    terminal.write("above\n");
    for (const Lines& lines : {Lines{"one", "two", "three"}, Lines{"longer than one"}, Lines{"x", "y"}}) {
        terminal.write(area.replace(lines));
        Lines all = lines;
        all.insert(all.begin(), "above");
        EXPECT_EQ(terminal.lines(), all);
    }
    terminal.write(area.replace({}) + "done\n");
    EXPECT_EQ(terminal.lines(), (Lines{"above", "done"}));
    EXPECT_EQ(area.replace({}), "") << "nothing is drawn that could be taken away";
    terminal.write(area.replace({"one", "two", "three"}) + area.leave({"a", "b"}) + "next\n");
    EXPECT_EQ(terminal.lines(), (Lines{"above", "done", "a", "b", "next"}));
}

}  // namespace
}  // namespace vark::cli
