#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Foundation/URL.h"

namespace vark {

class AppIdentity;

/// Who is connected to which vark: the record that the application writes for the other processes. A value.
struct SharedConnection {
    std::string server;
    std::string token;
    std::string clientName;
    /// The path in the vark at which this connection is rooted; empty for the whole vark.
    std::string rootPath;
    std::int64_t rootID = 0;
    std::int64_t level = 0;
    /// The top-level folders that are to be shown; without a value there is no restriction.
    std::optional<std::vector<std::string>> folders{};
    /// Whether the token is kept in the file of secrets and not in the keychain. Records of earlier versions
    /// do not say it.
    std::optional<bool> tokenInFile{};

    bool operator==(const SharedConnection&) const = default;

    static SharedConnection fromJSON(const boost::json::value& value);
    std::string toJSON() const;

    /// Without a value nothing is filtered. An empty list of folders shows everything too.
    std::optional<std::set<std::string>> shownFolders() const;
    std::optional<URL> serverURL() const { return URL::parse(server); }
    std::string displayName() const;

    /// The identifiers of the file provider's domains. They survive a restart, and no test build shares one
    /// with the shipping build.
    static std::string domainPrefix(std::string_view bundleID);
    std::string domainIdentifier(std::string_view bundleID) const;
    std::string domainIdentifier(const AppIdentity& identity) const;
};

/// FNV-1a over the bytes of the text. The same in every run and on every machine: identifiers on disk hold
/// it.
std::uint32_t stableHash(std::string_view text);

}  // namespace vark
