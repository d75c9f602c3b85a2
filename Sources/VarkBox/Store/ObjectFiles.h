#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Foundation/Files.h"

namespace vark::box {

/// The bytes of the box on disk: whole files under the hash of their bytes, and one file for each upload that
/// is on its way, which is renamed into its place once its hash has been checked. A file stands under a hash
/// only if its bytes have that hash. Any thread.
class ObjectFiles {
  public:
    explicit ObjectFiles(const std::filesystem::path& root);

    bool holds(std::string_view sha256, std::int64_t size) const;
    Descriptor openObject(std::string_view sha256) const;

    /// Made if need be.
    Descriptor openForWriting(std::string_view uploadID) const;
    Descriptor openForChecking(std::string_view uploadID) const;
    /// What lies on disk for an upload; nothing counts as 0.
    std::int64_t receivedLength(std::string_view uploadID) const;
    void discard(std::string_view uploadID) const;
    /// Moves the checked bytes of an upload to their place.
    void adopt(std::string_view uploadID, std::string_view sha256) const;
    /// The uploads of which there are bytes on disk.
    std::vector<std::string> uploadsOnDisk() const;

  private:
    std::filesystem::path objectPath(std::string_view sha256) const;
    std::filesystem::path uploadPath(std::string_view uploadID) const;

    std::filesystem::path objects_;
    std::filesystem::path uploads_;
};

}  // namespace vark::box
