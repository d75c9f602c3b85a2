#pragma once

#include "VarkCore/Foundation/SQLite.h"

namespace vark::box {

/// The box's records.
class Database : public vark::Database {
  public:
    explicit Database(const std::filesystem::path& path);
};

using Turn = Database::Turn;

}  // namespace vark::box
