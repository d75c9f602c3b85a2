#pragma once

#include <gtest/gtest.h>

#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <fstream>
#include <memory>

#include "Tests/VarkBox/BoxClient.h"

namespace vark::box {

/// A box of this process with chunks of 1,000 bytes, and a client of it.
class BoxFixture : public testing::Test {
  protected:
    void start() {
        options.root = folder.path();
        box = std::make_unique<Box>(options);
        box->start();
        client = std::make_unique<BoxClient>(*box);
    }

    /// The request log under a root.
    std::vector<boost::json::object> logIn(const std::filesystem::path& root) {
        std::vector<boost::json::object> lines;
        std::ifstream text(root / "requests.jsonl");
        // A line that is being written has no end yet.
        for (std::string line; std::getline(text, line) && !text.eof();)
            lines.push_back(boost::json::parse(line).as_object());
        return lines;
    }

    BoxFixture() { options.chunkSize = 1000; }

    TemporaryFolder folder;
    BoxOptions options;
    std::unique_ptr<Box> box;
    std::unique_ptr<BoxClient> client;
};

}  // namespace vark::box
