#pragma once

#include <gtest/gtest.h>

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

    BoxFixture() { options.chunkSize = 1000; }

    TemporaryFolder folder;
    BoxOptions options;
    std::unique_ptr<Box> box;
    std::unique_ptr<BoxClient> client;
};

}  // namespace vark::box
