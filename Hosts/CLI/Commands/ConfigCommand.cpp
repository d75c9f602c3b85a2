#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Hosts/CLI/Arguments.h"
#include "Hosts/CLI/Commands/Commands.h"
#include "VarkApp/Settings.h"

namespace vark::cli {

namespace {

using Refused = std::optional<std::string>;

constexpr std::string_view none = "none";
constexpr std::string_view volumePrefix = "volumes.";

/// One setting that a person may change here.
struct Setting {
    std::string_view name;
    std::string_view help;
    std::string (*get)(const Settings&);
    /// Gives why it cannot be that.
    Refused (*set)(Settings&, const std::string&);
};

template <class Choice, std::size_t count>
Refused choose(const std::array<std::string_view, count>& names, const std::string& given, Choice& to) {
    const auto found = std::ranges::find(names, given);
    if (found == names.end()) return fmt::format("{} is none of: {}", given, fmt::join(names, ", "));
    to = static_cast<Choice>(found - names.begin());
    return std::nullopt;
}

template <class Choice, std::size_t count>
std::string nameOf(const std::array<std::string_view, count>& names, Choice choice) {
    return std::string(names.at(static_cast<std::size_t>(choice)));
}

Refused chooseYes(const std::string& given, bool& to) {
    if (given != "yes" && given != "no" && given != "true" && given != "false")
        return fmt::format("{} is neither yes nor no.", given);
    to = given == "yes" || given == "true";
    return std::nullopt;
}

std::string yesOrNo(bool is) {
    return is ? "yes" : "no";
}

Refused setRate(Settings& settings, const std::string& given) {
    if (given == none || given == "0") {
        settings.bytesPerSecond = 0;
        return std::nullopt;
    }
    const Parsed<std::int64_t> rate = parseRate(given);
    if (!rate) return rate.error();
    settings.bytesPerSecond = *rate;
    return std::nullopt;
}

Refused setHours(Settings& settings, const std::string& given) {
    settings.officeHours.reset();
    if (given == none) return std::nullopt;
    const Parsed<WorkingHours> hours = parseWorkingHours(given);
    if (!hours) return hours.error();
    settings.officeHours = given;
    return std::nullopt;
}

constexpr Setting settingsKnown[] = {
    {"bytesPerSecond", "at most so much a second, like 10MB; none for no limit",
     [](const Settings& settings) { return fmt::to_string(settings.bytesPerSecond); }, setRate},
    {"officeHours", "when nothing is sent on weekdays, like 09:00-17:30; or none",
     [](const Settings& settings) { return settings.officeHours.value_or(std::string(none)); }, setHours},
    {"onConflict", "ask, replace, skip, newer or keep-both",
     [](const Settings& settings) { return nameOf(Settings::onConflictNames, settings.onConflict); },
     [](Settings& settings, const std::string& given) {
         return choose(Settings::onConflictNames, given, settings.onConflict);
     }},
    {"keepAwake", "while it sends: never, onMains or always",
     [](const Settings& settings) { return nameOf(Settings::keepAwakeNames, settings.keepAwake); },
     [](Settings& settings, const std::string& given) {
         return choose(Settings::keepAwakeNames, given, settings.keepAwake);
     }},
    {"notifications", "yes or no", [](const Settings& settings) { return yesOrNo(settings.notifications); },
     [](Settings& settings, const std::string& given) { return chooseYes(given, settings.notifications); }},
    {"look", "system, light or dark",
     [](const Settings& settings) { return nameOf(Settings::lookNames, settings.look); },
     [](Settings& settings, const std::string& given) {
         return choose(Settings::lookNames, given, settings.look);
     }},
    {"diskOn", "show the vark among the disks: yes or no",
     [](const Settings& settings) { return yesOrNo(settings.diskOn); },
     [](Settings& settings, const std::string& given) { return chooseYes(given, settings.diskOn); }},
    {"updates", "automatic, ask or off",
     [](const Settings& settings) { return nameOf(Settings::updatesNames, settings.updates); },
     [](Settings& settings, const std::string& given) {
         return choose(Settings::updatesNames, given, settings.updates);
     }},
};

struct ConfigOptions {
    std::string key;
    std::string value;
    bool json = false;
};

const Setting& settingNamed(const std::string& name) {
    const auto found = std::ranges::find(settingsKnown, name, &Setting::name);
    if (found != std::end(settingsKnown)) return *found;
    std::vector<std::string> names;
    for (const Setting& setting : settingsKnown)
        names.emplace_back(setting.name);
    const std::optional<std::string> meant = nearestWord(name, names);
    throw Failure(Outcome::misuse,
                  fmt::format("There is no setting \"{}\".{} All of them are listed by: vark config "
                              "list",
                              name, meant ? fmt::format(" Did you mean \"{}\"?", *meant) : ""));
}

void print(Console& console, std::string_view key, std::string_view value, bool json) {
    if (!json) return console.print(fmt::format("{} = {}", key, value));
    JSONWriter record;
    console.printJSON(record.beginObject().field("key", key).field("value", value).endObject().text());
}

std::string answerFor(const Settings& settings, const std::string& volume) {
    const auto found = settings.volumes.find(volume);
    return found == settings.volumes.end() ? std::string(none)
                                           : nameOf(Settings::onVolumeNames, found->second);
}

Refused setVolume(Settings& settings, const std::string& volume, const std::string& given) {
    if (given == none) {
        settings.volumes.erase(volume);
        return std::nullopt;
    }
    Settings::OnVolume answer{};
    if (Refused why = choose(Settings::onVolumeNames, given, answer)) return why;
    settings.volumes[volume] = answer;
    return std::nullopt;
}

/// What stands behind "volumes.", when that is what the key begins with.
std::optional<std::string> volumeIn(const std::string& key) {
    if (!key.starts_with(volumePrefix) || key.size() == volumePrefix.size()) return std::nullopt;
    return key.substr(volumePrefix.size());
}

ExitCode list(CommandSurroundings& surroundings, const ConfigOptions& options) {
    const Settings settings = SettingsFile(surroundings.locations()).read();
    for (const Setting& setting : settingsKnown)
        print(surroundings.console, setting.name, setting.get(settings), options.json);
    for (const auto& [volume, answer] : settings.volumes)
        print(surroundings.console, std::string(volumePrefix) + volume,
              nameOf(Settings::onVolumeNames, answer), options.json);
    return ExitCode::allLanded;
}

ExitCode get(CommandSurroundings& surroundings, const ConfigOptions& options) {
    const Settings settings = SettingsFile(surroundings.locations()).read();
    const std::optional<std::string> volume = volumeIn(options.key);
    const std::string value = volume ? answerFor(settings, *volume) : settingNamed(options.key).get(settings);
    if (options.json) {
        print(surroundings.console, options.key, value, true);
    } else {
        surroundings.console.print(value);
    }
    return ExitCode::allLanded;
}

ExitCode set(CommandSurroundings& surroundings, const ConfigOptions& options) {
    const std::optional<std::string> volume = volumeIn(options.key);
    const auto change = [&](Settings& settings) {
        return volume ? setVolume(settings, *volume, options.value)
                      : settingNamed(options.key).set(settings, options.value);
    };
    Settings tried;
    if (const Refused why = change(tried)) throw Failure(Outcome::misuse, *why);
    SettingsFile(surroundings.locations()).change([&](Settings& settings) { change(settings); });
    return ExitCode::allLanded;
}

std::string explanation() {
    std::string text = "The settings, which the windows share:\n";
    for (const Setting& setting : settingsKnown)
        text += fmt::format("  {:<16} {}\n", setting.name, setting.help);
    return text + fmt::format("  {:<16} what to do when that card comes: never, ask or none", "volumes.NAME");
}

}  // namespace

void declareConfig(CLI::App& program, Chosen& chosen) {
    CLI::App& config = addBareCommand(program, "config", "Show and change the settings of this machine");
    config.require_subcommand(1);

    auto listing = std::make_shared<ConfigOptions>();
    CLI::App& listCommand = addCommand(config, chosen, "list", "List all settings", listing, list);
    listCommand.footer(explanation());
    addJSON(listCommand, listing->json);

    auto getting = std::make_shared<ConfigOptions>();
    CLI::App& getCommand = addCommand(config, chosen, "get", "Show one setting", getting, get);
    getCommand.add_option("KEY", getting->key, "Its name, as \"vark config list\" shows it")->required();
    addJSON(getCommand, getting->json);

    auto setting = std::make_shared<ConfigOptions>();
    CLI::App& setCommand = addCommand(config, chosen, "set", "Change a setting", setting, set);
    setCommand.footer(explanation());
    setCommand.add_option("KEY", setting->key, "Its name, as \"vark config list\" shows it")->required();
    setCommand.add_option("VALUE", setting->value, "What it is to be")->required();
}

}  // namespace vark::cli
