#include "VarkCore/Transfer/Cards/IngestReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "VarkCore/Transfer/Format.h"

namespace vark {
namespace {

using Unlisted = IngestInfo::Unlisted;
using Missing = CardVerdict::Missing;

/// A walk names its files with the folder that was walked in front.
std::string_view belowTheRoot(std::string_view relativePath) {
    return relativePath.substr(relativePath.find('/') + 1);
}

std::optional<Unlisted::Kind> kindOf(Walker::PassedOver::Kind kind) {
    using Passed = Walker::PassedOver::Kind;
    switch (kind) {
        case Passed::ignored:
            return Unlisted::Kind::ignored;
        case Passed::hidden:
        case Passed::excluded:
            return Unlisted::Kind::hidden;
        case Passed::link:
            return Unlisted::Kind::link;
        case Passed::special:
            return Unlisted::Kind::special;
        case Passed::emptyFolder:
            return std::nullopt;
        case Passed::unreadable:
            return Unlisted::Kind::unreadable;
        case Passed::nameIsNotText:
            return Unlisted::Kind::nameIsNotText;
    }
}

/// Why an item has not landed.
std::string reasonOf(const TransferItem& item) {
    if (item.error) return *item.error;
    if (item.changedWhileSent) return "It changed while it was sent.";
    return item.state == ItemState::skipped ? "The vark's own copy was left as it is."
                                            : "It has not been sent.";
}

Missing missingItem(std::string source, const TransferItem& item) {
    const auto kind = item.state == ItemState::skipped ? Missing::Kind::skipped : Missing::Kind::notSent;
    return {kind, std::move(source), reasonOf(item), item.size};
}

/// Nothing of what has landed.
std::optional<Missing> missingUnlisted(const Unlisted& one) {
    const auto because = [&](Missing::Kind kind, const char* why) {
        return Missing{kind, one.source, why, one.size};
    };
    switch (one.kind) {
        case Unlisted::Kind::hidden:
            return because(Missing::Kind::skipped, "What is hidden is not sent.");
        case Unlisted::Kind::ignored:
            return because(Missing::Kind::skipped, "What systems leave on cards is not sent.");
        case Unlisted::Kind::link:
            return because(Missing::Kind::skipped, "Links are not sent.");
        case Unlisted::Kind::special:
            return because(Missing::Kind::skipped, "It is neither a file nor a folder.");
        case Unlisted::Kind::unreadable:
            return because(Missing::Kind::notSent, "This folder could not be read.");
        case Unlisted::Kind::nameIsNotText:
            return because(Missing::Kind::notSent, "Its name is not UTF-8 text. Rename it to send it.");
        case Unlisted::Kind::landed:
            return std::nullopt;
        case Unlisted::Kind::skipped:
            return because(Missing::Kind::skipped, "The vark's own copy was left as it is.");
        case Unlisted::Kind::removed:
            return because(Missing::Kind::notSent, "It was removed from the queue.");
    }
}

/// Takes the account: first what the queue keeps, then what a look at the card adds.
class Accounting {
  public:
    Accounting(CardVerdict& verdict, const IngestInfo& ingest) : verdict_(verdict), ingest_(ingest) {}

    void takeUp(const TransferJob& job) {
        for (const std::string& path : ingest_.leftOut)
            verdict_.missing.push_back({Missing::Kind::leftOut, path, "It was left out."});
        landed_.reserve(job.items.size());
        for (const TransferItem& item : job.items) {
            std::string source = ingest_.source(item.localPath);
            if (item.state == ItemState::verified && !item.changedWhileSent) {
                noteLanded(std::move(source), item.size, item.mtime);
            } else {
                miss(missingItem(std::move(source), item));
            }
        }
        for (const Unlisted& one : ingest_.unlisted) {
            if (one.kind == Unlisted::Kind::landed) {
                noteLanded(one.source, one.size, one.mtime);
            } else if (!ingest_.leavesOut(one.source)) {
                miss(*missingUnlisted(one));
            }
        }
    }

    void lookThrough(const Walker::Result& card) {
        for (const Walker::Found& file : card.files) {
            std::string source(belowTheRoot(file.relativePath));
            if (isAccountedFor(source)) continue;
            const auto found = landed_.find(source);
            if (found == landed_.end()) {
                add(std::move(source), "It was not on the card, or could not be seen, when the ingest began.",
                    file.size);
            } else if (found->second != Stamp{file.size, file.mtime}) {
                add(std::move(source), "It has changed since it was sent.", file.size);
            }
        }
        for (const Unlisted& one : unlistedOf(card)) {
            if (!isAccountedFor(one.source)) miss(*missingUnlisted(one));
        }
    }

  private:
    struct Stamp {
        std::int64_t size;
        double mtime;
        bool operator==(const Stamp&) const = default;
    };

    void noteLanded(std::string source, std::int64_t size, double mtime) {
        landed_.insert_or_assign(std::move(source), Stamp{size, mtime});
        ++verdict_.landed;
    }
    void miss(Missing missing) {
        missing_.insert(missing.source);
        verdict_.missing.push_back(std::move(missing));
    }
    void add(std::string source, const char* why, std::int64_t size) {
        miss({Missing::Kind::notSent, std::move(source), why, size});
    }
    bool isAccountedFor(const std::string& source) const {
        return missing_.contains(source) || ingest_.leavesOut(source);
    }

    CardVerdict& verdict_;
    const IngestInfo& ingest_;
    std::unordered_map<std::string, Stamp> landed_;
    std::unordered_set<std::string> missing_;
};

}  // namespace

CardVerdict CardVerdict::of(const TransferJob& job, const std::optional<Walker::Result>& card) {
    CardVerdict verdict;
    verdict.drive = job.ingest->drive;
    verdict.wasLookedThrough = card.has_value();
    Accounting accounting(verdict, *job.ingest);
    accounting.takeUp(job);
    if (card) accounting.lookThrough(*card);
    return verdict;
}

std::string CardVerdict::sentence() const {
    const std::string files = Format::count(landed, "file");
    if (!missing.empty()) {
        const auto number = static_cast<std::int64_t>(missing.size());
        return fmt::format(
            "Do not clear {} yet: {} landed and checked, but {} on it {} not in the vark as {} there:", drive,
            files, Format::count(number, "thing"), number == 1 ? "is" : "are",
            number == 1 ? "it is" : "they are");
    }
    if (!wasLookedThrough) {
        return fmt::format(
            "{} of {} landed and checked, which is all that was on it when the ingest began. It could not be "
            "looked through once more, so do not clear it yet: plug it in, and look again with: vark send",
            files, drive);
    }
    return fmt::format("Every file of {} has landed and been checked: it is safe to clear.", drive);
}

IngestReport IngestReport::of(const TransferJob& job, const CardVerdict& verdict) {
    const std::string card = std::filesystem::path(job.ingest->volumePath).filename().string();
    IngestReport report;
    for (const Missing& missing : verdict.missing) {
        if (missing.kind == Missing::Kind::leftOut) {
            report.leftOut.push_back(missing.source);
            continue;
        }
        TransferItem place;
        place.relativePath = card + "/" + missing.source;
        auto& list = missing.kind == Missing::Kind::skipped ? report.skipped : report.notSent;
        list.push_back({missing.source, job.serverPath(place), missing.size, missing.why});
    }
    return report;
}

std::string IngestReport::summary() const {
    const auto number = [](const auto& list) { return static_cast<std::int64_t>(list.size()); };
    return fmt::format("{} skipped, {} left out, {} not sent", Format::count(number(skipped), "file"),
                       Format::count(number(leftOut), "path"), Format::count(number(notSent), "file"));
}

std::vector<Unlisted> unlistedOf(const Walker::Result& card) {
    std::vector<Unlisted> unlisted;
    for (const Walker::PassedOver& passed : card.passedOver) {
        if (const std::optional<Unlisted::Kind> kind = kindOf(passed.kind))
            unlisted.push_back({*kind, std::string(belowTheRoot(passed.relativePath))});
    }
    return unlisted;
}

std::vector<std::string> leaveOut(Walker::Result& card, const std::vector<std::string>& paths) {
    IngestInfo meant;
    meant.leftOut = paths;
    std::vector<std::string> namingNothing;
    for (const std::string& path : paths) {
        const auto isMeant = [&](std::string_view relativePath) {
            return IngestInfo::isAtOrBelow(belowTheRoot(relativePath), path);
        };
        const bool names = std::ranges::any_of(card.files, isMeant, &Walker::Found::relativePath) ||
                           std::ranges::any_of(card.passedOver, isMeant, &Walker::PassedOver::relativePath);
        if (!names) namingNothing.push_back(path);
    }
    const auto isLeftOut = [&](const auto& one) { return meant.leavesOut(belowTheRoot(one.relativePath)); };
    std::erase_if(card.files, isLeftOut);
    std::erase_if(card.passedOver, isLeftOut);
    return namingNothing;
}

}  // namespace vark
