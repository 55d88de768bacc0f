// The position cost ledger: seeded from positions, moved by deals.
#include "base/data/CostData.h"

#include <gtest/gtest.h>

#include "testing/RecordBuilders.h"

namespace ttservice {
namespace {

using test::DealBuilder;

// Opening deals add their money and commission; closing deals leave at the average cost.
TEST(CostDataTest, OpeningAddsClosingLeavesAtAverageCost) {
    CostData ledger("20250102");
    ledger.addPosition(*test::PositionBuilder().volume(10).openCost(35000).build());
    ledger.addPosition(*test::PositionBuilder().direction('1').volume(4).openPrice(3400).build());  // no cost
    EXPECT_EQ(10, ledger.getVolume("SHFErb2501", '0'));
    EXPECT_DOUBLE_EQ(3500.0, ledger.getAverageCost("SHFErb2501", '0'));
    EXPECT_DOUBLE_EQ(13600.0, ledger.getCost("SHFErb2501", '1'));

    // Buy 10 more at 3600 with 10 commission: cost 71010 for 20.
    ledger.addDeal(*DealBuilder().tradeId("1").volume(10).price(3600).commission(10).build());
    EXPECT_EQ(20, ledger.getVolume("SHFErb2501", '0'));
    EXPECT_DOUBLE_EQ(3550.5, ledger.getAverageCost("SHFErb2501", '0'));

    // Selling close of 5 leaves at the average cost; the short side is untouched.
    ledger.addDeal(*DealBuilder().tradeId("2").direction('1').offset('1').volume(5).price(4000).build());
    EXPECT_EQ(15, ledger.getVolume("SHFErb2501", '0'));
    EXPECT_DOUBLE_EQ(53257.5, ledger.getCost("SHFErb2501", '0'));
    EXPECT_DOUBLE_EQ(3550.5, ledger.getAverageCost("SHFErb2501", '0'));
    EXPECT_EQ(4, ledger.getVolume("SHFErb2501", '1'));

    // Closing more than is held empties the side.
    ledger.addDeal(*DealBuilder().tradeId("3").direction('1').offset('3').volume(50).build());
    EXPECT_EQ(0, ledger.getVolume("SHFErb2501", '0'));
    EXPECT_EQ(0.0, ledger.getCost("SHFErb2501", '0'));
    EXPECT_EQ(0.0, ledger.getAverageCost("SHFErb2501", '0'));
    EXPECT_EQ(0, ledger.getVolume("SHFEunknown", '0'));
}

}  // namespace
}  // namespace ttservice
