#include "VarkApp/Connect/Addresses.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "VarkApp/Failure.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::app {

namespace {

bool isLoopback(const std::string& host) {
    if (host == "localhost" || host == "::1") return true;
    in_addr address{};
    return inet_pton(AF_INET, host.c_str(), &address) == 1 && host.starts_with("127.");
}

}  // namespace

URL varkAddress(const std::string& given) {
    // Never shown: a password may stand in it.
    if (given.contains('@'))
        throw Failure(Outcome::misuse,
                      "The address holds a name or a password (there is an \"@\" in it). The vark knows "
                      "this machine by a token: give the address alone, like https://vark.example.com");
    std::string address = given.contains("://") ? given : "https://" + given;
    while (address.ends_with('/'))
        address.pop_back();
    std::optional<URL> url = URL::parse(address);
    if (!url || url->host().empty())
        throw Failure(
            Outcome::misuse,
            fmt::format("{} is no address of a vark. Give one like https://vark.example.com", given));
    if (!isSafeAddress(*url))
        throw Failure(Outcome::misuse,
                      "A token is sent through https only. Give an address that begins with https://");
    if (!url->path().empty() || address.contains('?') || address.contains('#'))
        throw Failure(Outcome::misuse,
                      {fmt::format("{} is a page, and no address of a vark. Give what stands before the "
                                   "path, like https://vark.example.com.",
                                   given),
                       {{Next::Step::chooseFolder}}});
    return *url;
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

}  // namespace vark::app
