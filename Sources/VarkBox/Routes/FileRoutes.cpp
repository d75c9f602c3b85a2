#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "VarkBox/Routes/Services.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark::box {

namespace {

struct Stretch {
    std::int64_t offset = 0;
    std::int64_t length = 0;
};

std::optional<std::int64_t> number(std::string_view text) {
    std::int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
    return value;
}

/// "bytes=0-99", "bytes=100-" or "bytes=-50" of a file of `size` bytes. Nothing for a header that asks for
/// several stretches or that makes no sense: that one counts as not there. Refuses with 416 what lies outside
/// the file.
std::optional<Stretch> stretchFrom(std::string_view range, std::int64_t size) {
    constexpr std::string_view unit = "bytes=";
    if (!range.starts_with(unit)) return std::nullopt;
    range.remove_prefix(unit.size());
    std::size_t dash = range.find('-');
    if (dash == std::string_view::npos) return std::nullopt;
    std::string_view first = range.substr(0, dash);
    std::string_view last = range.substr(dash + 1);
    if (first.empty()) {
        std::optional<std::int64_t> tail = number(last);
        if (!tail) return std::nullopt;
        std::int64_t length = std::min(*tail, size);
        if (length == 0) throw Refusal(416, "The file has no such bytes.");
        return Stretch{size - length, length};
    }
    std::optional<std::int64_t> start = number(first);
    std::optional<std::int64_t> end = last.empty() ? std::optional(size - 1) : number(last);
    if (!start || !end || (!last.empty() && *end < *start)) return std::nullopt;
    if (*start >= size) throw Refusal(416, "The file has no such bytes.");
    return Stretch{*start, std::min(*end, size - 1) - *start + 1};
}

Item requireFile(Services& services, std::int64_t id) {
    Turn turn = services.database.read();
    Item item = Tree(turn).require(id);
    if (item.isDir)
        throw Refusal(400, fmt::format("\"{}\" is a folder. Fetch the files inside it.", item.name));
    return item;
}

BoxReply fileBytes(Services& services, const BoxRequest& request, const Item& item) {
    std::optional<Stretch> stretch = stretchFrom(request.range, item.size);
    BoxReply reply;
    reply.contentType = "application/octet-stream";
    reply.headers.emplace_back("Accept-Ranges", "bytes");
    if (stretch) {
        reply.status = 206;
        reply.headers.emplace_back(
            "Content-Range",
            fmt::format("bytes {}-{}/{}", stretch->offset, stretch->offset + stretch->length - 1, item.size));
    }
    Stretch wanted = stretch.value_or(Stretch{0, item.size});
    reply.file = FileSlice{services.files.openObject(item.sha256), static_cast<std::uint64_t>(wanted.offset),
                           static_cast<std::uint64_t>(wanted.length)};
    return reply;
}

std::int64_t wholeSecond() {
    return static_cast<std::int64_t>(now());
}

/// The bytes of a file are fetched from the office's node when there is one.
BoxReply file(Services& services, const BoxRequest& request, std::int64_t id) {
    Item item = requireFile(services, id);
    std::optional<std::string> node = services.nodes.attached();
    if (!node) return fileBytes(services, request, item);
    return BoxReply::redirect(fmt::format("{}/f/{}", addressOn(*node, services.chunkURL),
                                          services.tickets.issue(id, wholeSecond())));
}

}  // namespace

void addFileRoutes(Router& router, Services& services) {
    router.add("GET", "/api/file/{}", Door::reader,
               [&services](const BoxRequest& request, const Router::Arguments& arguments) {
                   return file(services, request, numberFrom(arguments[0], "The id of a file"));
               });
}

void addTicketRoutes(Router& router, Services& services) {
    router.add("GET", "/f/{}", Door::open,
               [&services](const BoxRequest& request, const Router::Arguments& arguments) {
                   std::int64_t id = services.tickets.open(arguments[0], wholeSecond());
                   return fileBytes(services, request, requireFile(services, id));
               });
}

}  // namespace vark::box
