#include <fmt/format.h>

#include "Hosts/CLI/ChosenItems.h"
#include "Hosts/CLI/Commands/Commands.h"
#include "VarkCore/Actions/ActionLines.h"
#include "VarkCore/Actions/VarkActions.h"
#include "VarkCore/Activity/SharedActivity.h"

namespace vark::cli {

namespace {

struct ShareOptions {
    std::vector<std::string> paths;
    std::string audience = "link";
    std::string expires;
    std::string message;
    bool json = false;
};

ShareAudience audienceNamed(std::string_view word) {
    return word == wireName(ShareAudience::domain) ? ShareAudience::domain : ShareAudience::link;
}

/// No value leaves it to the vark.
std::optional<ShareExpiry> expiryNamed(std::string_view word) {
    for (const ShareExpiry expiry : allShareExpiries) {
        if (word == wireName(expiry)) return expiry;
    }
    return std::nullopt;
}

VarkShare makeShare(CommandSurroundings& surroundings, VarkAPI& api, std::vector<std::int64_t> ids,
                    const ShareOptions& options) {
    const VarkActions actions(api);
    try {
        return surroundings.await(actions.share(std::move(ids), audienceNamed(options.audience),
                                                expiryNamed(options.expires), options.message));
    } catch (const VarkAPIError& error) {
        const auto* server = std::get_if<VarkAPIError::Server>(&error.which());
        const bool mayHaveNoSuchRoute = server != nullptr && (server->status == 404 || server->status == 405);
        if (!mayHaveNoSuchRoute || surroundings.await(api.sharesSupported())) throw;
    }
    throw Failure(Outcome::failed, "This vark makes no links.");
}

void printJSON(Console& console, const VarkShare& share) {
    JSONWriter record;
    record.beginObject().field("url", share.url).field("expires", share.expires);
    record.field("title", share.title).field("audience", share.audience);
    record.field("expiresAt", share.expiresAt).field("shareID", share.shareID).endObject();
    console.printJSON(record.text());
}

ExitCode share(CommandSurroundings& surroundings, const ShareOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    const std::shared_ptr<VarkAPI> api = surroundings.api(connection);
    const std::vector<VarkItem> items = chosenItems(surroundings, *api, connection, options.paths);
    const VarkShare made = makeShare(surroundings, *api, idsOf(items), options);
    SharedActivity::append(ActionLines::shared(items, made, audienceNamed(options.audience),
                                               connection.clientName, surroundings.date()),
                           surroundings.sharedFolder());
    Console& console = surroundings.console;
    if (options.json) {
        printJSON(console, made);
        return ExitCode::allLanded;
    }
    console.print(made.url);
    if (surroundings.platform.copyToClipboard(made.url)) {
        console.say(made.describe());
    } else if (made.expires && !made.expires->empty()) {
        console.say(fmt::format("The link runs out {}.", *made.expires));
    }
    return ExitCode::allLanded;
}

}  // namespace

void declareShare(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<ShareOptions>();
    CLI::App& command =
        addCommand(program, chosen, "share", "Make a link to items of the vark", options, share);
    command.add_option("PATH", options->paths, "Below the connection's folder")
        ->required()
        ->type_name("REMOTE");
    command.add_option("--audience", options->audience, "Anyone with the link, or everyone at the company")
        ->type_name("link|domain")
        ->check(CLI::IsMember({"link", "domain"}).description(""));
    command.add_option("--expires", options->expires, "How long the link lives; the vark decides without it")
        ->type_name("24h|7d|30d|90d")
        ->check(CLI::IsMember({"24h", "7d", "30d", "90d"}).description(""));
    command.add_option("--message", options->message, "A note to go with the link")->type_name("TEXT");
    addJSON(command, options->json);
}

}  // namespace vark::cli
