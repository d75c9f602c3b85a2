#include <fmt/format.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Display/Terminal.h"
#include "VarkCore/LAN/NodeBrowser.h"

namespace vark::cli {

namespace {

/// A node that is there has been found and looked up by then.
constexpr Duration longEnough = std::chrono::seconds(3);

struct NodesOptions {
    bool watch = false;
    bool json = false;
};

void print(Console& console, const LANNode& node, bool json) {
    if (json) {
        console.printRecord(node);
        return;
    }
    console.print(fmt::format("{}  {}:{}  for {}{}", node.name, node.ip, node.port, node.host,
                              node.api ? ", with the API" : ""));
}

Task<void> look(NodeBrowser& browser, std::optional<Duration> limit) {
    browser.start();
    if (limit) co_await sleepFor(*limit);
    while (!limit)
        co_await sleepFor(longEnough);
}

/// Looks at the network with a table of its own, which nobody else is told of.
ExitCode showNodes(CommandSurroundings& surroundings, const NodesOptions& options) {
    LANRouter found;
    const std::unique_ptr<ServiceBrowser> services =
        surroundings.platform.makeServiceBrowser(surroundings.executor);
    NodeBrowser browser(found, {surroundings.executor, surroundings.clock, surroundings.date, *services,
                                surroundings.pool(), std::nullopt});
    Console& console = surroundings.console;
    std::vector<std::string> said;
    browser.log = [&](std::string sentence) {
        if (options.watch && !options.json) {
            console.print(sentence);
        } else {
            said.push_back(std::move(sentence));
        }
    };
    if (options.watch && options.json)
        found.onChange = [&](const std::vector<LANNode>& nodes) {
            JSONWriter line;
            line.beginObject().field("event", "nodes").key("nodes").beginArray();
            for (const LANNode& node : nodes)
                node.encode(line);
            console.printJSON(line.endArray().endObject().take());
        };

    TaskScope scope(surroundings.executor, surroundings.clock);
    const TaskHandle<void> waiting =
        scope.start(look(browser, options.watch ? std::nullopt : std::optional(longEnough)));
    Terminal terminal(false, [waiting](std::optional<char>) { waiting.cancel(); });
    surroundings.executor.runUntil([&] { return waiting.done() || !console.isRead(); });
    browser.stop();
    if (options.watch) return ExitCode::allLanded;

    const std::vector<LANNode> nodes = found.all();
    for (const LANNode& node : nodes)
        print(console, node, options.json);
    if (!nodes.empty()) return ExitCode::allLanded;
    for (const std::string& sentence : said)
        console.say(sentence);
    console.say("No node of a vark was seen on this network. Everything goes by the internet.");
    return ExitCode::allLanded;
}

}  // namespace

void declareNodes(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<NodesOptions>();
    CLI::App& command =
        addCommand(program, chosen, "nodes", "Show the vark's nodes on this network", options, showNodes);
    command.add_flag("-w,--watch", options->watch, "Go on, and tell what comes and goes");
    addJSON(command, options->json);
}

}  // namespace vark::cli
