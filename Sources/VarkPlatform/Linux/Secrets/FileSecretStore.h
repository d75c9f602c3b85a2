#pragma once

#include <filesystem>
#include <functional>

#include "VarkCore/Services/SecretStore.h"

namespace vark {

/// Secrets in a file that only its owner may read, in the clear: for machines without a Secret Service. The
/// file is there as long as there is a secret in it. Writers keep each other out by a lock of their own.
class FileSecretStore final : public SecretStore {
  public:
    explicit FileSecretStore(std::filesystem::path file) : file_(std::move(file)) {}

    /// Proves that the file could be written. One that makes no sense does not keep it from that: whoever
    /// writes puts it aside.
    std::int32_t open() override;
    Answer find(const SecretName& name) override;
    std::int32_t update(const SecretName& name, std::string_view bytes) override;
    std::int32_t add(const SecretName& name, std::string_view label, std::string_view bytes) override;
    std::int32_t remove(const SecretName& name) override;
    std::optional<std::string> message(std::int32_t status) const override;

  private:
    std::filesystem::path file_;
};

}  // namespace vark
