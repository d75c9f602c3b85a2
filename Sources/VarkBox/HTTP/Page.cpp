#include "VarkBox/HTTP/Page.h"

#include <fmt/format.h>

namespace vark::box {

std::string escapedHTML(std::string_view text) {
    std::string html;
    for (char character : text) {
        switch (character) {
            case '&':
                html += "&amp;";
                break;
            case '<':
                html += "&lt;";
                break;
            case '>':
                html += "&gt;";
                break;
            case '"':
                html += "&quot;";
                break;
            case '\'':
                html += "&#39;";
                break;
            default:
                html += character;
        }
    }
    return html;
}

BoxReply page(int status, std::string_view title, std::string_view content) {
    BoxReply reply;
    reply.status = status;
    reply.contentType = "text/html; charset=utf-8";
    reply.body = fmt::format(
        R"(<!doctype html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>{0}</title>
<style>body {{ font: 16px sans-serif; margin: 4em auto; max-width: 34em }} form {{ display: inline }}</style>
<h1>{0}</h1>
{1}
</html>
)",
        escapedHTML(title), content);
    // The addresses of these pages are secrets, and nothing but the page's own forms may press its buttons.
    reply.headers = {{"Cache-Control", "no-store"},
                     {"Referrer-Policy", "no-referrer"},
                     {"X-Content-Type-Options", "nosniff"},
                     {"Content-Security-Policy",
                      "default-src 'none'; style-src 'unsafe-inline'; form-action 'self'; "
                      "frame-ancestors 'none'; base-uri 'none'"}};
    return reply;
}

BoxReply pageOrRefusal(const std::function<BoxReply()>& make) {
    try {
        return make();
    } catch (const Refusal& refusal) {
        return page(refusal.status(), "That did not work",
                    fmt::format("<p>{}</p>", escapedHTML(refusal.what())));
    }
}

}  // namespace vark::box
