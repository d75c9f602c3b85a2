#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vark {

struct QueryItem {
    std::string name;
    std::string value;
};

/// An absolute or relative web address, always kept in a form that may stand in a request as it is: what is
/// not allowed there has been percent-encoded. A value.
class URL {
  public:
    /// Nothing when the text is empty or no URL. Bytes beyond ASCII are percent-encoded first, and so is,
    /// behind the host, all else that may not stand in an address: a "%" with no two hexadecimal digits
    /// behind it reads as "%25".
    static std::optional<URL> parse(std::string_view text);

    const std::string& text() const { return text_; }
    /// Lower-cased; empty for a relative URL.
    std::string scheme() const;
    /// As it stands in the address; without the brackets of an IPv6 address.
    std::string host() const;
    std::optional<std::uint16_t> port() const;
    /// Percent-encoded, as it stands.
    std::string path() const;
    std::optional<std::string> query() const;
    /// The path, or "/" if that is empty, and "?" with the query if there is one.
    std::string requestTarget() const;

    /// `reference` resolved against this as its base (RFC 3986, section 5). Nothing if it does not parse.
    std::optional<URL> resolving(std::string_view reference) const;
    /// Adds to the path with exactly one "/" between; `components` may hold "/" itself and is
    /// percent-encoded.
    URL appendingPath(std::string_view components) const;
    /// Appends this text, which may be encoded already, to the path as it stands, with no "/" of its own.
    URL withPathSuffix(std::string_view suffix) const;
    /// A numeric address or a name, and a port; all else stays.
    std::optional<URL> withHostAndPort(std::string_view host, std::uint16_t port) const;

    bool operator==(const URL& other) const { return text_ == other.text_; }

  private:
    explicit URL(std::string text) : text_(std::move(text)) {}
    URL withPath(std::string_view path) const;

    std::string text_;
};

/// `path` with "?" and the items behind it, if there are any. Of each name and value only ASCII letters,
/// digits and
/// "-._~" stay as they are: a server may read a bare "+" as a blank.
std::string withQuery(std::string_view path, const std::vector<QueryItem>& items);

/// Leaves Unicode letters and digits, "-._~" and each character of `alsoAllowed` (ASCII) as they are and
/// percent-encodes all else. Nothing if `text` is not UTF-8.
std::optional<std::string> percentEncodedByAlphanumerics(std::string_view text,
                                                         std::string_view alsoAllowed = "");

/// Percent-encodes all but what a path may hold ("/" stays).
std::string percentEncodedPath(std::string_view text);

}  // namespace vark
