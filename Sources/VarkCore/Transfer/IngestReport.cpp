#include "VarkCore/Transfer/IngestReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <unordered_map>

#include "VarkCore/Transfer/Format.h"

namespace vark {
namespace {

constexpr std::string_view couldNotBeRead = "This folder could not be read.";

/// A walk names its files with the folder that was walked in front.
std::string_view belowTheRoot(std::string_view relativePath) {
    return relativePath.substr(relativePath.find('/') + 1);
}

bool isAtOrBelow(std::string_view path, std::string_view folder) {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

bool isLeftOut(std::string_view source, const std::vector<std::string>& paths) {
    return std::ranges::any_of(paths, [&](const std::string& path) { return isAtOrBelow(source, path); });
}

/// Why an item has not landed.
std::string reasonOf(const TransferItem& item) {
    if (item.error) return *item.error;
    return item.state == ItemState::skipped ? "The vark's own copy was left as it is."
                                            : "It has not been sent.";
}

std::string sourceOf(const TransferJob& job, const TransferItem& item) {
    return job.ingest->source(item.localPath);
}

CardVerdict::Missing missingItem(const TransferJob& job, const TransferItem& item) {
    return {sourceOf(job, item), reasonOf(item), item.state == ItemState::skipped};
}

void lookThrough(CardVerdict& verdict, const TransferJob& job, const Walker::Result& card) {
    std::unordered_map<std::string, const TransferItem*> items;
    items.reserve(job.items.size());
    for (const TransferItem& item : job.items)
        items.emplace(sourceOf(job, item), &item);
    for (const Walker::Found& file : card.files) {
        const std::string source(belowTheRoot(file.relativePath));
        const auto found = items.find(source);
        if (found == items.end()) {
            verdict.missing.push_back({source, "It came onto the card after the ingest had begun."});
            continue;
        }
        const TransferItem& item = *found->second;
        if (item.state != ItemState::verified) {
            verdict.missing.push_back(missingItem(job, item));
        } else if (item.size != file.size || item.mtime != file.mtime) {
            verdict.missing.push_back({source, "It has changed since it was sent."});
        }
    }
    for (const Walker::PassedOver& passed : card.passedOver) {
        if (passed.kind != Walker::PassedOver::Kind::unreadable) continue;
        verdict.missing.push_back(
            {std::string(belowTheRoot(passed.relativePath)), std::string(couldNotBeRead)});
    }
}

}  // namespace

IngestReport IngestReport::of(const TransferJob& job, const std::optional<Walker::Result>& card) {
    IngestReport report;
    report.leftOut = job.ingest->leftOut;
    for (const TransferItem& item : job.items) {
        if (item.state == ItemState::verified) continue;
        IngestFile file{sourceOf(job, item), job.serverPath(item), item.size, reasonOf(item)};
        (item.state == ItemState::skipped ? report.skipped : report.notSent).push_back(std::move(file));
    }
    if (!card) return report;
    for (const Walker::PassedOver& passed : card->passedOver) {
        if (passed.kind != Walker::PassedOver::Kind::unreadable) continue;
        TransferItem place;
        place.relativePath = passed.relativePath;
        report.notSent.push_back({std::string(belowTheRoot(passed.relativePath)), job.serverPath(place), 0,
                                  std::string(couldNotBeRead)});
    }
    return report;
}

std::string IngestReport::summary() const {
    const auto number = [](const auto& list) { return static_cast<std::int64_t>(list.size()); };
    return fmt::format("{} skipped, {} left out, {} not sent", Format::count(number(skipped), "file"),
                       Format::count(number(leftOut), "path"), Format::count(number(notSent), "file"));
}

CardVerdict CardVerdict::of(const TransferJob& job, const std::optional<Walker::Result>& card) {
    CardVerdict verdict;
    verdict.drive = job.ingest->drive;
    verdict.landed = std::ranges::count(job.items, ItemState::verified, &TransferItem::state);
    for (const std::string& path : job.ingest->leftOut)
        verdict.missing.push_back({path, "It was left out.", true});
    verdict.wasLookedThrough = card.has_value();
    if (card) {
        lookThrough(verdict, job, *card);
        return verdict;
    }
    for (const TransferItem& item : job.items) {
        if (item.state != ItemState::verified) verdict.missing.push_back(missingItem(job, item));
    }
    return verdict;
}

bool CardVerdict::lacksFiles() const {
    return std::ranges::any_of(missing, std::logical_not<>(), &Missing::isChoice);
}

std::string CardVerdict::sentence() const {
    if (!missing.empty()) {
        return fmt::format(
            "Do not clear {} yet: {} landed and checked, and this is not in the vark as it is "
            "on the card:",
            drive, Format::count(landed, "file"));
    }
    if (!wasLookedThrough) {
        return fmt::format(
            "{} of {} landed and checked, which is all that was on it when the ingest began. "
            "It could not be looked through once more, so what came onto it since is not known.",
            Format::count(landed, "file"), drive);
    }
    return fmt::format("Every file of {} has landed and been checked: it is safe to clear.", drive);
}

std::vector<std::string> leaveOut(Walker::Result& card, const std::vector<std::string>& paths) {
    std::vector<std::string> namingNothing;
    for (const std::string& path : paths) {
        const auto isMeant = [&](std::string_view relativePath) {
            return isAtOrBelow(belowTheRoot(relativePath), path);
        };
        const bool names = std::ranges::any_of(card.files, isMeant, &Walker::Found::relativePath) ||
                           std::ranges::any_of(card.passedOver, isMeant, &Walker::PassedOver::relativePath);
        if (!names) namingNothing.push_back(path);
    }
    std::erase_if(card.files, [&](const Walker::Found& file) {
        return isLeftOut(belowTheRoot(file.relativePath), paths);
    });
    std::erase_if(card.passedOver, [&](const Walker::PassedOver& passed) {
        return isLeftOut(belowTheRoot(passed.relativePath), paths);
    });
    return namingNothing;
}

}  // namespace vark
