#include <fmt/ranges.h>

#include "Hosts/CLI/ChosenItems.h"
#include "Hosts/CLI/Commands/Commands.h"
#include "VarkApp/Connect/Addresses.h"
#include "VarkCore/Transfer/Format.h"

namespace vark::cli {

namespace {

struct TagOptions {
    std::vector<std::string> paths;
    std::vector<std::string> tags;
    bool list = false;
    bool json = false;
};

ExitCode listTags(CommandSurroundings& surroundings, const TagOptions& options) {
    const std::shared_ptr<VarkAPI> api = surroundings.api(surroundings.neededConnection());
    const std::vector<std::string> tags = surroundings.await(api->tags());
    for (const std::string& tag : tags) {
        if (options.json) {
            JSONWriter json;
            surroundings.console.printJSON(json.beginObject().field("tag", tag).endObject().text());
        } else {
            surroundings.console.print(tag);
        }
    }
    if (tags.empty()) surroundings.console.say("The vark has no tags yet.");
    return ExitCode::allLanded;
}

ExitCode tag(CommandSurroundings& surroundings, const TagOptions& options) {
    if (options.list) return listTags(surroundings, options);
    if (options.paths.empty() || options.tags.empty())
        throw Failure(Outcome::misuse,
                      "Say what is to be tagged, and with what: vark tag PATH... --with TAG");
    const SharedConnection connection = surroundings.neededConnection();
    const std::shared_ptr<VarkAPI> api = surroundings.api(connection);
    std::vector<std::string> paths;
    for (const std::string& path : options.paths) {
        paths.push_back(joinedVarkPath(connection.rootPath, path));
        surroundings.neededItem(*api, paths.back());
    }
    const auto wanted = std::ssize(paths);
    const std::int64_t tagged = surroundings.await(api->tagFiles(std::move(paths), options.tags));
    Console& console = surroundings.console;
    if (options.json) {
        JSONWriter json;
        json.beginObject().field("tagged", tagged).field("wanted", wanted).field("tags", options.tags);
        console.printJSON(json.endObject().text());
    } else {
        console.print(
            fmt::format("Tagged {} with {}", Format::count(tagged, "item"), fmt::join(options.tags, ", ")));
    }
    if (tagged >= wanted) return ExitCode::allLanded;
    console.say(fmt::format("The vark does not say that it tagged all {}.", Format::number(wanted)));
    return ExitCode::somethingFailed;
}

}  // namespace

void declareTag(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<TagOptions>();
    CLI::App& command =
        addCommand(program, chosen, "tag", "Put tags on items of the vark, or list all tags", options, tag);
    CLI::Option* paths =
        command.add_option("PATH", options->paths, "Below the connection's folder")->type_name("REMOTE");
    command
        .add_option("--with", options->tags,
                    "A tag, which is made when the vark has none of that name; can be given again")
        ->type_name("TAG")
        ->allow_extra_args(false);
    command.add_flag("--list", options->list, "List the tags that the vark has")->excludes(paths);
    addJSON(command, options->json);
}

}  // namespace vark::cli
