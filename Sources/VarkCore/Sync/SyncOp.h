#pragma once

#include <boost/json/fwd.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "VarkCore/Foundation/Time/Date.h"

namespace vark {

class JSONWriter;

/// One change that this machine still owes the vark. A value; the file holds its dates at whole seconds.
struct SyncOp {
    enum class Kind { upload, folder, rename, move, bin };
    enum class State { sending, waiting, problem };

    /// One record for each kind and path.
    std::string id;
    Kind kind = Kind::upload;
    /// In the vark.
    std::string path;
    /// The size in all, as far as it is known.
    std::int64_t bytes = 0;
    /// Bytes that have gone so far.
    std::int64_t done = 0;
    State state = State::sending;
    /// The sentence for a person, when it is not being sent.
    std::optional<std::string> reason{};
    Date started{};
    /// The last sign of life.
    Date touched{};
    /// When it first stopped moving.
    std::optional<Date> stoppedAt{};

    SyncOp() = default;
    /// A change that starts now.
    SyncOp(Kind kind, std::string path, std::int64_t bytes, Date now);

    std::string name() const;
    /// Where it lies, "/" between; empty at the top of the vark.
    std::string folderPath() const;
    std::string folderName() const;

    bool operator==(const SyncOp&) const = default;

    static SyncOp fromJSON(const boost::json::value& value);
    void encode(JSONWriter& json) const;
};

std::string_view text(SyncOp::Kind kind);
std::string_view text(SyncOp::State state);

}  // namespace vark
