#include "VarkCore/Transfer/FinderName.h"

namespace vark {
namespace {

/// U+F020 to U+F029 in this order. In UTF-8 they are the two bytes of `lead` and 0xA0 to 0xA9.
constexpr std::string_view spelled = "\"*:<>?\\| .";
constexpr std::string_view lead = "\xEF\x80";
constexpr unsigned char firstTrail = 0xA0;

/// The place of the next private spelling from `from` on, or npos.
std::size_t nextPrivate(std::string_view name, std::size_t from) {
    for (;;) {
        const std::size_t place = name.find(lead, from);
        if (place == std::string_view::npos || place + lead.size() >= name.size())
            return std::string_view::npos;
        const auto trail = static_cast<unsigned char>(name[place + lead.size()]);
        if (trail >= firstTrail && trail < firstTrail + spelled.size()) return place;
        from = place + lead.size();
    }
}

}  // namespace

bool FinderName::isSpelledPrivately(std::string_view name) {
    return nextPrivate(name, 0) != std::string_view::npos;
}

std::string FinderName::onDisk(std::string_view name) {
    std::string plain;
    plain.reserve(name.size());
    std::size_t copied = 0;
    for (;;) {
        const std::size_t place = nextPrivate(name, copied);
        plain += name.substr(copied, place - copied);
        if (place == std::string_view::npos) return plain;
        plain += spelled[static_cast<unsigned char>(name[place + lead.size()]) - firstTrail];
        copied = place + lead.size() + 1;
    }
}

}  // namespace vark
