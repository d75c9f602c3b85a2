#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "VarkBox/HTTP/Exchange.h"
#include "VarkBox/HTTP/JSONBody.h"
#include "VarkCore/Concurrency/ThreadSafety.h"

namespace vark::box {

enum class FaultKind {
    latency,
    status,
    reset,
    stall,
    stallAfterBody,
    shortBody,
    loseUpload,
    refuseToken,
    wrongRoute,
    failCheck,
};

/// What goes wrong, and for which requests: those that match every condition that is given.
struct Fault {
    std::optional<Listener> listener;
    std::string method;
    /// What the target begins with.
    std::string path;
    std::string pathContains;

    FaultKind kind = FaultKind::latency;
    int status = 0;
    std::string body;
    std::chrono::milliseconds delay{0};
    std::optional<std::uint64_t> afterBytes;

    /// How many matching requests pass before it fires.
    std::int64_t skip = 0;
    /// How often it fires; without a number for ever.
    std::optional<std::int64_t> count;
    double probability = 1;

    /// Refuses with 400 what does not describe a fault.
    static Fault fromJSON(const JSONBody& json);
    boost::json::object toJSON() const;
    bool matches(const BoxRequest& request) const;
    /// Whether it befalls an upload that the vark keeps, and not the request or its connection.
    bool isOfUpload() const { return kind == FaultKind::loseUpload || kind == FaultKind::failCheck; }
    /// Makes the visit go wrong. Does nothing for a fault of an upload.
    void befall(Visit& visit) const;
};

/// The faults that are in force, in the order in which they were given. Any thread.
class Faults {
  public:
    std::int64_t add(Fault fault);
    void clear();
    /// Each fault with how often it has fired.
    boost::json::array list() const;
    /// Those that fire for this request; each counts as fired.
    std::vector<Fault> strike(const BoxRequest& request);

  private:
    struct Armed {
        Fault fault;
        std::int64_t matched = 0;
        std::int64_t fired = 0;
    };

    mutable Mutex lock_;
    std::map<std::int64_t, Armed> armed_ VARK_GUARDED_BY(lock_);
    std::int64_t lastID_ VARK_GUARDED_BY(lock_) = 0;
    std::mt19937 random_ VARK_GUARDED_BY(lock_){std::random_device{}()};
};

}  // namespace vark::box
