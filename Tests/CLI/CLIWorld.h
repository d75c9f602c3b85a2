#pragma once

#include <sstream>

#include "Hosts/CLI/CommandSurroundings.h"
#include "Tests/VarkApp/AppWorld.h"

namespace vark::cli::test {

using app::test::TestVark;
using vark::test::FakeVark;

/// The world of one test, with a console that is read back.
class CLIWorld final : public app::test::World {
  public:
    std::ostringstream results;
    std::ostringstream advice;
    Console console{results, advice};
    CommandSurroundings surroundings{platform, console, executor, clock};

  private:
    Surroundings& here() override { return surroundings; }
};

}  // namespace vark::cli::test
