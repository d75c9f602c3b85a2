#pragma once

#include <gtest/gtest.h>

#include "Tests/Support/ScriptedAPI.h"

namespace vark::test {

/// Tests of that client.
class APIWorld : public testing::Test, public ScriptedAPI {
  public:
    /// Nothing when the task succeeds.
    template <class T>
    std::optional<VarkAPIError> failureOf(Task<T> task) {
        try {
            loop.run(std::move(task));
            return std::nullopt;
        } catch (const VarkAPIError& error) {
            return error;
        }
    }

    void TearDown() override { loop.scope.endAll(); }
};

/// Empty when the request has no such header.
inline std::string headerOf(const HTTPRequest& request, std::string_view name) {
    for (const HTTPHeader& header : request.headers) {
        if (header.name == name) return header.value;
    }
    return "";
}

}  // namespace vark::test

namespace vark {

inline void PrintTo(const VarkAPIError& error, std::ostream* stream) {
    *stream << "case " << error.which().index() << ": " << error.errorDescription();
}

}  // namespace vark
