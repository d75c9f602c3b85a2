#include "Tests/Fuzz/FuzzTarget.h"
#include "VarkCore/Connection/SharedConnection.h"
#include "VarkCore/Foundation/JSON.h"

// The connection record, which other processes and other versions write.

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vark;
    SharedConnection connection;
    try {
        connection = SharedConnection::fromJSON(parseJSON(fuzz::textOf(data, size)));
    } catch (const DecodingError&) {
        return 0;
    }
    SharedConnection again = SharedConnection::fromJSON(parseJSON(connection.toJSON()));
    fuzz::require(again == connection, "a record that was read is written so that it reads the same");
    std::string identifier = connection.domainIdentifier("dev.vark.mac");
    fuzz::require(identifier.starts_with(SharedConnection::domainPrefix("dev.vark.mac")),
                  "a domain's identifier tells whose it is");
    fuzz::require(identifier.find('/') == std::string::npos, "a domain's identifier is one name");
    connection.serverURL();
    connection.displayName();
    connection.shownFolders();
    return 0;
}
