#include <gtest/gtest.h>

#include "Hosts/CLI/Display/LiveArea.h"

namespace vark::cli {
namespace {

/// A terminal as people use them: it folds what is too wide, unfolds it when it is made wider again, and
/// keeps what has gone above its top. One byte is one column.
class FoldingTerminal {
  public:
    explicit FoldingTerminal(TerminalSize size) : size_(size) {}

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

    void resize(TerminalSize size) {
        fold(size.columns);
        // It takes rows away from below the cursor first, then lets the upper ones go above its top.
        if (size.rows < size_.rows)
            rows_.resize(
                std::min(rows_.size(), std::max(row_ + 1, top_ + static_cast<std::size_t>(size.rows))));
        size_ = size;
        const std::size_t height = static_cast<std::size_t>(size_.rows);
        top_ = rows_.size() > height ? rows_.size() - height : 0;
    }

    /// All that a person can read when scrolling back.
    std::vector<std::string> lines() const {
        std::vector<std::string> all(1);
        for (const Row& row : rows_) {
            all.back() += row.text;
            if (!row.isFolded) all.emplace_back();
        }
        while (!all.empty() && all.back().empty())
            all.pop_back();
        return all;
    }

  private:
    struct Row {
        std::string text;
        bool isFolded = false;
    };

    void put(char character) {
        if (character == '\r') {
            column_ = 0;
        } else if (character == '\n') {
            toNextRow();
        } else {
            if (column_ == size_.columns && folds_) {
                rows_[row_].isFolded = true;
                toNextRow();
            }
            column_ = std::min(column_, size_.columns - 1);
            std::string& text = rows_[row_].text;
            text.resize(std::max(text.size(), static_cast<std::size_t>(column_ + 1)), ' ');
            text[static_cast<std::size_t>(column_++)] = character;
        }
    }
    void obey(std::string_view argument, char command) {
        if (argument == "?7") {
            folds_ = command == 'h';
        } else if (command == 'A') {
            const auto up = static_cast<std::size_t>(std::stoi(std::string(argument)));
            row_ = row_ - top_ > up ? row_ - up : top_;
        } else {
            std::string& text = rows_[row_].text;
            text.resize(std::min(text.size(), static_cast<std::size_t>(column_)));
            rows_[row_].isFolded = false;
            if (command == 'J') rows_.resize(row_ + 1);
        }
    }
    void toNextRow() {
        column_ = 0;
        if (++row_ == rows_.size()) rows_.emplace_back();
        if (row_ - top_ == static_cast<std::size_t>(size_.rows)) ++top_;
    }
    /// Lays all lines out anew. The cursor stays with the character at which it stood.
    void fold(int columns) {
        const auto width = static_cast<std::size_t>(columns);
        std::vector<Row> folded;
        std::string line;
        std::size_t cursorInLine = 0;
        bool holdsCursor = false;
        for (std::size_t place = 0; place < rows_.size(); ++place) {
            if (place == row_) {
                holdsCursor = true;
                cursorInLine = line.size() + static_cast<std::size_t>(column_);
            }
            line += rows_[place].text;
            if (rows_[place].isFolded) continue;
            if (std::exchange(holdsCursor, false)) {
                newRow_ = folded.size() + cursorInLine / width;
                newColumn_ = static_cast<int>(cursorInLine % width);
            }
            for (; line.size() > width; line.erase(0, width))
                folded.push_back({line.substr(0, width), true});
            folded.push_back({std::exchange(line, {}), false});
        }
        rows_ = std::move(folded);
        row_ = newRow_;
        column_ = newColumn_;
    }

    TerminalSize size_;
    std::vector<Row> rows_ = std::vector<Row>(1);
    std::size_t top_ = 0;
    std::size_t row_ = 0;
    int column_ = 0;
    bool folds_ = true;
    std::size_t newRow_ = 0;
    int newColumn_ = 0;
};

std::vector<std::string> linesOf(std::size_t count, int width) {
    std::vector<std::string> lines;
    for (std::size_t number = 0; number < count; ++number)
        lines.emplace_back(static_cast<std::size_t>(width), static_cast<char>('a' + number));
    return lines;
}

TEST(LiveArea, StaysWholeAndAloneHoweverTheTerminalChanges) {
    struct Case {
        const char* name;
        std::vector<TerminalSize> sizes;
        /// Drawings that still go by the size before, since the program learns of the new one later.
        int lateDrawings = 0;
    };
    const Case cases[] = {
        {"as it is", {{80, 24}, {80, 24}}},
        {"narrower and back", {{120, 24}, {30, 24}, {120, 24}}},
        {"lower and back", {{80, 24}, {80, 6}, {80, 24}}},
        {"all at once", {{120, 40}, {40, 8}, {100, 30}}},
        {"learnt late", {{80, 24}, {60, 24}, {80, 24}}, 1},
    };
    for (const Case& one : cases) {
        FoldingTerminal terminal(one.sizes.front());
        std::vector<std::string> above;
        for (int number = 101; number <= 130; ++number)
            above.push_back(std::to_string(number) + std::string(60, '.'));
        for (const std::string& line : above)
            terminal.write(line + "\n");
        LiveArea area;
        TerminalSize known = one.sizes.front();
        for (const TerminalSize& size : one.sizes) {
            terminal.resize(size);
            for (int late = 0; late < one.lateDrawings; ++late)
                terminal.write(area.replace(linesOf(5, known.columns - 1)));
            known = size;
            const std::vector<std::string> drawn = linesOf(size.rows < 10 ? 3 : 5, size.columns - 1);
            terminal.write(area.replace(drawn));
            std::vector<std::string> all = above;
            all.insert(all.end(), drawn.begin(), drawn.end());
            EXPECT_EQ(terminal.lines(), all) << one.name << " at " << size.columns << "x" << size.rows;
        }
        terminal.write(area.replace({}) + "done\n");
        above.emplace_back("done");
        EXPECT_EQ(terminal.lines(), above) << one.name;
        EXPECT_EQ(area.replace({}), "") << "nothing is drawn that could be taken away";

        terminal.write(area.replace(linesOf(4, 20)) + area.leave(linesOf(2, 10)) + "next\n");
        above.insert(above.end(), {"aaaaaaaaaa", "bbbbbbbbbb", "next"});
        EXPECT_EQ(terminal.lines(), above) << one.name;
    }
}

}  // namespace
}  // namespace vark::cli
