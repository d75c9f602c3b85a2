#include <gtest/gtest.h>

#include <stdexcept>

#include "VarkCore/Concurrency/Task.h"
#include "VarkCore/Errors/VarkAPIError.h"
#include "VarkCore/Upload/ChunkRetry.h"

namespace vark {
namespace {

TEST(ChunkRetry, TriesAgainOnlyWhatMayGoThroughAsItIs) {
    using E = VarkAPIError;
    const std::pair<std::exception_ptr, bool> cases[] = {
        {std::make_exception_ptr(CancellationError()), false},
        {std::make_exception_ptr(std::runtime_error("no such file")), false},
        {std::make_exception_ptr(E::server(500)), true},
        {std::make_exception_ptr(E::server(429)), true},
        {std::make_exception_ptr(E::server(408)), true},
        {std::make_exception_ptr(E::server(404)), false},
        {std::make_exception_ptr(E::server(499)), false},
        {std::make_exception_ptr(E::transport("x")), true},
        {std::make_exception_ptr(E::uploadGone()), false},
        {std::make_exception_ptr(E::wrongChunkRoute()), false},
        {std::make_exception_ptr(E::unauthorized()), false},
        {std::make_exception_ptr(E::badResponse("x")), false},
        {std::make_exception_ptr(E::notConnected()), false},
        {std::make_exception_ptr(E::nameTaken()), false},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_EQ(ChunkRetry::worthAnotherGo(cases[i].first), cases[i].second) << i;
}

}  // namespace
}  // namespace vark
