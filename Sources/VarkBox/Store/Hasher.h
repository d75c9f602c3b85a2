#pragma once

#include <memory>
#include <string>
#include <string_view>

struct evp_md_ctx_st;

namespace vark::box {

/// A SHA-256 that is fed piece by piece. One thread at a time.
class Hasher {
  public:
    Hasher();

    void add(std::string_view bytes);
    /// Lower-case hexadecimal. Ends the hash.
    std::string digest();

  private:
    struct Free {
        void operator()(evp_md_ctx_st* context) const;
    };
    std::unique_ptr<evp_md_ctx_st, Free> context_;
};

/// So many random bytes in lower-case hexadecimal.
std::string randomHex(std::size_t bytes);

}  // namespace vark::box
