#include "Hosts/CLI/Commands/Streaming.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "Hosts/CLI/Commands/Commands.h"
#include "Hosts/CLI/Commands/Interruptible.h"
#include "Hosts/CLI/Display/StreamSink.h"
#include "VarkApp/Connect/Addresses.h"

namespace vark::cli {

namespace {

bool isSameFile(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Whether all of it went out, as the vark has it.
Task<bool> stream(std::shared_ptr<VarkAPI> api, VarkItem item, const Reader& reader) {
    StreamSink sink(reader.descriptor.get(), reader.name, co_await thisToken());
    co_await api->fetch(item.id, sink);
    co_return item.sha256.empty() ? sink.next() == item.size : sink.sha256() == item.sha256;
}

struct CatOptions {
    std::vector<std::string> paths;
};

ExitCode cat(CommandSurroundings& surroundings, const CatOptions& options) {
    const SharedConnection connection = surroundings.neededConnection();
    const std::shared_ptr<VarkAPI> api = surroundings.api(connection);
    std::vector<VarkItem> items;
    for (const std::string& path : options.paths) {
        items.push_back(surroundings.neededItem(*api, joinedVarkPath(connection.rootPath, path)));
        if (items.back().isDir)
            throw Failure(Outcome::misuse, fmt::format("\"{}\" is a folder. List it with: vark ls", path));
    }
    const Reader reader = standardOutput();
    for (const VarkItem& item : items) {
        const ExitCode code = streamTo(reader, surroundings, api, item);
        if (code != ExitCode::allLanded) return code;
    }
    return ExitCode::allLanded;
}

}  // namespace

Reader standardOutput() {
    return {Descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)), "standard output"};
}

std::optional<Reader> readerAt(const std::string& to) {
    if (to == "-") return standardOutput();
    struct stat there{};
    if (to.empty() || stat(to.c_str(), &there) != 0 || S_ISDIR(there.st_mode)) return std::nullopt;
    struct stat output{};
    if (fstat(STDOUT_FILENO, &output) == 0 && isSameFile(there, output)) return standardOutput();
    if (S_ISREG(there.st_mode)) return std::nullopt;
    if (!S_ISCHR(there.st_mode) && !S_ISFIFO(there.st_mode))
        throw Failure(Outcome::misuse,
                      fmt::format("\"{}\" is a disk or a socket. Nothing is written to it.", to));
    Descriptor descriptor(open(to.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!descriptor && errno == ENXIO)
        throw Failure(Outcome::failed, fmt::format("Nobody reads from \"{}\". Start the reader first.", to));
    if (!descriptor) throw FileError("Could not open", to, errno);
    return Reader{std::move(descriptor), to};
}

ExitCode streamTo(const Reader& reader, CommandSurroundings& surroundings, std::shared_ptr<VarkAPI> api,
                  const VarkItem& item) {
    const std::optional<bool> isWhole =
        awaitUnlessInterrupted(surroundings, stream(std::move(api), item, reader));
    if (!isWhole) {
        surroundings.console.say("Stopped: not all of the file has gone out.");
        return ExitCode::interrupted;
    }
    if (*isWhole) return ExitCode::allLanded;
    throw Failure(Outcome::failed,
                  fmt::format("What went to {} is not what the vark has. It may have been changed "
                              "just now; get it again.",
                              reader.name));
}

void declareCat(CLI::App& program, Chosen& chosen) {
    auto options = std::make_shared<CatOptions>();
    CLI::App& command =
        addCommand(program, chosen, "cat", "Write files of the vark to standard output", options, cat);
    command.footer(
        "What goes out is compared with the vark's checksum, and exit code 1 says at the end that it was not "
        "the "
        "whole.");
    command.add_option("PATH", options->paths, "Below the connection's folder")
        ->required()
        ->type_name("REMOTE");
}

}  // namespace vark::cli
