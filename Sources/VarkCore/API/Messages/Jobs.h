#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <string>

namespace vark {

/// An entry of the job book. Its id is its identity, and all that must be there.
struct VarkJob {
    std::int64_t id = 0;
    std::string ref{};
    std::string title{};
    std::string client{};
    std::string artist{};
    std::string date{};

    static VarkJob fromJSON(const boost::json::value& value);
    /// "J-1042 · Summer, Acme"
    std::string line() const;
    bool operator==(const VarkJob&) const = default;
};

}  // namespace vark
