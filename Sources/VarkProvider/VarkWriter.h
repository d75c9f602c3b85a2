#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "VarkProvider/VarkUploader.h"

namespace vark {

/// What a person does to the vark's folder here, done to the vark. Where a name is taken it finds a free one
/// by itself, and tells a real clash from its own upload that it meets again. A value; it and the uploader's
/// means outlive its tasks, of which any number may run. All of it fails with `VarkAPIError` or
/// `CancellationError`, and with what `VarkUploader::send` fails.
struct VarkWriter {
    explicit VarkWriter(VarkUploader by) : api(by.api), uploader(std::move(by)) {}

    /// Names that are tried for one thing.
    static constexpr int tries = 5;

    VarkAPI& api;
    VarkUploader uploader;

    /// A name that is taken is the caller's to deal with.
    Task<VarkItem> makeFolder(std::string named, VarkItem in) const;
    /// The name that it lands under stands in the item; without `replace` it may be another one than asked
    /// for. A name that holds these very bytes counts as landed.
    Task<VarkItem> upload(std::filesystem::path file, std::string named, VarkItem in, bool replace,
                          std::shared_ptr<Progress> progress) const;
    /// At the item's path, whatever its bytes are now; the item stays the one that it is.
    Task<VarkItem> replaceContents(VarkItem of, std::filesystem::path with,
                                   std::shared_ptr<Progress> progress) const;
    /// Moves and renames in one; without a value that part stays. A failure leaves the steps that were made.
    Task<VarkItem> relocate(VarkItem item, std::optional<VarkItem> into,
                            std::optional<std::string> named) const;
    /// To the vark's Bin; nothing is deleted for good from here.
    Task<void> bin(VarkItem item) const;

  private:
    Task<VarkItem> readBack(std::string name, VarkItem parent, std::string path) const;
    Task<std::optional<VarkItem>> readBackOrNil(std::string name, VarkItem parent, std::string path) const;
    Task<bool> isTheSameFile(VarkItem item, std::filesystem::path file) const;
    Task<std::string> moved(VarkItem item, VarkItem into) const;
    Task<void> renamed(std::string path, std::string to) const;
};

}  // namespace vark
