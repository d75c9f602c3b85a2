#include <algorithm>
#include <optional>

#include "Tests/Fuzz/FuzzTarget.h"
#include "VarkCore/LAN/LANTransfer.h"
#include "VarkCore/LAN/ResponseReader.h"

// What a machine that calls itself a node may answer. The first byte says how the rest is cut.

namespace vark::fuzz {
namespace {

/// Nothing when the answer is none.
std::optional<LANTransfer::Response> readIn(std::size_t pieceSize, std::string_view text) {
    ResponseReader reader;
    LANTransfer::Response response;
    try {
        do {
            std::string_view piece = text.substr(0, pieceSize);
            text.remove_prefix(piece.size());
            response.body += reader.take(piece, text.empty());
        } while (!reader.isComplete());
    } catch (const LANTransfer::Failure& failure) {
        require(std::string_view(failure.what()).starts_with("The node "), "a failure has a sentence");
        return std::nullopt;
    }
    if (std::optional<std::int64_t> expected = reader.expectedLength()) {
        auto length = static_cast<std::int64_t>(response.body.size());
        require(length == std::max<std::int64_t>(*expected, 0), "a body is as long as was said");
    }
    response.status = reader.status();
    response.headers = std::move(reader.headers());
    return response;
}

}  // namespace
}  // namespace vark::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vark::fuzz;
    // Beyond the limit of the head it matters how an answer is cut.
    if (size < 1 || size > 65'536) return 0;
    std::string_view text = textOf(data + 1, size - 1);
    std::size_t pieceSize = data[0] % 64U + 1U;
    require(readIn(pieceSize, text) == readIn(text.size(), text), "an answer is the same however it is cut");
    return 0;
}
