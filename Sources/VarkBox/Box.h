#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VarkBox/Store/RootFolder.h"

namespace vark::box {

struct BoxOptions {
    std::filesystem::path root = "vark-box";
    /// Loopback addresses with a port; the port 0 takes any that is free.
    std::string listen = "127.0.0.1:0";
    std::string chunkListen = "127.0.0.1:0";
    std::string client = "Acme";
    std::int64_t chunkSize = 8 << 20;
    /// Where the device token stands; empty for the file "token" under the root, made at the first start.
    std::filesystem::path tokenFile;
    int level = 5;
    /// HTTP without TLS.
    bool plain = false;
    /// Whether uploads are told an address of their own for their chunks.
    bool givesChunkURL = true;
    std::int64_t checkInlineBelow = 1 << 20;
    bool hasJobBook = true;
    /// How long a code, or a sign-in in the browser, is good for.
    double signInLastsSeconds = 600;
    /// In force from the start; each as JSON, as the control call takes it.
    std::vector<std::string> faults;
};

/// The whole development vark. `start` makes what is missing under the root, listens, and writes
/// "address.json" there once both listeners take connections. `stop`, or its end, cuts all connections and
/// awaits all threads; what was answered is kept. One box at a time has a root. Failures are exceptions
/// derived from std::exception with a sentence.
class Box {
  public:
    explicit Box(BoxOptions options);
    Box(const Box&) = delete;
    Box& operator=(const Box&) = delete;
    ~Box();

    void start();
    void stop();

    /// Of a started box, without a "/" at the end.
    const std::string& url() const { return url_; }
    const std::string& chunkURL() const { return chunkURL_; }
    /// What clients are to trust; empty without TLS.
    const std::filesystem::path& authority() const { return authority_; }
    const std::string& token() const { return token_; }

  private:
    struct Running;

    std::string readOrMakeToken() const;

    const BoxOptions options_;
    std::string url_;
    std::string chunkURL_;
    std::filesystem::path authority_;
    std::string token_;
    std::optional<RootFolder> root_;
    // After the root: what runs ends before it is free for another box.
    std::unique_ptr<Running> running_;
};

}  // namespace vark::box
