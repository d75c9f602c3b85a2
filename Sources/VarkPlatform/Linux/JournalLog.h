#pragma once

#include <filesystem>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Services/SystemLog.h"

namespace vark {

/// Notes in the system's journal. Where there is none, or it is busy, a note is dropped without a word.
class JournalLog final : public SystemLog {
  public:
    explicit JournalLog(std::filesystem::path socket = "/run/systemd/journal/socket");

    void note(std::string_view category, std::string_view text) override;

  private:
    const std::filesystem::path address_;
    const Descriptor socket_;
};

}  // namespace vark
