#pragma once

#include <array>
#include <boost/json/object.hpp>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace vark {
class Locations;
}

namespace vark::app {

/// What a person has set for this machine, for windows and terminal alike. A value.
struct Settings {
    enum class OnConflict { ask, replace, skip, newer, keepBoth };
    enum class KeepAwake { never, onMains, always };
    enum class Look { system, light, dark };
    enum class Updates { automatic, ask, off };
    enum class OnVolume { never, ask };

    // As they stand in the file and on a command line.
    static constexpr std::array<std::string_view, 5> onConflictNames = {"ask", "replace", "skip", "newer",
                                                                        "keep-both"};
    static constexpr std::array<std::string_view, 3> keepAwakeNames = {"never", "onMains", "always"};
    static constexpr std::array<std::string_view, 3> lookNames = {"system", "light", "dark"};
    static constexpr std::array<std::string_view, 3> updatesNames = {"automatic", "ask", "off"};
    static constexpr std::array<std::string_view, 2> onVolumeNames = {"never", "ask"};

    /// 0 is no limit.
    std::int64_t bytesPerSecond = 0;
    /// "09:00-17:30": when nothing is sent on weekdays.
    std::optional<std::string> officeHours{};
    OnConflict onConflict = OnConflict::ask;
    KeepAwake keepAwake = KeepAwake::onMains;
    bool notifications = true;
    Look look = Look::system;
    bool diskOn = false;
    /// Whether the person has been asked if Vark is to start when they sign in.
    bool askedToStart = false;
    Updates updates = Updates::automatic;
    /// By the volume's identifier, or its name where it has none.
    std::map<std::string, OnVolume> volumes{};
    /// Where the windows were; theirs alone.
    boost::json::object window{};
    /// Keys of a later version, which stay.
    boost::json::object others{};

    /// A value that makes no sense is as good as none. Fails with `DecodingError` for what is no object.
    static Settings fromJSON(const boost::json::value& value);
    std::string toJSON() const;
    bool operator==(const Settings&) const = default;
};

/// The file that holds them. Written whole, by one process at a time. Any thread; its calls wait for the
/// disk.
class SettingsFile {
  public:
    explicit SettingsFile(const Locations& locations);

    const std::filesystem::path& path() const { return path_; }
    /// What is not set there, or cannot be read, is as it is by itself.
    Settings read() const;
    /// Lets `change` have what is there now, and writes what it leaves. A file that makes no sense is put
    /// aside first. Fails with `FileError`, and then the old file stands.
    Settings change(const std::function<void(Settings&)>& change) const;

  private:
    const std::filesystem::path path_;
    const std::filesystem::path lock_;
    const std::filesystem::path damaged_;
};

}  // namespace vark::app
