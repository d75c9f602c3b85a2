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
  public:
    Task<WhoAmI> whoami() override { co_return fails<WhoAmI>(); }
    Task<DeviceClaim> claim(std::string, std::string) override { co_return fails<DeviceClaim>(); }
    Task<DeviceBegin> beginDeviceSignIn(std::string) override { co_return fails<DeviceBegin>(); }
    Task<DevicePoll> pollDeviceSignIn(std::string) override { co_return fails<DevicePoll>(); }
    Task<std::vector<VarkFolder>> folders(std::string) override {
        co_return fails<std::vector<VarkFolder>>();
    }
    Task<std::vector<std::string>> tags() override { co_return fails<std::vector<std::string>>(); }
    Task<std::int64_t> tagFiles(std::vector<std::string>, std::vector<std::string>) override {
        co_return fails<std::int64_t>();
    }
    Task<VarkShare> createShare(ShareRequest) override { co_return fails<VarkShare>(); }
    Task<bool> sharesSupported() override { co_return fails<bool>(); }
    Task<std::vector<VarkJob>> findJobs(std::string) override { co_return fails<std::vector<VarkJob>>(); }
    Task<std::int64_t> fileAgainstJob(std::vector<std::string>, std::int64_t) override {
        co_return fails<std::int64_t>();
    }
    Task<std::string> createFolder(std::string) override { co_return fails<std::string>(); }
    Task<VarkItem> item(std::int64_t) override { co_return fails<VarkItem>(); }
    Task<VarkItem> item(std::string) override { co_return fails<VarkItem>(); }
    Task<VarkPage> children(std::int64_t, std::string, std::int64_t, bool) override {
        co_return fails<VarkPage>();
    }
    Task<VarkChanges> changes(std::int64_t, std::optional<std::string>, std::int64_t) override {
        co_return fails<VarkChanges>();
    }
    std::shared_ptr<VarkDownload> download(std::int64_t, std::filesystem::path) override {
        return fails<std::shared_ptr<VarkDownload>>();
    }
    Task<void> fetch(std::int64_t, ContentSink&) override {
        fails<bool>();
        co_return;
    }
    Task<std::string> rename(std::string, std::string) override { co_return fails<std::string>(); }
    Task<std::string> move(std::string, std::string) override { co_return fails<std::string>(); }
    Task<std::string> bin(std::string) override { co_return fails<std::string>(); }
    Task<BeginResult> begin(std::string, std::int64_t, std::string, double, bool) override {
        co_return fails<BeginResult>();
    }
    Task<void> putChunk(std::string, std::int64_t, std::filesystem::path, std::int64_t, std::int64_t,
                        TokenBucket*, ChunkProgress) override {
        fails<bool>();
        co_return;
    }
    Task<std::string> finish(std::string) override { co_return fails<std::string>(); }
    Task<UploadStatus> status(std::string) override { co_return fails<UploadStatus>(); }
    Task<void> cancel(std::string) override {
        fails<bool>();
        co_return;
    }

  private:
    template <class T>
    static T fails() {
        throw VarkAPIError::notConnected();
    }
};

}  // namespace vark::test
