#pragma once

#include <string_view>

#include "VarkCore/Connection/SharedStore.h"
#include "VarkCore/Foundation/Time/Date.h"

namespace vark {

/// One version that was vouched for, kept on disk. Functions only; any thread; nothing here fails.
struct AnchorMemory {
    using Folder = SharedStore::Folder;

    /// Whether it is on disk now. There is nothing to vouch for in an empty version or without a folder.
    static bool vouch(std::string_view version, const Folder& folder, Date at);
    /// True for an empty version and without a folder, on purpose: nobody then holds a caller up.
    static bool hasVouched(std::string_view version, const Folder& folder);
    static void forget(const Folder& folder);
};

}  // namespace vark
