#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstring>

#include "Tests/Support/TemporaryFolder.h"
#include "VarkPlatform/Linux/JournalLog.h"

namespace vark::test {
namespace {

std::string field(std::string_view name, std::string_view value) {
    std::string text(name);
    text += '\n';
    text += static_cast<char>(value.size());
    text += std::string(7, '\0');
    text += value;
    return text + '\n';
}

TEST(JournalLog, SendsEachNoteAsOneDatagramThatNoTextCanForge) {
    const TemporaryFolder folder;
    const std::filesystem::path path = folder / "socket";
    const Descriptor journal(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(bind(journal.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);

    JournalLog log(path);
    log.note("transfer", "two\nPRIORITY=0\nlines");
    std::array<char, 4096> datagram{};
    const ssize_t count = recv(journal.get(), datagram.data(), datagram.size(), MSG_DONTWAIT);
    ASSERT_GT(count, 0);
    EXPECT_EQ(std::string(datagram.data(), static_cast<std::size_t>(count)),
              field("PRIORITY", "6") + field("SYSLOG_IDENTIFIER", "vark") +
                  field("VARK_SUBSYSTEM", "dev.vark.mac") + field("VARK_CATEGORY", "transfer") +
                  field("MESSAGE", "two\nPRIORITY=0\nlines"));
}

TEST(JournalLog, DropsNotesWithoutAJournalAndNeverWaits) {
    const TemporaryFolder folder;
    JournalLog(folder / "nowhere").note("transfer", "text");
    JournalLog(std::string(200, 'x')).note("transfer", "text");

    const std::filesystem::path path = folder / "socket";
    const Descriptor full(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(bind(full.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    JournalLog log(path);
    for (int count = 0; count < 10'000; ++count)
        log.note("transfer", "nobody reads this");
}

}  // namespace
}  // namespace vark::test
