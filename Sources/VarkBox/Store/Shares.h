#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VarkBox/Store/Database.h"
#include "VarkBox/Store/Tree.h"

namespace vark::box {

struct Share {
    std::int64_t id = 0;
    /// Whoever has it may open the share.
    std::string key{};
    bool isForCompany = false;
    /// Seconds since 1970; a share without it does not run out.
    std::optional<double> until{};
    std::string message{};
    std::vector<std::int64_t> items{};
};

/// A file in a share, and its path as the share's page shows it: from the thing that was shared downwards.
struct SharedFile {
    Item item;
    std::string path;
};

/// The shares, for the length of one turn. A share holds what was chosen, wherever that has moved since, and
/// all that lies in it at the time of the look.
class Shares {
  public:
    explicit Shares(Turn& turn) : turn_(turn) {}

    /// Gives it the number and the key.
    Share make(Share share);
    /// Refuses with 404 what is not known, and with 410 what has run out.
    Share require(std::string_view key, double now);
    std::vector<SharedFile> files(const Share& share);

  private:
    void collect(Tree& tree, const Item& item, const std::string& path, std::vector<SharedFile>& files);

    Turn& turn_;
};

}  // namespace vark::box
