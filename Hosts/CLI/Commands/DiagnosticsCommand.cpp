#include <fmt/format.h>

#include "Hosts/CLI/Commands/Commands.h"
#include "VarkApp/Machine/HealthReport.h"

namespace vark::cli {

namespace {

struct DiagnosticsOptions {
    bool send = false;
    bool json = false;
};

ExitCode diagnose(CommandSurroundings& surroundings, const DiagnosticsOptions& options) {
    Console& console = surroundings.console;
    const HealthReport health = HealthReport::of(surroundings, VARK_VERSION);
    if (options.json) console.printRecord(health.report);
    if (!options.json) {
        for (const std::string& line : health.lines())
            console.print(line);
    }
    if (!options.send) {
        console.say("Nothing has been sent. Send this to the vark with: vark diagnostics --send");
        return ExitCode::allLanded;
    }
    const SharedConnection needed = surroundings.neededConnection();
    surroundings.await(sendReport(surroundings, needed, health));
    console.say(fmt::format("Sent to {}.", needed.server));
    return ExitCode::allLanded;
}

}  // namespace

void declareDiagnostics(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<DiagnosticsOptions>();
    CLI::App& command = addCommand(program, chosen, "diagnostics",
                                   "Show what this machine would report of its health", options, diagnose);
    command.add_flag("--send", options->send, "Send it to the vark after showing it");
    addJSON(command, options->json);
}

}  // namespace vark::cli
