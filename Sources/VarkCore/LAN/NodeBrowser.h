#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Concurrency/TaskScope.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/LAN/LANRouter.h"
#include "VarkCore/Services/ServiceBrowser.h"

namespace vark {

/// Finds the vark's nodes on this network, keeps a router up to date, and publishes what the router knows for
/// the processes that do not browse. Owned by the application; everything happens on `Host::executor`, where
/// every operation is called. Nothing here fails: what goes wrong becomes a sentence for `log`, and a node
/// that cannot be reached is tried again for as long as it is announced. Ends when it is destroyed.
///
/// A name is unknown, being resolved, or found; once found it is not looked at again until it has left.
class NodeBrowser {
  public:
    /// What the browser needs of the process that it runs in. All of it outlives the browser.
    struct Host {
        Executor& executor;
        Clock& clock;
        WallClock now;
        ServiceBrowser& services;
        /// Writes the published file.
        BlockingPool& files;
        std::optional<std::filesystem::path> sharedFolder;
    };

    NodeBrowser(LANRouter& router, Host host);
    ~NodeBrowser();
    NodeBrowser(const NodeBrowser&) = delete;
    NodeBrowser& operator=(const NodeBrowser&) = delete;

    /// Written before `start`. A sentence for the person's log, and whether the system lets this process look
    /// on the network.
    std::function<void(std::string)> log;
    std::function<void(bool)> onAllowed;

    void start();
    /// Resolves that are under way run on.
    void stop();

  private:
    void stateChanged(const BrowsingState& state);
    void resultsChanged(std::vector<FoundService> results);
    void handle(const std::vector<FoundService>& results);
    void forgetAllBut(const std::set<std::string>& names);
    Task<void> resolve(FoundService service, LANNode node);
    /// The answer is empty when the node could not be located; that has been said then.
    Task<std::optional<std::string>> locate(FoundService service);
    void appeared(const LANNode& node);
    void tryAgain(const std::string& name);
    void publish();
    Task<void> publishWhatIsNew();
    void say(std::string sentence) const;
    void tellAllowed(bool isAllowed) const;

    LANRouter& router_;
    const Host host_;
    bool isBrowsing_ = false;
    std::vector<FoundService> latest_;
    std::set<std::string> resolving_;
    std::set<std::string> found_;
    bool hasNews_ = false;
    TaskHandle<> publishing_;

    TaskScope scope_;
};

}  // namespace vark
