#include <optional>

#include "Tests/Fuzz/FuzzTarget.h"
#include "VarkCore/Connection/SharedConnection.h"
#include "VarkCore/Connection/SharedLevel.h"
#include "VarkCore/Foundation/JSON/JSON.h"

// The connection and level records, which other processes and other versions write.

namespace {

using namespace vark;

/// Nothing when the text is no such record.
template <class Record>
std::optional<Record> read(std::string_view text) {
    Record record;
    try {
        record = Record::fromJSON(parseJSON(text));
    } catch (const DecodingError&) {
        return std::nullopt;
    }
    fuzz::require(Record::fromJSON(parseJSON(record.toJSON())) == record,
                  "a record that was read is written so that it reads the same");
    return record;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (read<SharedLevel>(fuzz::textOf(data, size))) return 0;
    const auto connection = read<SharedConnection>(fuzz::textOf(data, size));
    if (!connection) return 0;
    std::string identifier = connection->domainIdentifier("dev.vark.mac");
    fuzz::require(identifier.starts_with(SharedConnection::domainPrefix("dev.vark.mac")),
                  "a domain's identifier tells whose it is");
    fuzz::require(identifier.find('/') == std::string::npos, "a domain's identifier is one name");
    connection->serverURL();
    connection->displayName();
    connection->shownFolders();
    return 0;
}
