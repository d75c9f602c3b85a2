#include "VarkCore/API/ItemBody.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {
namespace {

constexpr int partialContent = 206;

std::string_view valueOf(const HTTPResponse& answer, std::string_view name) {
    for (const HTTPHeader& header : answer.headers) {
        if (lowercased(header.name) == name) return header.value;
    }
    return {};
}

/// The number at the beginning of the text, from 0 on.
std::optional<std::int64_t> leadingNumber(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || number < 0) return std::nullopt;
    return number;
}

}  // namespace

ItemBody::ItemBody(ContentSink& sink, std::shared_ptr<Progress> progress)
    : sink_(sink), progress_(std::move(progress)), wantedFrom_(sink.next()) {}

std::vector<HTTPHeader> ItemBody::headers() const {
    if (wantedFrom_ == 0) return {};
    return {{"Range", fmt::format("bytes={}-", wantedFrom_)}};
}

void ItemBody::take(const HTTPResponse& answer, std::string_view bytes) {
    if (!place_) {
        place_ = placeOf(answer);
        if (const auto length = leadingNumber(valueOf(answer, "content-length")))
            progress_->setTotalUnitCount(std::max<std::int64_t>(*place_ + *length, 1));
    }
    sink_.take(*place_, bytes);
    *place_ += std::ssize(bytes);
    progress_->setCompletedUnitCount(*place_);
}

/// Any other success than a part is the whole from its beginning.
std::int64_t ItemBody::placeOf(const HTTPResponse& answer) const {
    if (answer.status != partialContent) return 0;
    constexpr std::string_view unit = "bytes ";
    const std::string_view range = valueOf(answer, "content-range");
    if (!range.starts_with(unit) || leadingNumber(range.substr(unit.size())) != wantedFrom_)
        throw VarkAPIError::badResponse("another part of the file than the one asked for");
    return wantedFrom_;
}

}  // namespace vark
