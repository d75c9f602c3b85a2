#include "VarkCore/Connection/SharedConnection.h"

#include <fmt/format.h>

#include "VarkCore/Connection/AppIdentity.h"
#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Foundation/Text.h"

namespace vark {

SharedConnection SharedConnection::fromJSON(const boost::json::value& value) {
    const JSONFields fields(value);
    SharedConnection connection;
    connection.server = fields.required<std::string>("server");
    connection.token = fields.required<std::string>("token");
    connection.clientName = fields.required<std::string>("clientName");
    connection.rootPath = fields.required<std::string>("rootPath");
    connection.rootID = fields.required<std::int64_t>("rootID");
    connection.level = fields.required<std::int64_t>("level");
    connection.folders = fields.optional<std::vector<std::string>>("folders");
    connection.tokenInFile = fields.optional<bool>("tokenInFile");
    return connection;
}

std::string SharedConnection::toJSON() const {
    JSONWriter json;
    json.beginObject().field("server", server).field("token", token).field("clientName", clientName);
    json.field("rootPath", rootPath).field("rootID", rootID).field("level", level).field("folders", folders);
    json.field("tokenInFile", tokenInFile).endObject();
    return json.take();
}

std::optional<std::set<std::string>> SharedConnection::shownFolders() const {
    if (!folders || folders->empty()) return std::nullopt;
    return std::set<std::string>(folders->begin(), folders->end());
}

std::string SharedConnection::displayName() const {
    if (rootPath.empty()) return clientName;
    return fmt::format("{} ({})", clientName, lastPathComponent(rootPath));
}

std::string SharedConnection::domainPrefix(std::string_view bundleID) {
    return std::string(bundleID == "dev.vark.mac" ? "dev.vark" : bundleID) + ".finder.";
}

std::string SharedConnection::domainIdentifier(std::string_view bundleID) const {
    if (rootPath.empty()) return domainPrefix(bundleID) + "vark";
    return fmt::format("{}{:08x}", domainPrefix(bundleID), stableHash(rootPath));
}

std::string SharedConnection::domainIdentifier(const AppIdentity& identity) const {
    return domainIdentifier(identity.bundleID());
}

std::uint32_t stableHash(std::string_view text) {
    std::uint32_t hash = 0x811c9dc5;
    for (const char character : text) {
        hash ^= static_cast<unsigned char>(character);
        hash *= 16777619;
    }
    return hash;
}

}  // namespace vark
