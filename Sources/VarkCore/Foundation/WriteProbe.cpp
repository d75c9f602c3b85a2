#include "VarkCore/Foundation/WriteProbe.h"

#include "VarkCore/Foundation/Files.h"

namespace vark {

void proveWritable(const std::filesystem::path& folder) {
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    if (failure) throw FileError("Could not make", folder, failure.value());
    try {
        UnfinishedFile probe(temporaryPathBeside(folder / "probe"), 0600);
        probe.write(std::string(4096, ' '));
        probe.sync();
    } catch (const FileError& error) {
        // The name of the probe says nothing to anyone.
        throw FileError("Could not write into", folder, error.errorNumber());
    }
}

}  // namespace vark
