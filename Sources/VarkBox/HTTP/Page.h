#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "VarkBox/HTTP/Exchange.h"

namespace vark::box {

/// Text from outside as HTML that shows it.
std::string escapedHTML(std::string_view text);

/// A page for a person. The title is text, and the content is HTML.
BoxReply page(int status, std::string_view title, std::string_view content);

/// A refusal on the way becomes a page with its sentence.
BoxReply pageOrRefusal(const std::function<BoxReply()>& make);

}  // namespace vark::box
