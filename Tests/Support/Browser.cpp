#include "Tests/Support/Browser.h"

#include <fmt/format.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <csignal>
#include <filesystem>
#include <stdexcept>

#include "Tests/Support/FileWatch.h"

namespace vark::test {
namespace {

namespace json = boost::json;

constexpr const char* driverProgram = "/usr/bin/chromedriver";
constexpr const char* browserProgram = "/usr/bin/chromium";
constexpr std::string_view startedOnPort = "was started successfully on port ";
/// The key under which the protocol names an element.
constexpr const char* elementKey = "element-6066-11e4-a52e-4f735466cecf";

Process::Options driver(const std::filesystem::path& folder) {
    return {
        .program = driverProgram,
        .arguments = {"--port=0"},
        .environment = {{"HOME", folder.string()}, {"TMPDIR", folder.string()}, {"PATH", "/usr/bin:/bin"}},
        .output = folder / "driver.out",
        .errors = folder / "driver.err",
        .largestFile = std::nullopt};
}

/// The port that the driver chose, once it has said so.
std::string portOf(const Process& driver, const std::filesystem::path& folder) {
    std::string port;
    const bool started = FileWatch(folder).until(
        [&] {
            const std::string said = driver.output();
            const std::size_t at = said.find(startedOnPort);
            if (at == std::string::npos || said.find('\n', at) == std::string::npos) return false;
            port = said.substr(at + startedOnPort.size());
            port.resize(port.find_first_not_of("0123456789"));
            return true;
        },
        std::chrono::minutes(1), driver.descriptor());
    if (!started) throw std::runtime_error("The browser's driver did not start: " + driver.errors());
    return port;
}

json::value capabilities(const std::filesystem::path& folder) {
    const json::array arguments = {"--headless=new", "--no-sandbox", "--disable-gpu",
                                   "--disable-dev-shm-usage",
                                   "--user-data-dir=" + (folder / "profile").string()};
    const json::object options = {{"binary", browserProgram}, {"args", arguments}};
    // The box's authority is its own, and no browser of this machine is to be taught it.
    const json::object wanted = {
        {"browserName", "chrome"}, {"acceptInsecureCerts", true}, {"goog:chromeOptions", options}};
    return json::object{{"capabilities", json::object{{"alwaysMatch", wanted}}}};
}

}  // namespace

Browser::Browser() : driver_(driver(folder_.path())) {
    client_.emplace("http://127.0.0.1:" + portOf(driver_, folder_.path()), std::filesystem::path(), "");
    const json::value answer = command("POST", "/session", capabilities(folder_.path()));
    session_ = std::string(answer.at("sessionId").as_string());
}

Browser::~Browser() {
    // The driver takes the browser along when its session ends; a kill would leave it behind.
    if (!session_.empty()) client_->send("DELETE", "/session/" + session_);
    driver_.signal(SIGTERM);
    driver_.wait();
}

json::value Browser::command(std::string_view method, std::string_view path, json::value body) {
    const box::Answer answer =
        client_->send(method, path, body.is_null() ? "" : json::serialize(body), {}, 60'000);
    if (answer.status != 200) throw std::runtime_error(fmt::format("{} {}: {}", method, path, answer.body));
    return answer.json().at("value");
}

void Browser::open(std::string_view url) {
    command("POST", "/session/" + session_ + "/url", json::object{{"url", url}});
}

std::string Browser::find(std::string_view xpath) {
    const json::value found = command("POST", "/session/" + session_ + "/element",
                                      json::object{{"using", "xpath"}, {"value", xpath}});
    return std::string(found.at(elementKey).as_string());
}

std::string Browser::text() {
    const json::value text =
        command("GET", fmt::format("/session/{}/element/{}/text", session_, find("//body")), nullptr);
    return std::string(text.as_string());
}

void Browser::click(std::string_view words) {
    command("POST",
            fmt::format("/session/{}/element/{}/click", session_,
                        find(fmt::format("//button[normalize-space()='{}']", words))),
            json::object{});
}

}  // namespace vark::test
