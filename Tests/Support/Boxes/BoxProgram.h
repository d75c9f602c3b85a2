#pragma once

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

/// One line of the request log of a box or a node.
struct LoggedRequest {
    std::string listener;
    std::string method;
    std::string target;
    /// 0 for a request that was broken off.
    std::int64_t status = 0;
    std::int64_t bodyBytes = 0;
    bool hadToken = false;
    /// The host of the node over which it came; empty when it came straight, or when this is a node's log.
    std::string node;

    bool isChunk() const { return method == "PUT"; }
};
using LoggedRequests = std::vector<LoggedRequest>;

/// The program `vark-box` in one of its two parts, with a folder of its own. After a kill it comes up again
/// at the same address with what it had. For the test's thread alone; the process ends with this object.
class BoxProgram {
  public:
    BoxProgram(const BoxProgram&) = delete;
    BoxProgram& operator=(const BoxProgram&) = delete;

    void start();
    /// SIGKILL.
    void kill() { process_->kill(); }

    const std::filesystem::path& root() const { return folder_.path(); }

    /// A control call. Throws when it is refused.
    boost::json::value control(const std::string& method, const std::string& path,
                               const boost::json::object& body = {}) const;
    /// Puts a fault in force, as `POST /control/faults` takes it.
    void fault(const boost::json::object& fault) const { control("POST", "/control/faults", fault); }
    void clearFaults() const { control("DELETE", "/control/faults"); }

    /// All that was logged since the first start.
    const LoggedRequests& requests();
    /// Waits until the answer is yes. False when this program ended, or a minute passed.
    bool until(const std::function<bool()>& answer) const { return process_->until(answer); }
    /// Those with this method, a target that holds these words, and this status unless it is -1.
    std::int64_t count(std::string_view method, std::string_view targetPart, std::int64_t status = -1);

  protected:
    BoxProgram() = default;
    ~BoxProgram() = default;

    /// How the program is started; with the addresses that it had, if it has been.
    virtual Process::Options options() const = 0;
    virtual std::filesystem::path authority() const = 0;
    virtual std::string controlURL() const = 0;
    /// A text of the program's `address.json`.
    std::string address(const char* name) const { return std::string(address_.at(name).as_string()); }
    bool wasStarted() const { return !address_.empty(); }
    /// What curl gets with these arguments. Throws unless it is a success.
    std::string curl(std::vector<std::string> arguments) const;

  private:
    TemporaryFolder folder_;
    boost::json::object address_;
    std::optional<Process> process_;
    LoggedRequests requests_;
    std::uintmax_t read_ = 0;
};

}  // namespace vark::test
