#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VarkApp/Queue/IngestWish.h"
#include "VarkApp/Queue/QueueDesk.h"
#include "VarkApp/Surroundings.h"
#include "VarkCore/Transfer/Cards/IngestReport.h"

namespace vark::app {

/// Begins and ends the ingest of an engine: announces the card and puts it into the queue, and when all has
/// settled tells the vark, once, what became of it. Owned by whoever has the engine; on its executor.
class IngestDesk {
  public:
    IngestDesk(Surroundings& surroundings, TransferEngine& engine, QueueDesk& queue,
               std::shared_ptr<VarkAPI> api)
        : surroundings_(surroundings), engine_(engine), queue_(queue), api_(std::move(api)) {}

    struct Opening {
        QueueAnswer answer;
        /// Whether the queue brings the card in now. Otherwise nothing of it has been put there.
        bool goesOn = false;
    };
    /// Begins, or carries on when the queue brings in that very card and is not done with it: then what has
    /// failed is tried again. Never fails: what cannot be done stands in the answer.
    Task<Opening> open(IngestWish wish);

    /// The ingest of the queue, if there is one.
    const IngestInfo* ingest() const;
    /// Whether there is one that the vark waits for the end of.
    bool isOpen() const { return ingest() != nullptr && !ingest()->reported; }
    /// Whether all has settled and the vark does not know of it yet.
    bool owesReport() const;

    struct Closing {
        CardVerdict verdict;
        /// Why the vark could not be told, and what to do about it.
        std::optional<Said> notReported;
    };
    /// Looks through the card, and tells the vark unless that has been done. Never fails.
    Task<Closing> close();

    /// Of a queue that is given up, with an ingest that the vark waits for the end of: tells it that all that
    /// has not landed will not come. Takes seconds at most. Answers why the vark could not be told, and never
    /// fails.
    static Task<std::optional<Said>> giveUp(std::shared_ptr<VarkAPI> api, IngestInfo ingest,
                                            IngestReport report);

  private:
    bool bringsIn(const Volume& card) const;
    Task<Opening> carryOn(IngestWish wish);
    std::string notSaved() const;
    std::optional<Said> whyItMustWait() const;
    Task<std::optional<Walker::Result>> walkCard(std::filesystem::path path);
    /// What lies on the card of the queue now; nothing when it is not there to the end of the look.
    Task<std::optional<Walker::Result>> lookThroughCard(IngestInfo ingest);
    Task<std::optional<Said>> report(IngestReport report);
    Task<void> turnAway(IngestWish wish, IngestStart start, const Walker::Result& card);

    Surroundings& surroundings_;
    TransferEngine& engine_;
    QueueDesk& queue_;
    const std::shared_ptr<VarkAPI> api_;
};

}  // namespace vark::app
