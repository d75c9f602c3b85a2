#pragma once

namespace vark {

/// Whether the system's bus lets nobody like this process speak to the avahi-daemon. Avahi's library takes
/// that for a daemon that is not there. Waits for the bus.
bool isAvahiForbidden();

}  // namespace vark
