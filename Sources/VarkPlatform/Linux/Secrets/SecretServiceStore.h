#pragma once

#include "VarkCore/Concurrency/Clock.h"
#include "VarkCore/Services/SecretStore.h"

namespace vark {

/// The Secret Service of the person's session, by D-Bus. Each call speaks with the service that is there at
/// that moment, on the bus that the process found at its first call; any thread. A secret is looked for
/// everywhere and added to the default collection. A service that does not answer within `patience` is one
/// that would not say.
class SecretServiceStore final : public SecretStore {
  public:
    explicit SecretServiceStore(Duration patience = std::chrono::seconds(5)) : patience_(patience) {}

    /// Asks the person to open the default collection if it is locked, and makes one if there is none.
    std::int32_t open() override;
    Answer find(const SecretName& name) override;
    std::int32_t update(const SecretName& name, std::string_view bytes) override;
    std::int32_t add(const SecretName& name, std::string_view label, std::string_view bytes) override;
    std::int32_t remove(const SecretName& name) override;
    std::optional<std::string> message(std::int32_t status) const override;

  private:
    Duration patience_;
};

}  // namespace vark
