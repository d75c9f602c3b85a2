#pragma once

#include <boost/json/value.hpp>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/BoxClient.h"

namespace vark::test {

/// A real browser without a window, driven as a person would use it. For the test's thread alone; its
/// processes end with this object.
class Browser {
  public:
    Browser();
    ~Browser();
    Browser(const Browser&) = delete;
    Browser& operator=(const Browser&) = delete;

    void open(std::string_view url);
    /// What a person reads on the page.
    std::string text();
    /// Clicks the button that says so, and waits for the page that follows.
    void click(std::string_view words);

  private:
    boost::json::value command(std::string_view method, std::string_view path, boost::json::value body);
    std::string find(std::string_view xpath);

    TemporaryFolder folder_;
    Process driver_;
    std::optional<box::BoxClient> client_;
    std::string session_;
};

}  // namespace vark::test
