#include <fmt/format.h>

#include <cstdlib>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Commands/Identity.h"
#include "Hosts/CLI/NextWords.h"
#include "VarkApp/Connect/Addresses.h"
#include "VarkApp/Connect/Connecting.h"
#include "VarkApp/Connect/GivenConnection.h"
#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

namespace {

struct ConnectOptions {
    std::string url;
    std::string code;
    std::string tokenFile;
    std::string secretStore;
    std::string authorityFile;
    std::string root;
    std::vector<std::string> only;
    bool json = false;
};

KeptConnection::Place readPlace(const std::string& chosen) {
    // The person's settings count for `connect` alone, so they are read here, and their mistake is named so.
    const char* setting = std::getenv("VARK_SECRET_STORE");
    const bool isSetting = chosen.empty() && setting != nullptr && *setting != '\0';
    const std::string place = isSetting ? setting : chosen;
    if (place.empty() || place == "keychain") return KeptConnection::Place::keychain;
    if (place == "file") return KeptConnection::Place::file;
    throw Failure(Outcome::misuse,
                  fmt::format("VARK_SECRET_STORE in the environment is \"{}\". Set it to keychain or to "
                              "file, or unset it.",
                              place));
}

/// The top-level folders that alone are to be shown; nothing for all of them.
std::optional<std::vector<std::string>> readFolders(const std::vector<std::string>& only) {
    if (only.empty()) return std::nullopt;
    std::vector<std::string> names;
    for (const std::string& folder : only) {
        names.push_back(tidiedVarkPath(folder));
        if (names.back().empty() || names.back().contains('/'))
            throw Failure(Outcome::misuse,
                          fmt::format("\"{}\" is no name of a folder at the top. Give names without "
                                      "slashes with --only, and what lies deeper with --root.",
                                      folder));
    }
    return names;
}

/// Shows a person on the terminal where to say yes.
class PageOnConsole final : public SignInPage {
  public:
    explicit PageOnConsole(Console& console) : console_(console) {}

    void show(const URL& page) override {
        console_.say("To connect this machine, say yes at this address:");
        console_.say(page.text());
    }
    void waiting(bool browserWasAsked) override {
        if (browserWasAsked) console_.say("The browser is asked to show it.");
        console_.say("Waiting for the answer...");
    }

  private:
    Console& console_;
};

ConnectWish wishFrom(const ConnectOptions& options) {
    ConnectWish wish{.address = varkAddress(options.url)};
    if (!options.authorityFile.empty()) wish.authority = options.authorityFile;
    wish.place = readPlace(options.secretStore);
    wish.folders = readFolders(options.only);
    wish.rootPath = options.root;
    if (!options.tokenFile.empty()) wish.token = tokenIn(options.tokenFile);
    if (!options.code.empty()) wish.code = options.code;
    return wish;
}

ExitCode connectMachine(CommandSurroundings& surroundings, const ConnectOptions& options) {
    Console& console = surroundings.console;
    PageOnConsole page(console);
    const Connected made = surroundings.await(connect(surroundings, wishFrom(options), page));
    for (const Said& note : made.notes)
        console.say(inWords(note));
    if (!options.json) console.print("Connected.");
    printIdentity(console, made.connection, made.who, options.json);
    console.say(made.whereTheTokenIs);
    return ExitCode::allLanded;
}

}  // namespace

void declareConnect(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<ConnectOptions>();
    CLI::App& command =
        addCommand(program, chosen, "connect", "Connect this machine to a vark", options, connectMachine);
    command.add_option("URL", options->url, "Where the vark is, like https://vark.example.com")->required();
    CLI::Option* code =
        command
            .add_option("--code", options->code, "A code from Settings in the portal, instead of the browser")
            ->type_name("CODE");
    command
        .add_option("--token-file", options->tokenFile,
                    "A file whose first line is the device token, instead of the browser")
        ->type_name("FILE")
        ->excludes(code);
    command
        .add_option("--secret-store", options->secretStore,
                    "Where the token is kept: in the keychain, or in a file that only you can read "
                    "(environment: VARK_SECRET_STORE)")
        ->type_name("keychain|file")
        ->check(CLI::IsMember({"keychain", "file"}).description(""));
    command
        .add_option("--ca-file", options->authorityFile, "The authority of a vark that has one of its own")
        ->type_name("FILE");
    command.add_option("--root", options->root, "The folder of the vark to work below")->type_name("FOLDER");
    command
        .add_option("--only", options->only,
                    "The folders at the top that are to be shown; without it all are")
        ->type_name("FOLDER");
    addJSON(command, options->json);
}

}  // namespace vark::cli
