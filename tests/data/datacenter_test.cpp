// DataCenter: the interface's slot order, the instrument table and its indexes, tick sizes, trade
// days, exchange rates and status, the plain stores, accounts and the account-data notification.
// Reloads against concurrent look-ups are in datacenter_concurrent_test.cpp.
#include "base/data/DataCenter.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "base/TraderCenter.h"
#include "base/data/CAccountData.h"
#include "testing/LogCapture.h"
#include "testing/RecordBuilders.h"
#include "utils/TimeUtils.h"

using namespace ttservice;

namespace {

CInstrumentDetailPtr instrument(const std::string& market, const std::string& code,
                                const std::string& name = "", const std::string& product = "") {
    return test::makeNamedInstrument(market, code, name, product);
}

std::string keyOf(const CInstrumentDetailPtr& d) {
    return d ? d->getKey() : std::string();
}

// The terminal clock, set by the test; no quotes.
class FakePrimitive : public IPrimitive {
public:
    boost::shared_ptr<void> subQuote(const std::string&, const std::string&, const QuoteCallback&) override {
        return boost::shared_ptr<void>();
    }
    CPriceDataPtr getPrice(int, const std::string&, const std::string&) override { return CPriceDataPtr(); }
    int64_t getCurrentTime() override { return m_now; }
    int64_t m_now = 0;
};

class DataCenterTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_dc = boost::make_shared<DataCenter>();
        m_primitive = boost::make_shared<FakePrimitive>();
        TraderCenter::instance()->setDataCenter(m_dc);
        TraderCenter::instance()->setPrimitive(m_primitive);
    }
    void TearDown() override { TraderCenter::instance()->reset(); }

    void expectIndexesAgree() {
        std::string report;
        EXPECT_TRUE(m_dc->checkInstrumentIndexes(&report)) << report;
    }

    DataCenterPtr m_dc;
    boost::shared_ptr<FakePrimitive> m_primitive;
};

// The vtable slot of a virtual member function, read from its pointer-to-member representation in
// the Itanium C++ ABI (x86-64): {1 + byte offset in the vtable, this adjustment}.
template <class MemberFunction>
long vtableSlot(MemberFunction fn) {
    struct Representation {
        uintptr_t ptr;
        ptrdiff_t adj;
    };
    static_assert(sizeof(MemberFunction) == sizeof(Representation), "not an Itanium member pointer");
    Representation r;
    std::memcpy(&r, &fn, sizeof r);
    return (r.ptr & 1) ? static_cast<long>((r.ptr - 1) / sizeof(void*)) : -1;
}

// Modules built against the platform's IDataCenter call it by slot: the operations occupy
// consecutive slots in the published order (the private MergeAccountForeignInstrumentFee keeps its
// slot between testMergeForeignInstrumentFee and getExchangeRate); additions come after the last.
TEST(DataCenterInterfaceTest, VirtualOperationsKeepTheirPublishedSlots) {
#if !defined(__x86_64__)
    GTEST_SKIP() << "slot numbers are read from the x86-64 Itanium ABI representation";
#endif
#define TT_SLOT(name) \
    { #name, vtableSlot(&IDataCenter::name) }
    const std::pair<const char*, long> published[] = {
        TT_SLOT(addAccount),
        TT_SLOT(getAccount),
        TT_SLOT(removeAccount),
        TT_SLOT(updateData),
        TT_SLOT(subscribe),
        TT_SLOT(getPrice),
        TT_SLOT(setInstrumentDetail),
        TT_SLOT(setPriceDiff),
        TT_SLOT(getAccountStockInstrumentFee),
        TT_SLOT(getAccountFutureInstrumentFee),
        TT_SLOT(getAccountHGTInstrumentFee),
        TT_SLOT(getAccountSgtInstrumentFee),
        TT_SLOT(setAccountsStockInstrumentFee),
        TT_SLOT(setAccountFutureInstruemntFee),
        TT_SLOT(setAccountsHGTInstrumentFee),
        TT_SLOT(setAccountsSgtInstrumentFee),
        TT_SLOT(testMergeStockInstrumentFee),
        TT_SLOT(testMergeFutureInstrumentFee),
        TT_SLOT(testMergeHGTInstrumentFee),
        TT_SLOT(testMergeSgtInstrumentFee),
        TT_SLOT(testMergeForeignInstrumentFee),
        {"MergeAccountForeignInstrumentFee", -1},
        TT_SLOT(getExchangeRate),
        TT_SLOT(setExchangeRate),
        TT_SLOT(getAccountForeignInstruments),
        TT_SLOT(setAccountForeignInstruemntFee),
        TT_SLOT(updateForeignInstruemntFeeByBroker),
        TT_SLOT(getForeignTradeDay),
        TT_SLOT(getDceCrossProduct),
        TT_SLOT(getDceCrossPeriod),
        TT_SLOT(getIpoCode),
        TT_SLOT(isCustomCommission),
        TT_SLOT(isCustomMargin),
        TT_SLOT(setExchanges),
        TT_SLOT(setUpToDate),
        TT_SLOT(isUpToDate),
        TT_SLOT(getInstruments),
        TT_SLOT(getInstrument),
        TT_SLOT(getInstrumentByKey),
        TT_SLOT(getInstrumentByCode),
        TT_SLOT(getExchange),
        TT_SLOT(getProduct),
        TT_SLOT(getProductNameByID),
        TT_SLOT(getRealMarket),
        TT_SLOT(addProductNSData),
        TT_SLOT(getProductNSData),
        TT_SLOT(setMarketTime),
        TT_SLOT(getMarketTime),
        TT_SLOT(setMarketStatus),
        TT_SLOT(getMarketStatus),
        TT_SLOT(getStockTradeDay),
        TT_SLOT(getMaxTradeDay),
        TT_SLOT(getMarketTradeDay),
        TT_SLOT(getMapExchange),
        TT_SLOT(getMarketAndTradeDay),
        TT_SLOT(getETFDataCenter),
        TT_SLOT(getAccounts),
        TT_SLOT(getExchangeInstruments),
        TT_SLOT(getProductInstruments),
        TT_SLOT(getAllProductInstruments),
        TT_SLOT(getGlobalData),
        TT_SLOT(getPortfolioManager),
        TT_SLOT(getPriceDiff),
        TT_SLOT(updateHGTAccountSettlementRate),
        TT_SLOT(getHGTAccountSettlementRate),
        TT_SLOT(updateSgtAccountSettlementRate),
        TT_SLOT(getSgtAccountSettlementRate),
        TT_SLOT(updateExchangeStatus),
        TT_SLOT(isAnyMarketTrading),
        TT_SLOT(setKLineDatas),
        TT_SLOT(getKLineDatas),
        TT_SLOT(setKLineDatasStatus),
        TT_SLOT(getKLineDatasStatus),
        // appended after the published operations
        TT_SLOT(onAccountData),
        TT_SLOT(onAccountDatas),
        TT_SLOT(addAccountDataListener),
    };
#undef TT_SLOT
    const long first = published[0].second;
    ASSERT_GE(first, 0);
    for (size_t i = 0; i < sizeof(published) / sizeof(published[0]); ++i) {
        if (published[i].second < 0) continue;  // private: its slot is the gap checked here
        EXPECT_EQ(first + static_cast<long>(i), published[i].second) << published[i].first;
    }
}

// The tick of the smallest bound not below the price (1e-5 tolerance), else 0.01.
TEST_F(DataCenterTest, PriceDiffTakesTheSmallestBoundNotBelowThePriceWithinTolerance) {
    const double kNaN = std::nan(""), kInvalid = TT_INVALID_DOUBLE;
    m_dc->setPriceDiff("SHFEcu", 1000.0, 0.5);
    m_dc->setPriceDiff("SHFEcu", 5000.0, 1.0);
    m_dc->setPriceDiff("SHFEcu", 10000.0, 2.0);
    // Refused entries leave no table behind.
    m_dc->setPriceDiff("BAD", 100.0, 0.0);
    m_dc->setPriceDiff("BAD", 100.0, -0.01);
    m_dc->setPriceDiff("BAD", kNaN, 0.1);
    m_dc->setPriceDiff("BAD", 100.0, std::numeric_limits<double>::infinity());
    // 1000.000005 is above the bound within the tolerance; 10000.0001 is above every bound.
    const struct {
        const char* key;
        double price, tick;
    } cases[] = {
        {"UNKNOWN", 1.0, 0.01},       {"BAD", 50.0, 0.01},        {"SHFEcu", -5.0, 0.5},
        {"SHFEcu", 500.0, 0.5},       {"SHFEcu", 1000.0, 0.5},    {"SHFEcu", 1000.000005, 0.5},
        {"SHFEcu", 1000.0001, 1.0},   {"SHFEcu", 9999.99, 2.0},   {"SHFEcu", 10000.000009, 2.0},
        {"SHFEcu", 10000.0001, 0.01}, {"SHFEcu", kInvalid, 0.01}, {"SHFEcu", kNaN, 0.01},
    };
    for (const auto& c : cases)
        EXPECT_DOUBLE_EQ(c.tick, m_dc->getPriceDiff(c.key, c.price)) << c.key << " " << c.price;
    m_dc->setPriceDiff("SHFEcu", 1000.0, 0.2);  // a bound is overwritten, not duplicated
    EXPECT_DOUBLE_EQ(0.2, m_dc->getPriceDiff("SHFEcu", 900.0));
    EXPECT_DOUBLE_EQ(1.0, m_dc->getPriceDiff("SHFEcu", 1000.5));
}

// A futures code asked under another futures exchange is found under its real exchange, the
// exchanges tried in sorted order (CZCE before DCE); a direct hit needs no fallback; no fallback
// from or to a non-futures exchange.
TEST_F(DataCenterTest, FuturesCodeAskedUnderAnotherFuturesExchangeFindsItsRealExchange) {
    m_dc->setInstrumentDetail(
        {"DCE", "SHFE", "CZCE", "SH"},
        {instrument("DCE", "m2409", "豆粕2409", "m"), instrument("SHFE", "rb2410", "螺纹钢2410", "rb"),
         instrument("DCE", "XX01", "", "x"), instrument("CZCE", "XX01", "", "X"),
         instrument("SH", "600000", "浦发银行", "")});
    const struct {
        const char *market, *code, *key, *realMarket, *product;
    } cases[] = {
        {"DCE", "m2409", "DCEm2409", "DCE", "m"},
        {"SHFE", "m2409", "DCEm2409", "DCE", "m"},
        {"CZCE", "m2409", "DCEm2409", "DCE", "m"},
        {"CFFEX", "m2409", "DCEm2409", "DCE", "m"},
        {"INE", "rb2410", "SHFErb2410", "SHFE", "rb"},
        {"SHFE", "XX01", "CZCEXX01", "CZCE", "X"},
        {"DCE", "XX01", "DCEXX01", "DCE", "x"},
        {"SH", "m2409", "", "", ""},
        {"", "m2409", "", "", ""},
        {"SHFE", "zz9999", "", "", ""},
        {"SHFE", "", "", "", ""},
        {"SH", "600000", "SH600000", "SH", ""},
        {"SZ", "600000", "", "", ""},
        {"GFEX", "m2409", "", "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.market) + " " + c.code);
        EXPECT_EQ(c.key, keyOf(m_dc->getInstrument(c.market, c.code)));
        EXPECT_EQ(c.realMarket, m_dc->getRealMarket(c.market, c.code));
        EXPECT_EQ(c.product, m_dc->getProduct(c.market, c.code));
    }
    EXPECT_FALSE(m_dc->getInstrumentByKey("SHFEm2409"));  // the plain key look-up has no fallback
}

// A reload replaces the listed markets whole and a repeated key replaces the earlier record, in
// all four indexes; other markets stay.
TEST_F(DataCenterTest, ReloadsReplaceListedMarketsAndRepeatedKeysInEveryIndex) {
    m_dc->setInstrumentDetail(
        {"SH", "SZ"},
        {instrument("SH", "600000", "浦发银行", "A"), instrument("SH", "600004", "白云机场", "A"),
         instrument("SZ", "000001", "平安银行", "A"), instrument("SZ", "300750", "宁德时代", "C")});
    m_dc->setInstrumentDetail(
        {"SH"}, {instrument("SH", "600000", "浦发银行", "A"), instrument("SH", "601318", "中国平安", "B")});
    EXPECT_TRUE(m_dc->getInstrumentByKey("SZ300750"));
    EXPECT_EQ(2u, m_dc->getExchangeInstruments("SZ").size());
    EXPECT_TRUE(m_dc->getInstrumentByKey("SH601318"));
    EXPECT_FALSE(m_dc->getInstrumentByKey("SH600004"));  // left out of the reload: gone everywhere
    EXPECT_FALSE(m_dc->getInstrumentByCode("600004"));
    EXPECT_EQ(0u, m_dc->getExchangeInstruments("SH").count("SH600004"));
    const InstrumentMap productA = m_dc->getProductInstruments("A");
    ASSERT_EQ(2u, productA.size());
    EXPECT_EQ(1u, productA.count("SH600000"));
    EXPECT_EQ(1u, productA.count("SZ000001"));
    EXPECT_EQ(4u, m_dc->getInstruments().size());
    EXPECT_EQ(3u, m_dc->getAllProductInstruments().size());
    expectIndexesAgree();
    m_dc->setInstrumentDetail({"SZ"}, {});
    EXPECT_TRUE(m_dc->getExchangeInstruments("SZ").empty());
    EXPECT_TRUE(m_dc->getProductInstruments("C").empty());
    EXPECT_EQ("", m_dc->getProductNameByID("C"));
    EXPECT_EQ(2u, m_dc->getInstruments().size());
    expectIndexesAgree();

    m_dc->setInstrumentDetail({"SHFE"}, {instrument("SHFE", "rb2410", "螺纹钢2410", "rb"),
                                         instrument("SHFE", "rb2410", "螺纹2410", "rbx")});
    EXPECT_EQ("rbx", m_dc->getProduct("SHFE", "rb2410"));
    EXPECT_TRUE(m_dc->getProductInstruments("rb").empty());
    EXPECT_EQ("螺纹", m_dc->getProductNameByID("rbx"));
    // Filed again without its market listed: still one entry.
    m_dc->setInstrumentDetail({}, {instrument("SHFE", "rb2410", "螺纹钢2410", "rb")});
    EXPECT_EQ(1u, m_dc->getExchangeInstruments("SHFE").size());
    EXPECT_EQ("rb", m_dc->getProduct("SHFE", "rb2410"));
    expectIndexesAgree();
}

// Only the trailing run of digits is cut; an empty result gives the carried product name, else the
// product id.
TEST_F(DataCenterTest, ProductNameIsTheNameWithoutTrailingDigits) {
    const struct {
        const char *name, *carried, *productId, *expected;
    } cases[] = {
        {"螺纹钢2410", "", "rb", "螺纹钢"},
        {"沪深300股指2406", "", "IF", "沪深300股指"},
        {"IF2406", "", "IF", "IF"},
        {"浦发银行", "", "", "浦发银行"},
        {"", "", "rb", "rb"},
        {"", "Rebar", "rb", "Rebar"},
        {"2410", "", "rb", "rb"},
        {"", "", "", ""},
    };
    for (const auto& c : cases) {
        CInstrumentDetail d;
        d.m_strInstrumentName = c.name;
        d.m_strProductName = c.carried;
        d.m_strProductID = c.productId;
        EXPECT_EQ(c.expected, DataCenter::productNameOf(d)) << c.name;
    }
    // setInstrumentDetail writes it into the record; the product's name is its lowest key's.
    m_dc->setInstrumentDetail({"SHFE"}, {instrument("SHFE", "rb2501", "螺纹钢2501", "rb"),
                                         instrument("SHFE", "rb2410", "螺纹2410", "rb")});
    EXPECT_EQ("螺纹钢", m_dc->getInstrumentByKey("SHFErb2501")->m_strProductName);
    EXPECT_EQ("螺纹", m_dc->getProductNameByID("rb"));
    EXPECT_EQ("", m_dc->getProductNameByID("zz"));
}

TEST_F(DataCenterTest, DceSpreadLegsGoToTheirListOnce) {
    auto combo = [](const std::string& market, const std::string& code, bool isCombination) {
        CInstrumentDetailPtr d = instrument(market, code);
        d->m_bIsCombination = isCombination;
        return d;
    };
    // "SPX..." counts as cross period; unflagged spreads and legless codes count for nothing.
    const std::vector<CInstrumentDetailPtr> dce = {
        combo("DCE", "SP a2405&a2409", true),
        combo("DCE", "SPC a2405&m2405", true),
        combo("DCE", "SP m2409", true),
        combo("DCE", "SP a&b&c", true),
        combo("DCE", "SPX y2405&y2409", true),
        combo("DCE", "SP c2405&c2409", false),
        combo("DCE", "SPC", true),
    };
    m_dc->setInstrumentDetail({"DCE", "CZCE"}, dce);
    m_dc->setInstrumentDetail({"CZCE"}, {combo("CZCE", "SP SR405&SR409", true)});  // not DCE
    const StringPairList period = {{"a2405", "a2409"}, {"y2405", "y2409"}};
    const StringPairList product = {{"a2405", "m2405"}};
    EXPECT_EQ(period, m_dc->getDceCrossPeriod());
    EXPECT_EQ(product, m_dc->getDceCrossProduct());
    // Reloading DCE rebuilds the lists; filing a spread again without reloading DCE adds nothing.
    m_dc->setInstrumentDetail({"DCE"}, dce);
    m_dc->setInstrumentDetail({}, {combo("DCE", "SP a2405&a2409", true)});
    EXPECT_EQ(period, m_dc->getDceCrossPeriod());
    EXPECT_EQ(product, m_dc->getDceCrossProduct());
}

TEST_F(DataCenterTest, IpoCodeListsTheIpoInstrumentKeysInKeyOrder) {
    auto ipo = [](const std::string& market, const std::string& code) {
        CInstrumentDetailPtr d = instrument(market, code, "新股申购");
        d->m_bIsIPO = true;
        return d;
    };
    EXPECT_EQ("", m_dc->getIpoCode());
    m_dc->setInstrumentDetail({"SH", "SZ"},
                              {ipo("SZ", "301999"), instrument("SH", "600000"), ipo("SH", "732001")});
    EXPECT_EQ("SH732001,SZ301999", m_dc->getIpoCode());
    m_dc->setInstrumentDetail({"SZ"}, {instrument("SZ", "301999")});
    EXPECT_EQ("SH732001", m_dc->getIpoCode());
    // A flag changed on a filed record counts after setIpoCode.
    m_dc->getInstrumentByKey("SH600000")->m_bIsIPO = true;
    m_dc->setIpoCode();
    EXPECT_EQ("SH600000,SH732001", m_dc->getIpoCode());
    expectIndexesAgree();
}

TEST_F(DataCenterTest, BadInstrumentDetailsAreSkippedOrGivenDefaults) {
    test::LogCapture log;
    m_dc->setInstrumentDetail({"SH", "XYZ"},
                              {CInstrumentDetailPtr(), instrument("SH", "", "无代码"),
                               instrument("SH", "600000", ""), instrument("XYZ", "ABC1", "Foo1", "foo")});
    EXPECT_EQ(2u, m_dc->getInstruments().size());
    EXPECT_EQ(1u, log.count("empty instrument detail at position 0 skipped"));
    EXPECT_EQ(1u, log.count("instrument detail at position 1 has no instrument code"));
    EXPECT_FALSE(m_dc->getInstrumentByCode(""));
    EXPECT_EQ("", m_dc->getInstrumentByKey("SH600000")->m_strProductName);
    // An exchange nobody described: instruments are filed, exchange look-ups give the defaults.
    EXPECT_EQ("XYZABC1", keyOf(m_dc->getInstrument("XYZ", "ABC1")));
    EXPECT_FALSE(m_dc->getExchange("XYZ"));
    EXPECT_EQ("", m_dc->getMarketTradeDay("XYZ"));
    expectIndexesAgree();
}

CExchangeDetailPtr exchange(const std::string& code, const std::string& tradeDay) {
    CExchangeDetailPtr e = boost::make_shared<CExchangeDetail>();
    e->m_strExchangeID = code;
    e->m_strTradeDay = tradeDay;
    return e;
}

// Stock: the later of SH and SZ; foreign: the latest of SGX-A, SGX and GLOBEX; else the clock's date.
TEST_F(DataCenterTest, TradeDaysFollowTheirExchangesElseTheClockDate) {
    m_primitive->m_now = utils::dateTimeToSeconds(20240316, 90000);
    EXPECT_EQ("20240316", m_dc->getForeignTradeDay());
    m_dc->setExchanges({exchange("SGX-A", "20240314"), exchange("SGX", "20240315"),
                        exchange("GLOBEX", "20240313"), exchange("SH", "20240318")});
    EXPECT_EQ("20240315", m_dc->getForeignTradeDay());
    m_dc->setExchanges({exchange("GLOBEX", "20240317")});  // merged: the others stay
    EXPECT_EQ("20240317", m_dc->getForeignTradeDay());
    EXPECT_EQ("20240315", m_dc->getMarketTradeDay("SGX"));
    EXPECT_EQ("20240318", m_dc->getMaxTradeDay());
    std::vector<std::string> markets, days;
    m_dc->getMarketAndTradeDay(markets, days);
    EXPECT_EQ((std::vector<std::string>{"GLOBEX", "SGX", "SGX-A", "SH"}), markets);
    EXPECT_EQ((std::vector<std::string>{"20240317", "20240315", "20240314", "20240318"}), days);

    m_primitive->m_now = utils::dateTimeToSeconds(20240315, 120000);
    const struct {
        const char *sh, *sz, *expected;  // "-": exchange unknown; "abc" is not a day
    } cases[] = {
        {"20240102", "20240103", "20240103"},
        {"20240105", "20240103", "20240105"},
        {"20240105", "-", "20240105"},
        {"-", "20240104", "20240104"},
        {"-", "-", "20240315"},
        {"", "", "20240315"},
        {"", "abc", "20240315"},
    };
    for (const auto& c : cases) {
        DataCenterPtr dc = boost::make_shared<DataCenter>();
        TraderCenter::instance()->setDataCenter(dc);  // asked through the registered data center
        std::vector<CExchangeDetailPtr> exchanges;
        if (std::string(c.sh) != "-") exchanges.push_back(exchange("SH", c.sh));
        if (std::string(c.sz) != "-") exchanges.push_back(exchange("SZ", c.sz));
        dc->setExchanges(exchanges);
        EXPECT_EQ(c.expected, dc->getStockTradeDay()) << c.sh << " " << c.sz;
    }
}

TEST_F(DataCenterTest, ExchangeRateIsOneUnlessTheRecordHoldsAUsableRate) {
    EXPECT_DOUBLE_EQ(1.0, m_dc->getExchangeRate("HKD"));  // no record
    CExchangeRatePtr rate = boost::make_shared<CExchangeRate>();
    rate->m_mapRates = {{"USD", 7.1}, {"HKD", 0.92}, {"JPY", 0.0}, {"EUR", std::nan("")}, {"GBP", -9.0}};
    m_dc->setExchangeRate(rate);
    const std::pair<const char*, double> cases[] = {{"", 1.0},    {"USD", 1.0}, {"HKD", 0.92}, {"CNY", 1.0},
                                                    {"JPY", 1.0}, {"EUR", 1.0}, {"GBP", 1.0}};
    for (const auto& c : cases) EXPECT_DOUBLE_EQ(c.second, m_dc->getExchangeRate(c.first)) << c.first;
    rate->m_mapRates["HKD"] = 5.0;  // the caller's record is not the one in force
    EXPECT_DOUBLE_EQ(0.92, m_dc->getExchangeRate("HKD"));
    m_dc->setExchangeRate(CExchangeRatePtr());
    EXPECT_DOUBLE_EQ(1.0, m_dc->getExchangeRate("HKD"));
}

CExchangeStatusPtr status(const std::string& market, const std::string& product, int st, int auction = 0,
                          int paused = 0) {
    CExchangeStatusPtr s = test::makeExchangeStatus(market, st, product);
    s->m_nIsAuction = auction;
    s->m_nIsPaused = paused;
    return s;
}

TEST_F(DataCenterTest, AnyMarketTradingNeedsAnAuthenticatedMarketInContinuousTrading) {
    const std::pair<CExchangeStatusPtr, bool> cases[] = {
        {status("SH", "", 50), true},        {status("SZ", "", 50), false},  // not authenticated
        {status("SH", "", 49), false},       {status("SH", "", 50, 1, 0), false},
        {status("SH", "", 50, 0, 1), false}, {status("SHFE", "rb", 50), true},
    };
    TraderCenter::instance()->setFullAuthenticatedMarketSet({"SH", "SHFE"});
    for (const auto& c : cases) {
        DataCenter dc;
        dc.updateExchangeStatus(c.first);
        dc.updateExchangeStatus(CExchangeStatusPtr());
        EXPECT_EQ(c.second, dc.isAnyMarketTrading()) << c.first->toString();
    }
    // A later status of the same key replaces the earlier one.
    m_dc->updateExchangeStatus(status("SH", "", 50));
    m_dc->updateExchangeStatus(status("SH", "", 54));
    EXPECT_FALSE(m_dc->isAnyMarketTrading());
    m_dc->updateExchangeStatus(status("SHFE", "", 50));
    {
        test::LogCapture log;
        EXPECT_TRUE(m_dc->isAnyMarketTrading());
        EXPECT_TRUE(log.contains("market = SHFE, status = 50."));
    }
    TraderCenter::instance()->setFullAuthenticatedMarketSet({});
    EXPECT_FALSE(m_dc->isAnyMarketTrading());
}

TEST_F(DataCenterTest, PlainStoresAnswerDefaultsMergeMarketTimesAndHandOutCopies) {
    EXPECT_EQ(0, m_dc->getMarketTime("SH"));
    EXPECT_EQ(0, m_dc->getMarketStatus("SH"));
    EXPECT_FALSE(m_dc->getProductNSData(7));
    EXPECT_FALSE(m_dc->isUpToDate());
    EXPECT_EQ(0, static_cast<int>(m_dc->getKLineDatasStatus()));
    EXPECT_TRUE(m_dc->getHGTAccountSettlementRate().empty());

    m_dc->setMarketTime({{"SH", 1710475200}, {"SZ", 1710475201}});
    m_dc->setMarketTime({{"SH", 1710475300}});
    EXPECT_EQ(1710475300, m_dc->getMarketTime("SH"));
    EXPECT_EQ(1710475201, m_dc->getMarketTime("SZ"));

    boost::shared_ptr<CProductNSData> ns = boost::make_shared<CProductNSData>(7);
    EXPECT_TRUE(ns->setNetValue(20240315, 1.0234));
    EXPECT_FALSE(ns->setNetValue(0, 1.0));
    EXPECT_FALSE(ns->setNetValue(20240316, std::nan("")));
    m_dc->addProductNSData(ns);
    m_dc->addProductNSData(boost::shared_ptr<CProductNSData>());
    double value = 0.0;
    int date = 0;
    ASSERT_TRUE(m_dc->getProductNSData(7));
    EXPECT_TRUE(m_dc->getProductNSData(7)->getNetValue(20240315, value));
    EXPECT_DOUBLE_EQ(1.0234, value);
    EXPECT_FALSE(m_dc->getProductNSData(7)->getNetValue(20240316, value));
    EXPECT_TRUE(ns->getLatestNetValue(date, value));
    EXPECT_EQ(20240315, date);

    SettlementRateMap rates;
    rates["HKD"].m_dBuyRate = 0.91;
    m_dc->updateHGTAccountSettlementRate(rates);
    SettlementRateMap copy = m_dc->getHGTAccountSettlementRate();
    copy["HKD"].m_dBuyRate = 5.0;  // a copy: the data center's stays
    EXPECT_DOUBLE_EQ(0.91, m_dc->getHGTAccountSettlementRate()["HKD"].m_dBuyRate);
    EXPECT_TRUE(m_dc->getSgtAccountSettlementRate().empty());

    EXPECT_TRUE(m_dc->getETFDataCenter());
    EXPECT_TRUE(m_dc->getPortfolioManager());
}

IDataPtr summary(const std::string& accountKey) {
    boost::shared_ptr<CAccountSummary> s = boost::make_shared<CAccountSummary>();
    s->m_strAccountKey = accountKey;
    return s;
}

// updateData reaches the store of its key, or the global store (under "") for the default key;
// re-adding an account clears the store it replaces and no other.
TEST_F(DataCenterTest, AccountRegistryRoutesUpdatesAndClearsReplacedStores) {
    const int kNoRefresh = CAccountData::UPDATE_INTERVAL_DISABLED;  // no price-refresh timer
    const boost::shared_ptr<CAccountData> global = m_dc->getGlobalData();
    ASSERT_TRUE(global);
    EXPECT_EQ(global, m_dc->getAccount(""));
    const boost::shared_ptr<CAccountData> store = boost::make_shared<CAccountData>(kNoRefresh);
    m_dc->addAccount("20001_880001", store);
    m_dc->updateData("20001_880001", summary("a"));
    m_dc->updateData("no_such_account", summary("b"));
    m_dc->updateData(CAccountInfo().getKey(), summary("c"));
    m_dc->updateData("20001_880001", IDataPtr());
    EXPECT_TRUE(store->getData(555, "a"));
    EXPECT_FALSE(store->getData(555, "b"));
    EXPECT_FALSE(global->getData(555, "b"));  // an unknown key is dropped, not sent to the global store
    EXPECT_TRUE(global->getData(555, "c"));
    EXPECT_FALSE(store->getData(555, "c"));

    test::LogCapture log;
    const boost::shared_ptr<CAccountData> second = boost::make_shared<CAccountData>(kNoRefresh);
    m_dc->addAccount("20001_880001", store);  // the same store again: nothing is cleared
    EXPECT_TRUE(store->getData(555, "a"));
    m_dc->addAccount("20001_880001", second);
    EXPECT_FALSE(store->getData(555, "a"));
    EXPECT_EQ(second, m_dc->getAccount("20001_880001"));
    m_dc->updateData("20001_880001", summary("y"));
    EXPECT_TRUE(second->getData(555, "y"));
    m_dc->addAccount("20001_880001", boost::shared_ptr<CAccountData>());  // ignored
    EXPECT_EQ(second, m_dc->getAccount("20001_880001"));
    EXPECT_EQ(2u, m_dc->getAccounts().size());  // the global store and this one
    m_dc->removeAccount("20001_880001");
    EXPECT_FALSE(m_dc->getAccount("20001_880001"));
    EXPECT_EQ(3u, log.count("ttservice::DataCenter::addAccount : account = 20001_880001"));
}

// Listeners, then key subscribers, then kind subscribers; a listener may release itself and
// register another from inside its callback.
TEST_F(DataCenterTest, NotificationReachesListenersThenKeyThenKindSubscribers) {
    CAccountInfoPtr account = boost::make_shared<CAccountInfo>();
    std::vector<std::string> calls;
    boost::shared_ptr<void> single = m_dc->addAccountDataListener(
        [&](const CAccountInfoPtr& a, const IDataPtr& d, const TTError& e) {
            calls.push_back("single:" + d->getKey() + ":" + std::to_string(e.m_nErrorID) +
                            (a == account ? "" : ":wrong account"));
        },
        AccountDatasCallback());
    boost::shared_ptr<void> batch = m_dc->addAccountDataListener(
        AccountDataCallback(), [&](const CAccountInfoPtr&, const std::vector<IDataPtr>& ds) {
            calls.push_back("batch:" + std::to_string(ds.size()));
        });
    EXPECT_FALSE(m_dc->addAccountDataListener(AccountDataCallback(), AccountDatasCallback()));
    SubRequestPtr byKey =
        m_dc->subscribe("a", 555, [&](const IDataPtr& d) { calls.push_back("key:" + d->getKey()); });
    SubRequestPtr byKind =
        m_dc->subscribe("", 555, [&](const IDataPtr& d) { calls.push_back("kind:" + d->getKey()); });
    EXPECT_FALSE(m_dc->subscribe("a", 555, DataCallback()));

    m_dc->onAccountData(account, summary("a"), TTError(3, "err"));
    EXPECT_EQ((std::vector<std::string>{"single:a:3", "batch:1", "key:a", "kind:a"}), calls);
    calls.clear();
    m_dc->onAccountData(account, summary(""), TTError());  // an empty key: the kind's subscribers once
    EXPECT_EQ((std::vector<std::string>{"single::0", "batch:1", "kind:"}), calls);
    calls.clear();
    m_dc->onAccountDatas(account, {summary("a"), summary("b")});
    EXPECT_EQ((std::vector<std::string>{"single:a:0", "single:b:0", "batch:2", "key:a", "kind:a", "kind:b"}),
              calls);
    calls.clear();
    single.reset();
    byKey.reset();
    m_dc->onAccountData(account, summary("a"), TTError());
    EXPECT_EQ((std::vector<std::string>{"batch:1", "kind:a"}), calls);

    boost::shared_ptr<void> self, added;
    int selfCalls = 0, addedCalls = 0;
    self = m_dc->addAccountDataListener(
        [&](const CAccountInfoPtr&, const IDataPtr&, const TTError&) {
            ++selfCalls;
            self.reset();
            added = m_dc->addAccountDataListener(
                [&](const CAccountInfoPtr&, const IDataPtr&, const TTError&) { ++addedCalls; },
                AccountDatasCallback());
        },
        AccountDatasCallback());
    m_dc->onAccountData(CAccountInfoPtr(), summary("a"), TTError());
    m_dc->onAccountData(CAccountInfoPtr(), summary("b"), TTError());
    EXPECT_EQ(1, selfCalls);
    EXPECT_EQ(1, addedCalls);
}

}  // namespace
