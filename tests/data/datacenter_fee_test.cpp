// Custom fee merging: which account's table applies, the matching rule with its half-open ranges,
// what each merge copies (into fresh sub-records), the custom-rate queries, broker figures, setters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <cmath>

#include "base/data/DataCenter.h"
#include "category/CppCategory.h"
#include "testing/LogCapture.h"
#include "testing/RecordBuilders.h"

using namespace ttservice;
using ::testing::DoubleEq;
using ::testing::Pointwise;

namespace {

typedef std::vector<double> Doubles;

const char* const kCategories = R"({
  "10001": {"rules": [{"market": "SH", "prefixes": ["600", "601", "603", "605"]}]},
  "10003": {"rules": [{"market": "SZ", "prefixes": ["300", "301"]}]},
  "20001": {"rules": [{"market": "SHFE", "products": ["au", "ag"]}]},
  "20002": {"rules": [{"market": "SHFE", "products": ["cu", "al"]}]},
  "20003": {"rules": [{"market": "SHFE", "products": ["rb"]}]},
  "80002": {"rules": [{"market": "SZ", "prefixes": ["000"]}]},
  "50001": {"rules": [{"market": "HGT"}]}, "50002": {"rules": [{"market": "SGT"}]}
})";

// An account of platform 10001 (key "10001_<id>"); type 2 is a stock account.
CAccountInfoPtr account(const std::string& id, const std::string& sub, int type = 2) {
    CAccountInfoPtr a = test::makeAccountInfo(id, type, 10001);
    a->m_strSubAccount = sub;
    return a;
}

CAccountInfoPtr superAccount(const std::string& id, int type) {
    return account(id, CAccountInfo::SUPER_ACCOUNT_TAG, type);
}

CInstrumentFeePtr feeFor(const std::string& market, const std::string& code, const std::string& name = "",
                         const std::string& product = "") {
    return test::makeInstrumentFee(CAccountInfoPtr(), test::makeNamedInstrument(market, code, name, product));
}

// A custom fee table (stock, HGT, Sgt or foreign) of these entries.
template <class Table>
boost::shared_ptr<Table> table(const decltype(Table::m_vRates)& rates) {
    boost::shared_ptr<Table> t = boost::make_shared<Table>();
    t->m_vRates = rates;
    return t;
}

CCustomStockFeeRatePtr stockRate(const std::string& category, double buyRate) {
    CCustomStockFeeRatePtr r = boost::make_shared<CCustomStockFeeRate>();
    r->m_strCategory = category;
    r->m_dBuyCommissionRate = buyRate;
    return r;
}

// Commission ratio by money `value`, close-today by volume 2x; margin likewise.
CCustomFutureFeeRatePtr futureRate(const std::string& category, double value) {
    CCustomFutureFeeRatePtr r = boost::make_shared<CCustomFutureFeeRate>();
    r->m_strCategory = category;
    r->m_dOpenRatioByMoney = r->m_dLongMarginRatioByMoney = value;
    r->m_dCloseTodayRatioByVolume = r->m_dShortMarginRatioByVolume = value * 2;
    return r;
}

CCustomFutureInstrumentFeePtr futureTable(const CCustomFutureFeeRateList& commissions,
                                          const CCustomFutureFeeRateList& margins) {
    CCustomFutureInstrumentFeePtr t = boost::make_shared<CCustomFutureInstrumentFee>();
    t->m_vCommissionRates = commissions;
    t->m_vMarginRates = margins;
    return t;
}

CCustomHKFeeRatePtr hkRate(const std::string& category, double commission) {
    CCustomHKFeeRatePtr r = boost::make_shared<CCustomHKFeeRate>();
    r->m_strCategory = category;
    r->m_dCommissionRate = commission;
    r->m_dMinCommission = 3.0;
    r->m_dStampTaxRate = 0.0013;
    r->m_dTradeFeeRate = 0.0000565;
    r->m_dTransferFeeRate = 0.00002;
    return r;
}

CGroupCategorySubInfoPtr member(const std::string& category) {
    CGroupCategorySubInfoPtr m = boost::make_shared<CGroupCategorySubInfo>();
    m->m_strCategory = category;
    return m;
}

class FeeMergeTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(CSingletonT<CppCategory>::instance().loadJson(kCategories, "fee test", &error)) << error;
        m_dc = boost::make_shared<DataCenter>();
    }
    void TearDown() override { CSingletonT<CppCategory>::instance().clear(); }

    void setStock(const CAccountInfoPtr& a, const CCustomStockFeeRateList& rates) {
        m_dc->setAccountsStockInstrumentFee({{a, table<CCustomStockInstrumentFee>(rates)}});
    }
    // The buy commission rate the stock merge leaves on a fee, or 0 with no sub-record.
    double mergedBuyRate(const CAccountInfoPtr& a, const std::string& market = "SH",
                         const std::string& code = "600000") {
        const CInstrumentFeePtr fee = feeFor(market, code, "浦发银行");
        m_dc->testMergeStockInstrumentFee(a, fee);
        return fee->m_stkExchange ? fee->m_stkExchange->m_dBuyCommissionRate : 0.0;
    }

    DataCenterPtr m_dc;
};

// Stock, futures, HGT and Sgt alike: a sub-account takes its parent's table, then its own; a super
// account takes its own table only.
TEST_F(FeeMergeTest, ParentThenOwnForSubAccountsOwnOnlyForSuperAccounts) {
    enum Kind { kStock, kFuture, kHgt, kSgt };
    // Files a one-entry table for `a`, of a category that holds the kind's instrument when `matching`.
    const auto file = [this](Kind kind, const CAccountInfoPtr& a, double rate, bool matching) {
        const char* const categories[] = {"10001", "20003", "50001", "50002"};
        const std::string category = matching ? categories[kind] : "10003";
        const CCustomHKFeeRateList hk = {hkRate(category, rate)};
        if (kind == kStock) setStock(a, {stockRate(category, rate)});
        if (kind == kFuture)
            m_dc->setAccountFutureInstruemntFee({{a, futureTable({futureRate(category, rate)}, {})}});
        if (kind == kHgt) m_dc->setAccountsHGTInstrumentFee({{a, table<CCustomHGTInstrumentFee>(hk)}});
        if (kind == kSgt) m_dc->setAccountsSgtInstrumentFee({{a, table<CCustomSgtInstrumentFee>(hk)}});
    };
    // The rate a merge leaves on the kind's instrument (0: none).
    const auto merged = [this](Kind kind, const CAccountInfoPtr& a) {
        if (kind == kStock) return mergedBuyRate(a);
        const char* const markets[] = {"SH", "SHFE", "HGT", "SGT"};
        const CInstrumentFeePtr fee = feeFor(markets[kind], kind == kFuture ? "rb2410" : "00700");
        if (kind == kFuture) m_dc->testMergeFutureInstrumentFee(a, fee);
        if (kind == kHgt) m_dc->testMergeHGTInstrumentFee(a, fee);
        if (kind == kSgt) m_dc->testMergeSgtInstrumentFee(a, fee);
        return kind == kFuture ? fee->m_dOpenRatioByMoney
               : kind == kHgt  ? fee->m_dHGTCommissionRate
                               : fee->m_dSgtCommissionRate;
    };
    const struct {
        bool super;
        double parent, own;  // 0: no table; own < 0: an own table whose entry does not match
        double expected;
    } cases[] = {{false, 0.3, 0.0, 0.3}, {false, 0.3, 0.1, 0.1}, {false, 0.3, -1.0, 0.3},
                 {false, 0.0, 0.1, 0.1}, {false, 0.0, 0.0, 0.0}, {true, 0.3, 0.0, 0.0},
                 {true, 0.3, 0.1, 0.1}};
    for (Kind kind : {kStock, kFuture, kHgt, kSgt}) {
        for (const auto& c : cases) {
            m_dc = boost::make_shared<DataCenter>();
            // A super account's would-be parent is the plain account of the same id.
            const CAccountInfoPtr a = c.super ? superAccount("880001", 2) : account("880001", "S1");
            if (c.parent > 0) file(kind, account("880001", ""), c.parent, true);
            if (c.own != 0) file(kind, a, c.own > 0 ? c.own : 0.9, c.own > 0);
            SCOPED_TRACE(std::to_string(kind) + (c.super ? " super" : " sub") + " parent " +
                         std::to_string(c.parent) + " own " + std::to_string(c.own));
            EXPECT_DOUBLE_EQ(c.expected, merged(kind, a));
        }
    }
}

// Code lists count for categories in [10001, 20001], groups for [70001, 80001]; other categories
// and non-numeric ones (category 0) go by the configured rules alone.
TEST_F(FeeMergeTest, MatchingRuleUsesCodeListsAndGroupsOnlyInsideTheirHalfOpenRanges) {
    const struct {
        const char* category;
        std::vector<std::string> customList;  // filed under the entry's own category
        const char* customListCategory;       // the map key, when it differs from the entry's category
        std::vector<std::string> groupMembers;
        const char *market, *code;
        bool expected;
    } cases[] = {
        {"10001", {}, nullptr, {}, "SH", "600000", true},  // configured rules
        {"10001", {}, nullptr, {}, "SZ", "000001", false},
        {"10000", {"SH600000"}, nullptr, {}, "SH", "600000", false},  // below 10001: the list is ignored
        {"10001", {"SZ000001"}, nullptr, {}, "SZ", "000001", true},   // the list decides ...
        {"10001", {"SZ000001"}, nullptr, {}, "SH", "600000", false},  // ... even against the rules
        {"10001", {"SZ000001"}, "10003", {}, "SZ", "000001", false},  // a map without this category's list
        {"20001", {"SZ000001"}, nullptr, {}, "SZ", "000001", true},   // 20001 is inside the range
        {"20002", {"SZ000001"}, nullptr, {}, "SZ", "000001", false},  // 20002 is not: rules only
        {"20002", {"SZ000001"}, nullptr, {}, "SHFE", "cu2409", true},
        {"20001", {"SZ000001"}, nullptr, {}, "SHFE", "au2412", false},
        {"70000", {}, nullptr, {"10001"}, "SH", "600000", false},  // below 70001: no group test
        {"70001", {}, nullptr, {"10001"}, "SH", "600000", true},
        {"80001", {}, nullptr, {"10001"}, "SH", "600000", true},   // 80001 is inside the range
        {"80002", {}, nullptr, {"10001"}, "SH", "600000", false},  // 80002 is not: rules only
        {"80002", {}, nullptr, {"10001"}, "SZ", "000001", true},
        {"80001", {}, nullptr, {}, "SH", "600000", false},  // no members: rules of 80001 (none)
        {"abc", {}, nullptr, {}, "SH", "600000", false},    // non-numeric: category 0
        {"", {}, nullptr, {}, "SH", "600000", false},
        {"abc", {"SH600000"}, nullptr, {}, "SH", "600000", false},
    };
    for (const auto& c : cases) {
        m_dc = boost::make_shared<DataCenter>();
        const CAccountInfoPtr a = account("880001", "");
        CCustomStockFeeRatePtr entry = stockRate(c.category, 0.0004);
        if (!c.customList.empty())
            entry->m_mapCustomCategory[c.customListCategory ? c.customListCategory : c.category] =
                c.customList;
        for (const std::string& g : c.groupMembers) entry->m_vGroupCategory.push_back(member(g));
        setStock(a, {entry});
        EXPECT_EQ(c.expected, mergedBuyRate(a, c.market, c.code) > 0)
            << "category " << c.category << " for " << c.market << c.code;
    }
}

// The first matching entry's seven values go into a fresh sub-record (holders of the old one see
// it unchanged); the minimum volume is rounded, and 0 when not a usable count.
TEST_F(FeeMergeTest, StockMergeCopiesTheFirstMatchingEntryIntoAFreshSubRecord) {
    const CAccountInfoPtr a = account("880001", "");
    const CStkExchangePtr shared = boost::make_shared<CStkExchange>();
    shared->m_dBuyCommissionRate = 0.9;
    shared->m_nMinVolume = 7;
    const std::pair<double, int64_t> volumes[] = {{100.0, 100}, {100.4, 100},      {99.6, 100}, {0.0, 0},
                                                  {-5.0, 0},    {std::nan(""), 0}, {1e20, 0}};
    for (const auto& v : volumes) {
        SCOPED_TRACE(v.first);
        CCustomStockFeeRatePtr e = stockRate("10001", 0.0003);
        e->m_dSellCommissionRate = 0.0004;
        e->m_dMinCommission = 5.0;
        e->m_dStampTaxRate = 0.0005;
        e->m_dTransferFeeRate = 0.00001;
        e->m_dTradeFeeRate = 0.0000341;
        e->m_dMinVolume = v.first;
        setStock(a, {CCustomStockFeeRatePtr(), stockRate("10003", 0.0009), e, stockRate("10001", 0.0005)});
        const CInstrumentFeePtr fee = feeFor("SH", "600000");
        fee->m_stkExchange = shared;
        test::LogCapture log;
        m_dc->testMergeStockInstrumentFee(a, fee);
        EXPECT_TRUE(log.contains("testMergeStockInstrumentFee: rate = "));
        EXPECT_TRUE(log.contains(", isTypedStock is true."));
        const CStkExchangePtr stk = fee->m_stkExchange;
        ASSERT_TRUE(stk);
        EXPECT_NE(shared, stk);
        EXPECT_DOUBLE_EQ(0.9, shared->m_dBuyCommissionRate);
        EXPECT_EQ(7, shared->m_nMinVolume);
        EXPECT_THAT(Doubles({stk->m_dBuyCommissionRate, stk->m_dSellCommissionRate, stk->m_dMinCommission,
                             stk->m_dStampTaxRate, stk->m_dTransferFeeRate, stk->m_dTradeFeeRate}),
                    Pointwise(DoubleEq(), {0.0003, 0.0004, 5.0, 0.0005, 0.00001, 0.0000341}));
        EXPECT_EQ(v.second, stk->m_nMinVolume);
    }
}

TEST_F(FeeMergeTest, MissingPiecesLeaveTheFeeUnchanged) {
    const CAccountInfoPtr a = account("880001", "");
    setStock(a, {stockRate("10001", 0.0003)});
    CInstrumentFeePtr noInstrument = boost::make_shared<CInstrumentFee>();
    m_dc->testMergeStockInstrumentFee(a, noInstrument);
    m_dc->testMergeFutureInstrumentFee(a, noInstrument);
    m_dc->testMergeHGTInstrumentFee(a, noInstrument);
    m_dc->testMergeSgtInstrumentFee(a, noInstrument);
    m_dc->testMergeForeignInstrumentFee(a, noInstrument);
    EXPECT_FALSE(noInstrument->m_stkExchange);
    EXPECT_FALSE(noInstrument->m_foreignFee);
    const CInstrumentFeePtr fee = feeFor("SH", "600000");
    m_dc->testMergeStockInstrumentFee(CAccountInfoPtr(), fee);
    m_dc->testMergeStockInstrumentFee(a, CInstrumentFeePtr());
    EXPECT_FALSE(fee->m_stkExchange);
    EXPECT_FALSE(m_dc->isCustomCommission(CAccountInfoPtr(), fee));
    EXPECT_FALSE(m_dc->isCustomMargin(a, noInstrument));
}

CCustomStockFeeRatePtr optionRate(const std::string& category, int offset, int covered, int direction,
                                  double open) {
    CCustomStockFeeRatePtr r = stockRate(category, 0.5);
    r->m_dOptOpenFee = open;
    r->m_dOptCloseFee = open + 1;
    r->m_dOptExerciseFee = open + 2;
    r->m_dOptMarginRatio1 = 0.12;
    r->m_dOptMarginRatio2 = 0.07;
    r->m_nOffsetFlag = offset;
    r->m_nCoveredFlag = covered;
    r->m_nDirection = direction;
    return r;
}

// A type-6 super account gets an item from every entry, keyed by covered, direction and offset, with
// no category test; without a table it logs the error; a type-6 sub-account takes the stock path.
TEST_F(FeeMergeTest, StockOptionSuperAccountGetsAnItemFromEveryEntryWithoutCategoryTest) {
    const CAccountInfoPtr super = superAccount("990001", 6);
    const CInstrumentFeePtr bare = feeFor("SH", "10004567");
    {
        test::LogCapture log;
        m_dc->testMergeStockInstrumentFee(super, bare);
        EXPECT_EQ(1u, log.count("[ACCT|990001] [SH-10004567] loadCustomFeeRate_StockOption error: "
                                "CustomStockInstrumentFee is null"));
        EXPECT_TRUE(bare->m_mapStockOptionFee.empty());
        EXPECT_FALSE(bare->m_stkExchange);
    }
    setStock(super, {optionRate("abc", '0', '1', '0', 1.6),    // key "001"
                     optionRate("10003", 'D', '1', '1', 0.6),  // exercise: key "1D"
                     optionRate("", '1', '0', '1', 2.0),       // key "110"
                     optionRate("10001", '0', '1', '0', 1.8),  // "001" again: replaces the first
                     CCustomStockFeeRatePtr()});
    const CInstrumentFeePtr fee = feeFor("SH", "10004567", "50ETF购9月2600");
    const CStockOptionFeeItemPtr kept = boost::make_shared<CStockOptionFeeItem>();
    fee->m_mapStockOptionFee["X"] = kept;
    test::LogCapture log;
    m_dc->testMergeStockInstrumentFee(super, fee);
    EXPECT_TRUE(log.contains("[ACCT|990001] [SH-10004567] loadCustomFeeRate_StockOption, custom fee cnt: 5"));
    EXPECT_EQ(4u, log.count("[ACCT|990001] [SH-10004567] loadCustomFeeRate_StockOption, rate: "));
    EXPECT_FALSE(fee->m_stkExchange);  // an option account gets items, not stock rates
    const CStockOptionFeeItemMap& items = fee->m_mapStockOptionFee;
    std::vector<std::string> keys;
    for (const auto& i : items) keys.push_back(i.first);
    ASSERT_EQ((std::vector<std::string>{"001", "110", "1D", "X"}), keys);
    EXPECT_EQ(kept, items.at("X"));
    const CStockOptionFeeItem& open = *items.at("001");
    EXPECT_THAT(Doubles({open.m_dOpenFee, open.m_dCloseFee, open.m_dExerciseFee, open.m_dMarginRatio1,
                         open.m_dMarginRatio2}),
                Pointwise(DoubleEq(), {1.8, 2.8, 3.8, 0.12, 0.07}));
    EXPECT_EQ((std::vector<int>{'0', '1', '0'}),
              (std::vector<int>{open.m_nOffsetFlag, open.m_nCoveredFlag, open.m_nDirection}));
    EXPECT_EQ('D', items.at("1D")->m_nOffsetFlag);

    setStock(account("990001", "S"), {stockRate("10001", 0.0003)});
    EXPECT_DOUBLE_EQ(0.0003, mergedBuyRate(account("990001", "S", 6)));
}

// Commission and margin entries match separately; the custom-rate queries look at the own table only.
TEST_F(FeeMergeTest, FuturesCommissionAndMarginAreMatchedSeparately) {
    const CAccountInfoPtr parent = account("880001", "");
    const CAccountInfoPtr sub = account("880001", "S1");
    m_dc->setAccountFutureInstruemntFee(
        {{parent, futureTable({futureRate("20003", 0.1)}, {futureRate("20003", 0.2)})},
         {sub, futureTable({futureRate("20001", 0.7), futureRate("20003", 0.3)}, {})}});
    const CInstrumentFeePtr fee = feeFor("SHFE", "rb2410");
    m_dc->testMergeFutureInstrumentFee(sub, fee);
    // Own commission; the parent's margin stays.
    EXPECT_THAT(Doubles({fee->m_dOpenRatioByMoney, fee->m_dCloseTodayRatioByVolume,
                         fee->m_dLongMarginRatioByMoney, fee->m_dShortMarginRatioByVolume}),
                Pointwise(DoubleEq(), {0.3, 0.6, 0.2, 0.4}));
    const struct {
        CAccountInfoPtr account;
        const char* code;
        bool commission, margin;
    } cases[] = {{sub, "rb2410", true, false} /* the parent's margin entry does not count */,
                 {parent, "rb2410", true, true},
                 {sub, "au2412", true, false},
                 {parent, "au2412", false, false},
                 {account("880002", ""), "rb2410", false, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.account->getKey() + " " + c.code);
        EXPECT_EQ(c.commission, m_dc->isCustomCommission(c.account, feeFor("SHFE", c.code)));
        EXPECT_EQ(c.margin, m_dc->isCustomMargin(c.account, feeFor("SHFE", c.code)));
    }
    test::LogCapture log;
    EXPECT_TRUE(m_dc->isCustomMargin(parent, feeFor("SHFE", "rb2410")));
    EXPECT_TRUE(log.contains("isCustomCommission: rate = "));
    EXPECT_TRUE(log.contains(", account = 10001_880001, ExchangeID = SHFE, InstrumentID = rb2410."));
}

TEST_F(FeeMergeTest, HgtUsesTheFullRuleWhileSgtUsesOnlyTheCategoryRules) {
    const CAccountInfoPtr a = account("770001", "");
    CCustomHKFeeRatePtr byList = hkRate("10001", 0.0011);
    byList->m_mapCustomCategory["10001"] = {"HGT00700", "SGT00700"};
    CCustomHKFeeRatePtr byGroup = hkRate("80001", 0.0012);
    byGroup->m_vGroupCategory = {member("50001"), member("50002")};
    m_dc->setAccountsHGTInstrumentFee({{a, table<CCustomHGTInstrumentFee>({byList, byGroup})}});
    m_dc->setAccountsSgtInstrumentFee({{a, table<CCustomSgtInstrumentFee>({byList, byGroup})}});

    const CInstrumentFeePtr hk = feeFor("HGT", "00700", "腾讯控股");
    {
        test::LogCapture log;
        m_dc->testMergeHGTInstrumentFee(a, hk);
        EXPECT_TRUE(log.contains(", account = 10001_770001, ExchangeID = HGT, InstrumentID = 00700."));
        EXPECT_TRUE(log.contains("testMergeAccountHGTInstrumentFee: rate = "));
    }
    // Matched by the code list; the Sgt fields stay.
    EXPECT_THAT(Doubles({hk->m_dHGTCommissionRate, hk->m_dHGTMinCommission, hk->m_dHGTStampTaxRate,
                         hk->m_dHGTTradeFeeRate, hk->m_dHGTTransferFeeRate, hk->m_dSgtCommissionRate}),
                Pointwise(DoubleEq(), {0.0011, 3.0, 0.0013, 0.0000565, 0.00002, 0.0}));

    // Neither the list nor the group counts for Sgt: categories 10001 and 80001 hold no SGT code.
    const CInstrumentFeePtr south = feeFor("SGT", "00700", "腾讯控股");
    m_dc->testMergeSgtInstrumentFee(a, south);
    EXPECT_DOUBLE_EQ(0.0, south->m_dSgtCommissionRate);
    m_dc->setAccountsSgtInstrumentFee(
        {{a, table<CCustomSgtInstrumentFee>({byList, hkRate("50002", 0.0015)})}});
    test::LogCapture log;
    m_dc->testMergeSgtInstrumentFee(a, south);
    EXPECT_TRUE(log.contains("testMergeAccountsgtInstrumentFee: rate = "));
    EXPECT_THAT(
        Doubles({south->m_dSgtCommissionRate, south->m_dSgtStampTaxRate, south->m_dHGTCommissionRate}),
        Pointwise(DoubleEq(), {0.0015, 0.0013, 0.0}));
}

CCustomSPFeeRatePtr spRate(const std::string& product, double rate, const std::string& currency) {
    CCustomSPFeeRatePtr r = boost::make_shared<CCustomSPFeeRate>();
    r->m_strExchangeID = "SGX";
    r->m_strProductID = product;
    r->m_dRate = rate;
    r->m_strCurrency = currency;
    return r;
}

// Matched by market and product: the rate becomes the per-lot commissions of a fresh fee record,
// and the currency goes into a fresh instrument unless the instrument has one.
TEST_F(FeeMergeTest, ForeignMergeMatchesMarketAndProductAndCopiesTheCurrencyIntoAFreshInstrument) {
    const CAccountInfoPtr a = account("660001", "");
    m_dc->setAccountForeignInstruemntFee(
        {{a, table<CCustomSPInstrumentFee>(
                 {spRate("FEF", 3.0, "USD"), spRate("CN", 2.5, "USD"), spRate("CN", 9.9, "SGD")})}});
    const CInstrumentFeePtr fee = feeFor("SGX", "CN2409", "A50 2409", "CN");
    const CInstrumentDetailPtr original = fee->m_instrument;
    CForeignFeePtr before = boost::make_shared<CForeignFee>();
    before->m_dOpenCommissionRatio = 0.001;
    before->m_dLongMargin = 1000.0;
    fee->m_foreignFee = before;
    test::LogCapture log;
    m_dc->testMergeForeignInstrumentFee(a, fee);
    EXPECT_TRUE(log.contains("MergeAccountSPInstrumentFee: rate = "));
    const CForeignFeePtr after = fee->m_foreignFee;
    ASSERT_TRUE(after);
    EXPECT_NE(before, after);
    EXPECT_DOUBLE_EQ(0.001, before->m_dOpenCommissionRatio);
    EXPECT_THAT(Doubles({after->m_dOpenCommission, after->m_dCloseCommission, after->m_dCloseTodayCommission,
                         after->m_dOpenCommissionRatio, after->m_dCloseCommissionRatio,
                         after->m_dCloseTodayCommissionRatio, after->m_dLongMargin}),
                Pointwise(DoubleEq(), {2.5, 2.5, 2.5, 0.0, 0.0, 0.0, 1000.0}));
    EXPECT_EQ("USD", fee->m_instrument->m_strCurrency);
    EXPECT_EQ("", original->m_strCurrency);  // the shared instrument is not written into

    const CInstrumentFeePtr priced = feeFor("SGX", "CN2409", "", "CN");
    priced->m_instrument->m_strCurrency = "SGD";
    m_dc->testMergeForeignInstrumentFee(a, priced);
    EXPECT_EQ("SGD", priced->m_instrument->m_strCurrency);
    const CInstrumentFeePtr otherMarket = feeFor("HKFE", "CN2409", "", "CN");
    m_dc->testMergeForeignInstrumentFee(a, otherMarket);
    EXPECT_FALSE(otherMarket->m_foreignFee);
}

TEST_F(FeeMergeTest, BrokerFiguresSetPerLotMarginAndCommissionWhenUsable) {
    const double nan = std::nan("");
    const struct {
        double deposit, dfee, margin, commission, ratio;
    } cases[] = {
        {1500.0, 2.5, 1500.0, 2.5, 0.0},    {0.0, 2.5, 800.0, 2.5, 0.0},  // no deposit figure: margin kept
        {1500.0, -1.0, 1500.0, 1.0, 0.001},                               // no fee figure: commission kept
        {nan, nan, 800.0, 1.0, 0.001},      {1500.0, 0.0, 1500.0, 0.0, 0.0},  // a zero commission is a figure
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.deposit) + " " + std::to_string(c.dfee));
        const CInstrumentFeePtr fee = feeFor("SGX", "CN2409");
        CForeignFeePtr raw = boost::make_shared<CForeignFee>();
        raw->m_dLongMargin = raw->m_dShortMargin = 800.0;
        raw->m_dOpenCommission = raw->m_dCloseCommission = raw->m_dCloseTodayCommission = 1.0;
        raw->m_dOpenCommissionRatio = 0.001;
        fee->m_foreignFee = raw;
        m_dc->updateForeignInstruemntFeeByBroker(fee, c.deposit, c.dfee);
        const CForeignFee& f = *fee->m_foreignFee;
        EXPECT_THAT(Doubles({f.m_dLongMargin, f.m_dShortMargin, f.m_dOpenCommission,
                             f.m_dCloseTodayCommission, f.m_dOpenCommissionRatio}),
                    Pointwise(DoubleEq(), {c.margin, c.margin, c.commission, c.commission, c.ratio}));
        EXPECT_DOUBLE_EQ(800.0, raw->m_dLongMargin);  // never written in place
    }
    test::LogCapture log;
    m_dc->updateForeignInstruemntFeeByBroker(feeFor("SGX", "CN2409"), 1500, 2.5);
    EXPECT_TRUE(
        log.contains("[wp] MarketID:SGX, InstrumentID:CN2409, rawMargin:0, rawCommission:0, From "
                     "YS_Broker:[deposit:1500, dfee:2.5]"));
    m_dc->updateForeignInstruemntFeeByBroker(CInstrumentFeePtr(), 1500, 2.5);
}

TEST_F(FeeMergeTest, SettersSkipMissingAccountsAndTablesWithTheirLine) {
    const CAccountInfoPtr a = account("X", "");
    const CAccountInfoPtr b = account("Y", "");
    test::LogCapture log;
    const CCustomStockInstrumentFeePtr stock = table<CCustomStockInstrumentFee>({});
    m_dc->setAccountsStockInstrumentFee(
        {{CAccountInfoPtr(), stock}, {a, stock}, {b, CCustomStockInstrumentFeePtr()}});
    EXPECT_EQ(2u, log.count("DataCenter::setAccountsStockInstrumentFee: accountDataPtr is Null."));
    EXPECT_EQ(stock, m_dc->getAccountStockInstrumentFee("10001_X"));
    EXPECT_FALSE(m_dc->getAccountStockInstrumentFee("10001_Y"));

    m_dc->setAccountFutureInstruemntFee({{CAccountInfoPtr(), futureTable({}, {})}});
    EXPECT_EQ(1u, log.count("DataCenter::setAccountFutureInstruemntFee: accountDataPtr is Null."));
    m_dc->setAccountsHGTInstrumentFee({{b, CCustomHGTInstrumentFeePtr()}});
    EXPECT_EQ(1u,
              log.count("DataCenter::setAccountHGTInstruemntFee: accountDataPtr is Null. strKey = 10001_Y"));
    m_dc->setAccountsSgtInstrumentFee({{b, CCustomSgtInstrumentFeePtr()}});
    EXPECT_EQ(1u, log.count("accountDataPtr[10001_Y] is Null."));
    m_dc->setAccountForeignInstruemntFee({{b, CCustomSPInstrumentFeePtr()}});
    EXPECT_EQ(1u, log.count("accountInfoPtr[10001_Y] or foreignFee is Null."));
    EXPECT_FALSE(m_dc->getAccountFutureInstrumentFee("10001_Y"));
    EXPECT_FALSE(m_dc->getAccountHGTInstrumentFee("10001_Y"));
    EXPECT_FALSE(m_dc->getAccountSgtInstrumentFee("10001_Y"));
    EXPECT_FALSE(m_dc->getAccountForeignInstruments("10001_Y"));

    // A later table replaces the account's earlier one; other accounts keep theirs.
    const CCustomStockInstrumentFeePtr next = table<CCustomStockInstrumentFee>({stockRate("10001", 0.0001)});
    m_dc->setAccountsStockInstrumentFee({{b, next}});
    m_dc->setAccountsStockInstrumentFee({{a, next}});
    EXPECT_EQ(next, m_dc->getAccountStockInstrumentFee("10001_X"));
    EXPECT_EQ(next, m_dc->getAccountStockInstrumentFee("10001_Y"));
}

}  // namespace
