#include "VarkBox/HTTP/RequestTarget.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>

#include "VarkCore/Foundation/Text.h"

namespace vark::box {

namespace {

/// Percent-encodes what may not stand in a target though a lenient client sends it as it is.
std::string asciiTarget(std::string_view target) {
    std::string result;
    for (char character : target) {
        auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80) {
            result += character;
        } else {
            result += fmt::format("%{:02X}", byte);
        }
    }
    return result;
}

}  // namespace

bool takeTargetApart(BoxRequest& request) {
    std::string target = asciiTarget(request.target);
    auto parsed = boost::urls::parse_origin_form(target);
    if (!parsed) return false;
    for (boost::urls::pct_string_view segment : parsed->encoded_segments()) {
        request.segments.push_back(segment.decode());
    }
    // A "+" is a plus here, not a blank: the clients of a vark encode blanks as "%20".
    for (boost::urls::param_pct_view param : parsed->encoded_params()) {
        request.query.emplace_back(param.key.decode(), param.value.decode());
    }
    return std::ranges::all_of(request.segments, isUTF8) &&
           std::ranges::all_of(request.query, [](const auto& part) { return isUTF8(part.second); });
}

}  // namespace vark::box
