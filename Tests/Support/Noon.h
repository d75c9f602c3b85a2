#pragma once

#include "VarkCore/Foundation/Time/Date.h"

namespace vark::test {

/// A moment, for tests that need one.
inline const Date noon = Date::fromSince1970(1'740'000'000);

}  // namespace vark::test
