#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <vector>

#include "VarkCore/Transfer/TransferEngine.h"

namespace vark::test {

/// What somebody who shows the queue holds of it: he looks again at what he is told of, and at nothing else.
class QueueShadow final : public QueueObserver {
  public:
    explicit QueueShadow(TransferEngine& engine) : engine_(engine) {
        engine_.observer = this;
        renewed();
    }
    ~QueueShadow() { engine_.observer = nullptr; }

    void expectTheQueue() {
        for (const std::size_t position : std::exchange(changed_, {}))
            rows_.at(position) = row(position);
        const std::size_t count = engine_.job() ? engine_.job()->items.size() : 0;
        ASSERT_EQ(rows_.size(), count);
        for (std::size_t position = 0; position < count; ++position)
            ASSERT_EQ(rows_[position], row(position)) << "nobody told of " << position;
    }

    void changed(std::size_t position) override {
        ASSERT_LT(position, rows_.size());
        changed_.insert(position);
    }
    void appended(std::size_t first, std::size_t count) override {
        ASSERT_EQ(first, rows_.size());
        for (std::size_t position = first; position < first + count; ++position)
            rows_.push_back(row(position));
    }
    void renewed() override {
        changed_.clear();
        rows_.clear();
        for (std::size_t position = 0; engine_.job() && position < engine_.job()->items.size(); ++position)
            rows_.push_back(row(position));
    }

  private:
    struct Row {
        TransferItem item;
        bool hasTask = false;
        std::int64_t hashing = 0;
        std::int64_t inFlight = 0;
        bool operator==(const Row&) const = default;
    };

    Row row(std::size_t position) const {
        const TransferItem& item = engine_.job()->items.at(position);
        const std::vector<UUID> active = engine_.activeItemIDs();
        return {item, std::ranges::find(active, item.id) != active.end(), engine_.hashingBytes(item.id),
                engine_.inFlightBytes(item.id)};
    }

    TransferEngine& engine_;
    std::set<std::size_t> changed_;
    std::vector<Row> rows_;
};

}  // namespace vark::test
