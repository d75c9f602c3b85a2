#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "Hosts/CLI/SendSession.h"

namespace vark::cli {

/// What a person may say about how things are sent, whatever is sent.
struct SendingOptions {
    std::string onConflict = "ask";
    std::string rate;
    std::string officeHours;
    int chunks = 4;
    bool json = false;
};

void addSendingOptions(CLI::App& command, SendingOptions& options);
/// Without what is to be added.
SendSession::Settings settingsFrom(const SendingOptions& options);
/// Sends in this process, which holds the queue, until the end.
ExitCode sendHere(Surroundings& surroundings, const SharedConnection& connection,
                  SendSession::Settings settings, bool json);

}  // namespace vark::cli
