#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace vark {

/// The other processes that run this very program with one of these as their first argument. Those of other
/// people, whom this process may not ask, are left out.
std::vector<std::int32_t> otherCopiesDoing(std::span<const std::string_view> firstArguments);

}  // namespace vark
