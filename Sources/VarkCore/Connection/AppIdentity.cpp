#include "VarkCore/Connection/AppIdentity.h"

#include "VarkCore/Services/Bundle.h"

namespace vark {
namespace {

constexpr const char* shippingID = "dev.vark.mac";

}  // namespace

AppIdentity::AppIdentity(const Bundle& bundle)
    : bundleID_(bundle.identifier().value_or("dev.vark.mac.unbundled")) {}

bool AppIdentity::isShipping() const {
    return bundleID_ == shippingID;
}

std::string AppIdentity::folderName() const {
    return isShipping() ? "Vark" : "Vark (" + bundleID_ + ")";
}

void AppIdentity::carryOverFolder(const std::filesystem::path& base) const {
    if (!isShipping()) return;
    const std::filesystem::path destination = base / folderName();
    const std::filesystem::path source = base / "Vark Transfer";
    std::error_code ignored;
    if (std::filesystem::exists(destination, ignored) || !std::filesystem::exists(source, ignored)) return;
    std::filesystem::rename(source, destination, ignored);
}

}  // namespace vark
