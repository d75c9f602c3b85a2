#pragma once

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

namespace vark::test {

/// Environment variables that are other than they were until the end of the block.
class ChangedVariables {
  public:
    using Values = std::map<std::string, std::optional<std::string>>;

    /// A variable without a value is taken away.
    explicit ChangedVariables(const Values& values) {
        for (const auto& [name, value] : values) {
            const char* before = std::getenv(name.c_str());
            before_[name] = before == nullptr ? std::nullopt : std::optional<std::string>(before);
        }
        set(values);
    }
    ~ChangedVariables() { set(before_); }
    ChangedVariables(const ChangedVariables&) = delete;
    ChangedVariables& operator=(const ChangedVariables&) = delete;

  private:
    static void set(const Values& values) {
        for (const auto& [name, value] : values) {
            unsetenv(name.c_str());
            if (value) setenv(name.c_str(), value->c_str(), 1);
        }
    }
    Values before_;
};

}  // namespace vark::test
