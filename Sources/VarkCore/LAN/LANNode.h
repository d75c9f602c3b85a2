#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <string>

#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Foundation/URL.h"

namespace vark {

class JSONWriter;

/// A machine on this network that takes and serves bytes for the vark.
struct LANNode {
    /// The name under which it announces itself.
    std::string name;
    /// The host name that it serves, which its certificate is for.
    std::string host;
    /// The numeric address to connect to.
    std::string ip;
    std::uint16_t port = 0;
    Date seen;
    /// Whether it answers the JSON API too.
    bool api = false;

    bool operator==(const LANNode&) const = default;

    /// Fails with `DecodingError`.
    static LANNode fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
};

/// How a request reaches a node.
struct LANRoute {
    /// The URL with its host and port replaced by the node's address.
    URL url;
    std::string ip;
    std::uint16_t port = 0;
    /// For the "Host" header, the TLS server name and the check of the certificate.
    std::string host;
    /// The path as the caller gave it.
    std::string path;

    bool operator==(const LANRoute&) const = default;
    /// For the request line.
    std::string requestTarget() const;
};

}  // namespace vark
