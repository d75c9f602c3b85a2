#include "VarkCore/Foundation/Names.h"

#include <fmt/format.h>

#include <charconv>
#include <optional>

#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

constexpr int longestExtension = 10;
constexpr std::string_view opening = " (";

bool isExtension(std::string_view text) {
    if (text.empty() || text.contains(' ')) return false;
    int characters = 0;
    for (std::size_t place = 0; place < text.size(); ++characters) {
        // A byte that is no character counts as one.
        if (!nextCharacter(text, place)) ++place;
    }
    return characters <= longestExtension;
}

/// The number in the brackets at the end of a name, and where they begin.
struct Bracketed {
    std::size_t at;
    int number;
};
std::optional<Bracketed> bracketed(std::string_view base) {
    const std::size_t at = base.rfind(opening);
    if (at == std::string_view::npos || !base.ends_with(')')) return std::nullopt;
    const char* const first = base.data() + at + opening.size();
    const char* const last = base.data() + base.size() - 1;
    int number = 0;
    const auto [end, failure] = std::from_chars(first, last, number);
    if (failure != std::errc() || end != last || number < 2 || number > 99) return std::nullopt;
    return Bracketed{at, number};
}

}  // namespace

Names::Split Names::split(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || !isExtension(name.substr(dot + 1))) return {name, {}};
    return {name.substr(0, dot), name.substr(dot + 1)};
}

std::string Names::next(std::string_view name) {
    auto [base, ext] = split(name);
    int number = 2;
    if (const std::optional<Bracketed> counted = bracketed(base)) {
        number = counted->number + 1;
        base = base.substr(0, counted->at);
    }
    const std::string next = fmt::format("{} ({})", base, number);
    return ext.empty() ? next : fmt::format("{}.{}", next, ext);
}

}  // namespace vark
