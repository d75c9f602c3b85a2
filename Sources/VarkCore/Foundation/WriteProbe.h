#pragma once

#include <filesystem>

namespace vark {

/// Makes the folder if need be, and fails with `FileError` unless a file can be written in it just now: for
/// whoever is about to do something that is good for one time, and then has to keep what came of it.
void proveWritable(const std::filesystem::path& folder);

}  // namespace vark
