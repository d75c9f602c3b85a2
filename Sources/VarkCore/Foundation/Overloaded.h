#pragma once

namespace vark {

/// One function for each case of a variant, for `std::visit`.
template <class... Functions>
struct Overloaded : Functions... {
    using Functions::operator()...;
};

}  // namespace vark
