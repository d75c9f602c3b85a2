#pragma once

#include <functional>
#include <map>
#include <vector>

#include "VarkCore/Services/SecretStore.h"

namespace vark::test {

/// Secrets in a map. Each operation ends as the test wants it to.
class FakeSecretStore final : public SecretStore {
  public:
    struct Secret {
        std::string label;
        std::string bytes;
        bool operator==(const Secret&) const = default;
    };
    std::map<SecretName, Secret> secrets;
    /// The names of all calls but `message`, in their order.
    std::vector<std::string> calls;
    /// What a call of this name fails with.
    std::map<std::string, std::int32_t, std::less<>> failures;
    /// Happens before a call of this name.
    std::function<void(std::string_view)> before = [](std::string_view) {};

    std::int32_t open() override { return call("open"); }
    Answer find(const SecretName& name) override {
        const std::int32_t status = call("find");
        if (status != SecretStatus::done) return {status};
        const auto found = secrets.find(name);
        if (found == secrets.end()) return {SecretStatus::notFound};
        return {SecretStatus::done, found->second.bytes};
    }
    std::int32_t update(const SecretName& name, std::string_view bytes) override {
        const std::int32_t status = call("update");
        if (status != SecretStatus::done) return status;
        const auto found = secrets.find(name);
        if (found == secrets.end()) return SecretStatus::notFound;
        found->second.bytes = bytes;
        return SecretStatus::done;
    }
    std::int32_t add(const SecretName& name, std::string_view label, std::string_view bytes) override {
        const std::int32_t status = call("add");
        if (status == SecretStatus::done) secrets[name] = {std::string(label), std::string(bytes)};
        return status;
    }
    std::int32_t remove(const SecretName& name) override {
        const std::int32_t status = call("remove");
        if (status != SecretStatus::done) return status;
        return secrets.erase(name) == 1 ? SecretStatus::done : SecretStatus::notFound;
    }
    std::optional<std::string> message(std::int32_t status) const override {
        if (status == SecretStatus::locked) return "The keychain is locked.";
        return std::nullopt;
    }

  private:
    std::int32_t call(const char* name) {
        before(name);
        calls.emplace_back(name);
        const auto failure = failures.find(name);
        return failure == failures.end() ? SecretStatus::done : failure->second;
    }
};

}  // namespace vark::test
