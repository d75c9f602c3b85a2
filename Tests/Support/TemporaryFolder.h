#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vark {

/// A fresh folder for one test, gone with all that is in it at the test's end.
class TemporaryFolder {
  public:
    explicit TemporaryFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
        std::string pattern = parent / "vark-test-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("No temporary folder could be made.");
        path_ = std::filesystem::canonical(pattern);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

    /// Writes a file, with the folders that lead to it.
    std::filesystem::path file(std::string_view name, std::string_view content = "") const {
        const std::filesystem::path path = path_ / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

  private:
    std::filesystem::path path_;
};

}  // namespace vark
