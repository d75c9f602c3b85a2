#pragma once

namespace vark::cli {

/// Opens those of the descriptors 0 to 2 that are closed onto /dev/null. The first thing of a main: the next
/// file that is opened would get such a number, and what is printed would go into it.
void holdStandardStreams();

/// Closes standard output, the last thing of a main. False, with `errno`, when it was not written after all:
/// a disk of the network may tell of that only now.
bool closeStandardOutput();

}  // namespace vark::cli
