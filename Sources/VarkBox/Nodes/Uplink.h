#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace vark::box {

/// What the vark said to a call of the node's own.
struct UplinkAnswer {
    int status = 0;
    std::string body;
};

/// The way from a node to one listener of its vark, by TLS. Owned by the node, and used by all of its
/// requests at once.
class Uplink {
  public:
    /// Takes "https://127.0.0.1:8443"; `node` is the host for which the node speaks. Fails with
    /// std::runtime_error and a sentence.
    Uplink(std::string_view url, const std::filesystem::path& authority, std::string node);
    Uplink(const Uplink&) = delete;
    Uplink& operator=(const Uplink&) = delete;
    ~Uplink();

    /// One short call, awaited by the calling thread, for some seconds at most. Fails with std::runtime_error
    /// and a sentence when no answer comes.
    UplinkAnswer ask(std::string_view method, std::string_view target, std::string_view body) const;

  private:
    friend class NodeRelay;
    struct Way;

    std::unique_ptr<Way> way_;
};

}  // namespace vark::box
