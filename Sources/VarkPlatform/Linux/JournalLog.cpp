#include "VarkPlatform/Linux/JournalLog.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <string>

namespace vark {
namespace {

/// A field in the form with a length, in which the value may hold line breaks and so cannot pass for another
/// field.
void append(std::string& datagram, std::string_view name, std::string_view value) {
    datagram += name;
    datagram += '\n';
    for (std::uint64_t length = value.size(), byte = 0; byte < sizeof length; ++byte, length >>= 8)
        datagram += static_cast<char>(length & 0xff);
    datagram += value;
    datagram += '\n';
}

}  // namespace

JournalLog::JournalLog(std::filesystem::path socket)
    : address_(std::move(socket)), socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

void JournalLog::note(std::string_view category, std::string_view text) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string& path = address_.native();
    if (!socket_ || path.size() >= sizeof address.sun_path) return;
    std::memcpy(address.sun_path, path.data(), path.size());

    std::string datagram;
    append(datagram, "PRIORITY", "6");
    append(datagram, "SYSLOG_IDENTIFIER", "vark");
    append(datagram, "VARK_SUBSYSTEM", "dev.vark.mac");
    append(datagram, "VARK_CATEGORY", category);
    append(datagram, "MESSAGE", text);
    (void)sendto(socket_.get(), datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

}  // namespace vark
