#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/API/VarkAPI.h"
#include "VarkCore/API/VarkDownload.h"
#include "VarkCore/Concurrency/BlockingPool.h"

namespace vark::cli {

struct WantedFile {
    VarkItem item;
    std::filesystem::path to;
};

/// What an item of the vark comes to on this machine.
struct WantedFiles {
    /// Parents before their children.
    std::vector<std::filesystem::path> folders;
    std::vector<WantedFile> files;
    std::int64_t totalBytes = 0;
    /// A sentence for each item that cannot be kept here.
    std::vector<std::string> leftOut;
};

/// The item itself as `to`, with all that lies below it when it is a folder. Names are the vark's, so one
/// that would lead elsewhere, or that a terminal would obey, is left out.
Task<WantedFiles> listWanted(std::shared_ptr<VarkAPI> api, VarkItem top, std::filesystem::path to);

/// How one file ended.
struct FetchedFile {
    std::filesystem::path to;
    std::int64_t size = 0;
    /// Why it is not there.
    std::optional<std::string> failure;
    /// Whether its bytes are known to be the vark's. Only a vark that gave no checksum leaves that open.
    bool checked = false;
};

/// Brings files here: each goes into a temporary file in its folder, is checked against the vark's checksum,
/// and only then takes its place. One object for one run; on the executor on which `all` runs, and it
/// outlives that.
class Fetching {
  public:
    enum class WhatStands { stays, isReplaced };
    using OnFile = std::function<void(const FetchedFile&)>;

    Fetching(std::shared_ptr<VarkAPI> api, BlockingPool& pool, WhatStands whatStands, OnFile onFile)
        : api_(std::move(api)), pool_(pool), whatStands_(whatStands), onFile_(std::move(onFile)) {}

    /// Fails when the vark no longer knows this machine; what fails for one file alone is told of that file.
    Task<void> all(const WantedFiles& wanted);

    std::int64_t receivedBytes() const;

  private:
    struct UnderWay {
        std::int64_t size;
        std::shared_ptr<const Progress> progress;
    };

    Task<void> one(const WantedFile& file);
    Task<bool> bring(const WantedFile& file);
    Task<void> download(const VarkItem& item, std::filesystem::path to);

    const std::shared_ptr<VarkAPI> api_;
    BlockingPool& pool_;
    const WhatStands whatStands_;
    const OnFile onFile_;
    std::int64_t settledBytes_ = 0;
    std::vector<UnderWay*> underWay_;
};

}  // namespace vark::cli
