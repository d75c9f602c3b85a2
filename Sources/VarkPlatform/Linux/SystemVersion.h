#pragma once

#include <filesystem>
#include <string>

namespace vark {

/// "Debian GNU/Linux 12 (bookworm), Linux 6.1.0-18-amd64"
std::string systemVersion(const std::filesystem::path& release = "/etc/os-release");

}  // namespace vark
