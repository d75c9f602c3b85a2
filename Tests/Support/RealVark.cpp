#include "Tests/Support/RealVark.h"

#include <gtest/gtest.h>

#include <boost/json/parse.hpp>
#include <stdexcept>

namespace vark::test {

namespace fs = std::filesystem;
namespace json = boost::json;

RealVark::RealVark(Place place) : place_(std::move(place)) {
    fs::create_directory(folder_ / "runs");
}

Process::Options RealVark::options(std::vector<std::string> arguments) {
    Process::Options options;
    options.program = VARK_PROGRAM;
    options.arguments = std::move(arguments);
    options.environment = {{"HOME", folder_.path()},
                           {"XDG_DATA_HOME", folder_ / "data"},
                           {"XDG_STATE_HOME", folder_ / "state"},
                           {"XDG_CONFIG_HOME", folder_ / "config"},
                           {"PATH", "/usr/bin:/bin"},
                           {"LANG", "C.UTF-8"},
                           {"TERM", "xterm-256color"},
                           // There is no desktop session around a test.
                           {"VARK_SECRET_STORE", "file"}};
    for (const auto& [name, value] : place_.environment)
        options.environment.insert_or_assign(name, value);
    options.startBy(place_.prefix);
    std::string run = std::to_string(++runs_);
    options.output = folder_ / ("runs/" + run + ".out");
    options.errors = folder_ / ("runs/" + run + ".err");
    return options;
}

Process RealVark::start(std::vector<std::string> arguments, std::optional<rlim_t> largestFile) {
    Process::Options options = this->options(std::move(arguments));
    options.largestFile = largestFile;
    return Process(options);
}

Process RealVark::startOn(int terminal, std::vector<std::string> arguments) {
    Process::Options options = this->options(std::move(arguments));
    options.terminal = terminal;
    return Process(options);
}

Finished RealVark::run(std::vector<std::string> arguments, std::chrono::milliseconds limit) {
    Process process = start(std::move(arguments));
    Exit exit = process.wait(limit);
    return {exit, process.output(), process.errors(), process.peakMemory()};
}

void RealVark::connect(const RealBox& box, const std::string& name) {
    std::string url = box.url();
    if (!name.empty()) url = "https://" + name + url.substr(url.rfind(':'));
    Finished connected = run(
        {"connect", url, "--token-file", box.tokenFile().string(), "--ca-file", box.authority().string()});
    ASSERT_EQ(connected.exit, exitCode(0)) << connected.output << connected.errors;
}

std::optional<fs::path> RealVark::find(std::string_view name) const {
    for (const char* below : {"data", "state"}) {
        if (!fs::exists(folder_ / below)) continue;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder_ / below)) {
            if (entry.path().filename() == name) return entry.path();
        }
    }
    return std::nullopt;
}

fs::path RealVark::queueFile() const {
    return folder_ / "data/" VARK_FOLDER "/queue.json";
}

fs::path RealVark::diaryFile() const {
    return folder_ / "state/Logs/" VARK_FOLDER "/transfer.log";
}

json::object RealVark::savedJob() const {
    return json::parse(readWholeFile(queueFile())).at("job").as_object();
}

json::array RealVark::savedItems() const {
    if (!fs::exists(queueFile())) return {};
    return savedJob().at("items").as_array();
}

std::optional<json::object> RealVark::savedItem(std::string_view relativePath) const {
    for (const json::value& item : savedItems()) {
        if (item.at("relativePath").as_string() == relativePath) return item.as_object();
    }
    return std::nullopt;
}

std::map<std::string, int> RealVark::savedStates() const {
    std::map<std::string, int> states;
    for (const json::value& item : savedItems())
        ++states[std::string(item.at("state").as_string())];
    return states;
}

std::string RealVark::savedState(std::string_view relativePath) const {
    std::optional<json::object> item = savedItem(relativePath);
    return item ? std::string(item->at("state").as_string()) : std::string();
}

std::string RealVark::diary() const {
    return fs::exists(diaryFile()) ? readWholeFile(diaryFile()) : std::string();
}

}  // namespace vark::test
