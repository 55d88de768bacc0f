// CPriceDataHelper: price selection for orders and for calculations, the exchange rules of type 12,
// the limit check, last and settlement prices, quote freshness and the direction of operations.
#include "base/data/CPriceDataHelper.h"
#include "base/data/DataHelper.h"
#include "testing/LogCapture.h"
#include "testing/StoreTestFixture.h"
#include "utils/TimeUtils.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <set>
#include <string>
#include <vector>

namespace ttservice {
namespace {

const double kNoPrice = std::numeric_limits<double>::max();
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();
const int kBuy = OPT_OPEN_LONG;            // direction buy, isBuy
const int kSell = OPT_CLOSE_LONG_HISTORY;  // direction sell
const char* const kLimitLine = "greater than upperLimitPrice";

typedef std::array<double, 5> Levels;  // level 1 first
const Levels kAsks = {10.1, 10.2, 10.3, 10.4, 10.5};
const Levels kBids = {10.0, 9.9, 9.8, 9.7, 9.6};
const Levels kNone = {0, 0, 0, 0, 0};

struct Book {
    const char* exchange;
    Levels asks, bids;
    double last, preClose, upper, lower;
};
const Book kFull = {"SH", kAsks, kBids, 10.05, 9.5, 11.0, 9.0};

CPriceDataPtr quote(const Book& b, const char* instrument = "600000") {
    CPriceDataPtr q = boost::make_shared<CPriceData>();
    q->m_strExchangeID = b.exchange;
    q->m_strInstrumentID = instrument;
    double* asks[] = {&q->m_dAskPrice1, &q->m_dAskPrice2, &q->m_dAskPrice3, &q->m_dAskPrice4, &q->m_dAskPrice5};
    double* bids[] = {&q->m_dBidPrice1, &q->m_dBidPrice2, &q->m_dBidPrice3, &q->m_dBidPrice4, &q->m_dBidPrice5};
    for (int i = 0; i < 5; ++i) {
        *asks[i] = b.asks[i];
        *bids[i] = b.bids[i];
    }
    q->m_dLastPrice = b.last;
    q->m_dPreClosePrice = b.preClose;
    q->m_dUpperLimitPrice = b.upper;
    q->m_dLowerLimitPrice = b.lower;
    return q;
}

// Each test starts with no data center, so isSupportMarketPrice answers by the exchange default.
class PriceHelperTest : public ::testing::Test {
protected:
    void SetUp() override { TraderCenter::instance()->reset(); }
    void TearDown() override { TraderCenter::instance()->reset(); }
};

TEST(PriceHelperDirectionTest, DirectionOfEveryOperationAgreesWithTheOtherTables) {
    const std::set<int> sells = {1,  2,  3,  6,  7,  10, 11, 14, 19, 21,   24,   27,   29,   33,  34,
                                 36, 39, 43, 45, 47, 49, 50, 52, 1005, 1007, 1010, 1014, 1021, 1022};
    for (int op = -3; op <= 1030; ++op) {
        const int direction = getDirectionByOperation(op);
        EXPECT_EQ(sells.count(op) ? '1' : '0', direction) << op;
        const int offset = DataHelper::getOffsetFlagByOperation(op);
        // Every buying operation goes out as a buy; a long one that opens buys, one that closes sells.
        if (DataHelper::isBuy(op) || (DataHelper::isLong(op) && offset == '0')) {
            EXPECT_EQ('0', direction) << op;
        }
        if (DataHelper::isLong(op) && (offset == '1' || offset == '3')) {
            EXPECT_EQ('1', direction) << op;
        }
    }
    // Far outside the tables: buy, whatever the bits of the value.
    for (int op : {std::numeric_limits<int>::min(), -1000000, 1069, 1005 + 64, 1000000, std::numeric_limits<int>::max()})
        EXPECT_EQ('0', getDirectionByOperation(op)) << op;
}

TEST(PriceHelperEmptyTest, EmptyPriceBoundaries) {
    const double tol = 1e-5;
    const struct {
        double price;
        bool empty;
    } cases[] = {{0.0, true},  {-0.0, true}, {1e-6, true}, {tol, true}, {-tol, true},
                 {std::nextafter(tol, 1.0), false}, {-std::nextafter(tol, 1.0), false},  // negative prices count
                 {std::numeric_limits<double>::denorm_min(), true}, {10.0, false}, {kNoPrice, true}, {-kNoPrice, true},
                 {std::nextafter(kNoPrice, 0.0), false}, {kInf, true}, {-kInf, true}, {kNaN, true}, {-kNaN, true}};
    for (const auto& c : cases) EXPECT_EQ(c.empty, price_detail::isEmptyPrice(c.price)) << c.price;
}

struct SelectCase {
    const char* what;
    Book book;
    int type, operation;
    double order, calc;  // getPriceForOrder, getPriceForCalc
};

void runSelectCases(const std::vector<SelectCase>& cases) {
    for (const SelectCase& c : cases) {
        const CPriceDataPtr q = quote(c.book);
        EXPECT_DOUBLE_EQ(c.order, CPriceDataHelper::getPriceForOrder(q, c.type, c.operation)) << c.what << " (order)";
        EXPECT_DOUBLE_EQ(c.calc, CPriceDataHelper::getPriceForCalc(q, c.type, c.operation)) << c.what << " (calc)";
    }
}

TEST_F(PriceHelperTest, EveryTypeOnAFullBook) {
    runSelectCases({
        {"ask 5", kFull, 0, kBuy, 10.5, 10.5},    {"ask 4", kFull, 1, kBuy, 10.4, 10.4},
        {"ask 3", kFull, 2, kSell, 10.3, 10.3},   {"ask 2", kFull, 3, kBuy, 10.2, 10.2},
        {"ask 1", kFull, 4, kSell, 10.1, 10.1},   {"last", kFull, 5, kBuy, 10.05, 10.05},
        {"bid 1", kFull, 6, kBuy, 10.0, 10.0},    {"bid 2", kFull, 7, kSell, 9.9, 9.9},
        {"bid 3", kFull, 8, kBuy, 9.8, 9.8},      {"bid 4", kFull, 9, kSell, 9.7, 9.7},
        {"bid 5", kFull, 10, kBuy, 9.6, 9.6},     {"fixed in a plain selector: last", kFull, 11, kBuy, 10.05, 10.05},
        {"own side, buy: bid 1", kFull, 13, kBuy, 10.0, 10.0},
        {"own side, sell: ask 1", kFull, 13, kSell, 10.1, 10.1},
        {"opposite side, buy: ask 1", kFull, 14, kBuy, 10.1, 10.1},
        {"opposite side, sell: bid 1", kFull, 14, kSell, 10.0, 10.0},
        {"type 12 buy on a stock: upper limit", kFull, 12, kBuy, 11.0, 11.0},
        {"type 12 sell on a stock: lower limit", kFull, 12, kSell, 9.0, 9.0},
        {"unknown type 15: last", kFull, 15, kBuy, 10.05, 10.05},
        {"unknown type -1: last", kFull, -1, kSell, 10.05, 10.05},
    });
}

TEST_F(PriceHelperTest, LadderWalksTowardsLevelOneThenLastThenPreviousClose) {
    runSelectCases({
        {"ask 3 asked, only ask 1 quoted", {"SH", {10.1, 0, 0, 0, 0}, kBids, 10.05, 9.5, 11, 9}, 2, kBuy, 10.1, 10.1},
        {"ask 3 asked, empty book", {"SH", kNone, kNone, 10.05, 9.5, 11, 9}, 2, kBuy, 10.05, 10.05},
        {"ask 3 asked, empty book, last zero", {"SH", kNone, kNone, 0, 9.5, 11, 9}, 2, kBuy, 9.5, 9.5},
        {"ask 5 zero, ask 4 the no-price value", {"SH", {10.1, 10.2, 10.3, kNoPrice, 0}, kBids, 10.05, 9.5, 11, 9}, 0,
         kBuy, 10.3, 10.3},
        {"within 1e-5 of zero is empty", {"SH", {10.1, 10.2, 10.3, 10.4, 5e-6}, kBids, 10.05, 9.5, 11, 9}, 0, kBuy,
         10.4, 10.4},
        {"bid 5 and 4 empty", {"SH", kAsks, {10.0, 9.9, 9.8, 0, 0}, 10.05, 9.5, 11, 9}, 10, kSell, 9.8, 9.8},
        {"bid 2 empty: walks to bid 1, never out to bid 3", {"SH", kAsks, {10.0, 0, 9.8, 9.7, 9.6}, 10.05, 9.5, 11, 9},
         7, kSell, 10.0, 10.0},
        {"ask 2 and 1 empty: last, never ask 3", {"SH", {0, 0, 10.3, 10.4, 10.5}, kBids, 10.05, 9.5, 11, 9}, 3, kBuy,
         10.05, 10.05},
        {"a NaN level is no price", {"SH", {kNaN, 10.2, 10.3, 10.4, 10.5}, kBids, 10.05, 9.5, 11, 9}, 4, kBuy, 10.05,
         10.05},
        {"own side for a sell: ask 1 only", {"SH", {0, 10.2, 10.3, 10.4, 10.5}, kBids, 10.05, 9.5, 11, 9}, 13, kSell,
         10.05, 10.05},
        {"nothing at all: the empty previous close", {"SH", kNone, kNone, 0, 0, 11, 9}, 5, kBuy, 0.0, 0.0},
    });
}

TEST_F(PriceHelperTest, TypeTwelveLimitsPlaceholderAndExchangeRules) {
    runSelectCases({
        {"buy, upper limit the 100000.0 placeholder: ask 5", {"SH", kAsks, kBids, 10.05, 9.5, 100000.0, 9}, 12, kBuy,
         10.5, 10.5},
        {"buy, placeholder within 0.0001", {"SH", kAsks, kBids, 10.05, 9.5, 100000.00005, 9}, 12, kBuy, 10.5, 10.5},
        {"buy, placeholder, ask 5 empty: the next ask", {"SH", {10.1, 10.2, 10.3, 10.4, 0}, kBids, 10.05, 9.5, 1e5, 9},
         12, kBuy, 10.4, 10.4},
        {"buy, no upper limit: ask 5", {"SH", kAsks, kBids, 10.05, 9.5, 0, 9}, 12, kBuy, 10.5, 10.5},
        {"sell, lower limit 100000.0: no placeholder test", {"SH", kAsks, kBids, 10.05, 9.5, 0, 100000.0}, 12, kSell,
         100000.0, 100000.0},
        {"sell, no lower limit, bid 5 empty: bid 4", {"SH", kAsks, {10.0, 9.9, 9.8, 9.7, 0}, 10.05, 9.5, 11, 0}, 12,
         kSell, 9.7, 9.7},
        {"HGT: market order at 0.0, calc at the last price", {"HGT", kAsks, kBids, 10.05, 9.5, 11, 9}, 12, kBuy, 0.0,
         10.05},
        {"SGT sell", {"SGT", kAsks, kBids, 10.05, 9.5, 11, 9}, 12, kSell, 0.0, 10.05},
        {"HGT calc takes the last price as it stands", {"HGT", kAsks, kBids, 0, 9.5, 11, 9}, 12, kBuy, 0.0, 0.0},
        {"HGT, other types as usual", {"HGT", kAsks, kBids, 10.05, 9.5, 11, 9}, 4, kBuy, 10.1, 10.1},
        {"DCE takes market orders; calc at the upper limit", {"DCE", kAsks, kBids, 10.05, 9.5, 11, 9}, 12, kBuy, 0.0,
         11.0},
        {"CZCE by its short code, sell", {"ZF", kAsks, kBids, 10.05, 9.5, 11, 9}, 12, kSell, 0.0, 9.0},
        {"SHFE takes no market orders", {"SHFE", kAsks, kBids, 10.05, 9.5, 11, 9}, 12, kBuy, 11.0, 11.0},
        {"INE sell", {"INE", kAsks, kBids, 10.05, 9.5, 11, 9}, 12, kSell, 9.0, 9.0},
        {"CFFEX contract unknown: the limit", {"CFFEX", kAsks, kBids, 10.05, 9.5, 11, 9}, 12, kBuy, 11.0, 11.0},
        {"futures calc: the limit with no fallback", {"SHFE", kAsks, kBids, 10.05, 9.5, 0, 9}, 12, kBuy, 10.5, 0.0},
        // Operation 15 (close short) goes out as a buy but is none of isBuy's operations.
        {"futures calc side follows isBuy, order side the direction", {"SF", kAsks, kBids, 10.05, 9.5, 11, 9}, 12,
         OPT_CLOSE_SHORT, 11.0, 9.0},
    });
}

TEST_F(PriceHelperTest, FixedPriceNullQuoteAndOriginPrice) {
    const CPriceDataPtr q = quote(kFull);
    for (int type : {11, 4, 12}) {
        const double plain = CPriceDataHelper::getPriceForOrder(q, type, kBuy);
        EXPECT_DOUBLE_EQ(type == 11 ? 12.34 : plain, CPriceDataHelper::getPriceAndFixForOrder(q, type, kBuy, 12.34));
        EXPECT_DOUBLE_EQ(type == 11 ? 12.34 : plain, CPriceDataHelper::getPriceAndFixForCalc(q, type, kBuy, 12.34));
    }
    EXPECT_DOUBLE_EQ(12.34, CPriceDataHelper::getPriceAndFixForOrder(CPriceDataPtr(), 11, kBuy, 12.34));
    for (int type = -1; type <= 15; ++type) {
        EXPECT_EQ(kNoPrice, CPriceDataHelper::getPriceForOrder(CPriceDataPtr(), type, kBuy)) << type;
        EXPECT_EQ(kNoPrice, CPriceDataHelper::getPriceForCalc(CPriceDataPtr(), type, kSell)) << type;
        EXPECT_EQ(kNoPrice, CPriceDataHelper::getOriginPrice(CPriceDataPtr(), type, kBuy)) << type;
    }
    const CPriceDataPtr thin = quote({"SH", {10.1, 10.2, 10.3, 10.4, 0}, kBids, 10.05, 9.5, 11, 9});
    const struct {
        int type, operation;
        double expected;
    } cases[] = {{0, kBuy, 0.0},  // empty, and no fallback
                 {1, kBuy, 10.4},        {4, kBuy, 10.1},       {5, kBuy, 10.05},      {6, kBuy, 10.0},
                 {10, kBuy, 9.6},        {11, kBuy, kNoPrice},  {12, kBuy, kNoPrice},  {12, kSell, kNoPrice},
                 {13, kBuy, 10.0},       {13, kSell, 10.1},     {14, kBuy, 10.1},      {14, kSell, 10.0},
                 {15, kBuy, kNoPrice},   {-1, kBuy, kNoPrice}};
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, CPriceDataHelper::getOriginPrice(thin, c.type, c.operation)) << c.type << "/" << c.operation;
}

TEST_F(PriceHelperTest, OutOfLimitPriceIsLoggedNotClamped) {
    const struct {
        const char* what;
        Book book;
        int type;
        double order, calc;
        const char* line;  // nullptr: no line
    } cases[] = {
        {"above the upper limit", {"SH", kNone, kNone, 12.0, 9.5, 11, 9}, 5, 12.0, 12.0,
         "Price:12 greater than upperLimitPrice:11 or less than lowerLimitPrice:9"},
        {"below the lower limit", {"SH", kNone, kNone, 8.5, 9.5, 11, 9}, 5, 8.5, 8.5,
         "Price:8.5 greater than upperLimitPrice:11 or less than lowerLimitPrice:9"},
        {"inside", {"SH", kNone, kNone, 10.0, 9.5, 11, 9}, 5, 10.0, 10.0, nullptr},
        {"on the limit within the tolerance", {"SH", kNone, kNone, 11.000005, 9.5, 11, 9}, 5, 11.000005, 11.000005,
         nullptr},
        {"limits absent (zero)", {"SH", kNone, kNone, 12.0, 9.5, 0, 0}, 5, 12.0, 12.0, nullptr},
        {"an exchange rule's price is final", {"HGT", kNone, kNone, 50.0, 9.5, 11, 9}, 12, 0.0, 50.0, nullptr},
    };
    for (const auto& c : cases) {
        for (bool forOrder : {true, false}) {
            const CPriceDataPtr q = quote(c.book);
            test::LogCapture capture;
            EXPECT_DOUBLE_EQ(forOrder ? c.order : c.calc, forOrder ? CPriceDataHelper::getPriceForOrder(q, c.type, kBuy)
                                                                   : CPriceDataHelper::getPriceForCalc(q, c.type, kBuy))
                << c.what;
            if (!c.line) {
                EXPECT_EQ(0u, capture.count(kLimitLine)) << c.what;
                continue;
            }
            const std::vector<test::LogCapture::Line> lines = capture.lines();
            ASSERT_EQ(1u, lines.size()) << c.what;
            EXPECT_EQ(c.line, lines[0].text) << c.what;
            EXPECT_EQ(utils::LOGGER_STD, lines[0].logger) << c.what;
            EXPECT_EQ(utils::TT_LOG_ERROR, lines[0].level) << c.what;
        }
    }
}

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
        const char *exchange, *code;
        bool market;
    } cases[] = {{"CFFEX", "IF2501", true}, {"CFFEX", "T2503", false}, {"CFFEX", "IC2501", false},
                 {"DCE", "m2505", false},   {"DCE", "y2505", true},    {"SHFE", "rb2505", false},
                 {"INE", "sc2505", false},  {"SH", "600000", false}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.market, CPriceDataHelper::isSupportMarketPrice(c.exchange, c.code)) << c.exchange << c.code;
        const CPriceDataPtr q = quote({c.exchange, kAsks, kBids, 10.05, 9.5, 11, 9}, c.code);
        EXPECT_DOUBLE_EQ(c.market ? 0.0 : 11.0, CPriceDataHelper::getPriceForOrder(q, 12, kBuy)) << c.exchange << c.code;
    }
}

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
    const std::string zero = "lastPrice is zero, not exchanging status, use lastCosePrice, " + ids;
    const std::string invalid = "lastPrice is Invalid, assign lastCosePrice, " + ids;
    const std::string none = "lastPrice is Invalid, assign 0.0, " + ids;
    const std::string failure = "getLastPrice failure, use lastCosePrice, " + ids;
    const int kNoDataCenter = -1, kNoQuote = -2;
    const struct {
        int status;  // market status, or kNoDataCenter / kNoQuote
        double last, preClose, expected;
        std::string line;  // "" for none
    } cases[] = {
        {50, 3500.5, 3490, 3500.5, ""},
        {48, 0.0, 3490, 3490, zero + ", preClose:3490"},
        {0, 0.0, 3490, 3490, zero + ", preClose:3490"},  // an unknown status is not trading
        {54, -1.0, 3490, 3490, zero + ", preClose:3490"},
        {50, 0.0, 3490, 3490, invalid + ", preClose:3490"},  // zero during continuous trading
        {48, kNoPrice, 3490, 3490, invalid + ", preClose:3490"},
        {50, kInf, 3490, 3490, invalid + ", preClose:3490"},
        {50, kNaN, 0.0, 0.0, none},
        {48, 0.0, 0.0, 0.0, none},
        {kNoQuote, 0, 3480, 3480, failure + ", preClose:3480"},  // the instrument record's previous close
        {kNoQuote, 0, 0, 0.0, failure + ", preClose:0"},
        {kNoDataCenter, 0, 0, 0.0, failure + ", preClose:0"},
    };
    for (const auto& c : cases) {
        TraderCenter::instance()->reset();
        if (c.status != kNoDataCenter) {
            boost::shared_ptr<QuoteDataCenter> dc = boost::make_shared<QuoteDataCenter>();
            if (c.status == kNoQuote) {
                CInstrumentDetailPtr i = test::makeInstrument("SHFE", "rb2505");
                i->m_dPreClosePrice = c.preClose;
                dc->setInstrumentDetail({"SHFE"}, {i});
            } else {
                dc->m_quote = test::makeQuote("SHFE", "rb2505", c.last, c.preClose);
                dc->m_status = c.status;
            }
            TraderCenter::instance()->setDataCenter(dc);
        }
        test::LogCapture capture;
        EXPECT_DOUBLE_EQ(c.expected, CPriceDataHelper::getLastPrice(20001, "SHFE", "rb2505")) << c.line;
        const std::vector<std::string> lines = capture.texts(utils::LOGGER_STD);
        ASSERT_EQ(c.line.empty() ? 0u : 1u, lines.size()) << c.status << "/" << c.last;
        if (!c.line.empty()) {
            EXPECT_EQ(c.line, lines[0]);
        }
    }
}

class SettlementPriceTest : public test::StoreTestFixture {};

TEST_F(SettlementPriceTest, UnderlyingPreviousSettlementAndTheMissingCases) {
    const std::string option = "m2505-C-3000";
    const auto optionFee = [this](const std::string& code) {
        CInstrumentDetailPtr detail = test::makeInstrument("DCE", code);
        detail->m_strUnderlyingInstrID = "m2505";
        return test::makeInstrumentFee(m_info, detail);
    };
    CAccountDataPtr store = makeStore();
    {
        test::LogCapture capture;
        CInstrumentFeePtr fee;
        EXPECT_EQ(kNoPrice, CPriceDataHelper::getSettlementPrice(store, "DCE", option, fee));
        EXPECT_FALSE(fee);
        EXPECT_EQ(1u, capture.count("getSettlementPrice getInstrumentFee for m2505-C-3000 is not found"));
    }
    const CInstrumentFeePtr filed = optionFee(option);
    store->setData(filed);
    {
        test::LogCapture capture;
        CInstrumentFeePtr fee;
        EXPECT_EQ(kNoPrice, CPriceDataHelper::getSettlementPrice(store, "DCE", option, fee));
        EXPECT_EQ(filed, fee) << "the looked-up fee record is handed back";
        EXPECT_EQ(1u, capture.count("calcExchFtOptionMargin PreSettlementPrice for m2505-C-3000 is not found"));
    }
    // The underlying's instrument record, then the store's settlement table, which wins.
    CInstrumentDetailPtr future = test::makeInstrument("DCE", "m2505");
    future->m_dPreSettlementPrice = 3040.0;
    m_dataCenter->setInstrumentDetail({"DCE"}, {future});
    CInstrumentFeePtr fee;
    EXPECT_DOUBLE_EQ(3040.0, CPriceDataHelper::getSettlementPrice(store, "DCE", option, fee));
    store->setLastSettlement({{"DCEm2505", 3050.0}, {"DCEm2505-C-3000", 120.0}});
    EXPECT_DOUBLE_EQ(3050.0, CPriceDataHelper::getSettlementPrice(store, "DCE", option, fee));
    // A fee record the caller holds is used as given, even without a store.
    CInstrumentFeePtr given = optionFee(option);
    test::LogCapture capture;
    EXPECT_EQ(kNoPrice, CPriceDataHelper::getSettlementPrice(CAccountDataPtr(), "DCE", option, given));
    EXPECT_EQ(1u, capture.count("calcExchFtOptionMargin PreSettlementPrice"));
    EXPECT_EQ(0u, capture.count("getInstrumentFee"));
}

TEST(PriceHelperTimeTest, NightSessionQuotesBelongToTheNextTradingDay) {
    const int d = 20250106, d1 = 20250107;
    const auto at = [](int date, int time) { return utils::dateTimeToSeconds(date, time); };
    const struct {
        const char* what;
        int64_t first, second;
        bool newer;
    } cases[] = {{"night stamp D+1 21:00 is newer than D 15:00", at(d, 150000), at(d1, 210000), true},
                 {"D+1 09:00 is newer than the night stamp D+1 21:00", at(d1, 210000), at(d1, 90000), true},
                 {"the night stamp D+1 21:00 is older than D+1 09:00", at(d1, 90000), at(d1, 210000), false},
                 {"18:00:00 is already night", at(d1, 175959), at(d1, 180000), false},
                 {"17:59:59 is still day", at(d, 175959), at(d1, 180000), true},
                 {"day quotes compare as they are", at(d1, 90000), at(d1, 90001), true},
                 {"equal is not newer", at(d1, 93000), at(d1, 93000), false}};
    for (const auto& c : cases) {
        ASSERT_GT(c.first, 0) << c.what;
        EXPECT_EQ(c.newer, CPriceDataHelper::isNewPriceSecond(c.first, c.second)) << c.what;
    }
}

TEST(PriceHelperTextTest, LogStringAndRealVolume) {
    EXPECT_EQ("", CPriceDataHelper::getLogString(CPriceDataPtr()));
    CPriceDataPtr q = test::makeQuote("SHFE", "rb2505", 3500.5, 3490.0);
    q->m_nPlatformId = 20001;
    q->m_strUpdateTime = "09:30:01";
    q->m_strTradingDay = "20250106";
    EXPECT_EQ("[ m_nPlatformId: 20001, m_strExchangeID: SHFE, m_strInstrumentID: rb2505, m_strUpdateTime: 09:30:01, "
              "m_strTradingDay: 20250106, m_dLastPrice: 3500.5, m_dPreClosePrice: 3490 ]",
              CPriceDataHelper::getLogString(q));

    EXPECT_EQ(0, CPriceDataHelper::toRealVolume(CPriceDataPtr()));
    const struct {
        int64_t volume;
        int unit, lots;
    } cases[] = {{12345, 100, 123}, {500, 1, 500}, {500, 0, 500}, {500, -10, 500}, {99, 100, 0},
                 {int64_t(1) << 40, 1, std::numeric_limits<int>::max()}, {int64_t(1) << 40, 1000, 1099511627}};
    for (const auto& c : cases) {
        q->m_nVolume = c.volume;
        q->m_nVolumeUnit = c.unit;
        EXPECT_EQ(c.lots, CPriceDataHelper::toRealVolume(q)) << c.volume << "/" << c.unit;
    }
}

}  // namespace
}  // namespace ttservice
