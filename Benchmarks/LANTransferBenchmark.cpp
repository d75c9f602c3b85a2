// Sends and fetches files over a node as the application does, for Benchmarks/compare-lan-with-curl.
#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>
#include <ranges>
#include <string>
#include <vector>

#include "VarkCore/Concurrency/TaskGroup.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkCore/Foundation/Files.h"
#include "VarkCore/LAN/LANTransfer.h"
#include "VarkPlatform/Linux/Network/TLSDialer.h"

namespace vark {
namespace {

constexpr const char* usage =
    "usage: LANTransferBenchmark AUTHORITY HOST PORT put FILE CHUNKS AT-ONCE\n"
    "       LANTransferBenchmark AUTHORITY HOST PORT get PATH FILE\n"
    "Talks to the node HOST at 127.0.0.1. put sends FILE in so many chunks to /0, /1 and so on.\n";

struct Node {
    std::string host;
    std::uint16_t port;

    LANRoute routeTo(const std::string& path) const {
        const std::string url = fmt::format("https://127.0.0.1:{}{}", port, path);
        return {URL::parse(url).value(), "127.0.0.1", port, host, path};
    }
};

/// Takes the place of whatever stands there.
class BodyFile final : public BodySink {
  public:
    explicit BodyFile(std::filesystem::path path)
        : path_(std::move(path)),
          file_(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {}
    void take(const HTTPResponse&, std::string_view bytes) override { writeAll(file_, bytes, path_); }

  private:
    const std::filesystem::path path_;
    const Descriptor file_;
};

Task<void> judge(Task<LANTransfer::Response> transfer) {
    const LANTransfer::Response response = co_await std::move(transfer);
    if (response.status < 200 || response.status > 299) throw LANTransfer::Failure::status(response.status);
}

Task<void> put(LANTransfer* lan, Node node, std::filesystem::path file, std::int64_t chunks,
               std::size_t atOnce) {
    const auto size = static_cast<std::int64_t>(std::filesystem::file_size(file));
    const std::int64_t most = (size + chunks - 1) / chunks;
    auto putChunk = [=](std::int64_t chunk) {
        const std::int64_t offset = chunk * most;
        return judge(lan->put(file, offset, std::min(most, size - offset), "application/octet-stream",
                              node.routeTo(fmt::format("/{}", chunk)), nullptr, {}, {}));
    };
    co_await forEachBounded(std::views::iota(std::int64_t{0}, chunks), atOnce, putChunk);
}

int benchmark(const std::vector<std::string>& arguments) {
    SystemClock clock;
    BlockingPool files(8);
    TLSDialer dialer(arguments[0]);
    LANTransfer lan(dialer, files);
    const Node node{arguments[1], static_cast<std::uint16_t>(std::stoul(arguments[2]))};
    SerialExecutor executor;
    if (arguments[3] == "put") {
        run(executor, clock,
            put(&lan, node, arguments[4], std::stol(arguments[5]), std::stoul(arguments[6])));
    } else {
        BodyFile file(arguments[5]);
        run(executor, clock, judge(lan.get(node.routeTo(arguments[4]), {}, file)));
    }
    return 0;
}

}  // namespace
}  // namespace vark

int main(int count, char** values) {
    const std::vector<std::string> arguments(values + 1, values + count);
    const bool isPut = arguments.size() == 7 && arguments[3] == "put";
    const bool isGet = arguments.size() == 6 && arguments[3] == "get";
    if (!isPut && !isGet) {
        std::cerr << vark::usage;
        return 2;
    }
    try {
        return vark::benchmark(arguments);
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
}
