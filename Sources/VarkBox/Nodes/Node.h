#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VarkBox/Store/RootFolder.h"

namespace vark::box {

struct NodeOptions {
    std::filesystem::path root = "vark-node";
    /// The application of the vark, as "https://127.0.0.1:8443".
    std::string of;
    /// The folder with the authority of that vark and its key.
    std::filesystem::path authority = "vark-box";
    /// The name for which the node speaks.
    std::string host;
    /// Any numeric address with a port; the port 0 takes any that is free.
    std::string listen = "127.0.0.1:0";
    /// A loopback address.
    std::string controlListen = "127.0.0.1:0";
    /// Whether it passes on the calls of the application too.
    bool api = false;
    /// Whether it is announced on the local network, and under which name; empty for the host.
    bool announce = false;
    std::string name;
    /// In force from the start; each as JSON, as the control call takes it.
    std::vector<std::string> faults;
};

/// A node in the office: it takes and gives the file bytes of its vark over TLS under a name of its own, and
/// keeps none of them. `start` listens, attaches the node to its vark and writes "address.json" under the
/// root. `stop`, or its end, detaches it, cuts all connections and awaits all threads. Failures are
/// exceptions derived from std::exception with a sentence.
class Node {
  public:
    explicit Node(NodeOptions options);
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;
    ~Node();

    void start();
    void stop();

    /// Of a started node: the address with the port that it listens on.
    const std::string& address() const { return address_; }
    std::uint16_t port() const;
    const std::string& controlURL() const { return controlURL_; }
    /// Why the network does not hear of it though it is to be announced, as a sentence.
    std::optional<std::string> trouble() const;

  private:
    struct Running;

    void announce(const std::string& host);

    const NodeOptions options_;
    std::string address_;
    std::string controlURL_;
    std::optional<RootFolder> root_;
    // After the root: what runs ends before it is free for another node.
    std::unique_ptr<Running> running_;
};

}  // namespace vark::box
