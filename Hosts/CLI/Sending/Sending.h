#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/CommandSurroundings.h"
#include "Hosts/CLI/Sending/SendRun.h"

namespace vark::cli {

/// What a person may say about how things are sent, whatever is sent.
struct SendingOptions {
    std::string onConflict;
    std::string rate;
    std::string officeHours;
    std::optional<int> chunks;
    std::string timeout;
    bool quiet = false;
    bool verbose = false;
    bool json = false;
};

void addSendingOptions(CLI::App& command, SendingOptions& options);
/// Refuses what can be no folder of the vark.
CLI::Validator isVarkFolder();
/// "90s", "15m", "2h" or a number of seconds.
Parsed<Duration> parseTimeout(std::string_view given);
/// Without what is to be added. What the options leave open is as the person has set it for this machine.
SendRun::Settings settingsFrom(Surroundings& surroundings, const SendingOptions& options);
/// How fast and when is sent where nothing else is said.
Pace usualPace(Surroundings& surroundings);
/// Refuses what a run that another one sends for cannot do in its place.
void refuseWhatCannotBeHandedOver(const SendingOptions& options);
/// Sends in this process until the end.
ExitCode sendHere(CommandSurroundings& surroundings, const SharedConnection& connection, QueueLock lock,
                  SendRun::Settings settings, bool json);
/// Follows what another run has taken on, and sends it in this process when that one ends first.
ExitCode sendThere(CommandSurroundings& surroundings, const SharedConnection& connection,
                   SendRun::Settings settings, QueueAnswer taken, bool json);

}  // namespace vark::cli
