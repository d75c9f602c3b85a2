#include "VarkBox/Store/Names.h"

#include <fmt/format.h>

#include "VarkBox/HTTP/Exchange.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::box {

namespace {

constexpr std::size_t longestName = 255;

}  // namespace

void checkName(std::string_view name) {
    if (name.empty())
        throw Refusal(400, "A name cannot be empty. Give every folder and file on the way a name.");
    if (name == "." || name == "..") {
        throw Refusal(400, fmt::format("\"{}\" cannot be a name. Choose another one.", name));
    }
    if (name.size() > longestName) {
        throw Refusal(400, fmt::format("A name is {} bytes long, and {} is the most. Choose a shorter one.",
                                       name.size(), longestName));
    }
    if (name.find('/') != std::string_view::npos) {
        throw Refusal(400, "A name cannot hold a \"/\". Choose another one.");
    }
    if (name.find('\0') != std::string_view::npos) {
        throw Refusal(400, "A name cannot hold the character NUL. Choose another one.");
    }
    if (!isUTF8(name)) throw Refusal(400, "A name must be UTF-8 text. Choose another one.");
}

std::vector<std::string> pathComponents(std::string_view path) {
    std::vector<std::string> components;
    if (path.empty()) return components;
    std::size_t start = 0;
    while (true) {
        std::size_t slash = path.find('/', start);
        std::string_view name = path.substr(start, slash - start);
        checkName(name);
        components.emplace_back(name);
        if (slash == std::string_view::npos) return components;
        start = slash + 1;
    }
}

std::string hostName(std::string_view text) {
    constexpr std::string_view allowed = "abcdefghijklmnopqrstuvwxyz0123456789-.";
    constexpr std::size_t longestHost = 253;
    std::string host = lowercased(text);
    bool isName = host.find_first_not_of(allowed) == std::string::npos && host.size() <= longestHost &&
                  host.find_first_not_of("0123456789.") != std::string::npos && !host.starts_with('.') &&
                  !host.ends_with('.') && host.find("..") == std::string::npos;
    if (!isName) {
        throw Refusal(400,
                      fmt::format("\"{}\" is no name of a host. Give one like node1.example.test.", text));
    }
    return host;
}

std::string joined(std::span<const std::string> components) {
    return fmt::format("{}", fmt::join(components, "/"));
}

}  // namespace vark::box
