#pragma once

#include <boost/json/array.hpp>

#include "Tests/Support/Boxes/BoxProgram.h"

namespace vark::test {

/// One file that the box holds.
struct HeldFile {
    std::string path;
    std::int64_t size = 0;
    std::string sha256;
    std::int64_t id = 0;
};

/// The program `vark-box serve`.
class RealBox final : public BoxProgram {
  public:
    struct Options {
        std::int64_t chunkSize = 8 << 20;
        /// More of what `vark-box serve` takes.
        std::vector<std::string> arguments{};
    };

    explicit RealBox(Options options) : options_(std::move(options)) { start(); }
    RealBox() : RealBox(Options()) {}

    std::filesystem::path tokenFile() const { return root() / "token"; }
    std::filesystem::path authority() const override { return root() / "authority.pem"; }
    std::string url() const { return address("url"); }
    std::string chunkURL() const { return address("chunk_url"); }
    std::string token() const;

    /// The faults in force, each with how often it has fired.
    boost::json::array faults() const;
    std::vector<HeldFile> files() const;
    /// Puts a file there as another client would.
    void put(const std::string& path, std::string_view bytes) const;
    /// The bytes of the file at a path; a failure when it is not there.
    std::string bytesAt(std::string_view path) const;
    /// A page that anyone may see.
    std::string page(const std::string& url) const { return curl({url}); }
    /// Presses a button of such a page: a POST of nothing.
    void press(const std::string& url) const { curl({"--data", "", url}); }
    /// From here on the vark has this name too, on the port that it has.
    std::string urlAs(const std::string& host) const;

  private:
    Process::Options options() const override;
    std::string controlURL() const override { return url(); }

    const Options options_;
};

}  // namespace vark::test
