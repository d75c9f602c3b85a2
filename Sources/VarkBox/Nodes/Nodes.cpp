#include "VarkBox/Nodes/Nodes.h"

#include <fmt/format.h>

#include <algorithm>

#include "VarkBox/HTTP/Exchange.h"

namespace vark::box {

void Nodes::attach(const std::string& host, const OnNewHost& onNewHost) {
    Locked guard(lock_);
    std::vector<std::string> hosts = known();
    if (std::ranges::find(hosts, host) == hosts.end()) {
        hosts.push_back(host);
        onNewHost(hosts);
    }
    Turn turn = database_.write();
    turn.query("DELETE FROM nodes WHERE host = ?").with(host).run();
    turn.query("INSERT INTO nodes(host, attached) VALUES(?, 1)").with(host).run();
    turn.commit();
}

void Nodes::detach(const std::string& host) {
    Turn turn = database_.write();
    turn.query("UPDATE nodes SET attached = 0 WHERE host = ? AND attached = 1").with(host).run();
    if (turn.changedRows() == 0) throw Refusal(404, fmt::format("No node is attached for {}.", host));
    turn.commit();
}

std::optional<std::string> Nodes::attached() const {
    Turn turn = database_.read();
    Query query = turn.query("SELECT host FROM nodes WHERE attached = 1 ORDER BY number DESC LIMIT 1");
    if (!query.next()) return std::nullopt;
    return query.text(0);
}

std::vector<std::string> Nodes::known() const {
    Turn turn = database_.read();
    Query query = turn.query("SELECT host FROM nodes ORDER BY number");
    std::vector<std::string> hosts;
    while (query.next())
        hosts.push_back(query.text(0));
    return hosts;
}

}  // namespace vark::box
