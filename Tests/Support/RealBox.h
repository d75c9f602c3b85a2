#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Tests/Support/FileWatch.h"
#include "Tests/Support/Process.h"
#include "Tests/Support/RequestLogFile.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/BoxClient.h"

namespace vark::test {

/// One file that the box holds.
struct HeldFile {
    std::string path;
    std::int64_t size = 0;
    std::string sha256;
    std::int64_t id = 0;
};

/// The program `vark-box` with a folder of its own. After a kill it comes up again at the same addresses with
/// what it had. For the test's thread alone; the process ends with this object.
class RealBox {
  public:
    struct Options {
        std::int64_t chunkSize = 8 << 20;
        bool givesChunkURL = true;
        std::int64_t checkInlineBelow = 1 << 20;
        /// More of what `vark-box serve` takes.
        std::vector<std::string> arguments{};
    };

    explicit RealBox(Options options);
    RealBox() : RealBox(Options()) {}

    /// SIGKILL.
    void kill() { process_->kill(); }
    void start();
    void restart() {
        kill();
        start();
    }

    const std::filesystem::path& root() const { return folder_.path(); }
    std::filesystem::path tokenFile() const { return folder_ / "token"; }
    std::filesystem::path authority() const { return folder_ / "authority.pem"; }
    const std::string& url() const { return url_; }
    const std::string& chunkURL() const { return chunkURL_; }
    std::string token() const;
    const Process& process() const { return *process_; }

    box::BoxClient client() const { return {url_, authority(), token()}; }
    /// Puts a fault in force, as `POST /control/faults` takes it.
    void fault(const boost::json::object& fault) const;
    /// Those in force, each with how often it has fired.
    boost::json::array faults() const;
    void control(std::string_view method, std::string_view path,
                 const boost::json::value& body = nullptr) const;
    std::vector<HeldFile> files() const;
    /// Puts a file there as another client would.
    void put(std::string_view path, std::string_view bytes) const;
    /// The bytes of a file that the box holds, by its path; a failure when it is not there.
    std::string bytesAt(std::string_view path) const;

    /// All that was logged since the first start.
    const std::vector<LoggedRequest>& requests() { return log_.requests(); }
    /// Waits until the log so far gives a yes. False when the process behind `pidfd` ended, or a minute
    /// passed.
    bool untilRequests(const std::function<bool(const std::vector<LoggedRequest>&)>& answer, int pidfd = -1) {
        return log_.until(answer, pidfd);
    }
    std::int64_t count(std::string_view method, std::string_view targetPart) {
        return log_.count(method, targetPart);
    }

  private:
    const Options options_;
    TemporaryFolder folder_;
    std::string url_;
    std::string chunkURL_;
    std::optional<Process> process_;
    RequestLogFile log_{folder_.path()};
};

}  // namespace vark::test
