#include <fmt/format.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Commands/Identity.h"
#include "VarkApp/Connect/Connecting.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

struct PlainOptions {
    bool json = false;
};

ExitCode disconnect(CommandSurroundings& surroundings, const PlainOptions& options) {
    const KeptConnection::Removed removed = surroundings.await(leave(surroundings));
    const std::optional<SharedConnection>& connection = removed.connection;
    if (!connection) {
        surroundings.console.say(
            removed.hadLeftovers ? "This machine was not connected to a vark. What was left of an earlier "
                                   "connection has been removed."
                                 : "This machine is not connected to a vark.");
        return ExitCode::allLanded;
    }
    if (options.json) {
        JSONWriter record;
        record.beginObject().field("disconnected", connection->server).endObject();
        surroundings.console.printJSON(record.text());
    } else {
        surroundings.console.print(
            fmt::format("Disconnected from {}. A saved queue stays.", connection->server));
    }
    return ExitCode::allLanded;
}

ExitCode whoami(CommandSurroundings& surroundings, const PlainOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    const WhoAmI who = surroundings.await(surroundings.api(connection)->whoami());
    surroundings.learn(who);
    printIdentity(surroundings.console, connection, who, options.json);
    return ExitCode::allLanded;
}

}  // namespace

void printIdentity(Console& console, const SharedConnection& connection, const WhoAmI& who, bool json) {
    if (json) {
        JSONWriter record;
        record.beginObject().field("server", connection.server).field("client", who.client);
        record.field("rootPath", connection.rootPath).field("email", who.email);
        record.field("device", who.deviceName).field("level", who.level).field("levelLabel", who.levelLabel);
        record.field("jobNumbers", who.jobNumbers);
        record.field("spaceUsed", who.spaceUsed).field("spacePlan", who.spacePlan).endObject();
        console.printJSON(record.text());
        return;
    }
    std::string name = connection.displayName();
    console.print(fmt::format("{} at {}", name.empty() ? "A vark" : name, connection.server));
    console.print(fmt::format("{}{}, {} (level {})", who.email,
                              who.deviceName.empty() ? "" : " on " + who.deviceName,
                              who.levelLabel.empty() ? "no label" : who.levelLabel, who.level));
    if (who.spaceUsed && who.spacePlan)
        console.print(
            fmt::format("{} of {} used", Format::bytes(*who.spaceUsed), Format::bytes(*who.spacePlan)));
}

void declareConnectionCommands(CLI::App& program, Chosen& chosen) {
    auto leaving = std::make_shared<PlainOptions>();
    addJSON(addCommand(program, chosen, "disconnect", "Forget the connection; the queue stays", leaving,
                       disconnect),
            leaving->json);
    auto asking = std::make_shared<PlainOptions>();
    addJSON(addCommand(program, chosen, "whoami", "Say who is connected to which vark", asking, whoami),
            asking->json);
}

}  // namespace vark::cli
