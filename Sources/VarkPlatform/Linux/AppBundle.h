#pragma once

#include <filesystem>
#include <map>

#include "VarkCore/Services/Bundle.h"

namespace vark {

/// What stands in `{name}.app/Contents/Info.plist` around an executable in `{name}.app/Contents/MacOS`. Read
/// once, at the beginning; an executable outside of such a folder has no values, and neither has one whose
/// list cannot be read. A program that runs from the tree that it was built in has values of its own, so that
/// it never touches the files of a build that people use.
class AppBundle final : public Bundle {
  public:
    AppBundle() : AppBundle(runningExecutable()) {}
    explicit AppBundle(const std::filesystem::path& executable);

    std::optional<std::string> identifier() const override { return infoText("CFBundleIdentifier"); }
    std::optional<std::string> infoText(std::string_view key) const override;

    static std::filesystem::path runningExecutable();

  private:
    std::map<std::string, std::string, std::less<>> texts_;
};

}  // namespace vark
