#include "Hosts/CLI/Arguments.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

constexpr std::pair<std::string_view, double> unitsOfBytes[] = {
    {"b", 1}, {"kb", 1e3}, {"mb", 1e6}, {"gb", 1e9}};
constexpr double highestRate = 1e15;

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
    if (minutes > 24 * 60) return std::nullopt;
    return minutes;
}

bool isLoopback(const std::string& host) {
    if (host == "localhost" || host == "::1") return true;
    in_addr address{};
    return inet_pton(AF_INET, host.c_str(), &address) == 1 && host.starts_with("127.");
}

}  // namespace

std::optional<std::int64_t> parseRate(std::string_view text) {
    text = trimmed(text);
    double number = 0;
    auto [end, failure] =
        std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    if (failure != std::errc()) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));

    std::string unit = lowercased(trimmed(text));
    if (unit.ends_with("/s")) unit.resize(unit.size() - 2);
    for (const auto& [name, bytes] : unitsOfBytes) {
        if (unit != name) continue;
        double rate = number * bytes;
        if (!(rate >= 1 && rate <= highestRate)) return std::nullopt;
        return static_cast<std::int64_t>(rate);
    }
    return std::nullopt;
}

std::optional<OfficeHours> parseOfficeHours(std::string_view text) {
    std::optional<int> start = takeMinuteOfDay(text);
    if (!start || !take(text, '-')) return std::nullopt;
    std::optional<int> end = takeMinuteOfDay(text);
    if (!end || !text.empty() || *start >= *end) return std::nullopt;
    OfficeHours hours;
    hours.onlyOutside = true;
    hours.startMinute = *start;
    hours.endMinute = *end;
    return hours;
}

bool isSafeAddress(const URL& url) {
    if (url.host().empty()) return false;
    return url.scheme() == "https" || (url.scheme() == "http" && isLoopback(url.host()));
}

bool isToken(std::string_view text) {
    return !text.empty() &&
           std::ranges::all_of(text, [](char character) { return character > 0x20 && character < 0x7f; });
}

std::string joinedVarkPath(std::string_view root, std::string_view below) {
    return tidiedVarkPath(std::string(root) + "/" + std::string(below));
}

}  // namespace vark::cli
