#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <optional>
#include <string>
#include <vector>

#include "VarkCore/Foundation/Files.h"

namespace vark {

/// An address without a port.
struct NetworkAddress {
    sa_family_t family = AF_UNSPEC;
    in6_addr bytes{};  // The first four for AF_INET.

    /// Nothing for what is no numeric address.
    static std::optional<NetworkAddress> parse(const std::string& text);
    /// All addresses of a name, or the one that the text is. May wait for the name service.
    static std::vector<NetworkAddress> resolve(const std::string& host);
    bool isLoopback() const;
};

/// A socket that has something to read whenever links, addresses or routes change. Nothing when the kernel
/// gives none.
Descriptor openRouteChanges();

/// Whether the kernel knows a way to this address over a link that is up. True when it cannot be asked.
bool hasRoute(const NetworkAddress& to);
/// The same for a way out into the world, whichever part of it.
bool leadsOut();

}  // namespace vark
