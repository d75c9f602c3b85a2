#include "VarkCore/Foundation/Domain.h"

#include <libpsl.h>

#include <string>

#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

std::string plainName(std::string_view host) {
    if (host.ends_with('.')) host.remove_suffix(1);
    return lowercased(host);
}

/// No top-level domain begins with a digit, and the list would find a domain in an address.
bool isNumeric(std::string_view host) {
    const std::string_view last = host.substr(host.rfind('.') + 1);
    return host.contains(':') || (!last.empty() && last.front() >= '0' && last.front() <= '9');
}

/// Empty when the name has none: it is a public suffix itself, or has no dot.
std::string_view registrableDomain(const std::string& host) {
    if (isNumeric(host)) return {};
    const char* domain = psl_registrable_domain(psl_builtin(), host.c_str());
    return domain == nullptr ? std::string_view() : domain;
}

}  // namespace

bool haveOneOwner(std::string_view host, std::string_view other) {
    const std::string one = plainName(host);
    const std::string two = plainName(other);
    if (one.empty() || two.empty()) return false;
    if (one == two) return true;
    const std::string_view domain = registrableDomain(one);
    return !domain.empty() && domain == registrableDomain(two);
}

}  // namespace vark
