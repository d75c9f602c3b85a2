#pragma once

#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace vark::test {

/// The superuser may list every folder, so while this stands it is nobody.
class AsAnOrdinaryUser {
  public:
    AsAnOrdinaryUser() {
        if (before_ == 0 && seteuid(65534) != 0) throw std::runtime_error("The user could not be changed.");
    }
    ~AsAnOrdinaryUser() {
        if (before_ == 0 && seteuid(before_) != 0) std::abort();
    }
    AsAnOrdinaryUser(const AsAnOrdinaryUser&) = delete;
    AsAnOrdinaryUser& operator=(const AsAnOrdinaryUser&) = delete;

  private:
    uid_t before_ = geteuid();
};

}  // namespace vark::test
