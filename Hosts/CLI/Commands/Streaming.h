#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Hosts/CLI/CommandSurroundings.h"
#include "Hosts/CLI/ExitCode.h"
#include "VarkCore/Foundation/Files.h"

namespace vark::cli {

/// Somebody who takes the bytes of a file as they come, in the place of a file.
struct Reader {
    Descriptor descriptor;
    std::string name;
};

Reader standardOutput();

/// What is named when that is no place for a file: standard output, also by its path, a pipe or a device. It
/// is written to, and never replaced. Fails with a `Failure`.
std::optional<Reader> readerAt(const std::string& to);

/// Hands the bytes of a file to the reader, and fails with a `Failure` at the end when they were not what the
/// vark has.
ExitCode streamTo(const Reader& reader, CommandSurroundings& surroundings, std::shared_ptr<VarkAPI> api,
                  const VarkItem& item);

}  // namespace vark::cli
