#include <algorithm>

#include "Tests/Fuzz/FuzzTarget.h"
#include "VarkCore/Foundation/URL.h"

// Addresses from the vark and from people, and names that become part of one. What comes out stands in the
// head of a request, so no byte in it may end a line or a word there.

namespace vark::fuzz {
namespace {

bool mayStandInARequest(std::string_view text) {
    return std::ranges::all_of(text, [](char character) { return character > 0x20 && character < 0x7f; });
}

void check(const URL& url) {
    require(mayStandInARequest(url.text()), "an address is plain text");
    require(mayStandInARequest(url.requestTarget()), "a target is plain text");
    require(url.host().empty() || url.requestTarget().starts_with('/'), "a target begins at the root");
    require(URL::parse(url.text()) == url, "an address reads back as itself");
    url.scheme();
    url.host();
    url.port();
    url.query();
}

void checkNames(std::string_view text) {
    require(mayStandInARequest(percentEncodedPath(text)), "an encoded path is plain text");
    require(mayStandInARequest(withQuery("/a", {{std::string(text), std::string(text)}})),
            "an encoded query is plain text");
    URL base = *URL::parse("https://vark.example/portal");
    URL appended = base.appendingPath(text);
    check(appended);
    require(appended.host() == "vark.example", "a path never leads to another host");
    // Letters beyond ASCII stay as they are here, and are encoded when they become part of an address.
    if (std::optional<std::string> encoded = percentEncodedByAlphanumerics(text)) {
        if (std::optional<URL> url = URL::parse("https://vark.example/api/child?name=" + *encoded)) {
            check(*url);
            require(url->host() == "vark.example", "a name never leads to another host");
        }
    }
}

}  // namespace
}  // namespace vark::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vark;
    std::string_view text = fuzz::textOf(data, size);
    fuzz::checkNames(text);
    std::string_view address = text.substr(0, text.find('\n'));
    std::string_view rest = address.size() < text.size() ? text.substr(address.size() + 1) : "";
    std::optional<URL> url = URL::parse(address);
    if (!url) return 0;
    fuzz::check(*url);
    fuzz::check(url->appendingPath(rest));
    if (std::optional<URL> resolved = url->resolving(rest)) fuzz::check(*resolved);
    if (std::optional<URL> moved = url->withHostAndPort("127.0.0.1", 8443)) fuzz::check(*moved);
    if (!url->host().empty()) fuzz::check(url->withPathSuffix("/" + std::string(rest)));
    return 0;
}
