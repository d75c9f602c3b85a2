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
        const std::int32_t status = call("find", &name);
        if (status != SecretStatus::done) return {status};
        return {status, secrets.at(name).bytes};
    }
    std::int32_t update(const SecretName& name, std::string_view bytes) override {
        const std::int32_t status = call("update", &name);
        if (status == SecretStatus::done) secrets.at(name).bytes = bytes;
        return status;
    }
    std::int32_t add(const SecretName& name, std::string_view label, std::string_view bytes) override {
        const std::int32_t status = call("add");
        if (status == SecretStatus::done) secrets[name] = {std::string(label), std::string(bytes)};
        return status;
    }
    std::int32_t remove(const SecretName& name) override {
        const std::int32_t status = call("remove", &name);
        if (status == SecretStatus::done) secrets.erase(name);
        return status;
    }
    std::optional<std::string> message(std::int32_t status) const override {
        if (status == SecretStatus::locked) return "The keychain is locked.";
        return std::nullopt;
    }

  private:
    std::int32_t call(const char* what, const SecretName* mustBeThere = nullptr) {
        before(what);
        calls.emplace_back(what);
        const auto failure = failures.find(what);
        if (failure != failures.end() && failure->second != SecretStatus::done) return failure->second;
        const bool isMissing = mustBeThere != nullptr && !secrets.contains(*mustBeThere);
        return isMissing ? SecretStatus::notFound : SecretStatus::done;
    }
};

}  // namespace vark::test
