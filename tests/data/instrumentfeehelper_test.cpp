// Commission of an order from the account's fee record: stock and futures rules.
#include <gtest/gtest.h>

#include "base/data/CInstrumentFeeHelper.h"
#include "testing/RecordBuilders.h"

namespace ttservice {
namespace {

using test::OrderBuilder;

CInstrumentFeePtr stockFee() {
    CInstrumentFeePtr fee =
        test::makeInstrumentFee(test::makeAccountInfo("s", 2), test::makeInstrument("SH", "600000"));
    fee->m_stkExchange = boost::make_shared<CStkExchange>();
    fee->m_stkExchange->m_dBuyCommissionRate = 0.0003;
    fee->m_stkExchange->m_dSellCommissionRate = 0.0003;
    fee->m_stkExchange->m_dMinCommission = 5.0;
    fee->m_stkExchange->m_dTransferFeeRate = 0.00001;
    fee->m_stkExchange->m_dTradeFeeRate = 0.0000487;
    fee->m_stkExchange->m_dStampTaxRate = 0.0005;
    return fee;
}

CInstrumentFeePtr futuresFee() {
    CInstrumentFeePtr fee = test::makeInstrumentFee(test::makeAccountInfo("f", 1),
                                                    test::makeInstrument("SHFE", "rb2501", "rb", 10));
    fee->m_dOpenRatioByMoney = 0.0001;
    fee->m_dCloseRatioByMoney = 0.00005;
    fee->m_dCloseTodayRatioByVolume = 3.0;
    return fee;
}

TEST(CInstrumentFeeHelperTest, StockAndFuturesRules) {
    struct Case {
        const char* what;
        CInstrumentFeePtr fee;
        COrderDetailPtr order;
        double expected;
    } cases[] = {
        // 10 * 1000 = 10000: brokerage 3 raised to the minimum 5, transfer 0.1, trade fee 0.487.
        {"stock buy at the minimum", stockFee(), OrderBuilder().price(10).volume(1000).direction('0').build(),
         5.59},
        // The sale adds stamp tax 5.
        {"stock sell adds stamp tax", stockFee(),
         OrderBuilder().price(10).volume(1000).direction('1').build(), 10.59},
        // 500000: brokerage 150, transfer 5, trade fee 24.35.
        {"stock buy above the minimum", stockFee(), OrderBuilder().price(50).volume(10000).build(), 179.35},
        // 3500 * 10 * multiple 10 = 350000 at 0.0001.
        {"futures open by money", futuresFee(), OrderBuilder().price(3500).volume(10).offset('0').build(),
         35.0},
        {"futures close today by volume", futuresFee(),
         OrderBuilder().price(3500).volume(10).offset('3').build(), 30.0},
        {"futures close by money", futuresFee(), OrderBuilder().price(3500).volume(10).offset('1').build(),
         17.5},
        {"futures close yesterday uses close ratios", futuresFee(),
         OrderBuilder().price(3500).volume(10).offset('4').build(), 17.5},
    };
    for (const Case& c : cases)
        EXPECT_DOUBLE_EQ(c.expected, CInstrumentFeeHelper::calcCommission(c.fee, *c.order)) << c.what;
}

TEST(CInstrumentFeeHelperTest, PriceChoiceAndWhatCannotBeComputed) {
    COrderDetailPtr marketOrder = OrderBuilder().price(0).volume(10).build();
    marketOrder->m_dTradedPrice = 3600;
    EXPECT_DOUBLE_EQ(36.0, CInstrumentFeeHelper::calcCommission(futuresFee(), *marketOrder));

    const COrderDetailPtr noPrice = OrderBuilder().price(0).volume(10).build();
    const COrderDetailPtr noVolume = OrderBuilder().price(3500).volume(0).build();
    const COrderDetailPtr invalidPrice = OrderBuilder().price(TT_INVALID_DOUBLE).volume(10).build();
    EXPECT_EQ(TT_INVALID_DOUBLE, CInstrumentFeeHelper::calcCommission(futuresFee(), *noPrice));
    EXPECT_EQ(TT_INVALID_DOUBLE, CInstrumentFeeHelper::calcCommission(futuresFee(), *noVolume));
    EXPECT_EQ(TT_INVALID_DOUBLE, CInstrumentFeeHelper::calcCommission(futuresFee(), *invalidPrice));
    EXPECT_EQ(TT_INVALID_DOUBLE,
              CInstrumentFeeHelper::calcCommission(CInstrumentFeePtr(), *OrderBuilder().build()));
}

}  // namespace
}  // namespace ttservice
