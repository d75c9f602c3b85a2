#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "Tests/Support/BuildTree.h"

namespace vark::test {

/// The programs that the end-to-end tests start: those of the test's own build, or of the one whose folder
/// stands in VARK_PROGRAMS. So the tests are built once, and drive the programs of every build.
class Programs {
  public:
    static const Programs& get() {
        static const Programs programs;
        return programs;
    }

    std::filesystem::path vark() const { return tree_ / "Vark.app/Contents/MacOS/vark"; }
    std::filesystem::path box() const { return tree_ / "Hosts/Box/vark-box"; }
    /// As in `-fsanitize`; empty without any.
    const std::string& sanitizers() const { return sanitizers_; }
    const std::string& bundleIdentifier() const { return bundleIdentifier_; }
    /// The name of the folders in which they keep their files.
    std::string folder() const {
        return bundleIdentifier_ == "dev.vark.mac" ? "Vark" : "Vark (" + bundleIdentifier_ + ")";
    }

  private:
    Programs() {
        const char* given = std::getenv("VARK_PROGRAMS");
        tree_ = given != nullptr ? std::filesystem::path(given) : buildTree();
        std::ifstream file(tree_ / "programs");
        std::getline(file, bundleIdentifier_);
        std::getline(file, sanitizers_);
    }

    std::filesystem::path tree_;
    std::string sanitizers_;
    std::string bundleIdentifier_;
};

}  // namespace vark::test
