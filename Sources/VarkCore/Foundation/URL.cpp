#include "VarkCore/Foundation/URL.h"

#include <arpa/inet.h>

#include <algorithm>
#include <boost/url/parse.hpp>
#include <boost/url/url.hpp>
#include <boost/url/url_view.hpp>
#include <charconv>

#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

namespace urls = boost::urls;

constexpr std::string_view unreservedMarks = "-._~";
constexpr std::string_view pathMarks = "-._~!$&'()*+,;=:@/";

bool isASCIIAlphanumeric(char character) {
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'z') ||
           (character >= 'A' && character <= 'Z');
}

bool isHexDigit(char character) {
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f') ||
           (character >= 'A' && character <= 'F');
}

void appendEncoded(std::string& to, char character) {
    constexpr const char* digits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(character);
    to += '%';
    to += digits[byte >> 4];
    to += digits[byte & 15];
}

std::string encodedBut(std::string_view text, std::string_view allowedMarks) {
    std::string encoded;
    encoded.reserve(text.size());
    for (const char character : text) {
        if (isASCIIAlphanumeric(character) || allowedMarks.find(character) != std::string_view::npos) {
            encoded += character;
            continue;
        }
        appendEncoded(encoded, character);
    }
    return encoded;
}

/// Encodes what may not stand in this piece of an address, and leaves alone what is encoded already. A "%"
/// without two digits behind it stands for itself and is encoded too.
std::string encodedPiece(std::string_view text, std::string_view allowedMarks) {
    std::string encoded;
    encoded.reserve(text.size());
    for (std::size_t place = 0; place < text.size(); ++place) {
        const char character = text[place];
        const bool stays =
            character == '%'
                ? place + 2 < text.size() && isHexDigit(text[place + 1]) && isHexDigit(text[place + 2])
                : isASCIIAlphanumeric(character) || allowedMarks.find(character) != std::string_view::npos;
        if (stays) {
            encoded += character;
            continue;
        }
        appendEncoded(encoded, character);
    }
    return encoded;
}

/// The end of "scheme:" and "//authority", where the path begins.
std::size_t startOfPath(std::string_view text) {
    std::size_t start = 0;
    const std::size_t end = text.find_first_of(":/?#");
    if (end != std::string_view::npos && text[end] == ':') start = end + 1;
    if (text.substr(start, 2) != "//") return start;
    const std::size_t path = text.find_first_of("/?#", start + 2);
    return path == std::string_view::npos ? text.size() : path;
}

/// The address with its path, query and fragment encoded. What stands before them is only encoded beyond
/// ASCII: a blank or a quotation mark in a host's name is a mistake, and parsing says so.
std::string encodedAddress(std::string_view text) {
    constexpr std::string_view queryMarks = "-._~!$&'()*+,;=:@/?";
    const std::size_t path = startOfPath(text);
    const std::size_t fragment = std::min(text.find('#', path), text.size());
    const std::size_t query = std::min(text.find('?', path), fragment);

    std::string encoded;
    encoded.reserve(text.size());
    for (const char character : text.substr(0, path)) {
        if (static_cast<unsigned char>(character) < 0x80) {
            encoded += character;
            continue;
        }
        appendEncoded(encoded, character);
    }
    encoded += encodedPiece(text.substr(path, query - path), pathMarks);
    if (query < fragment)
        encoded += '?' + encodedPiece(text.substr(query + 1, fragment - query - 1), queryMarks);
    if (fragment < text.size()) encoded += '#' + encodedPiece(text.substr(fragment + 1), queryMarks);
    return encoded;
}

/// `text` is of a form that `parse` has accepted.
urls::url_view viewOf(const std::string& text) {
    return urls::url_view(text);
}

/// An address that `parse` has accepted, taken apart without asking again what may stand where. Views into
/// its text.
struct Pieces {
    std::string_view scheme;
    bool hasAuthority = false;
    /// With its "@".
    std::string_view user;
    std::string_view host;
    std::string_view port;
    std::string_view path;
    std::optional<std::string_view> query;

    explicit Pieces(std::string_view text) {
        const std::size_t start = startOfPath(text);
        const std::size_t fragment = std::min(text.find('#', start), text.size());
        const std::size_t question = std::min(text.find('?', start), fragment);
        path = text.substr(start, question - start);
        if (question < fragment) query = text.substr(question + 1, fragment - question - 1);
        splitFront(text.substr(0, start));
    }

  private:
    void splitFront(std::string_view front) {
        const std::size_t slashes = front.find("//");
        scheme = front.substr(0, slashes);
        if (scheme.ends_with(':')) scheme.remove_suffix(1);
        hasAuthority = slashes != std::string_view::npos;
        if (hasAuthority) splitAuthority(front.substr(slashes + 2));
    }
    void splitAuthority(std::string_view authority) {
        const std::size_t userEnd = authority.find('@') + 1;  // 0 without a user.
        user = authority.substr(0, userEnd);
        host = authority.substr(userEnd);
        const std::size_t colon = host.find(':', host.starts_with('[') ? host.find(']') : 0);
        if (colon == std::string_view::npos) return;
        port = host.substr(colon + 1);
        host = host.substr(0, colon);
    }
};

bool isNumericAddress(const std::string& host) {
    in6_addr address{};
    return inet_pton(host.contains(':') ? AF_INET6 : AF_INET, host.c_str(), &address) == 1;
}

/// Not one that is too large: the library would take it for another.
bool hasUsablePort(const urls::url_view& view) {
    if (!view.has_port() || view.port().empty()) return true;
    const std::string_view digits(view.port().data(), view.port().size());
    std::uint16_t port = 0;
    return std::from_chars(digits.begin(), digits.end(), port).ec == std::errc();
}

/// The parser ends a host at a port that is no number, and takes the rest for the path.
bool pathBeginsAt(const urls::url_view& view, const char* expected) {
    return view.encoded_path().data() == expected;
}

/// Dots that lead above the root are dropped when an address is resolved. The library leaves them standing.
void dropDotsAboveRoot(std::string& path) {
    while (path.starts_with("/../"))
        path.erase(0, 3);
    if (path == "/..") path = "/";
}

}  // namespace

std::optional<URL> URL::parse(std::string_view text) {
    if (text.empty()) return std::nullopt;
    std::string encoded = encodedAddress(text);
    const auto view = urls::parse_uri_reference(encoded);
    if (view.has_error()) return std::nullopt;
    if (!hasUsablePort(*view) || !pathBeginsAt(*view, encoded.data() + startOfPath(encoded)))
        return std::nullopt;
    return URL(std::move(encoded));
}

std::string URL::scheme() const {
    return lowercased(Pieces(text_).scheme);
}

std::string URL::host() const {
    std::string_view host = Pieces(text_).host;
    if (host.starts_with('[')) host = host.substr(1, host.size() - 2);
    return std::string(host);
}

std::optional<std::uint16_t> URL::port() const {
    const Pieces pieces(text_);
    if (pieces.port.empty()) return std::nullopt;
    std::uint16_t port = 0;
    std::from_chars(pieces.port.data(), pieces.port.data() + pieces.port.size(), port);
    return port;
}

std::string URL::path() const {
    return std::string(Pieces(text_).path);
}

std::optional<std::string> URL::query() const {
    return std::optional<std::string>(Pieces(text_).query);
}

std::string URL::requestTarget() const {
    const Pieces pieces(text_);
    std::string target(pieces.path.empty() ? "/" : pieces.path);
    if (pieces.query) (target += '?') += *pieces.query;
    return target;
}

std::optional<URL> URL::resolving(std::string_view reference) const {
    const std::string encoded = encodedAddress(reference);
    const auto parsed = urls::parse_uri_reference(encoded);
    if (parsed.has_error()) return std::nullopt;
    urls::url resolved;
    if (urls::resolve(viewOf(text_), *parsed, resolved).has_error()) return std::nullopt;
    const std::optional<URL> url =
        parse(std::string_view(resolved.buffer().data(), resolved.buffer().size()));
    if (!url) return std::nullopt;
    std::string path = url->path();
    dropDotsAboveRoot(path);
    return url->withPath(path);
}

URL URL::withPath(std::string_view path) const {
    const std::size_t start = startOfPath(text_);
    const std::size_t end = std::min(text_.find_first_of("?#", start), text_.size());
    std::string text = text_.substr(0, start);
    // Behind an authority a path begins with "/", or it would run on the host's name.
    if (!path.empty() && path.front() != '/' && Pieces(text_).hasAuthority) text += '/';
    // And where there is none, two of them would begin one.
    if (path.starts_with("//") && !Pieces(text_).hasAuthority) text += "/.";
    // With nothing before it a first piece that holds a ":" would read as a scheme.
    if (start == 0 && path.substr(0, path.find('/')).contains(':')) text += "./";
    text += path;
    text += std::string_view(text_).substr(end);
    return URL(std::move(text));
}

URL URL::appendingPath(std::string_view components) const {
    std::string path = this->path();
    const bool begins = path.empty() && !Pieces(text_).hasAuthority;
    while (path.ends_with('/'))
        path.pop_back();
    while (components.starts_with('/'))
        components.remove_prefix(1);
    if (!begins) path += '/';
    return withPath(path + percentEncodedPath(components));
}

URL URL::withPathSuffix(std::string_view suffix) const {
    return withPath(path() + encodedPiece(suffix, pathMarks));
}

std::optional<URL> URL::withHostAndPort(std::string_view newHost, std::uint16_t newPort) const {
    const Pieces pieces(text_);
    if (!pieces.hasAuthority || newHost.empty()) return std::nullopt;
    const std::string host(newHost);
    std::string text;
    text.reserve(text_.size() + host.size() + 8);
    text += pieces.scheme;
    if (!text.empty()) text += ':';
    (text += "//") += pieces.user;
    text += host.contains(':') ? '[' + host + ']' : encodedPiece(host, unreservedMarks);
    (text += ':') += std::to_string(newPort);
    text += std::string_view(text_).substr(startOfPath(text_));
    // All else has been parsed before.
    if (isNumericAddress(host)) return URL(std::move(text));
    return parse(text);
}

std::string withQuery(std::string_view path, const std::vector<QueryItem>& items) {
    std::string text(path);
    char separator = '?';
    for (const QueryItem& item : items) {
        text += separator + encodedBut(item.name, unreservedMarks) + '=' +
                encodedBut(item.value, unreservedMarks);
        separator = '&';
    }
    return text;
}

std::optional<std::string> percentEncodedByAlphanumerics(std::string_view text,
                                                         std::string_view alsoAllowed) {
    std::string encoded;
    encoded.reserve(text.size());
    for (std::size_t start = 0; start < text.size();) {
        std::size_t next = start;
        const std::optional<char32_t> character = nextCharacter(text, next);
        if (!character) return std::nullopt;
        const std::string_view piece = text.substr(start, next - start);
        start = next;
        const bool stays = isAlphanumeric(*character) ||
                           (*character < 0x80 && (unreservedMarks.find(piece) != std::string_view::npos ||
                                                  alsoAllowed.find(piece) != std::string_view::npos));
        if (stays) {
            encoded += piece;
            continue;
        }
        for (const char byte : piece)
            appendEncoded(encoded, byte);
    }
    return encoded;
}

std::string percentEncodedPath(std::string_view text) {
    return encodedBut(text, pathMarks);
}

}  // namespace vark
