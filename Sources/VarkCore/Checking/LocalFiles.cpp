#include "VarkCore/Checking/LocalFiles.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace vark {

void LocalFiles::add(const std::filesystem::path& path, Walker::Result walked) {
    Root root{.path = path, .name = path.filename().native(), .isFolder = walked.isFolder};
    root.firstFile = files.size();
    root.fileCount = walked.files.size();
    root.place = root.isFolder ? folders.size() : files.size();
    root.passedOver = std::move(walked.passedOver);
    // Each folder is made behind the one that it lies in, and found again by its path.
    std::unordered_map<std::string, std::size_t> known;
    if (root.isFolder) {
        known.emplace(root.name, folders.size());
        folders.push_back({root.name});
    }
    const auto placeOf = [&](std::string_view folder) {
        std::size_t place = root.place;
        for (std::size_t end = root.name.size(); end < folder.size();) {
            const std::size_t begin = end + 1;
            end = std::min(folder.find('/', begin), folder.size());
            const auto [found, isNew] = known.emplace(folder.substr(0, end), folders.size());
            if (isNew) {
                folders.push_back({std::string(folder.substr(begin, end - begin))});
                folders[place].folders.push_back(found->second);
            }
            place = found->second;
        }
        return place;
    };
    const std::filesystem::path around = path.parent_path();
    std::string lastFolder;
    std::size_t lastPlace = root.place;
    for (Walker::Found& found : walked.files) {
        if (root.isFolder) {
            const std::string_view folder =
                std::string_view(found.relativePath).substr(0, found.relativePath.rfind('/'));
            if (folder != lastFolder) {
                lastPlace = placeOf(folder);
                lastFolder = folder;
            }
            folders[lastPlace].files.push_back(files.size());
        }
        std::filesystem::path localPath = around / found.relativePath;
        files.push_back({std::move(found.relativePath), std::move(localPath), {found.size, found.mtime}});
    }
    roots.push_back(std::move(root));
}

void LocalFiles::addLost(const std::filesystem::path& path, std::string why) {
    roots.push_back({.path = path, .name = path.filename().native(), .lost = std::move(why)});
}

}  // namespace vark
