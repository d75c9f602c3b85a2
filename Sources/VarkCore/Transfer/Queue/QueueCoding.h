#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Transfer/Queue/QueueModel.h"

namespace vark {

/// The document of `queue.json`, written straight into one buffer: keys sorted, absent fields left out, dates
/// in ISO 8601 at whole seconds.
std::string encodeQueue(const TransferJob& job, Date savedAt);

/// Reads such a document, whatever its bytes; nothing when it has no job. Fails with `DecodingError`. Beside
/// the answer it holds one item at a time.
std::optional<TransferJob> decodeQueue(std::string_view bytes);

}  // namespace vark
