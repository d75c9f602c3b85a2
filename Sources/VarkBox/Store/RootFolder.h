#pragma once

#include <boost/json/object.hpp>
#include <filesystem>

#include "VarkCore/Foundation/Files.h"

namespace vark::box {

/// The folder of everything that a box or a node keeps: made if need be, and held by one of them at a time.
/// While "address.json" stands there, whoever holds it can be reached as it says.
class RootFolder {
  public:
    /// Fails with std::runtime_error when another process holds it.
    explicit RootFolder(const std::filesystem::path& path);

    void publishAddress(const boost::json::object& address) const;
    void withdrawAddress() const;

  private:
    std::filesystem::path address_;
    FileLock lock_;
};

}  // namespace vark::box
