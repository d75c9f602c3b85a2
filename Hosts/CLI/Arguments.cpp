#include "Hosts/CLI/Arguments.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

constexpr double highestRate = 1e15;
constexpr int minutesOfADay = 24 * 60;

/// What a letter before the "B" multiplies by, in decimal and in binary units.
struct Prefix {
    char letter;
    double decimal;
    double binary;
};
constexpr Prefix prefixes[] = {{'k', 1e3, 1024}, {'m', 1e6, 1024.0 * 1024}, {'g', 1e9, 1024.0 * 1024 * 1024}};

/// The bytes that a unit stands for; nothing for other words.
std::optional<double> bytesOf(std::string_view unit) {
    if (unit.empty() || unit == "b") return 1;
    for (const Prefix& prefix : prefixes) {
        if (unit.front() != prefix.letter) continue;
        const std::string_view rest = unit.substr(1);
        if (rest.empty() || rest == "b") return prefix.decimal;
        if (rest == "i" || rest == "ib") return prefix.binary;
    }
    return std::nullopt;
}

/// Whether a unit counts bits: a small "b" behind a capital, "bit", "bps".
bool countsBits(std::string_view unit) {
    const std::string small = lowercased(unit);
    if (small.contains("bit") || small.ends_with("bps")) return true;
    return unit.size() > 1 && unit.ends_with('b') && unit.front() >= 'A' && unit.front() <= 'Z';
}

/// Up to two digits at the front, taken off `text`.
std::optional<int> takeNumber(std::string_view& text) {
    int number = 0;
    auto [end, failure] =
        std::from_chars(text.data(), text.data() + std::min<std::size_t>(text.size(), 2), number);
    if (failure != std::errc() || number < 0) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

bool take(std::string_view& text, char expected) {
    if (!text.starts_with(expected)) return false;
    text.remove_prefix(1);
    return true;
}

/// "9:00" or "17:30" at the front, taken off `text`, in minutes after midnight; "24:00" is the last.
std::optional<int> takeMinuteOfDay(std::string_view& text) {
    std::optional<int> hour = takeNumber(text);
    if (!hour || !take(text, ':')) return std::nullopt;
    std::size_t before = text.size();
    std::optional<int> minute = takeNumber(text);
    if (!minute || *minute > 59 || before - text.size() != 2) return std::nullopt;
    int minutes = *hour * 60 + *minute;
    if (minutes > minutesOfADay) return std::nullopt;
    return minutes;
}

}  // namespace

Parsed<std::int64_t> parseRate(std::string_view text) {
    const std::string given(text);
    text = trimmed(text);
    double number = 0;
    auto [end, failure] =
        std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    const auto noRate = [&] {
        return std::unexpected(given + " is no rate. Give one like 10MB, 500KB/s or 3MiB.");
    };
    if (failure != std::errc()) return noRate();
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));

    std::string_view unit = trimmed(text);
    if (unit.ends_with("/s") || unit.ends_with("/S")) unit.remove_suffix(2);
    if (countsBits(unit))
        return std::unexpected(given +
                               " would be bits, and rates are in bytes: 8 bits are one byte. Give one "
                               "like 10MB or 500KB/s.");
    const std::optional<double> bytes = bytesOf(lowercased(unit));
    if (!bytes) return noRate();
    const double rate = number * *bytes;
    if (!(rate >= 1 && rate <= highestRate)) return noRate();
    return static_cast<std::int64_t>(rate);
}

Parsed<WorkingHours> parseWorkingHours(std::string_view text) {
    const std::string given(text);
    std::optional<int> start = takeMinuteOfDay(text);
    const bool hasDash = start && take(text, '-');
    std::optional<int> end = hasDash ? takeMinuteOfDay(text) : std::nullopt;
    if (!end || !text.empty() || *start == *end || *start == minutesOfADay)
        return std::unexpected(given + " is no working day. Give it like 09:00-17:30 or 22:00-06:00.");
    return WorkingHours{*start, *end};
}

Parsed<std::int64_t> parseWholeNumber(std::string_view text, std::int64_t least, std::int64_t most) {
    std::int64_t number = 0;
    const char* end = text.data() + text.size();
    auto [stopped, failure] = std::from_chars(text.data(), end, number);
    if (failure == std::errc() && stopped == end && number >= least && number <= most) return number;
    return std::unexpected(
        fmt::format("{} is no whole number from {} to {}.", text, decimalNumber(least), decimalNumber(most)));
}

namespace {

/// How many letters have to be changed, added, left out or swapped to make one word of the other.
std::size_t lettersApart(std::string_view one, std::string_view other) {
    std::vector<std::vector<std::size_t>> apart(one.size() + 1, std::vector<std::size_t>(other.size() + 1));
    for (std::size_t i = 0; i <= one.size(); ++i) {
        for (std::size_t j = 0; j <= other.size(); ++j) {
            if (i == 0 || j == 0) {
                apart[i][j] = i + j;
                continue;
            }
            const std::size_t change = one[i - 1] == other[j - 1] ? 0 : 1;
            apart[i][j] = std::min({apart[i - 1][j] + 1, apart[i][j - 1] + 1, apart[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1])
                apart[i][j] = std::min(apart[i][j], apart[i - 2][j - 2] + 1);
        }
    }
    return apart[one.size()][other.size()];
}

}  // namespace

std::optional<std::string> nearestWord(std::string_view typed, const std::vector<std::string>& words) {
    std::optional<std::string> nearest;
    // Words that share no more than a letter or two with what was typed were not meant.
    std::size_t least = (typed.size() + 1) / 3 + 1;
    for (const std::string& word : words) {
        const std::size_t apart = lettersApart(lowercased(typed), word);
        if (apart >= least) continue;
        least = apart;
        nearest = word;
    }
    return nearest;
}

}  // namespace vark::cli
