// CPriceDataHelper: price selection for orders and for calculations, the exchange rules of type 12,
// the limit check, last and settlement prices, quote freshness and the direction of operations.
#include "base/data/CPriceDataHelper.h"
#include "base/data/DataHelper.h"
#include "testing/LogCapture.h"
#include "testing/StoreTestFixture.h"
#include "utils/TimeUtils.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace ttservice {
namespace {

const double kNoPrice = std::numeric_limits<double>::max();
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const int kBuy = OPT_OPEN_LONG;        // direction buy, isBuy
const int kSell = OPT_CLOSE_LONG_HISTORY;  // direction sell
const char* const kLimitLine = "greater than upperLimitPrice";

// A stock quote on "SH" with a full book: asks 10.1..10.5, bids 10.0..9.6, last 10.05, previous
// close 9.5, limits 9.0..11.0.
CPriceDataPtr fullBook(const std::string& exchange = "SH") {
    CPriceDataPtr q = boost::make_shared<CPriceData>();
    q->m_nPlatformId = 10001;
    q->m_strExchangeID = exchange;
    q->m_strInstrumentID = "600000";
    q->m_dAskPrice1 = 10.1;
    q->m_dAskPrice2 = 10.2;
    q->m_dAskPrice3 = 10.3;
    q->m_dAskPrice4 = 10.4;
    q->m_dAskPrice5 = 10.5;
    q->m_dBidPrice1 = 10.0;
    q->m_dBidPrice2 = 9.9;
    q->m_dBidPrice3 = 9.8;
    q->m_dBidPrice4 = 9.7;
    q->m_dBidPrice5 = 9.6;
    q->m_dLastPrice = 10.05;
    q->m_dPreClosePrice = 9.5;
    q->m_dUpperLimitPrice = 11.0;
    q->m_dLowerLimitPrice = 9.0;
    return q;
}

void clearBook(CPriceData& q) {
    q.m_dAskPrice1 = q.m_dAskPrice2 = q.m_dAskPrice3 = q.m_dAskPrice4 = q.m_dAskPrice5 = 0.0;
    q.m_dBidPrice1 = q.m_dBidPrice2 = q.m_dBidPrice3 = q.m_dBidPrice4 = q.m_dBidPrice5 = 0.0;
}

// Each test starts with no data center, so isSupportMarketPrice answers by the exchange default.
class PriceHelperTest : public ::testing::Test {
protected:
    void SetUp() override { TraderCenter::instance()->reset(); }
    void TearDown() override { TraderCenter::instance()->reset(); }
};

// ---- Directions ---------------------------------------------------------------------------------

TEST(PriceHelperDirectionTest, DirectionOfEveryOperationAndItsAgreementWithTheOtherTables) {
    const std::set<int> sells = {1,  2,  3,  6,  7,  10, 11, 14, 19, 21,   24,   27,   29,   33,  34,
                                 36, 39, 43, 45, 47, 49, 50, 52, 1005, 1007, 1010, 1014, 1021, 1022};
    std::vector<int> ops;
    for (int op = -3; op <= 1030; ++op) ops.push_back(op);
    ops.push_back(std::numeric_limits<int>::min());
    ops.push_back(std::numeric_limits<int>::max());
    for (int op : ops) {
        const int direction = getDirectionByOperation(op);
        EXPECT_EQ(sells.count(op) ? '1' : '0', direction) << op;
        // Every operation that buys goes out as a buy.
        if (DataHelper::isBuy(op)) {
            EXPECT_EQ('0', direction) << op;
        }
        // A long operation that opens buys; one that closes (or closes today) sells.
        const int offset = DataHelper::getOffsetFlagByOperation(op);
        if (DataHelper::isLong(op) && offset == '0') {
            EXPECT_EQ('0', direction) << op;
        }
        if (DataHelper::isLong(op) && (offset == '1' || offset == '3')) {
            EXPECT_EQ('1', direction) << op;
        }
    }
}

// ---- Selection ----------------------------------------------------------------------------------

typedef std::function<void(CPriceData&)> Edit;

struct SelectCase {
    const char* what;
    Edit edit;  // applied to fullBook()
    int type;
    int operation;
    double order;  // getPriceForOrder
    double calc;   // getPriceForCalc
};

void runSelectCases(const std::vector<SelectCase>& cases) {
    for (const SelectCase& c : cases) {
        CPriceDataPtr q = fullBook();
        if (c.edit) c.edit(*q);
        EXPECT_DOUBLE_EQ(c.order, CPriceDataHelper::getPriceForOrder(q, c.type, c.operation)) << c.what << " (order)";
        EXPECT_DOUBLE_EQ(c.calc, CPriceDataHelper::getPriceForCalc(q, c.type, c.operation)) << c.what << " (calc)";
    }
}

TEST_F(PriceHelperTest, EveryTypeOnAFullBook) {
    const Edit none;
    runSelectCases({
        {"ask 5", none, 0, kBuy, 10.5, 10.5},
        {"ask 4", none, 1, kBuy, 10.4, 10.4},
        {"ask 3", none, 2, kSell, 10.3, 10.3},
        {"ask 2", none, 3, kBuy, 10.2, 10.2},
        {"ask 1", none, 4, kSell, 10.1, 10.1},
        {"last", none, 5, kBuy, 10.05, 10.05},
        {"bid 1", none, 6, kBuy, 10.0, 10.0},
        {"bid 2", none, 7, kSell, 9.9, 9.9},
        {"bid 3", none, 8, kBuy, 9.8, 9.8},
        {"bid 4", none, 9, kSell, 9.7, 9.7},
        {"bid 5", none, 10, kBuy, 9.6, 9.6},
        {"fixed in a plain selector is the last price", none, 11, kBuy, 10.05, 10.05},
        {"own side, buy: bid 1", none, 13, kBuy, 10.0, 10.0},
        {"own side, sell: ask 1", none, 13, kSell, 10.1, 10.1},
        {"opposite side, buy: ask 1", none, 14, kBuy, 10.1, 10.1},
        {"opposite side, sell: bid 1", none, 14, kSell, 10.0, 10.0},
        {"type 12 buy on a stock: upper limit", none, 12, kBuy, 11.0, 11.0},
        {"type 12 sell on a stock: lower limit", none, 12, kSell, 9.0, 9.0},
        {"unknown type 15: last", none, 15, kBuy, 10.05, 10.05},
        {"unknown type -1: last", none, -1, kSell, 10.05, 10.05},
    });
}

TEST_F(PriceHelperTest, LadderWalksTowardsLevelOneThenLastThenPreviousClose) {
    runSelectCases({
        {"ask 3 asked, only ask 1 quoted",
         [](CPriceData& q) { q.m_dAskPrice2 = q.m_dAskPrice3 = q.m_dAskPrice4 = q.m_dAskPrice5 = 0.0; }, 2, kBuy,
         10.1, 10.1},
        {"ask 3 asked, empty book", [](CPriceData& q) { clearBook(q); }, 2, kBuy, 10.05, 10.05},
        {"ask 3 asked, empty book, last zero",
         [](CPriceData& q) {
             clearBook(q);
             q.m_dLastPrice = 0.0;
         },
         2, kBuy, 9.5, 9.5},
        {"ask 5 asked: ask 5 zero, ask 4 the no-price value",
         [](CPriceData& q) {
             q.m_dAskPrice5 = 0.0;
             q.m_dAskPrice4 = kNoPrice;
         },
         0, kBuy, 10.3, 10.3},
        {"ask 5 asked: a value within 1e-5 of zero is empty",
         [](CPriceData& q) { q.m_dAskPrice5 = 0.000005; }, 0, kBuy, 10.4, 10.4},
        {"bid 5 asked, bid 5 and 4 empty", [](CPriceData& q) { q.m_dBidPrice5 = q.m_dBidPrice4 = 0.0; }, 10, kSell,
         9.8, 9.8},
        {"bid 2 asked, bid 2 empty: walks to bid 1, never out to bid 3",
         [](CPriceData& q) { q.m_dBidPrice2 = 0.0; }, 7, kSell, 10.0, 10.0},
        {"ask 2 asked, ask 2 and ask 1 empty: last, never ask 3",
         [](CPriceData& q) { q.m_dAskPrice2 = q.m_dAskPrice1 = 0.0; }, 3, kBuy, 10.05, 10.05},
        {"a NaN level is no price", [](CPriceData& q) { q.m_dAskPrice1 = kNaN; }, 4, kBuy, 10.05, 10.05},
        {"last NaN: previous close",
         [](CPriceData& q) { q.m_dLastPrice = kNaN; }, 5, kBuy, 9.5, 9.5},
        {"own side for a sell walks the asks",
         [](CPriceData& q) { q.m_dAskPrice1 = 0.0; }, 13, kSell, 10.05, 10.05},
        {"nothing at all: the empty previous close",
         [](CPriceData& q) {
             clearBook(q);
             q.m_dLastPrice = 0.0;
             q.m_dPreClosePrice = 0.0;
         },
         5, kBuy, 0.0, 0.0},
    });
}

TEST_F(PriceHelperTest, TypeTwelveLimitsPlaceholderAndExchangeRules) {
    runSelectCases({
        {"buy, upper limit is the 100000.0 placeholder: ask 5",
         [](CPriceData& q) { q.m_dUpperLimitPrice = 100000.0; }, 12, kBuy, 10.5, 10.5},
        {"buy, placeholder within 0.0001",
         [](CPriceData& q) { q.m_dUpperLimitPrice = 100000.00005; }, 12, kBuy, 10.5, 10.5},
        {"buy, placeholder, ask 5 empty: the next ask below",
         [](CPriceData& q) {
             q.m_dUpperLimitPrice = 100000.0;
             q.m_dAskPrice5 = 0.0;
         },
         12, kBuy, 10.4, 10.4},
        {"buy, upper limit empty: ask 5", [](CPriceData& q) { q.m_dUpperLimitPrice = 0.0; }, 12, kBuy, 10.5, 10.5},
        {"sell, lower limit 100000.0: no placeholder test on the sell side",
         [](CPriceData& q) {
             q.m_dLowerLimitPrice = 100000.0;
             q.m_dUpperLimitPrice = 0.0;
         },
         12, kSell, 100000.0, 100000.0},
        {"sell, lower limit empty, bid 5 empty: bid 4",
         [](CPriceData& q) {
             q.m_dLowerLimitPrice = 0.0;
             q.m_dBidPrice5 = 0.0;
         },
         12, kSell, 9.7, 9.7},
        {"HGT: market order at 0.0, calc at the last price", [](CPriceData& q) { q.m_strExchangeID = "HGT"; }, 12,
         kBuy, 0.0, 10.05},
        {"SGT sell", [](CPriceData& q) { q.m_strExchangeID = "SGT"; }, 12, kSell, 0.0, 10.05},
        {"HGT calc takes the last price as it stands, even empty",
         [](CPriceData& q) {
             q.m_strExchangeID = "HGT";
             q.m_dLastPrice = 0.0;
         },
         12, kBuy, 0.0, 0.0},
        {"HGT, other types select as usual", [](CPriceData& q) { q.m_strExchangeID = "HGT"; }, 4, kBuy, 10.1, 10.1},
        {"DCE accepts market orders; calc buys at the upper limit",
         [](CPriceData& q) { q.m_strExchangeID = "DCE"; }, 12, kBuy, 0.0, 11.0},
        {"CZCE by its short code, sell", [](CPriceData& q) { q.m_strExchangeID = "ZF"; }, 12, kSell, 0.0, 9.0},
        {"SHFE takes no market orders: the order goes at the limit",
         [](CPriceData& q) { q.m_strExchangeID = "SHFE"; }, 12, kBuy, 11.0, 11.0},
        {"INE sell", [](CPriceData& q) { q.m_strExchangeID = "INE"; }, 12, kSell, 9.0, 9.0},
        {"CFFEX contract unknown: the limit",
         [](CPriceData& q) { q.m_strExchangeID = "CFFEX"; }, 12, kBuy, 11.0, 11.0},
        {"calc on a futures exchange: the limit with no fallback, even empty",
         [](CPriceData& q) {
             q.m_strExchangeID = "SHFE";
             q.m_dUpperLimitPrice = 0.0;
         },
         12, kBuy, 10.5, 0.0},
        // Operation 15 (close short) goes out as a buy but is not one of isBuy's operations: the
        // order flavour starts from the buy side, the calc flavour's futures rule takes the lower limit.
        {"futures calc side follows isBuy, order side follows the direction",
         [](CPriceData& q) { q.m_strExchangeID = "SF"; }, 12, OPT_CLOSE_SHORT, 11.0, 9.0},
    });
}

TEST_F(PriceHelperTest, FixedPriceOnlyInTheAndFixVariants) {
    const CPriceDataPtr q = fullBook();
    const struct {
        int type;
        double order;
        double calc;
    } cases[] = {{11, 12.34, 12.34}, {4, 10.1, 10.1}, {5, 10.05, 10.05}, {12, 11.0, 11.0}};
    for (const auto& c : cases) {
        EXPECT_DOUBLE_EQ(c.order, CPriceDataHelper::getPriceAndFixForOrder(q, c.type, kBuy, 12.34)) << c.type;
        EXPECT_DOUBLE_EQ(c.calc, CPriceDataHelper::getPriceAndFixForCalc(q, c.type, kBuy, 12.34)) << c.type;
    }
    // The fixed price needs no quote.
    EXPECT_DOUBLE_EQ(12.34, CPriceDataHelper::getPriceAndFixForOrder(CPriceDataPtr(), 11, kBuy, 12.34));
    EXPECT_DOUBLE_EQ(kNoPrice, CPriceDataHelper::getPriceAndFixForCalc(CPriceDataPtr(), 4, kBuy, 12.34));
}

TEST_F(PriceHelperTest, NullQuoteIsNoPrice) {
    for (int type = -1; type <= 15; ++type) {
        EXPECT_EQ(kNoPrice, CPriceDataHelper::getPriceForOrder(CPriceDataPtr(), type, kBuy)) << type;
        EXPECT_EQ(kNoPrice, CPriceDataHelper::getPriceForCalc(CPriceDataPtr(), type, kSell)) << type;
        EXPECT_EQ(kNoPrice, CPriceDataHelper::getOriginPrice(CPriceDataPtr(), type, kBuy)) << type;
    }
}

TEST_F(PriceHelperTest, OriginPriceReadsOneFieldWithNoFallback) {
    CPriceDataPtr q = fullBook();
    q->m_dAskPrice5 = 0.0;  // empty, and returned as it is
    const struct {
        int type;
        int operation;
        double expected;
    } cases[] = {
        {0, kBuy, 0.0},      {1, kBuy, 10.4},      {2, kBuy, 10.3},      {3, kBuy, 10.2},    {4, kBuy, 10.1},
        {5, kBuy, 10.05},    {6, kBuy, 10.0},      {7, kBuy, 9.9},       {8, kBuy, 9.8},     {9, kBuy, 9.7},
        {10, kBuy, 9.6},     {11, kBuy, kNoPrice}, {12, kBuy, kNoPrice}, {12, kSell, kNoPrice},
        {13, kBuy, 10.0},    {13, kSell, 10.1},    {14, kBuy, 10.1},     {14, kSell, 10.0},
        {15, kBuy, kNoPrice}, {-1, kBuy, kNoPrice},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, CPriceDataHelper::getOriginPrice(q, c.type, c.operation)) << c.type << "/" << c.operation;
}

// ---- Limit check --------------------------------------------------------------------------------

TEST_F(PriceHelperTest, OutOfLimitPriceIsLoggedNotClamped) {
    const struct {
        const char* what;
        double last;
        double upper;
        double lower;
        int type;
        const char* line;  // the expected line, or nullptr for none
    } cases[] = {
        {"above the upper limit", 12.0, 11.0, 9.0, 5,
         "Price:12 greater than upperLimitPrice:11 or less than lowerLimitPrice:9"},
        {"below the lower limit", 8.5, 11.0, 9.0, 5,
         "Price:8.5 greater than upperLimitPrice:11 or less than lowerLimitPrice:9"},
        {"inside", 10.0, 11.0, 9.0, 5, nullptr},
        {"on the upper limit within the tolerance", 11.000005, 11.0, 9.0, 5, nullptr},
        {"limits absent (zero)", 12.0, 0.0, 0.0, 5, nullptr},
    };
    for (const auto& c : cases) {
        for (int flavour = 0; flavour < 2; ++flavour) {
            CPriceDataPtr q = fullBook();
            clearBook(*q);
            q->m_dLastPrice = c.last;
            q->m_dUpperLimitPrice = c.upper;
            q->m_dLowerLimitPrice = c.lower;
            test::LogCapture capture;
            const double p = flavour == 0 ? CPriceDataHelper::getPriceForOrder(q, c.type, kBuy)
                                          : CPriceDataHelper::getPriceForCalc(q, c.type, kBuy);
            EXPECT_DOUBLE_EQ(c.last, p) << c.what;
            if (c.line) {
                const std::vector<test::LogCapture::Line> lines = capture.lines();
                ASSERT_EQ(1u, lines.size()) << c.what;
                EXPECT_EQ(c.line, lines[0].text) << c.what;
                EXPECT_EQ(utils::LOGGER_STD, lines[0].logger) << c.what;
                EXPECT_EQ(utils::TT_LOG_ERROR, lines[0].level) << c.what;
            } else {
                EXPECT_EQ(0u, capture.count(kLimitLine)) << c.what;
            }
        }
    }
}

TEST_F(PriceHelperTest, ExchangeRuleResultsAreNotLimitChecked) {
    CPriceDataPtr q = fullBook("HGT");
    q->m_dLastPrice = 50.0;  // far outside 9..11
    test::LogCapture capture;
    EXPECT_DOUBLE_EQ(50.0, CPriceDataHelper::getPriceForCalc(q, 12, kBuy));
    EXPECT_DOUBLE_EQ(0.0, CPriceDataHelper::getPriceForOrder(q, 12, kBuy));
    EXPECT_EQ(0u, capture.count(kLimitLine));
    // The same last price through an ordinary type is checked.
    EXPECT_DOUBLE_EQ(50.0, CPriceDataHelper::getPriceForCalc(q, 5, kBuy));
    EXPECT_EQ(1u, capture.count(kLimitLine));
}

// ---- Exchange rules with a data center ----------------------------------------------------------

TEST_F(PriceHelperTest, MarketOrdersFollowTheInstrumentWhenTheDataCenterKnowsIt) {
    boost::shared_ptr<test::FakeDataCenter> dataCenter = boost::make_shared<test::FakeDataCenter>();
    const auto instrument = [](const char* exchange, const char* code, int maxMarket) {
        CInstrumentDetailPtr i = test::makeInstrument(exchange, code);
        i->m_nMaxMarketOrderVolume = maxMarket;
        return i;
    };
    dataCenter->setInstrumentDetail({"CFFEX", "DCE", "SHFE"},
                                    {instrument("CFFEX", "IF2501", 10), instrument("CFFEX", "T2503", 0),
                                     instrument("DCE", "m2505", 0), instrument("SHFE", "rb2505", 100)});
    TraderCenter::instance()->setDataCenter(dataCenter);
    const struct {
        const char* exchange;
        const char* code;
        bool market;
    } cases[] = {
        {"CFFEX", "IF2501", true}, {"CFFEX", "T2503", false}, {"CFFEX", "IC2501", false},
        {"DCE", "m2505", false},   {"DCE", "y2505", true},    {"SHFE", "rb2505", false},
        {"INE", "sc2505", false},  {"SH", "600000", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.market, CPriceDataHelper::isSupportMarketPrice(c.exchange, c.code)) << c.exchange << c.code;
        CPriceDataPtr q = fullBook(c.exchange);
        q->m_strInstrumentID = c.code;
        EXPECT_DOUBLE_EQ(c.market ? 0.0 : 11.0, CPriceDataHelper::getPriceForOrder(q, 12, kBuy)) << c.exchange << c.code;
    }
}

// ---- Last price ---------------------------------------------------------------------------------

// A data center that answers one quote and one market status.
class QuoteDataCenter : public test::FakeDataCenter {
public:
    CPriceDataPtr getPrice(int, const std::string& market, const std::string& code) override {
        return m_quote && m_quote->m_strExchangeID == market && m_quote->m_strInstrumentID == code ? m_quote
                                                                                                 : CPriceDataPtr();
    }
    int getMarketStatus(const std::string&) const override { return m_status; }
    CPriceDataPtr m_quote;
    int m_status = 0;
};

TEST_F(PriceHelperTest, LastPriceFallbacksAndTheirLines) {
    const std::string ids = "platformID:20001, exchangeID:SHFE, instrumentID:rb2505";
    const struct {
        const char* what;
        bool dataCenter;
        bool quote;
        double last;
        double preClose;
        int status;
        double instrumentPreClose;  // the data center's instrument record; 0: none
        double expected;
        std::string line;  // "" for no line
    } cases[] = {
        {"valid last", true, true, 3500.5, 3490.0, 50, 0, 3500.5, ""},
        {"zero last, market not trading", true, true, 0.0, 3490.0, 48, 0, 3490.0,
         "lastPrice is zero, not exchanging status, use lastCosePrice, " + ids + ", preClose:3490"},
        {"zero last, market status unknown", true, true, 0.0, 3490.0, 0, 0, 3490.0,
         "lastPrice is zero, not exchanging status, use lastCosePrice, " + ids + ", preClose:3490"},
        {"negative last counts as zero", true, true, -1.0, 3490.0, 54, 0, 3490.0,
         "lastPrice is zero, not exchanging status, use lastCosePrice, " + ids + ", preClose:3490"},
        {"zero last while trading", true, true, 0.0, 3490.0, 50, 0, 3490.0,
         "lastPrice is Invalid, assign lastCosePrice, " + ids + ", preClose:3490"},
        {"no-price last", true, true, kNoPrice, 3490.0, 48, 0, 3490.0,
         "lastPrice is Invalid, assign lastCosePrice, " + ids + ", preClose:3490"},
        {"infinite last", true, true, std::numeric_limits<double>::infinity(), 3490.0, 50, 0, 3490.0,
         "lastPrice is Invalid, assign lastCosePrice, " + ids + ", preClose:3490"},
        {"NaN last, no previous close", true, true, kNaN, 0.0, 50, 0, 0.0, "lastPrice is Invalid, assign 0.0, " + ids},
        {"zero last and zero previous close outside trading", true, true, 0.0, 0.0, 48, 0, 0.0,
         "lastPrice is Invalid, assign 0.0, " + ids},
        {"no quote, instrument's previous close", true, false, 0, 0, 50, 3480.0, 3480.0,
         "getLastPrice failure, use lastCosePrice, " + ids + ", preClose:3480"},
        {"no quote, no instrument", true, false, 0, 0, 50, 0, 0.0,
         "getLastPrice failure, use lastCosePrice, " + ids + ", preClose:0"},
        {"no data center", false, false, 0, 0, 0, 0, 0.0,
         "getLastPrice failure, use lastCosePrice, " + ids + ", preClose:0"},
    };
    for (const auto& c : cases) {
        TraderCenter::instance()->reset();
        if (c.dataCenter) {
            boost::shared_ptr<QuoteDataCenter> dc = boost::make_shared<QuoteDataCenter>();
            if (c.quote) {
                dc->m_quote = test::makeQuote("SHFE", "rb2505", c.last, c.preClose);
                dc->m_quote->m_nPlatformId = 20001;
            }
            dc->m_status = c.status;
            if (c.instrumentPreClose > 0) {
                CInstrumentDetailPtr i = test::makeInstrument("SHFE", "rb2505");
                i->m_dPreClosePrice = c.instrumentPreClose;
                dc->setInstrumentDetail({"SHFE"}, {i});
            }
            TraderCenter::instance()->setDataCenter(dc);
        }
        test::LogCapture capture;
        EXPECT_DOUBLE_EQ(c.expected, CPriceDataHelper::getLastPrice(20001, "SHFE", "rb2505")) << c.what;
        const std::vector<std::string> lines = capture.texts(utils::LOGGER_STD);
        if (c.line.empty()) {
            EXPECT_TRUE(lines.empty()) << c.what;
        } else {
            ASSERT_EQ(1u, lines.size()) << c.what;
            EXPECT_EQ(c.line, lines[0]) << c.what;
        }
    }
}

// ---- Settlement price ---------------------------------------------------------------------------

class SettlementPriceTest : public test::StoreTestFixture {
protected:
    // The account's fee record of the DCE option m2505-C-3000 on the future m2505.
    CInstrumentFeePtr fileOptionFee(const CAccountDataPtr& store) {
        CInstrumentDetailPtr option = test::makeInstrument("DCE", "m2505-C-3000", "m_o");
        option->m_strUnderlyingInstrID = "m2505";
        CInstrumentFeePtr fee = test::makeInstrumentFee(m_info, option);
        store->setData(fee);
        return fee;
    }
};

TEST_F(SettlementPriceTest, UnderlyingPreviousSettlementFromTheStore) {
    CAccountDataPtr store = makeStore();
    const CInstrumentFeePtr filed = fileOptionFee(store);
    store->setLastSettlement({{"DCEm2505", 3050.0}, {"DCEm2505-C-3000", 120.0}});

    test::LogCapture capture;
    CInstrumentFeePtr fee;
    EXPECT_DOUBLE_EQ(3050.0, CPriceDataHelper::getSettlementPrice(store, "DCE", "m2505-C-3000", fee));
    EXPECT_EQ(filed, fee) << "the looked-up fee record is handed back";
    EXPECT_EQ(0u, capture.count("is not found"));
}

TEST_F(SettlementPriceTest, UnderlyingInstrumentRecordWhenTheStoreHasNoSettlement) {
    CAccountDataPtr store = makeStore();
    fileOptionFee(store);
    CInstrumentDetailPtr future = test::makeInstrument("DCE", "m2505");
    future->m_dPreSettlementPrice = 3040.0;
    m_dataCenter->setInstrumentDetail({"DCE"}, {future});
    CInstrumentFeePtr fee;
    EXPECT_DOUBLE_EQ(3040.0, CPriceDataHelper::getSettlementPrice(store, "DCE", "m2505-C-3000", fee));
}

TEST_F(SettlementPriceTest, MissingFeeAndMissingSettlementAreLogged) {
    CAccountDataPtr store = makeStore();
    {
        test::LogCapture capture;
        CInstrumentFeePtr fee;
        EXPECT_EQ(kNoPrice, CPriceDataHelper::getSettlementPrice(store, "DCE", "m2505-C-3000", fee));
        EXPECT_FALSE(fee);
        EXPECT_EQ(1u, capture.count("getSettlementPrice getInstrumentFee for m2505-C-3000 is not found"));
    }
    fileOptionFee(store);
    {
        test::LogCapture capture;
        CInstrumentFeePtr fee;
        EXPECT_EQ(kNoPrice, CPriceDataHelper::getSettlementPrice(store, "DCE", "m2505-C-3000", fee));
        EXPECT_TRUE(fee);
        EXPECT_EQ(1u, capture.count("calcExchFtOptionMargin PreSettlementPrice for m2505-C-3000 is not found"));
    }
    {
        // A fee record the caller already holds is used as given, even without a store.
        CInstrumentDetailPtr option = test::makeInstrument("DCE", "m2505-C-3000");
        option->m_strUnderlyingInstrID = "m2505";
        CInstrumentFeePtr given = test::makeInstrumentFee(m_info, option);
        test::LogCapture capture;
        EXPECT_EQ(kNoPrice, CPriceDataHelper::getSettlementPrice(CAccountDataPtr(), "DCE", "m2505-C-3000", given));
        EXPECT_EQ(1u, capture.count("calcExchFtOptionMargin PreSettlementPrice"));
        EXPECT_EQ(0u, capture.count("getInstrumentFee"));
    }
}

// ---- Quote freshness, log string, volume --------------------------------------------------------

TEST(PriceHelperTimeTest, NightSessionQuotesBelongToTheNextTradingDay) {
    const int d = 20250106, d1 = 20250107;
    const auto at = [](int date, int time) { return utils::dateTimeToSeconds(date, time); };
    const struct {
        const char* what;
        int64_t first;
        int64_t second;
        bool newer;
    } cases[] = {
        {"night stamp D+1 21:00 is newer than D 15:00", at(d, 150000), at(d1, 210000), true},
        {"D+1 09:00 is newer than the night stamp D+1 21:00", at(d1, 210000), at(d1, 90000), true},
        {"night stamp D+1 21:00 is older than D+1 09:00", at(d1, 90000), at(d1, 210000), false},
        {"18:00:00 is already night: D+1 18:00 before D+1 17:59:59", at(d1, 175959), at(d1, 180000), false},
        {"17:59:59 is still day", at(d, 175959), at(d1, 180000), true},
        {"day quotes compare as they are", at(d1, 90000), at(d1, 90001), true},
        {"an older day quote", at(d1, 90001), at(d1, 90000), false},
        {"equal is not newer", at(d1, 93000), at(d1, 93000), false},
        {"night quotes among themselves", at(d1, 210000), at(d1, 230000), true},
    };
    for (const auto& c : cases) {
        ASSERT_GT(c.first, 0) << c.what;
        ASSERT_GT(c.second, 0) << c.what;
        EXPECT_EQ(c.newer, CPriceDataHelper::isNewPriceSecond(c.first, c.second)) << c.what;
    }
}

TEST(PriceHelperTextTest, LogStringAndRealVolume) {
    EXPECT_EQ("", CPriceDataHelper::getLogString(CPriceDataPtr()));
    CPriceDataPtr q = test::makeQuote("SHFE", "rb2505", 3500.5, 3490.0);
    q->m_nPlatformId = 20001;
    q->m_strUpdateTime = "09:30:01";
    q->m_strTradingDay = "20250106";
    EXPECT_EQ(
        "[ m_nPlatformId: 20001, m_strExchangeID: SHFE, m_strInstrumentID: rb2505, m_strUpdateTime: 09:30:01, "
        "m_strTradingDay: 20250106, m_dLastPrice: 3500.5, m_dPreClosePrice: 3490 ]",
        CPriceDataHelper::getLogString(q));

    EXPECT_EQ(0, CPriceDataHelper::toRealVolume(CPriceDataPtr()));
    const struct {
        int64_t volume;
        int unit;
        int lots;
    } cases[] = {
        {12345, 100, 123}, {500, 1, 500},  {500, 0, 500}, {500, -10, 500},
        {99, 100, 0},      {int64_t(1) << 40, 1, std::numeric_limits<int>::max()},
        {int64_t(1) << 40, 1000, 1099511627},
    };
    for (const auto& c : cases) {
        q->m_nVolume = c.volume;
        q->m_nVolumeUnit = c.unit;
        EXPECT_EQ(c.lots, CPriceDataHelper::toRealVolume(q)) << c.volume << "/" << c.unit;
    }
}

}  // namespace
}  // namespace ttservice
