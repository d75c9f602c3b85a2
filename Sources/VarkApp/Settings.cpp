#include "VarkApp/Settings.h"

#include <algorithm>
#include <boost/json/serialize.hpp>
#include <set>

#include "VarkCore/Connection/Locations.h"
#include "VarkCore/Connection/SharedFile.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Foundation/JSON/JSON.h"

namespace vark::app {

namespace {

/// Nobody's settings are longer.
constexpr std::uint64_t longestFile = 1 << 20;

const std::set<std::string_view> knownKeys = {"bytesPerSecond", "officeHours", "onConflict", "keepAwake",
                                              "notifications",  "look",        "diskOn",     "askedToStart",
                                              "updates",        "volumes",     "window"};

template <class Choice, std::size_t count>
std::optional<Choice> choiceNamed(const std::array<std::string_view, count>& names,
                                  const boost::json::value* value) {
    if (value == nullptr || !value->is_string()) return std::nullopt;
    const auto found = std::ranges::find(names, std::string_view(value->get_string()));
    if (found == names.end()) return std::nullopt;
    return static_cast<Choice>(found - names.begin());
}

template <class Choice, std::size_t count>
std::string_view nameOf(const std::array<std::string_view, count>& names, Choice choice) {
    return names.at(static_cast<std::size_t>(choice));
}

/// The fields of the object, each taken when it is of the right kind.
class Fields {
  public:
    explicit Fields(const boost::json::object& object) : object_(object) {}

    void take(std::string_view key, bool& to) const {
        const boost::json::value* value = object_.if_contains(key);
        if (value != nullptr && value->is_bool()) to = value->get_bool();
    }
    void takeAmount(std::string_view key, std::int64_t& to) const {
        const boost::json::value* value = object_.if_contains(key);
        if (value != nullptr && value->is_int64() && value->get_int64() >= 0) to = value->get_int64();
    }
    void take(std::string_view key, std::optional<std::string>& to) const {
        const boost::json::value* value = object_.if_contains(key);
        if (value != nullptr && value->is_string()) to = std::string(value->get_string());
    }
    template <class Choice, std::size_t count>
    void take(std::string_view key, const std::array<std::string_view, count>& names, Choice& to) const {
        to = choiceNamed<Choice>(names, object_.if_contains(key)).value_or(to);
    }
    const boost::json::object* below(std::string_view key) const {
        const boost::json::value* value = object_.if_contains(key);
        return value == nullptr ? nullptr : value->if_object();
    }

  private:
    const boost::json::object& object_;
};

}  // namespace

Settings Settings::fromJSON(const boost::json::value& value) {
    const boost::json::object* object = value.if_object();
    if (object == nullptr) throw DecodingError("settings are no object");
    const Fields fields(*object);
    Settings settings;
    fields.takeAmount("bytesPerSecond", settings.bytesPerSecond);
    fields.take("officeHours", settings.officeHours);
    fields.take("onConflict", onConflictNames, settings.onConflict);
    fields.take("keepAwake", keepAwakeNames, settings.keepAwake);
    fields.take("notifications", settings.notifications);
    fields.take("look", lookNames, settings.look);
    fields.take("diskOn", settings.diskOn);
    fields.take("askedToStart", settings.askedToStart);
    fields.take("updates", updatesNames, settings.updates);
    if (const boost::json::object* volumes = fields.below("volumes")) {
        for (const auto& [volume, answer] : *volumes) {
            if (const auto known = choiceNamed<OnVolume>(onVolumeNames, &answer))
                settings.volumes[volume] = *known;
        }
    }
    if (const boost::json::object* window = fields.below("window")) settings.window = *window;
    for (const auto& [key, content] : *object) {
        if (!knownKeys.contains(key)) settings.others[key] = content;
    }
    return settings;
}

std::string Settings::toJSON() const {
    boost::json::object object;
    object["bytesPerSecond"] = bytesPerSecond;
    if (officeHours) object["officeHours"] = *officeHours;
    object["onConflict"] = nameOf(onConflictNames, onConflict);
    object["keepAwake"] = nameOf(keepAwakeNames, keepAwake);
    object["notifications"] = notifications;
    object["look"] = nameOf(lookNames, look);
    object["diskOn"] = diskOn;
    object["askedToStart"] = askedToStart;
    object["updates"] = nameOf(updatesNames, updates);
    boost::json::object& answers = object["volumes"].emplace_object();
    for (const auto& [volume, answer] : volumes)
        answers[volume] = nameOf(onVolumeNames, answer);
    if (!window.empty()) object["window"] = window;
    for (const auto& [key, content] : others)
        object[key] = content;
    return boost::json::serialize(object) + '\n';
}

SettingsFile::SettingsFile(const Locations& locations)
    : path_(locations.settings()), lock_(locations.settingsLock()), damaged_(locations.damagedSettings()) {}

Settings SettingsFile::read() const {
    return SharedFile::read(path_, Settings::fromJSON).value_or(Settings());
}

Settings SettingsFile::change(const std::function<void(Settings&)>& change) const {
    std::filesystem::create_directories(path_.parent_path());
    const FileLock lock = FileLock::exclusive(lock_);
    Settings settings;
    try {
        settings = Settings::fromJSON(parseJSON(readWholeFile(path_, longestFile)));
    } catch (const DecodingError&) {
        std::filesystem::rename(path_, damaged_);
    } catch (const FileError& error) {
        // Over what cannot be read, nothing is written.
        if (!error.isGone()) throw;
    }
    change(settings);
    writeAtomically(path_, settings.toJSON(), 0600);
    return settings;
}

}  // namespace vark::app
