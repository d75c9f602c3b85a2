#pragma once

#include "Tests/Support/Boxes/RealBox.h"
#include "Tests/Support/Programs.h"

namespace vark::test {

/// The program `vark-box node` of a box, which may end before it.
class RealNode final : public BoxProgram {
  public:
    struct Options {
        std::string host = "node1.box.test";
        std::string listen = "127.0.0.1:0";
        /// What the program is started by, when it does not stand in the test's own network.
        std::vector<std::string> prefix{};
        std::map<std::string, std::string> environment{};
    };

    RealNode(const RealBox& box, Options options) : box_(box), options_(std::move(options)) { start(); }

  private:
    Process::Options options() const override {
        Process::Options options{
            .program = Programs::get().box(),
            .arguments = {"node", "--of", box_.url(), "--authority", box_.root(), "--root", root(), "--host",
                          options_.host, "--listen", wasStarted() ? address("address") : options_.listen,
                          "--announce", "--quiet"},
            .environment = options_.environment};
        options.startBy(options_.prefix);
        return options;
    }
    std::filesystem::path authority() const override { return box_.authority(); }
    std::string controlURL() const override { return address("control_url"); }

    const RealBox& box_;
    const Options options_;
};

}  // namespace vark::test
