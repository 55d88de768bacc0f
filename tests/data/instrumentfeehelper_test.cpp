// Commission of an order from the account's fee record: stock and futures rules.
#include <gtest/gtest.h>

#include "base/data/CInstrumentFeeHelper.h"
#include "testing/RecordBuilders.h"

namespace ttservice {
namespace {

// Stock: brokerage (at least the minimum), transfer and trade fee, stamp tax on sales; futures: by
// money or volume per offset, market orders at the traded price; no price, volume or fee: invalid.
TEST(CInstrumentFeeHelperTest, StockAndFuturesRules) {
    CInstrumentFeePtr stock =
        test::makeInstrumentFee(test::makeAccountInfo("s", 2), test::makeInstrument("SH", "600000"));
    stock->m_stkExchange = boost::make_shared<CStkExchange>();
    stock->m_stkExchange->m_dBuyCommissionRate = stock->m_stkExchange->m_dSellCommissionRate = 0.0003;
    stock->m_stkExchange->m_dMinCommission = 5.0;
    stock->m_stkExchange->m_dTransferFeeRate = 0.00001;
    stock->m_stkExchange->m_dTradeFeeRate = 0.0000487;
    stock->m_stkExchange->m_dStampTaxRate = 0.0005;
    CInstrumentFeePtr futures = test::makeInstrumentFee(test::makeAccountInfo("f", 1),
                                                        test::makeInstrument("SHFE", "rb2501", "rb", 10));
    futures->m_dOpenRatioByMoney = 0.0001;
    futures->m_dCloseRatioByMoney = 0.00005;
    futures->m_dCloseTodayRatioByVolume = 3.0;
    const struct {
        const char* what;
        CInstrumentFeePtr fee;
        double price, tradedPrice;
        int volume, direction, offset;
        double expected;
    } cases[] = {
        // 10000: brokerage 3 raised to the minimum 5, transfer 0.1, trade fee 0.487; a sale adds stamp tax 5.
        {"stock buy at the minimum", stock, 10, 0, 1000, '0', '0', 5.59},
        {"stock sell adds stamp tax", stock, 10, 0, 1000, '1', '0', 10.59},
        {"stock buy above the minimum", stock, 50, 0, 10000, '0', '0', 179.35},  // 150 + 5 + 24.35
        {"futures open by money", futures, 3500, 0, 10, '0', '0', 35.0},  // 350000 (multiple 10) * 0.0001
        {"futures close today by volume", futures, 3500, 0, 10, '0', '3', 30.0},
        {"futures close by money", futures, 3500, 0, 10, '0', '1', 17.5},
        {"futures close yesterday", futures, 3500, 0, 10, '0', '4', 17.5},
        {"market order at the traded price", futures, 0, 3600, 10, '0', '0', 36.0},
        {"no price", futures, 0, 0, 10, '0', '0', TT_INVALID_DOUBLE},
        {"no volume", futures, 3500, 0, 0, '0', '0', TT_INVALID_DOUBLE},
        {"invalid price", futures, TT_INVALID_DOUBLE, 0, 10, '0', '0', TT_INVALID_DOUBLE},
        {"no fee record", CInstrumentFeePtr(), 3500, 0, 10, '0', '0', TT_INVALID_DOUBLE},
    };
    for (const auto& c : cases) {
        COrderDetailPtr order = test::OrderBuilder()
                                    .price(c.price)
                                    .volume(c.volume)
                                    .direction(c.direction)
                                    .offset(c.offset)
                                    .build();
        order->m_dTradedPrice = c.tradedPrice;
        // Near, not DOUBLE_EQ: infinity is within 4 ulps of the invalid price but is not it.
        EXPECT_NEAR(c.expected, CInstrumentFeeHelper::calcCommission(c.fee, *order), 1e-9) << c.what;
    }
}

}  // namespace
}  // namespace ttservice
