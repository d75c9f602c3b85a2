#include "Tests/Fuzz/FuzzTarget.h"
#include "VarkCore/Activity/ActivityHistory.h"
#include "VarkCore/Connection/SharedConnection.h"
#include "VarkCore/Connection/SharedLevel.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Sync/SharedSync.h"

// The records by which processes tell one another of their connection and of what happens; other versions
// write them too.

namespace {

using namespace vark;

template <class Record>
std::string written(const Record& record) {
    if constexpr (requires { record.toJSON(); }) {
        return record.toJSON();
    } else {
        JSONWriter json;
        record.encode(json);
        return json.take();
    }
}

template <class Record>
void requireTheSameAfterWriting(const Record& record) {
    // A date beyond what can be written becomes the nearest one, once.
    const Record once = Record::fromJSON(parseJSON(written(record)));
    const Record twice = Record::fromJSON(parseJSON(written(once)));
    fuzz::require(twice == once, "a record that was written reads the same ever after");
}

void readLevel(const boost::json::value& value) {
    requireTheSameAfterWriting(SharedLevel::fromJSON(value));
}

void readConnection(const boost::json::value& value) {
    const SharedConnection connection = SharedConnection::fromJSON(value);
    requireTheSameAfterWriting(connection);
    const std::string identifier = connection.domainIdentifier("dev.vark.mac");
    fuzz::require(identifier.starts_with(SharedConnection::domainPrefix("dev.vark.mac")),
                  "a domain's identifier tells whose it is");
    fuzz::require(identifier.find('/') == std::string::npos, "a domain's identifier is one name");
    connection.serverURL();
    connection.displayName();
    connection.shownFolders();
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
    for (const auto read : {readLevel, readConnection, readSync, readActivity}) {
        try {
            read(parseJSON(fuzz::textOf(data, size)));
        } catch (const DecodingError&) {
            continue;
        }
    }
    return 0;
}
