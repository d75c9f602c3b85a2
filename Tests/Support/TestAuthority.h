#pragma once

#include <fmt/format.h>

#include <string>

#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryFolder.h"

namespace vark::test {

/// An authority for TLS that nobody knows but the test.
class TestAuthority {
  public:
    TestAuthority() {
        // A name of its own: two authorities of one name would be told apart by their signatures only.
        run(fmt::format("openssl req -x509 {} -keyout {} -out {} -subj /CN={}", newKey, key(), file(),
                        folder_.path().filename().string()));
    }

    std::string file() const { return folder_ / "authority.pem"; }
    /// A file with what a server needs to prove for so many days that it is one of `names`, as in
    /// "DNS:node.test,IP:127.0.0.1".
    std::string identity(const std::string& names, int days = 1) const {
        const std::string identity = folder_ / std::to_string(++made_);
        run(
            fmt::format("openssl req -new {0} -keyout {1} -subj /CN=Test -addext 'subjectAltName={2}' | "
                        "openssl x509 -req -CA {3} -CAkey {4} -copy_extensions copy -days {5} >> {1}",
                        newKey, identity, names, file(), key(), days));
        return identity;
    }

  private:
    static constexpr const char* newKey = "-nodes -newkey ec -pkeyopt ec_paramgen_curve:P-256";
    static void run(const std::string& script) { runTool({"sh", "-ec", script}); }
    std::string key() const { return folder_ / "authority.key"; }

    TemporaryFolder folder_;
    mutable int made_ = 0;
};

}  // namespace vark::test
