#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "VarkApp/Queue/QueueRequest.h"
#include "VarkCore/Foundation/Time/Date.h"
#include "VarkCore/Foundation/UUID.h"

namespace vark::app {

/// The folder through which other runs of `vark` ask the one that has the queue to change it. A request is
/// taken by removing its file, and only by one taker, so it is carried out once or not at all: an asker that
/// can still remove its own request knows that nobody has taken it. Any thread; no state but the path.
class RequestFolder {
  public:
    /// Longer than an asker waits for its request to be taken and for the answer to it.
    static constexpr std::chrono::seconds longestLife{60};

    explicit RequestFolder(std::filesystem::path folder) : folder_(std::move(folder)) {}

    // For the asker.

    /// Fails with `FileError`.
    UUID ask(const QueueRequest& request) const;
    /// Reads the answer and removes it; nothing while there is none.
    std::optional<QueueAnswer> takeAnswer(const UUID& id) const;
    /// Takes the question back. Answers whether nobody had taken it.
    bool withdraw(const UUID& id) const;
    /// Whether nobody has taken the question yet.
    bool isWaiting(const UUID& id) const;

    // For the one that has the queue.

    struct Taken {
        UUID id;
        /// Nothing when the file made no sense.
        std::optional<QueueRequest> request;
    };
    /// Takes the oldest question; nothing when there is none. The others stay, so that whoever ends before it
    /// comes to them leaves them to their askers. What has lain here for longer than any asker waits is
    /// removed and not carried out, whether it is a question or an answer.
    std::optional<Taken> takeNext(Date now) const;
    /// A failure to write is no failure here: the asker sees that no answer comes.
    void answer(const UUID& id, const QueueAnswer& answer) const;

  private:
    std::filesystem::path request(const UUID& id) const { return folder_ / (id.text() + ".json"); }
    std::filesystem::path answerTo(const UUID& id) const { return folder_ / (id.text() + ".answer.json"); }

    std::filesystem::path folder_;
};

}  // namespace vark::app
