#include "VarkBox/Store/RootFolder.h"

#include <fmt/format.h>

#include <boost/json/serialize.hpp>
#include <stdexcept>

namespace vark::box {

namespace fs = std::filesystem;

namespace {

FileLock lockIn(const fs::path& folder) {
    fs::create_directories(folder);
    std::optional<FileLock> lock = FileLock::tryExclusive(folder / "lock");
    if (!lock) {
        throw std::runtime_error(fmt::format(
            "Another vark-box is serving {} already. Stop it, or choose another --root.", folder.string()));
    }
    return std::move(*lock);
}

}  // namespace

RootFolder::RootFolder(const fs::path& path) : address_(path / "address.json"), lock_(lockIn(path)) {
    // Left by a process that was killed: whoever waits for the file must not find the old one.
    withdrawAddress();
}

void RootFolder::publishAddress(const boost::json::object& address) const {
    writeAtomically(address_, boost::json::serialize(address) + "\n", 0600, Durability::cached);
}

void RootFolder::withdrawAddress() const {
    fs::remove(address_);
}

}  // namespace vark::box
