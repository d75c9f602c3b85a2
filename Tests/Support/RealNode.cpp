#include "Tests/Support/RealNode.h"

#include <fmt/format.h>

#include <boost/json/parse.hpp>
#include <csignal>
#include <stdexcept>

#include "Tests/Support/FileWatch.h"

namespace vark::test {

namespace json = boost::json;
namespace fs = std::filesystem;

RealNode::RealNode(const RealBox& box, Options options)
    : box_(box), options_(std::move(options)), log_(folder_.path()) {
    start();
}

void RealNode::start() {
    fs::remove(folder_ / "address.json");
    FileWatch watch(folder_.path());
    Process::Options options;
    options.program = VARK_BOX_PROGRAM;
    options.environment = options_.environment;
    options.arguments = {"node",
                         "--of",
                         box_.url(),
                         "--authority",
                         box_.root(),
                         "--root",
                         folder_.path(),
                         "--host",
                         options_.host,
                         "--listen",
                         address_.empty() ? options_.listen : address_,
                         "--quiet"};
    if (options_.api) options.arguments.emplace_back("--api");
    if (options_.announce) options.arguments.emplace_back("--announce");
    options.startBy(options_.prefix);
    options.output = folder_ / "node.out";
    options.errors = folder_ / "node.err";
    process_.reset();
    process_.emplace(options);
    bool isUp = watch.until([this] { return fs::exists(folder_ / "address.json"); }, std::chrono::minutes(1),
                            process_->descriptor());
    if (!isUp) throw std::runtime_error("The node did not start: " + process_->errors());
    json::object address = json::parse(readWholeFile(folder_ / "address.json")).as_object();
    address_ = address.at("address").as_string();
    controlURL_ = address.at("control_url").as_string();
}

Exit RealNode::stop() {
    process_->signal(SIGTERM);
    return process_->wait();
}

std::uint16_t RealNode::port() const {
    return static_cast<std::uint16_t>(std::stoi(address_.substr(address_.rfind(':') + 1)));
}

std::string RealNode::url() const {
    return fmt::format("https://{}:{}", options_.host, port());
}

void RealNode::control(std::string_view method, const json::value& body) const {
    box::BoxClient client(controlURL_, box_.authority(), "");
    box::Answer answer = client.control(method, "/control/faults", body);
    if (answer.status >= 200 && answer.status <= 299) return;
    throw std::runtime_error(
        fmt::format("The node answered a control call with {}: {}", answer.status, answer.body));
}

}  // namespace vark::test
