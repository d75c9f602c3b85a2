#include "Tests/Support/Boxes/RealVark.h"

#include <boost/json/array.hpp>
#include <boost/json/parse.hpp>
#include <stdexcept>

#include "Tests/Support/Programs.h"

namespace vark::test {

namespace fs = std::filesystem;
namespace json = boost::json;

RealVark::RealVark(Place place) : place_(std::move(place)) {
    fs::create_directory(folder_ / "runs");
}

Process::Options RealVark::options(std::vector<std::string> arguments) {
    Process::Options options{.program = Programs::get().vark(), .arguments = std::move(arguments)};
    options.environment = place_.environment;
    const std::map<std::string, std::string> usual{{"HOME", folder_.path()},
                                                   {"XDG_DATA_HOME", folder_ / "data"},
                                                   {"XDG_STATE_HOME", folder_ / "state"},
                                                   {"XDG_CONFIG_HOME", folder_ / "config"},
                                                   {"PATH", "/usr/bin:/bin"},
                                                   {"LANG", "C.UTF-8"},
                                                   {"TERM", "xterm-256color"},
                                                   // There is no desktop session around a test.
                                                   {"VARK_SECRET_STORE", "file"}};
    options.environment.insert(usual.begin(), usual.end());
    options.startBy(place_.prefix);
    // In the person's home, where a test looks for what must not have been printed.
    const std::string run = folder_ / ("runs/" + std::to_string(++runs_));
    options.output = run + ".out";
    options.errors = run + ".err";
    return options;
}

Finished RealVark::run(std::vector<std::string> arguments) {
    return start(std::move(arguments)).finish(std::chrono::minutes(2));
}

void RealVark::connect(const RealBox& box, const std::string& url) {
    const Finished connected = run({"connect", url.empty() ? box.url() : url, "--token-file", box.tokenFile(),
                                    "--ca-file", box.authority()});
    if (connected.exit != exitCode(0)) throw std::runtime_error(connected.output + connected.errors);
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
    return folder_ / "data" / Programs::get().folder() / "queue.json";
}

fs::path RealVark::diaryFile() const {
    return folder_ / "state/Logs" / Programs::get().folder() / "transfer.log";
}

std::map<std::string, std::string> RealVark::savedStates() const {
    std::map<std::string, std::string> states;
    if (!fs::exists(queueFile())) return states;
    const json::value saved = json::parse(readWholeFile(queueFile()));
    for (const json::value& item : saved.at("job").at("items").as_array())
        states.emplace(item.at("relativePath").as_string(), item.at("state").as_string());
    return states;
}

std::string RealVark::diary() const {
    return fs::exists(diaryFile()) ? readWholeFile(diaryFile()) : std::string();
}

bool RealVark::untilDiary(std::string_view words, const Process& process) const {
    return process.until([&] { return diary().contains(words); });
}

}  // namespace vark::test
