#include <fmt/format.h>
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>

#include "VarkBox/Box.h"

namespace {

using vark::box::Box;
using vark::box::BoxOptions;

constexpr std::int64_t mostBytes = std::int64_t{1} << 50;

struct Arguments {
    BoxOptions options;
    bool noChunkURL = false;
    bool quiet = false;
};

void describe(CLI::App& serve, Arguments& arguments) {
    BoxOptions& options = arguments.options;
    serve.add_option("--root", options.root, "The folder of everything that the box keeps")
        ->capture_default_str();
    serve
        .add_option("--listen", options.listen,
                    "The loopback address of the application; port 0 is any free one")
        ->capture_default_str();
    serve.add_option("--chunk-listen", options.chunkListen, "The loopback address that takes chunks")
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
    serve
        .add_option("--fault", options.faults,
                    "A fault as JSON, as POST /control/faults takes it; repeatable")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    serve.add_flag("--quiet", arguments.quiet, "Print nothing but errors");
}

/// A client with many connections and uploads wants more descriptors than a shell gives.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

void serve(Arguments arguments) {
    arguments.options.givesChunkURL = !arguments.noChunkURL;
    raiseDescriptorLimit();
    // Blocked before any thread starts, so that all threads leave the signals to this one.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);

    Box box(arguments.options);
    box.start();
    if (!arguments.quiet) {
        fmt::print("vark-box serves {} at {}, chunks at {}.\n", arguments.options.root.string(), box.url(),
                   box.chunkURL());
        std::fflush(stdout);
    }
    int signal = 0;
    sigwait(&ends, &signal);
    box.stop();
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("The small development vark.");
    app.require_subcommand(1);
    Arguments arguments;
    CLI::App* command = app.add_subcommand("serve", "Serve a vark on this machine until it is told to stop");
    describe(*command, arguments);
    CLI11_PARSE(app, argc, argv);
    try {
        serve(std::move(arguments));
    } catch (const std::exception& failure) {
        fmt::print(stderr, "vark-box: {}\n", failure.what());
        return 1;
    }
    return 0;
}
