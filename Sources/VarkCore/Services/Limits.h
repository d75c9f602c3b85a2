#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

/// The limits of calls and transfers that are ours: no vark, node or system asks for them. Beside each stands
/// what it costs whoever meets it.
namespace vark::limits {

using namespace std::chrono_literals;

/// A call or a transfer that stands still. Costs: a vark that thinks longer over one answer is asked again.
inline constexpr std::chrono::seconds standingStill = 60s;
/// The same for bytes that come from where the vark or a node sent us, which may have to be fetched first.
/// Costs: a download that is lost goes on that much later.
inline constexpr std::chrono::seconds standingStillElsewhere = 90s;
/// Connecting by the internet. Costs: a vark that is away is noticed that late.
inline constexpr std::chrono::seconds connecting = 60s;
/// Connecting to a node, which stands in this office. Costs: a transfer begins that much later when the node
/// is away; then the node is left alone for a minute.
inline constexpr std::chrono::seconds connectingToANode = 5s;
/// A node's proof that it speaks the API. Costs: calls go by the internet for that long.
inline constexpr std::chrono::seconds provingItself = 10s;
/// A transfer of any size. Costs: what takes more than a week is begun again.
inline constexpr std::chrono::seconds wholeTransfer = 24h * 7;
/// To one host. Costs: a seventh transfer waits.
inline constexpr int connectionsPerHost = 6;
/// Of one GET. Costs: an item behind more of them cannot be fetched.
inline constexpr int redirects = 10;
/// An answer that is held in memory. Costs: a longer one is refused, before it has been taken in.
inline constexpr std::size_t answerBytes = std::size_t{32} << 20;
/// The head of a node's answer. Costs: the node counts as broken, and the internet is used.
inline constexpr std::size_t headBytes = 65'536;
/// Elements of one list in an answer. Costs: a longer one is refused, before any element is read.
inline constexpr std::size_t listElements = 250'000;
/// Chunks of one file. Costs: the file fails, with a sentence for whoever looks after the vark.
inline constexpr std::int64_t chunksOfAFile = 1'000'000;

}  // namespace vark::limits
