#include "Hosts/CLI/Console.h"

#include "VarkCore/Foundation/Text.h"

namespace vark::cli {

void Console::print(std::string_view line) {
    results_ << escapedForTerminal(line) << '\n' << std::flush;
}

void Console::printJSON(std::string_view object) {
    results_ << object << '\n' << std::flush;
}

void Console::say(std::string_view line) {
    advice_ << escapedForTerminal(line) << '\n' << std::flush;
}

}  // namespace vark::cli
