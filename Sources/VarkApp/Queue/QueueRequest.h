#pragma once

#include <boost/json/value.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VarkApp/Outcome.h"
#include "VarkApp/Queue/CardClosed.h"
#include "VarkApp/Queue/IngestWish.h"
#include "VarkApp/Queue/LeftOut.h"
#include "VarkApp/Queue/QueueView.h"
#include "VarkApp/Queue/SettledFile.h"
#include "VarkApp/Queue/Wishes.h"
#include "VarkApp/Said.h"

namespace vark::app {

/// Something that is to be done to the queue, by whoever has it. A value.
struct QueueRequest {
    enum class Command { show, add, ingest, pause, resume, retry, remove, clear, resolve };

    /// What a person named on the command line, and the path that it stands for in their working folder.
    struct Named {
        std::string text;
        std::string path;

        static Named of(const std::string& argument);
        static Named fromJSON(const boost::json::value& value);
        bool operator==(const Named&) const = default;
    };

    Command command = Command::show;
    /// What to add, remove or resolve; for `show`, the identifiers of the entries that are meant, and without
    /// any the whole queue.
    std::vector<Named> named;
    /// For `add`: where in the vark, counted from its root; without a value it goes where the queue goes.
    std::optional<std::string> destination;
    /// For `add`: a new name of the job.
    std::optional<std::string> title;
    /// For `add`: what is sent beyond what is sent by itself.
    Walker::Options walk;
    /// For `show` of some entries: those of their files that have settled behind this place are named too.
    std::optional<std::int64_t> settledBehind;
    /// For `add` and `ingest`: what is wanted of what is added.
    Wish wish;
    /// For `ingest`.
    std::optional<IngestWish> ingest;
    /// For `clear`: leave what has not landed.
    bool finishedOnly = false;
    /// For `resolve`: what decides.
    ConflictRule rule = ConflictRule::skip;

    static QueueRequest fromJSON(const boost::json::value& value);
    std::string toJSON() const;
    bool operator==(const QueueRequest&) const = default;
};

/// What became of a request. A value.
struct QueueAnswer {
    std::vector<Said> results;
    /// What could not be done.
    std::vector<Said> problems;
    Outcome outcome = Outcome::done;
    /// For `add` and `ingest`: the identifiers of the entries that stand for what was named.
    std::vector<std::string> entries;
    /// For `add`.
    LeftOut leftOut;
    /// How much of the queue the request changed: entries where it takes them out, otherwise files, and for a
    /// pause or its end the queue itself.
    std::int64_t changed = 0;
    /// For `show`, when there is a queue.
    std::optional<QueueView> queue;
    /// The place up to which files had settled: of `add` when it began, so that nothing of it is missed.
    std::int64_t settledUpTo = 0;
    /// For `show` with a place: the files that settled behind it.
    std::vector<SettledFile> settled;
    /// For `show`: how the queue's card was closed, once it is.
    std::optional<CardClosed> card;

    /// Notes what could not be done.
    void refuse(Said said, Outcome why = Outcome::failed);

    static QueueAnswer fromJSON(const boost::json::value& value);
    std::string toJSON() const;
    bool operator==(const QueueAnswer&) const = default;
};

}  // namespace vark::app
