#pragma once

#include "Hosts/CLI/Display/Console.h"
#include "VarkApp/Queue/QueueRequest.h"

namespace vark::cli {

/// What came of a request, as lines or as one JSON object, and its exit code.
ExitCode printAnswer(Console& console, const QueueAnswer& answer, bool json);

/// The queue: in JSON one object for the whole, one for each entry and one for each file that has not
/// settled.
void printQueue(Console& console, const QueueView& view, bool json);

}  // namespace vark::cli
