#pragma once

#include <filesystem>
#include <fstream>
#include <string>

namespace vark::test {

/// The build folder that the running test lies in. Found and not compiled in, so that a test's object is the
/// same wherever the tree stands.
inline std::filesystem::path buildTree() {
    std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe");
    while (folder.has_relative_path() && !std::filesystem::exists(folder / "vark-build-tree"))
        folder = folder.parent_path();
    return folder;
}

/// The tree that it was built from.
inline std::filesystem::path sourceTree() {
    std::ifstream file(buildTree() / "source-tree");
    std::string path;
    std::getline(file, path);
    return path;
}

}  // namespace vark::test
