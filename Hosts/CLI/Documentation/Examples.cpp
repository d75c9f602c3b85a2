#include <map>

#include "Hosts/CLI/Documentation/Documentation.h"

namespace vark::cli {

std::vector<Example> examplesOf(const std::string& command) {
    static const std::map<std::string, std::vector<Example>, std::less<>> examples = {
        {"connect", {{"Say yes in the browser:", "vark connect https://vark.example.com"}}},
        {"send",
         {{"Send a folder, and carry on with it later:", "vark send ~/Shoot --to Jobs/2026\nvark send"},
          {"Leave out what an editor leaves behind:", "vark send ~/Edit --exclude '*.tmp' --exclude Cache/"},
          {"Send what another program writes:", "tar c Cut | vark send - --name Cut.tar --to Jobs/2026"},
          {"Send what was changed today:", "find . -mtime 0 -type f -print0 | vark send --files-from - -0"}}},
        {"get",
         {{"Fetch a folder with all that is in it:", "vark get --recursive Jobs/2026 -o ~/Old"},
          {"Unpack an archive on its way:", "vark get Jobs/2026/Cut.tar -o - | tar x"}}},
        {"check",
         {{"Delete a folder only when the vark has all of it:",
           "vark check ~/Shoot --against Jobs/2026 && rm -r ~/Shoot"}}},
        {"ls", {{"What takes the most room:", "vark ls Jobs -l --sort size"}}},
        {"rm", {{"Without asking, for a script:", "vark rm --yes Jobs/2026/Old"}}},
        {"mv", {{"Give it another name:", "vark mv Jobs/2026/Shoot \"Jobs/2026/Shoot 1\""}}},
        {"tag", {{"Put two tags on a file:", "vark tag Jobs/2026/Take.mov --with Summer --with \"To do\""}}},
        {"share", {{"A link for a week:", "vark share Jobs/2026/Take.mov --expires 7d"}}},
        {"log", {{"What happened since yesterday, and what happens now:", "vark log --since yesterday -f"}}},
        {"config set", {{"Send at most so much a second:", "vark config set bytesPerSecond 10MB"}}},
        {"ingest", {{"Bring in a card:", "vark ingest EOS_DIGITAL --to Jobs/2026"}}},
    };
    const auto found = examples.find(command);
    return found == examples.end() ? std::vector<Example>() : found->second;
}

}  // namespace vark::cli
