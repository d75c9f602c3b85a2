#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/Concurrency/BlockingPool.h"
#include "VarkCore/Fetching/PartFile.h"
#include "VarkCore/Fetching/WantedFiles.h"

namespace vark {

/// How one file ended, or a folder that could not be made.
struct FetchedFile {
    std::filesystem::path to;
    std::int64_t size = 0;
    /// Why it is not there.
    std::optional<std::string> failure = std::nullopt;
    /// It stood there already, with the vark's bytes.
    bool wasThere = false;
    /// It failed since other bytes stand there, which were not to be replaced.
    bool isKept = false;
    /// Whether its bytes are known to be the vark's. Only a vark that gave no checksum leaves that open.
    bool checked = false;
    /// The files that this is about: all in the folder.
    std::int64_t files = 1;
};

/// Brings files here: what stands in its place already is left, or compared by the checksum; all else comes
/// as a `PartFile`, is checked whole, and only then takes its place. Nothing is written outside of the folder
/// that is named, whatever links lie in it. Cancelled, it keeps the parts for the next run. One object for
/// one run; on the executor on which `all` runs, and it outlives that.
class Fetching {
  public:
    static constexpr int filesAtOnce = 4;
    using OnFile = std::function<void(const FetchedFile&)>;
    struct Host {
        std::shared_ptr<VarkAPI> api;
        BlockingPool& pool;
        WallClock now = systemDate;
    };

    Fetching(Host host, WhatStands whatStands, OnFile onFile)
        : api_(std::move(host.api)),
          pool_(host.pool),
          now_(std::move(host.now)),
          whatStands_(whatStands),
          onFile_(std::move(onFile)) {}

    /// `wanted` into the folder `into`, which is made if need be. Fails when the vark no longer knows this
    /// machine; what fails for one file or folder alone is told of that one, and the rest goes on.
    Task<void> all(WantedFiles wanted, std::filesystem::path into);

    /// Of all that is wanted, what is done with and what the parts hold.
    std::int64_t receivedBytes() const;
    /// What has come in this run.
    std::int64_t movedBytes() const;

  private:
    class UnderWay;
    enum class Standing { nothing, same, other };
    struct Place {
        OpenFolder folder;
        Standing standing;
    };
    struct Unmade {
        std::size_t folder;
        std::string why;
    };

    Task<void> one(const WantedFiles::File& file);
    Task<void> bring(const WantedFiles::File& file, FetchedFile& fetched);
    /// Whether the part holds all that the vark has; false for one that has to begin anew.
    Task<bool> bringRest(const WantedFiles::File& file, PartFile& part);
    Task<bool> holds(const PartFile& part, const VarkItem& item);
    void tellUnmade(const std::vector<Unmade>& unmade);

    // On threads of the pool.
    std::vector<Unmade> makeFolders(const std::stop_token& cancelled) const;
    OpenFolder open(std::size_t folder) const;
    Place lookAt(const WantedFiles::File& file, const std::stop_token& cancelled) const;

    const std::shared_ptr<VarkAPI> api_;
    BlockingPool& pool_;
    const WallClock now_;
    const WhatStands whatStands_;
    const OnFile onFile_;
    WantedFiles wanted_;
    std::filesystem::path into_;
    /// For each folder the one that could not be made: itself, or one above it.
    std::vector<std::optional<std::size_t>> unmadeAbove_;
    std::int64_t settledBytes_ = 0;
    std::int64_t movedBytes_ = 0;
    std::vector<const PartFile*> underWay_;
};

}  // namespace vark
