#pragma once

#include <cstdint>
#include <string_view>

namespace vark {

/// Where the bytes of one item of the vark go as they come. Used by one call of `VarkAPI::fetch` at a time,
/// which brings one piece after another, each on whatever thread it has it on. What it throws ends the call:
/// a `FileError` becomes a sentence of the call's own, all else passes up as it is.
class ContentSink {
  public:
    virtual ~ContentSink() = default;
    /// Where the bytes that are still wanted begin. Asked whenever a way is taken up, so one that failed in
    /// the middle may be gone on with by another.
    virtual std::int64_t next() const = 0;
    /// The bytes that stand at `at` in the item: first at `next()`, or at 0 from a vark that does not send
    /// parts, and from there without gaps. At least once, if only with no bytes, when the item has come.
    virtual void take(std::int64_t at, std::string_view bytes) = 0;
};

}  // namespace vark
