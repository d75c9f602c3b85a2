#pragma once

#include <optional>
#include <string_view>

#include "VarkCore/Connection/SharedStore.h"
#include "VarkCore/Transfer/TransferLog.h"

namespace vark {

/// The diary of the processes that have none of their own, in the shared folder. One for each process, owned
/// by its host; any thread. Without a shared folder notes are dropped.
class ExtensionLog {
  public:
    ExtensionLog(const SharedStore::Folder& folder, WallClock now, Calendar calendar);

    static std::optional<std::filesystem::path> url(const SharedStore::Folder& folder);
    void note(std::string_view tag, std::string_view message);

  private:
    std::optional<TransferLog> log_;
};

}  // namespace vark
