#include <gtest/gtest.h>

#include "VarkCore/Foundation/Progress.h"

namespace vark {
namespace {

TEST(Progress, IsAFractionOfItsTotal) {
    struct Case {
        std::int64_t total;
        std::int64_t completed;
        double fraction;
    };
    const Case cases[] = {{4, 1, 0.25}, {4, 4, 1}, {4, 9, 1}, {4, -1, 0}, {0, 0, 0}, {-1, 0, 0}, {-1, 7, 1}};
    for (const Case& example : cases) {
        Progress progress(1);
        progress.setTotalUnitCount(example.total);
        progress.setCompletedUnitCount(example.completed);
        EXPECT_EQ(progress.fractionCompleted(), example.fraction)
            << example.completed << "/" << example.total;
    }
}

TEST(Progress, CountsAChildInProportionAndItsUnitsAtItsEnd) {
    Progress whole(10);
    const auto child = std::make_shared<Progress>(100);
    whole.setCompletedUnitCount(2);
    whole.addChild(child, 4);
    child->setCompletedUnitCount(50);
    EXPECT_DOUBLE_EQ(whole.fractionCompleted(), 0.4);
    EXPECT_EQ(whole.completedUnitCount(), 2);
    child->setCompletedUnitCount(100);
    EXPECT_DOUBLE_EQ(whole.fractionCompleted(), 0.6);
    EXPECT_EQ(whole.completedUnitCount(), 6);
}

}  // namespace
}  // namespace vark
