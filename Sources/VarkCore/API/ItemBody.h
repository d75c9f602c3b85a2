#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "VarkCore/API/ContentSink.h"
#include "VarkCore/Foundation/Progress.h"
#include "VarkCore/Services/HTTPSession.h"

namespace vark {

/// The body of one answer with the bytes of an item, on its way into a sink: says where in the item they
/// belong, and how far they have come. Lives for one exchange.
class ItemBody final : public BodySink {
  public:
    ItemBody(ContentSink& sink, std::shared_ptr<Progress> progress);

    /// The header that asks for what the sink still wants; none when that is the whole.
    std::vector<HTTPHeader> headers() const;
    /// Fails with `VarkAPIError::badResponse` for a part that was not asked for.
    void take(const HTTPResponse& answer, std::string_view bytes) override;

  private:
    std::int64_t placeOf(const HTTPResponse& answer) const;

    ContentSink& sink_;
    const std::shared_ptr<Progress> progress_;
    const std::int64_t wantedFrom_;
    /// Where the next piece belongs, once the answer has begun.
    std::optional<std::int64_t> place_;
};

}  // namespace vark
