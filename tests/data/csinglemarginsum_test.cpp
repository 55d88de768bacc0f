// Frozen margin of open orders per product and side.
#include "base/data/CSingleMarginSum.h"

#include <gtest/gtest.h>

#include "testing/RecordBuilders.h"

namespace ttservice {
namespace {

test::OrderBuilder order(const std::string& sysId) {
    return test::OrderBuilder().account(test::makeAccountInfo("f", 1)).sysId(sysId);
}

// Each open order counts once with its latest state; closing and finished orders count nothing.
TEST(CSingleMarginSumTest, EachOrderCountsOnceWithItsLatestState) {
    CSingleMarginSum sum;
    sum.updateOrder(order("1").direction('0').frozenMargin(1000.5).build());
    sum.updateOrder(order("2").direction('1').frozenMargin(2000).build());
    sum.updateOrder(order("3").direction('1').frozenMargin(300).build());
    EXPECT_DOUBLE_EQ(1000.5, sum.getProductLong("rb"));
    EXPECT_DOUBLE_EQ(2300.0, sum.getProductShort("rb"));
    EXPECT_DOUBLE_EQ(2300.0, sum.getProductSingleSide("rb"));

    // A later push of order 1 replaces its contribution; a traded-out order withdraws it.
    sum.updateOrder(order("1").direction('0').frozenMargin(500).traded(5).build());
    sum.updateOrder(order("2").direction('1').frozenMargin(2000).status('8').build());
    EXPECT_DOUBLE_EQ(500.0, sum.getProductLong("rb"));
    EXPECT_DOUBLE_EQ(300.0, sum.getProductShort("rb"));

    // Closing orders freeze no margin; an order without a product counts under its instrument.
    sum.updateOrder(order("4").offset('1').frozenMargin(999).build());
    sum.updateOrder(order("5").product("").instrument("ag2506").frozenMargin(70).build());
    EXPECT_DOUBLE_EQ(500.0, sum.getProductLong("rb"));
    EXPECT_DOUBLE_EQ(70.0, sum.getProductLong("ag2506"));
    EXPECT_EQ(0.0, sum.getProductLong("unknown"));

    sum.removeOrder(order("3").build()->getKey());
    EXPECT_EQ(0.0, sum.getProductShort("rb"));
    EXPECT_EQ(2u, sum.contributingOrders());
    sum.clear();
    EXPECT_EQ(0.0, sum.getProductLong("rb"));
    EXPECT_EQ(0u, sum.contributingOrders());
}

// Sums are kept exactly: adding and withdrawing 0.1 leaves no rounding residue.
TEST(CSingleMarginSumTest, NoRoundingResidueAfterManyChanges) {
    CSingleMarginSum sum;
    for (int i = 0; i < 10; ++i) sum.updateOrder(order(std::to_string(i)).frozenMargin(0.1).build());
    EXPECT_EQ(1.0, sum.getProductLong("rb"));
    for (int i = 0; i < 7; ++i)
        sum.updateOrder(order(std::to_string(i)).frozenMargin(0.1).status('6').build());
    EXPECT_EQ(0.3, sum.getProductLong("rb"));
    for (int i = 7; i < 10; ++i)
        sum.updateOrder(order(std::to_string(i)).frozenMargin(0.1).status('6').build());
    EXPECT_EQ(0.0, sum.getProductLong("rb"));
}

}  // namespace
}  // namespace ttservice
