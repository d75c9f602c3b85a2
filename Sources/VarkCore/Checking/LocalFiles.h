#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/Checking/CheckedFile.h"
#include "VarkCore/Services/Volumes.h"
#include "VarkCore/Transfer/Walker.h"

namespace vark {

/// The files here that are to be checked, as a tree that a walk through the vark's folders follows. A value;
/// filled once and then read by place.
class LocalFiles {
  public:
    struct File {
        /// Below the folder of the vark.
        std::string path;
        std::filesystem::path localPath;
        FileStamp found{};
    };
    struct Folder {
        std::string name;
        std::vector<std::size_t> files{};
        std::vector<std::size_t> folders{};
    };
    /// One thing that the person named.
    struct Root {
        std::filesystem::path path;
        std::string name{};
        bool isFolder = false;
        /// Of a folder its place among the folders, of a file among the files.
        std::size_t place = 0;
        /// Why nothing of it is known; a finished sentence.
        std::optional<std::string> lost{};
        std::vector<Walker::PassedOver> passedOver{};
        /// In `files`, one behind the other.
        std::size_t firstFile = 0;
        std::size_t fileCount = 0;
    };

    std::vector<Root> roots;
    std::vector<File> files;
    std::vector<Folder> folders;

    /// Takes in what a walk of `path` found.
    void add(const std::filesystem::path& path, Walker::Result walked);
    /// What could not be walked at all.
    void addLost(const std::filesystem::path& path, std::string why);
};

}  // namespace vark
