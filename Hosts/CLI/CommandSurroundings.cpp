#include "Hosts/CLI/CommandSurroundings.h"

#include <fmt/format.h>

#include "Hosts/CLI/NextWords.h"
#include "VarkApp/Connect/TokenKeeper.h"

namespace vark::cli {

CommandSurroundings::CommandSurroundings(Platform& thePlatform, Console& theConsole, Executor& theExecutor,
                                         Clock& theClock, WallClock theDate)
    : Surroundings(thePlatform, theExecutor, theClock, std::move(theDate)), console(theConsole) {}

SharedConnection CommandSurroundings::neededConnection() {
    if (given()) return neededGiven();
    TokenKeeper keeper(*this);
    TokenKeeper::Required required = await(keeper.require());
    for (const Said& note : required.notes)
        console.say(inWords(note));
    return std::move(required.connection);
}

SharedConnection CommandSurroundings::neededGiven() {
    GivenConnection known = *given();
    const std::shared_ptr<VarkAPI> asked = api(*connection());
    const WhoAmI who = await(asked->whoami());
    known.clientName = who.client;
    give(std::move(known));
    SharedConnection whole = *connection();
    whole.level = who.level;
    return whole;
}

VarkItem CommandSurroundings::neededItem(VarkAPI& api, const std::string& path) {
    try {
        return await(api.item(path));
    } catch (const VarkAPIError& error) {
        if (!error.isGone()) throw;
        throw Failure(Outcome::failed, fmt::format("There is no \"{}\" on the vark.", path));
    }
}

}  // namespace vark::cli
