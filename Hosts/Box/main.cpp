#include <fmt/format.h>
#include <sys/resource.h>

#include <chrono>
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>

#include "VarkBox/Box.h"
#include "VarkBox/Nodes/Node.h"

namespace {

using vark::box::Box;
using vark::box::BoxOptions;
using vark::box::Node;
using vark::box::NodeOptions;

constexpr std::int64_t mostBytes = std::int64_t{1} << 50;
constexpr std::chrono::seconds troubleLook{2};

struct Arguments {
    BoxOptions box;
    NodeOptions node;
    bool noChunkURL = false;
    bool noJobBook = false;
    bool quiet = false;
};

void describeFaults(CLI::App& command, std::vector<std::string>& faults) {
    command.add_option("--fault", faults, "A fault as JSON, as POST /control/faults takes it; repeatable")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void describeServe(CLI::App& serve, Arguments& arguments) {
    BoxOptions& options = arguments.box;
    serve.add_option("--root", options.root, "The folder of everything that the box keeps")
        ->capture_default_str();
    serve
        .add_option("--listen", options.listen,
                    "The loopback address of the application; port 0 is any free one")
        ->capture_default_str();
    serve
        .add_option("--chunk-listen", options.chunkListen,
                    "The loopback address that takes chunks and gives files")
        ->capture_default_str();
    serve.add_option("--name", options.client, "The company whose files these are")->capture_default_str();
    serve.add_option("--chunk-size", options.chunkSize, "Bytes of a chunk of new uploads")
        ->check(CLI::Range(std::int64_t{1}, mostBytes))
        ->capture_default_str();
    serve
        .add_option("--token-file", options.tokenFile, "The file with the device token (default: ROOT/token)")
        ->check(CLI::ExistingFile);
    serve.add_option("--level", options.level, "The level of the person; 4 and above may change things")
        ->capture_default_str();
    serve.add_flag("--plain", options.plain, "Serve HTTP without TLS");
    serve.add_flag("--no-chunk-url", arguments.noChunkURL, "Let chunks come through the application");
    serve
        .add_option("--check-inline-below", options.checkInlineBelow,
                    "Files below so many bytes are checked before their finish is answered")
        ->check(CLI::Range(std::int64_t{0}, mostBytes))
        ->capture_default_str();
    serve.add_flag("--no-job-book", arguments.noJobBook, "Have no job book: its calls answer 404");
    serve
        .add_option("--sign-in-lasts", options.signInLastsSeconds,
                    "Seconds for which a code or a sign-in in the browser is good")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    describeFaults(serve, options.faults);
    serve.add_flag("--quiet", arguments.quiet, "Print nothing but errors");
}

void describeNode(CLI::App& node, Arguments& arguments) {
    NodeOptions& options = arguments.node;
    node.add_option("--of", options.of, "The vark that it serves, as https://127.0.0.1:8443")->required();
    node.add_option("--host", options.host, "The name of a host for which the node speaks")->required();
    node.add_option("--authority", options.authority,
                    "The root of that vark, whose authority vouches for the node")
        ->capture_default_str();
    node.add_option("--root", options.root, "The folder of everything that the node keeps")
        ->capture_default_str();
    node.add_option("--listen", options.listen,
                    "The address for clients, which may be open to others; port 0 is any free one")
        ->capture_default_str();
    node.add_option("--control-listen", options.controlListen, "The loopback address of the control calls")
        ->capture_default_str();
    node.add_flag("--api", options.api, "Answer the calls of the application too");
    node.add_flag("--announce", options.announce, "Announce the node on the local network (avahi-daemon)");
    node.add_option("--name", options.name, "The name under which it is announced (default: the host)");
    describeFaults(node, options.faults);
    node.add_flag("--quiet", arguments.quiet, "Print nothing but errors");
}

/// A client with many connections and uploads wants more descriptors than a shell gives.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

/// The signals that end the program. Made before any thread starts, so that all threads leave them to this
/// one.
class EndSignals {
  public:
    EndSignals() {
        sigemptyset(&ends_);
        sigaddset(&ends_, SIGINT);
        sigaddset(&ends_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &ends_, nullptr);
    }

    /// False when none came within the limit.
    bool await(std::chrono::seconds limit) const {
        timespec time{.tv_sec = limit.count(), .tv_nsec = 0};
        return sigtimedwait(&ends_, nullptr, &time) > 0;
    }
    void await() const {
        int signal = 0;
        sigwait(&ends_, &signal);
    }

  private:
    sigset_t ends_{};
};

void say(const std::string& line) {
    fmt::print("{}\n", line);
    std::fflush(stdout);
}

void serve(Arguments arguments) {
    arguments.box.givesChunkURL = !arguments.noChunkURL;
    arguments.box.hasJobBook = !arguments.noJobBook;
    EndSignals ends;
    Box box(arguments.box);
    box.start();
    if (!arguments.quiet) {
        say(fmt::format("vark-box serves {} at {}, chunks at {}.", arguments.box.root.string(), box.url(),
                        box.chunkURL()));
    }
    ends.await();
    box.stop();
}

void runNode(const Arguments& arguments) {
    EndSignals ends;
    Node node(arguments.node);
    node.start();
    if (!arguments.quiet) {
        say(fmt::format("The node {} of {} is at {}, its control calls at {}.", arguments.node.host,
                        arguments.node.of, node.address(), node.controlURL()));
    }
    std::optional<std::string> told;
    while (!ends.await(troubleLook)) {
        std::optional<std::string> trouble = node.trouble();
        if (trouble && trouble != told) fmt::print(stderr, "vark-box: {}\n", *trouble);
        told = trouble;
    }
    node.stop();
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("The small development vark, and its nodes.");
    app.require_subcommand(1);
    Arguments arguments;
    describeServe(*app.add_subcommand("serve", "Serve a vark on this machine until it is told to stop"),
                  arguments);
    CLI::App* node =
        app.add_subcommand("node", "Take and give file bytes for a vark under a name of its own");
    describeNode(*node, arguments);
    CLI11_PARSE(app, argc, argv);
    raiseDescriptorLimit();
    try {
        if (node->parsed()) {
            runNode(arguments);
        } else {
            serve(std::move(arguments));
        }
    } catch (const std::exception& failure) {
        fmt::print(stderr, "vark-box: {}\n", failure.what());
        return 1;
    }
    return 0;
}
