#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "VarkCore/API/ContentSink.h"
#include "VarkCore/API/NodeCalls.h"
#include "VarkCore/API/VarkLine.h"
#include "VarkCore/Foundation/Progress.h"

namespace vark {

/// The bytes of one item on their way into a sink, by the first of three roads that works: from a node that
/// speaks the API, from a node that the vark redirects to, and over the internet. Lives in one task, which
/// brings once.
class Download {
  public:
    /// What a download counts for until its length is known, and a road that stands in for another.
    static constexpr std::int64_t wholeRoad = 100;

    Download(const VarkLine& line, const NodeCalls& calls, std::int64_t id, ContentSink& sink,
             std::shared_ptr<Progress> progress = std::make_shared<Progress>(wholeRoad));

    Task<void> bring(HTTPHeader token);
    /// Into a file that takes its place once it is whole. The line and the calls outlive the task.
    static Task<void> bringToFile(const VarkLine& line, const NodeCalls& calls, std::int64_t id,
                                  std::filesystem::path to, HTTPHeader token,
                                  std::shared_ptr<Progress> progress);

  private:
    enum class Roads { all, internetOnly };
    Task<void> fetchWhereNodeSays(LANRoute node, HTTPHeader token);
    /// False when the road failed, and the node was marked bad for it.
    Task<bool> arrivesOverNode(std::string host, Task<void> road);
    Task<void> getFromNode(LANRoute route);
    /// After a node has failed.
    Task<void> fetchByInternet();
    Task<void> plainFetch(URL url);
    Task<void> fetchBySession(HTTPHeader token, Roads roads);
    void complete();

    const VarkLine& line_;
    const NodeCalls& calls_;
    const std::int64_t id_;
    const URL url_;
    ContentSink& sink_;
    std::shared_ptr<Progress> progress_;
};

}  // namespace vark
