#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VarkProvider/ItemIdentifier.h"
#include "VarkProvider/ProviderError.h"
#include "VarkProvider/VarkProviderItem.h"

namespace vark {

/// Where a listing goes on: at its beginning, in either of the two orders that a system knows, or behind a
/// page, as the bytes that this page ended with. A value.
class EnumerationPage {
  public:
    enum class Kind : std::uint8_t { initialByName, initialByDate, behind };

    static EnumerationPage initialByName() { return EnumerationPage(Kind::initialByName, {}); }
    static EnumerationPage initialByDate() { return EnumerationPage(Kind::initialByDate, {}); }
    static EnumerationPage behind(std::string bytes) {
        return EnumerationPage(Kind::behind, std::move(bytes));
    }

    Kind kind() const { return kind_; }
    const std::string& bytes() const { return bytes_; }

    bool operator==(const EnumerationPage&) const = default;

  private:
    EnumerationPage(Kind kind, std::string bytes) : kind_(kind), bytes_(std::move(bytes)) {}

    Kind kind_;
    std::string bytes_;
};

/// A place in the change feed, as a system keeps it: bytes whose sense it does not know. Empty when it has
/// lost its place.
struct SyncAnchor {
    std::string bytes;
    bool operator==(const SyncAnchor&) const = default;
};

/// Whoever wants one page of a listing. Shared with the enumerator until a `finish…` has been called, exactly
/// one for each page; called from the enumerator's task. Must not throw.
class EnumerationObserver {
  public:
    virtual ~EnumerationObserver() = default;

    /// How many items it wants in a page; nothing leaves it to the enumerator.
    virtual std::optional<std::int64_t> suggestedPageSize() const { return std::nullopt; }
    /// Before the items: what the enumerator's `counter` said when the question left that they answer. A page
    /// that came along with another one was asked for together with it.
    virtual void wasAskedAt(std::int64_t counter) { static_cast<void>(counter); }
    virtual void didEnumerateItems(std::vector<VarkProviderItem> items) = 0;
    /// Nothing when there are no further pages.
    virtual void finishEnumerating(std::optional<EnumerationPage> upTo) = 0;
    virtual void finishEnumeratingWithError(ProviderError error) = 0;
};

/// Whoever wants one page of changes; likewise.
class ChangeObserver {
  public:
    virtual ~ChangeObserver() = default;

    virtual void didUpdateItems(std::vector<VarkProviderItem> items) = 0;
    virtual void didDeleteItemsWithIdentifiers(std::vector<ItemIdentifier> identifiers) = 0;
    virtual void finishEnumeratingChanges(SyncAnchor upTo, bool moreComing) = 0;
    /// The anchor stays where it was.
    virtual void finishEnumeratingWithError(ProviderError error) = 0;
};

}  // namespace vark
