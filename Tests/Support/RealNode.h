#pragma once

#include <boost/json/object.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "Tests/Support/Process.h"
#include "Tests/Support/RealBox.h"
#include "Tests/Support/RequestLogFile.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

/// The program `vark-box node` of a box, with a folder of its own. It comes up again at the same address. For
/// the test's thread alone; the process ends with this object, and the box may end before it.
class RealNode {
  public:
    struct Options {
        std::string host = "node1.box.test";
        bool api = false;
        bool announce = false;
        std::string listen = "127.0.0.1:0";
        /// What the program is started by, when it does not stand in the test's own network.
        std::vector<std::string> prefix{};
        /// What the program finds in its environment.
        std::map<std::string, std::string> environment{};
    };

    RealNode(const RealBox& box, Options options);

    void start();
    /// SIGTERM, and the wait for its end.
    Exit stop();
    /// SIGKILL.
    void kill() { process_->kill(); }

    const std::string& host() const { return options_.host; }
    /// Where it really listens.
    std::string ip() const { return address_.substr(0, address_.rfind(':')); }
    std::uint16_t port() const;
    /// The name for which it speaks, on the port that it has here.
    std::string url() const;
    const Process& process() const { return *process_; }

    /// Puts a fault in force, as `POST /control/faults` takes it.
    void fault(const boost::json::object& fault) const { control("POST", fault); }
    void clearFaults() const { control("DELETE", nullptr); }
    RequestLogFile& log() { return log_; }

  private:
    void control(std::string_view method, const boost::json::value& body) const;

    const RealBox& box_;
    const Options options_;
    TemporaryFolder folder_;
    std::string address_;
    std::string controlURL_;
    std::optional<Process> process_;
    RequestLogFile log_;
};

}  // namespace vark::test
