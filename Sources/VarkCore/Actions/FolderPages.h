#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "VarkCore/API/VarkAPI.h"

namespace vark {

/// The folders of the vark, page by page. First pages of sub-folders come along unasked and are kept for one
/// use, so that a walk down a tree costs far fewer calls than it has folders. For one walk; on one executor.
class FolderPages {
  public:
    struct Page {
        std::vector<VarkItem> items;
        /// Asks for the next page; nothing behind the last one.
        std::optional<std::string> next;
    };
    /// Whether a call that may well succeed a little later is made again, after waits of some seconds.
    enum class Patience { none, some };

    explicit FolderPages(std::shared_ptr<VarkAPI> api, Patience patience = Patience::none)
        : api_(std::move(api)), patience_(patience) {}

    /// An empty cursor asks for the first page. Fails with `VarkAPIError`, and with `std::runtime_error` when
    /// the vark does not come to an end.
    Task<Page> page(std::int64_t folder, std::string cursor);
    /// Nothing when there is none.
    Task<std::optional<VarkItem>> find(std::string path);

  private:
    template <class T>
    Task<T> patiently(std::function<Task<T>()> call);

    const std::shared_ptr<VarkAPI> api_;
    const Patience patience_;
    std::unordered_map<std::int64_t, VarkPage> ahead_;
};

}  // namespace vark
