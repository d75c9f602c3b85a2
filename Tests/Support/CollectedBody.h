#pragma once

#include <optional>
#include <string>

#include "VarkCore/Foundation/Files.h"
#include "VarkCore/Services/HTTPSession.h"

namespace vark::test {

/// Keeps what it is given, or fails with what the test says.
struct CollectedBody final : BodySink {
    HTTPResponse head;
    std::string bytes;
    int pieces = 0;
    std::optional<FileError> failure;

    void take(const HTTPResponse& answer, std::string_view piece) override {
        if (failure) throw FileError(*failure);
        ++pieces;
        head = answer;
        bytes += piece;
    }
};

}  // namespace vark::test
