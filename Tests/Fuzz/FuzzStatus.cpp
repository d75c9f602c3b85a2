#include "Tests/Fuzz/FuzzTarget.h"
#include "VarkCore/Activity/ActivityHistory.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Sync/SharedSync.h"

// The records by which processes tell one another what happens; other versions write them too.

namespace {

using namespace vark;

template <class Record>
Record writtenAndRead(const Record& record) {
    JSONWriter json;
    record.encode(json);
    return Record::fromJSON(parseJSON(json.text()));
}

template <class Record>
void requireTheSameAfterWriting(const Record& record) {
    // A date beyond what can be written becomes the nearest one, once.
    const Record written = writtenAndRead(record);
    fuzz::require(writtenAndRead(written) == written, "a record that was written reads the same ever after");
}

void readSync(const boost::json::value& value) {
    const SyncOp op = SyncOp::fromJSON(value);
    requireTheSameAfterWriting(op);
    SharedSync::settle(op, op.touched + 601);
    fuzz::require(op.name().find('/') == std::string::npos || op.name() == op.path, "a name is one piece");
    op.folderName();
}

void readActivity(const boost::json::value& value) {
    ActivityEntry entry = ActivityEntry::fromJSON(value);
    requireTheSameAfterWriting(entry);
    entry.category();
    ActivityEntry::placeOf(entry.text);
    fuzz::require(ActivityHistory::folded({entry, entry}).size() <= 2, "folding makes no lines");
    entry.takeUpOne(entry.text);
    requireTheSameAfterWriting(entry);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    for (const auto read : {readSync, readActivity}) {
        try {
            read(parseJSON(fuzz::textOf(data, size)));
        } catch (const DecodingError&) {
            continue;
        }
    }
    return 0;
}
