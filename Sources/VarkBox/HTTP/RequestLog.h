#pragma once

#include <filesystem>

#include "VarkBox/HTTP/Exchange.h"

namespace vark::box {

/// One line of JSON for each request, appended whole, so that the file may be read at any time. Any thread.
class RequestLog {
  public:
    explicit RequestLog(const std::filesystem::path& path);

    void append(const RequestRecord& record) noexcept;

  private:
    Descriptor file_;
};

}  // namespace vark::box
