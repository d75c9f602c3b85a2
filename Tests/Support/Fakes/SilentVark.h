#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VarkCore/API/VarkAPI.h"

namespace vark::test {

/// A vark that answers nothing: the base of fakes, which override what their tests are about.
class SilentVark : public VarkAPI {
    using Strings = std::vector<std::string>;
    using OptionalText = std::optional<std::string>;

  public:
    Task<WhoAmI> whoami() override { return Silence(); }
    Task<DeviceClaim> claim(std::string, std::string) override { return Silence(); }
    Task<DeviceBegin> beginDeviceSignIn(std::string) override { return Silence(); }
    Task<DevicePoll> pollDeviceSignIn(std::string) override { return Silence(); }
    Task<std::vector<VarkFolder>> folders(std::string) override { return Silence(); }
    Task<Strings> tags() override { return Silence(); }
    Task<std::int64_t> tagFiles(Strings, Strings) override { return Silence(); }
    Task<VarkShare> createShare(ShareRequest) override { return Silence(); }
    Task<bool> sharesSupported() override { return Silence(); }
    Task<std::vector<VarkJob>> findJobs(std::string) override { return Silence(); }
    Task<std::int64_t> fileAgainstJob(Strings, std::int64_t) override { return Silence(); }
    Task<std::string> createFolder(std::string) override { return Silence(); }
    Task<VarkItem> item(std::int64_t) override { return Silence(); }
    Task<VarkItem> item(std::string) override { return Silence(); }
    Task<VarkPage> children(std::int64_t, std::string, std::int64_t, bool) override { return Silence(); }
    Task<VarkChanges> changes(std::int64_t, OptionalText, std::int64_t) override { return Silence(); }
    std::shared_ptr<VarkDownload> download(std::int64_t, std::filesystem::path) override {
        throw VarkAPIError::notConnected();
    }
    Task<void> fetch(std::int64_t, ContentSink&) override { return Silence(); }
    Task<std::string> rename(std::string, std::string) override { return Silence(); }
    Task<std::string> move(std::string, std::string) override { return Silence(); }
    Task<std::string> bin(std::string) override { return Silence(); }
    Task<BeginResult> begin(std::string, std::int64_t, std::string, double, bool) override {
        return Silence();
    }
    Task<void> putChunk(std::string, std::int64_t, std::filesystem::path, std::int64_t, std::int64_t,
                        TokenBucket*, ChunkProgress) override {
        return Silence();
    }
    Task<std::string> finish(std::string) override { return Silence(); }
    Task<UploadStatus> status(std::string) override { return Silence(); }
    Task<void> cancel(std::string) override { return Silence(); }

  private:
    /// What every call comes to.
    struct Silence {
        template <class T>
        operator Task<T>() const {
            return ending<T>();
        }
        template <class T>
        static Task<T> ending() {
            co_await checkCancellation();
            throw VarkAPIError::notConnected();
        }
    };
};

}  // namespace vark::test
