#pragma once

#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace vark::test {

/// Environment variables that are other than they were until the end of the block.
class ChangedVariables {
  public:
    /// A variable without a value is taken away.
    explicit ChangedVariables(const std::map<std::string, std::optional<std::string>>& values) {
        for (const auto& [name, value] : values) {
            const char* before = std::getenv(name.c_str());
            before_[name] = before == nullptr ? std::nullopt : std::optional<std::string>(before);
            set(name, value);
        }
    }
    ~ChangedVariables() {
        for (const auto& [name, value] : before_)
            set(name, value);
    }
    ChangedVariables(const ChangedVariables&) = delete;
    ChangedVariables& operator=(const ChangedVariables&) = delete;

  private:
    static void set(const std::string& name, const std::optional<std::string>& value) {
        if (value) {
            setenv(name.c_str(), value->c_str(), 1);
        } else {
            unsetenv(name.c_str());
        }
    }
    std::map<std::string, std::optional<std::string>> before_;
};

}  // namespace vark::test
