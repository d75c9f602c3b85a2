#pragma once

#include <string>
#include <vector>

#include "Tests/Support/APIWorld.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

/// A client in an office with two nodes: "api.vark.example" answers the API too, "bytes.example" only bytes.
class NodeWorld : public APIWorld {
  public:
    TemporaryFolder folder;
    const std::string apiNode = "api.vark.example";
    const std::string bytesNode = "bytes.example";

    NodeWorld() {
        lan.update({{"A", apiNode, "10.0.0.1", 8443, now, true}, {"B", bytesNode, "10.0.0.2", 8443, now}});
    }

    bool isBad(const std::string& node) const { return lan.isBad(node, now); }
    /// The hosts that were dialled, in order.
    std::vector<std::string> dialled() const {
        std::vector<std::string> hosts;
        for (const DialTarget& target : dialer.targets)
            hosts.push_back(target.host);
        return hosts;
    }
    /// Whether the token went over a connection to a node.
    bool tokenWentTo(std::size_t connection) const {
        return dialer.received.at(connection).contains("t0ken");
    }
    std::vector<std::string> filesInFolder() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path()))
            names.push_back(entry.path().filename());
        return names;
    }
};

/// What can go wrong with a node. Each costs the node its good name.
struct NodeFailure {
    const char* name;
    ScriptedNode node;
};

inline std::vector<NodeFailure> nodeFailures() {
    return {
        {"connect", nodeRefusal(DialError::network)},
        {"certificate", nodeRefusal(DialError::tls)},
        {"no answer", {}},
        {"bad answer", {.pieces = {"HTTP/1.1 abc OK\r\n\r\n"}}},
        {"short body", {.pieces = {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello"}}},
        {"broken off", {.pieces = {"HTTP/1.1 200"}, .then = ScriptedNode::breaking}},
    };
}

}  // namespace vark::test
