// CPriceDataHelper: price selection for orders and for calculations, the exchange rules of type 12,
// the limit check, last and settlement prices, quote freshness, log text and lots. The direction of
// operations is checked with the operation tables in datahelper_test.cpp.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "base/data/CPriceDataHelper.h"
#include "testing/LogCapture.h"
#include "testing/StoreTestFixture.h"
#include "utils/TimeUtils.h"

namespace ttservice {
namespace {

typedef CPriceDataHelper Prices;
const double kNoPrice = std::numeric_limits<double>::max();
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();
const int kBuy = OPT_OPEN_LONG;            // direction buy, isBuy
const int kSell = OPT_CLOSE_LONG_HISTORY;  // direction sell

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

// The full book on another exchange, or with other asks, bids or limits.
Book on(const char* exchange) {
    return {exchange, kAsks, kBids, 10.05, 9.5, 11.0, 9.0};
}
Book asks(const Levels& a) {
    return {"SH", a, kBids, 10.05, 9.5, 11.0, 9.0};
}
Book bids(const Levels& b) {
    return {"SH", kAsks, b, 10.05, 9.5, 11.0, 9.0};
}
Book limits(double upper, double lower, const char* exchange = "SH") {
    return {exchange, kAsks, kBids, 10.05, 9.5, upper, lower};
}

CPriceDataPtr quote(const Book& b, const char* instrument = "600000") {
    CPriceDataPtr q = test::makeQuote(b.exchange, instrument, b.last, b.preClose);
    double* asks[] = {&q->m_dAskPrice1, &q->m_dAskPrice2, &q->m_dAskPrice3, &q->m_dAskPrice4,
                      &q->m_dAskPrice5};
    double* bids[] = {&q->m_dBidPrice1, &q->m_dBidPrice2, &q->m_dBidPrice3, &q->m_dBidPrice4,
                      &q->m_dBidPrice5};
    for (int i = 0; i < 5; ++i) {
        *asks[i] = b.asks[i];
        *bids[i] = b.bids[i];
    }
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

// Within 1e-5 of zero (either sign), the no-price value (either sign), infinities and NaN are empty.
TEST(PriceHelperEmptyTest, EmptyPriceBoundaries) {
    const double tol = 1e-5, above = std::nextafter(tol, 1.0),
                 denorm = std::numeric_limits<double>::denorm_min();
    const double belowMax = std::nextafter(kNoPrice, 0.0);
    const std::pair<double, bool> cases[] = {
        {0.0, true},   {-0.0, true},     {1e-6, true},      {tol, true},
        {-tol, true},  {above, false},   {-above, false},   {denorm, true},
        {10.0, false}, {kNoPrice, true}, {-kNoPrice, true}, {belowMax, false},
        {kInf, true},  {-kInf, true},    {kNaN, true},      {-kNaN, true},
    };
    for (const auto& c : cases) EXPECT_EQ(c.second, price_detail::isEmptyPrice(c.first)) << c.first;
}

// Types 0-4 ask 5..1, 5 last, 6-10 bid 1..5, 13 own side, 14 opposite side, 11 and unknown types
// the last price; type 12 on a stock the limit of the order's side.
TEST_F(PriceHelperTest, EveryTypeOnAFullBook) {
    const struct {
        int type, operation;
        double price;
    } cases[] = {
        {0, kBuy, 10.5},   {1, kBuy, 10.4},   {2, kSell, 10.3}, {3, kBuy, 10.2},   {4, kSell, 10.1},
        {5, kBuy, 10.05},  {6, kBuy, 10.0},   {7, kSell, 9.9},  {8, kBuy, 9.8},    {9, kSell, 9.7},
        {10, kBuy, 9.6},   {11, kBuy, 10.05}, {13, kBuy, 10.0}, {13, kSell, 10.1}, {14, kBuy, 10.1},
        {14, kSell, 10.0}, {12, kBuy, 11.0},  {12, kSell, 9.0}, {15, kBuy, 10.05}, {-1, kSell, 10.05},
    };
    const CPriceDataPtr q = quote(kFull);
    for (const auto& c : cases) {
        EXPECT_DOUBLE_EQ(c.price, Prices::getPriceForOrder(q, c.type, c.operation)) << c.type;
        EXPECT_DOUBLE_EQ(c.price, Prices::getPriceForCalc(q, c.type, c.operation)) << c.type;
    }
}

// An empty level walks towards level 1, then to the last price, then the previous close. Type 12
// treats an upper limit of 100000.0 as no limit, and follows the exchange's market-order rule.
TEST_F(PriceHelperTest, LadderWalksAndTypeTwelveRules) {
    Book noAsk5 = limits(1e5, 9), noBid5 = limits(11, 0);
    noAsk5.asks[4] = 0;
    noBid5.bids[4] = 0;
    const struct {
        const char* what;
        Book book;
        int type, operation;
        double order, calc;  // getPriceForOrder, getPriceForCalc
    } cases[] = {
        {"ask 3 asked, only ask 1 quoted", asks({10.1, 0, 0, 0, 0}), 2, kBuy, 10.1, 10.1},
        {"ask 3 asked, empty book", {"SH", kNone, kNone, 10.05, 9.5, 11, 9}, 2, kBuy, 10.05, 10.05},
        {"empty book, last zero", {"SH", kNone, kNone, 0, 9.5, 11, 9}, 2, kBuy, 9.5, 9.5},
        {"ask 5 zero, ask 4 no price", asks({10.1, 10.2, 10.3, kNoPrice, 0}), 0, kBuy, 10.3, 10.3},
        {"within 1e-5 of zero is empty", asks({10.1, 10.2, 10.3, 10.4, 5e-6}), 0, kBuy, 10.4, 10.4},
        {"bid 5 and 4 empty", bids({10.0, 9.9, 9.8, 0, 0}), 10, kSell, 9.8, 9.8},
        {"bid 2 empty: bid 1, never bid 3", bids({10.0, 0, 9.8, 9.7, 9.6}), 7, kSell, 10.0, 10.0},
        {"ask 2 and 1 empty: last, never ask 3", asks({0, 0, 10.3, 10.4, 10.5}), 3, kBuy, 10.05, 10.05},
        {"a NaN level is no price", asks({kNaN, 10.2, 10.3, 10.4, 10.5}), 4, kBuy, 10.05, 10.05},
        {"own side for a sell: ask 1 only", asks({0, 10.2, 10.3, 10.4, 10.5}), 13, kSell, 10.05, 10.05},
        {"nothing at all: the empty close", {"SH", kNone, kNone, 0, 0, 11, 9}, 5, kBuy, 0.0, 0.0},
        {"buy, placeholder limit: ask 5", limits(1e5, 9), 12, kBuy, 10.5, 10.5},
        {"buy, placeholder within 0.0001", limits(100000.00005, 9), 12, kBuy, 10.5, 10.5},
        {"buy, placeholder, ask 5 empty", noAsk5, 12, kBuy, 10.4, 10.4},
        {"buy, no upper limit: ask 5", limits(0, 9), 12, kBuy, 10.5, 10.5},
        {"sell, lower limit 100000.0: no placeholder", limits(0, 1e5), 12, kSell, 1e5, 1e5},
        {"sell, no lower limit, bid 5 empty", noBid5, 12, kSell, 9.7, 9.7},
        {"HGT: market order at 0.0, calc at the last", on("HGT"), 12, kBuy, 0.0, 10.05},
        {"SGT sell", on("SGT"), 12, kSell, 0.0, 10.05},
        {"HGT calc takes the last as it stands", {"HGT", kAsks, kBids, 0, 9.5, 11, 9}, 12, kBuy, 0.0, 0.0},
        {"HGT, other types as usual", on("HGT"), 4, kBuy, 10.1, 10.1},
        {"DCE takes market orders; calc at the limit", on("DCE"), 12, kBuy, 0.0, 11.0},
        {"CZCE by its short code, sell", on("ZF"), 12, kSell, 0.0, 9.0},
        {"SHFE takes no market orders", on("SHFE"), 12, kBuy, 11.0, 11.0},
        {"INE sell", on("INE"), 12, kSell, 9.0, 9.0},
        {"CFFEX contract unknown: the limit", on("CFFEX"), 12, kBuy, 11.0, 11.0},
        {"futures calc: the limit, no fallback", limits(0, 9, "SHFE"), 12, kBuy, 10.5, 0.0},
        // Operation 15 (close short) goes out as a buy but is none of isBuy's operations.
        {"calc side by isBuy, order side by direction", on("SF"), 12, OPT_CLOSE_SHORT, 11.0, 9.0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const CPriceDataPtr q = quote(c.book);
        EXPECT_DOUBLE_EQ(c.order, Prices::getPriceForOrder(q, c.type, c.operation)) << "order";
        EXPECT_DOUBLE_EQ(c.calc, Prices::getPriceForCalc(q, c.type, c.operation)) << "calc";
    }
}

// "AndFix" takes the fixed price for type 11 only; a null quote gives the largest double; the
// origin price reads the selected field with no fallback.
TEST_F(PriceHelperTest, FixedPriceNullQuoteAndOriginPrice) {
    const CPriceDataPtr q = quote(kFull);
    for (int type : {11, 4, 12}) {
        const double plain = Prices::getPriceForOrder(q, type, kBuy);
        EXPECT_DOUBLE_EQ(type == 11 ? 12.34 : plain, Prices::getPriceAndFixForOrder(q, type, kBuy, 12.34));
        EXPECT_DOUBLE_EQ(type == 11 ? 12.34 : plain, Prices::getPriceAndFixForCalc(q, type, kBuy, 12.34));
    }
    EXPECT_DOUBLE_EQ(12.34, Prices::getPriceAndFixForOrder(CPriceDataPtr(), 11, kBuy, 12.34));
    for (int type = -1; type <= 15; ++type) {
        EXPECT_EQ(kNoPrice, Prices::getPriceForOrder(CPriceDataPtr(), type, kBuy)) << type;
        EXPECT_EQ(kNoPrice, Prices::getPriceForCalc(CPriceDataPtr(), type, kSell)) << type;
        EXPECT_EQ(kNoPrice, Prices::getOriginPrice(CPriceDataPtr(), type, kBuy)) << type;
    }
    const CPriceDataPtr thin = quote(asks({10.1, 10.2, 10.3, 10.4, 0}));  // ask 5 empty: 0.0, no walk
    const struct {
        int type, operation;
        double expected;
    } cases[] = {{0, kBuy, 0.0},        {1, kBuy, 10.4},      {4, kBuy, 10.1},      {5, kBuy, 10.05},
                 {6, kBuy, 10.0},       {10, kBuy, 9.6},      {11, kBuy, kNoPrice}, {12, kBuy, kNoPrice},
                 {12, kSell, kNoPrice}, {13, kBuy, 10.0},     {13, kSell, 10.1},    {14, kBuy, 10.1},
                 {14, kSell, 10.0},     {15, kBuy, kNoPrice}, {-1, kBuy, kNoPrice}};
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, Prices::getOriginPrice(thin, c.type, c.operation))
            << c.type << "/" << c.operation;
}

TEST_F(PriceHelperTest, OutOfLimitPriceIsLoggedNotClamped) {
    const std::string line = " greater than upperLimitPrice:11 or less than lowerLimitPrice:9";
    const struct {
        const char* what;
        Book book;
        int type;
        double order, calc;
        std::string line;  // "": no line
    } cases[] = {
        {"above the upper limit", {"SH", kNone, kNone, 12.0, 9.5, 11, 9}, 5, 12.0, 12.0, "Price:12" + line},
        {"below the lower limit", {"SH", kNone, kNone, 8.5, 9.5, 11, 9}, 5, 8.5, 8.5, "Price:8.5" + line},
        {"inside", {"SH", kNone, kNone, 10.0, 9.5, 11, 9}, 5, 10.0, 10.0, ""},
        {"within the tolerance", {"SH", kNone, kNone, 11.000005, 9.5, 11, 9}, 5, 11.000005, 11.000005, ""},
        {"limits absent (zero)", {"SH", kNone, kNone, 12.0, 9.5, 0, 0}, 5, 12.0, 12.0, ""},
        {"an exchange rule's price is final", {"HGT", kNone, kNone, 50.0, 9.5, 11, 9}, 12, 0.0, 50.0, ""},
    };
    for (const auto& c : cases) {
        for (bool forOrder : {true, false}) {
            SCOPED_TRACE(std::string(c.what) + (forOrder ? " (order)" : " (calc)"));
            const CPriceDataPtr q = quote(c.book);
            test::LogCapture capture;
            EXPECT_DOUBLE_EQ(forOrder ? c.order : c.calc, forOrder
                                                              ? Prices::getPriceForOrder(q, c.type, kBuy)
                                                              : Prices::getPriceForCalc(q, c.type, kBuy));
            if (c.line.empty()) {
                EXPECT_EQ(0u, capture.count("greater than upperLimitPrice"));
                continue;
            }
            const std::vector<test::LogCapture::Line> lines = capture.lines();
            ASSERT_EQ(1u, lines.size());
            EXPECT_EQ(c.line, lines[0].text);
            EXPECT_EQ(utils::LOGGER_STD, lines[0].logger);
            EXPECT_EQ(utils::TT_LOG_ERROR, lines[0].level);
        }
    }
}

// Type 12 on CFFEX and DCE: a market order when the instrument takes market orders (CFFEX only
// when its record allows some; DCE unless its record allows none).
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
        EXPECT_EQ(c.market, Prices::isSupportMarketPrice(c.exchange, c.code)) << c.exchange << c.code;
        const CPriceDataPtr q = quote(on(c.exchange), c.code);
        EXPECT_DOUBLE_EQ(c.market ? 0.0 : 11.0, Prices::getPriceForOrder(q, 12, kBuy))
            << c.exchange << c.code;
    }
}

// A data center that answers one quote and one market status.
class QuoteDataCenter : public test::FakeDataCenter {
public:
    CPriceDataPtr getPrice(int, const std::string& market, const std::string& code) override {
        return m_quote && m_quote->m_strExchangeID == market && m_quote->m_strInstrumentID == code
                   ? m_quote
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
        SCOPED_TRACE(c.line);
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
        EXPECT_DOUBLE_EQ(c.expected, Prices::getLastPrice(20001, "SHFE", "rb2505"));
        const std::vector<std::string> lines = capture.texts(utils::LOGGER_STD);
        EXPECT_EQ(c.line.empty() ? std::vector<std::string>() : std::vector<std::string>{c.line}, lines);
    }
}

class SettlementPriceTest : public test::StoreTestFixture {};

// An option's settlement price is its underlying's previous settlement: the store's settlement
// table first, then the underlying's instrument record; missing pieces give the largest double.
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
        EXPECT_EQ(kNoPrice, Prices::getSettlementPrice(store, "DCE", option, fee));
        EXPECT_FALSE(fee);
        EXPECT_EQ(1u, capture.count("getSettlementPrice getInstrumentFee for m2505-C-3000 is not found"));
    }
    const CInstrumentFeePtr filed = optionFee(option);
    store->setData(filed);
    {
        test::LogCapture capture;
        CInstrumentFeePtr fee;
        EXPECT_EQ(kNoPrice, Prices::getSettlementPrice(store, "DCE", option, fee));
        EXPECT_EQ(filed, fee) << "the looked-up fee record is handed back";
        EXPECT_EQ(1u,
                  capture.count("calcExchFtOptionMargin PreSettlementPrice for m2505-C-3000 is not found"));
    }
    CInstrumentDetailPtr future = test::makeInstrument("DCE", "m2505");
    future->m_dPreSettlementPrice = 3040.0;
    m_dataCenter->setInstrumentDetail({"DCE"}, {future});
    CInstrumentFeePtr fee;
    EXPECT_DOUBLE_EQ(3040.0, Prices::getSettlementPrice(store, "DCE", option, fee));
    store->setLastSettlement({{"DCEm2505", 3050.0}, {"DCEm2505-C-3000", 120.0}});
    EXPECT_DOUBLE_EQ(3050.0, Prices::getSettlementPrice(store, "DCE", option, fee));
    // A fee record the caller holds is used as given, even without a store.
    CInstrumentFeePtr given = optionFee(option);
    test::LogCapture capture;
    EXPECT_EQ(kNoPrice, Prices::getSettlementPrice(CAccountDataPtr(), "DCE", option, given));
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
        EXPECT_EQ(c.newer, Prices::isNewPriceSecond(c.first, c.second)) << c.what;
    }
}

TEST(PriceHelperTextTest, LogStringAndRealVolume) {
    EXPECT_EQ("", Prices::getLogString(CPriceDataPtr()));
    CPriceDataPtr q = test::makeQuote("SHFE", "rb2505", 3500.5, 3490.0);
    q->m_nPlatformId = 20001;
    q->m_strUpdateTime = "09:30:01";
    q->m_strTradingDay = "20250106";
    EXPECT_EQ(
        "[ m_nPlatformId: 20001, m_strExchangeID: SHFE, m_strInstrumentID: rb2505, "
        "m_strUpdateTime: 09:30:01, m_strTradingDay: 20250106, m_dLastPrice: 3500.5, "
        "m_dPreClosePrice: 3490 ]",
        Prices::getLogString(q));

    EXPECT_EQ(0, Prices::toRealVolume(CPriceDataPtr()));
    const int64_t big = int64_t(1) << 40;
    const int kIntMax = std::numeric_limits<int>::max();
    const struct {
        int64_t volume;
        int unit, lots;
    } cases[] = {{12345, 100, 123}, {500, 1, 500},     {500, 0, 500},          {500, -10, 500},
                 {99, 100, 0},      {big, 1, kIntMax}, {big, 1000, 1099511627}};
    for (const auto& c : cases) {
        q->m_nVolume = c.volume;
        q->m_nVolumeUnit = c.unit;
        EXPECT_EQ(c.lots, Prices::toRealVolume(q)) << c.volume << "/" << c.unit;
    }
}

}  // namespace
}  // namespace ttservice
