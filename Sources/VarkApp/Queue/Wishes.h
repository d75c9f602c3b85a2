#pragma once

#include <filesystem>
#include <optional>
#include <unordered_map>
#include <vector>

#include "VarkCore/Foundation/JSON/JSON.h"
#include "VarkCore/Foundation/UUID.h"
#include "VarkCore/Transfer/ConflictRule.h"
#include "VarkCore/Transfer/Queue/QueueModel.h"

namespace vark::app {

/// What is wanted of one thing in the queue beyond sending it. A value.
struct Wish {
    /// What becomes of files that differ from those in the vark; without a value a person decides.
    std::optional<ConflictRule> onConflict{};

    /// Among the fields of a record.
    static Wish fromFields(const JSONFields& fields);
    void encode(JSONWriter& json) const;
    bool operator==(const Wish&) const = default;
};

/// The wishes of the queue's entries, kept for as long as these are there: so that they outlive whoever
/// wished, and whoever had the queue then. Of whoever has the queue alone; its calls wait for the disk. A
/// file that cannot be read or written costs the wishes and nothing else.
class Wishes {
  public:
    explicit Wishes(std::filesystem::path file);

    void set(const std::vector<UUID>& entries, const Wish& wish);
    Wish of(const UUID& entry) const;
    /// Forgets those of entries that have left the queue.
    void keepOnly(const std::vector<TransferEntry>& entries);

  private:
    void save() const;

    const std::filesystem::path file_;
    std::unordered_map<UUID, Wish> wishes_;
};

}  // namespace vark::app
