#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "VarkCore/API/NodeCalls.h"
#include "VarkCore/API/VarkLine.h"
#include "VarkCore/API/WaysTaken.h"
#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Concurrency/ThreadSafety.h"
#include "VarkCore/Upload/ChunkWriter.h"
#include "VarkCore/Upload/StallWatch.h"

namespace vark {

/// Where the bytes of a file leave this machine: to the application's host, or where the vark said, over a
/// node or the internet. Owned by the API; any thread.
class ChunkSender {
  public:
    /// `ways` may be null.
    ChunkSender(const VarkLine& line, NodeCalls& calls, BlockingPool& writers, WaysTaken* ways)
        : line_(line), calls_(calls), writers_(writers), ways_(ways) {}

    /// The address under which the vark takes the chunks of an upload directly; without one that can be used
    /// they go to the application's host. Only what the vark said to a call with the token.
    void rememberBase(std::string uploadID, const std::optional<std::string>& url);
    void forgetBase(const std::string& uploadID);
    /// The vark knows the upload no more: nobody will ask for what is kept of it.
    void forgetUpload(const std::string& uploadID);
    /// Forgets the upload with it.
    [[noreturn]] void failForGoneUpload(const std::string& uploadID);

    Task<void> send(std::string uploadID, std::int64_t index, ChunkSource source, StallWatch watch);

  private:
    struct Target {
        URL url;
        /// Whether this is the application's host, which needs the token and may refuse file bytes.
        bool viaApp;
    };
    Target target(const std::string& uploadID, std::int64_t index);
    void requireTaken(const std::string& uploadID, int status, const std::string& body, bool viaApp);
    Task<LANTransfer::Response> putOnNode(LANRoute route, ChunkSource source, StallWatch watch,
                                          LANTransfer::Headers headers);

    const VarkLine& line_;
    NodeCalls& calls_;
    BlockingPool& writers_;
    WaysTaken* const ways_;
    Mutex lock_;
    /// Of uploads that have neither landed nor gone.
    std::map<std::string, URL> bases_ VARK_GUARDED_BY(lock_);
};

}  // namespace vark
