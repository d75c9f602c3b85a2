#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/Transfer/PathFilter.h"

namespace vark {

/// What an item of the vark comes to on this machine: folders and the files in them, each by a name that is
/// one component.
struct WantedFiles {
    struct Folder {
        /// Its place in `folders`; before its own.
        std::size_t parent;
        std::string name;
    };
    struct File {
        VarkItem item;
        std::size_t folder;
        std::string name;
    };
    struct LeftOut {
        /// In the vark.
        std::string path;
        std::string why;
    };

    /// The first one is the folder that all goes into; it has no name and is its own parent.
    std::vector<Folder> folders{{0, ""}};
    std::vector<File> files;
    std::int64_t totalBytes = 0;
    /// What cannot be kept here.
    std::vector<LeftOut> leftOut;
    /// Files and folders that the person did not want.
    std::int64_t excluded = 0;

    /// Below the first folder.
    std::filesystem::path pathOf(std::size_t folder) const;
    std::filesystem::path pathOf(const File& file) const { return pathOf(file.folder) / file.name; }
    /// Takes in what another one comes to, into the same first folder.
    void add(WantedFiles other);
};

/// The item under `name`, with all that lies below it when it is a folder; its children alone when the name
/// is empty. `name` is the person's, and one component; those below it are the vark's, and what a name of
/// those cannot be used for is left out. The filter is about what lies below the item, and about a file that
/// is the item.
Task<WantedFiles> listWanted(std::shared_ptr<VarkAPI> api, VarkItem top, std::string name,
                             PathFilter filter = {});

}  // namespace vark
