#include "Tests/Fuzz/FuzzTarget.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Transfer/Queue/QueueStore.h"

// The saved queue, which an older version, a failing disk or a curious person may have written.

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vark;
    static QueueStore store("/nonexistent/queue.json");
    std::optional<TransferJob> job;
    try {
        job = QueueStore::decode(fuzz::textOf(data, size));
    } catch (const DecodingError&) {
        return 0;
    }
    if (!job) return 0;
    for (const TransferItem& item : job->items) {
        fuzz::require(!isInFlight(item.state), "nothing is in flight in a queue that was just read");
        fuzz::require(item.size < 0 || item.bytesDone() <= item.size, "no more is done than there is");
    }
    std::optional<TransferJob> again = QueueStore::decode(*store.encode(&*job).bytes);
    fuzz::require(again == job, "a queue that was read is written so that it reads the same");
    return 0;
}
