// Custom fee merging: which account's table applies (own over parent, super accounts, stock-option
// accounts), the matching rule with its half-open category ranges, what each merge copies, fresh
// sub-records instead of shared ones, the custom-rate queries, broker figures for foreign fees, and
// the setters' handling of missing accounts and tables.
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <cmath>
#include <limits>

#include "base/data/DataCenter.h"
#include "category/CppCategory.h"
#include "testing/LogCapture.h"

using namespace ttservice;

namespace {

const char* const kCategories = R"({
  "10001": {"rules": [{"market": "SH", "prefixes": ["600", "601", "603", "605"]}]},
  "10003": {"rules": [{"market": "SZ", "prefixes": ["300", "301"]}]},
  "20001": {"rules": [{"market": "SHFE", "products": ["au", "ag"]}]},
  "20002": {"rules": [{"market": "SHFE", "products": ["cu", "al"]}]},
  "20003": {"rules": [{"market": "SHFE", "products": ["rb"]}]},
  "80002": {"rules": [{"market": "SZ", "prefixes": ["000"]}]},
  "50001": {"rules": [{"market": "HGT"}]},
  "50002": {"rules": [{"market": "SGT"}]}
})";

const int kPlatform = 10001;

CAccountInfoPtr account(const std::string& id, const std::string& sub, int type = 2) {
    CAccountInfoPtr a = boost::make_shared<CAccountInfo>();
    a->m_nPlatformID = kPlatform;
    a->m_strAccountID = id;
    a->m_strSubAccount = sub;
    a->m_nAccountType = type;
    return a;
}

CAccountInfoPtr superAccount(const std::string& id, int type) {
    return account(id, CAccountInfo::SUPER_ACCOUNT_TAG, type);
}

CInstrumentFeePtr feeFor(const std::string& market, const std::string& code, const std::string& name = "",
                         const std::string& product = "") {
    CInstrumentDetailPtr d = boost::make_shared<CInstrumentDetail>();
    d->m_strExchangeID = market;
    d->m_strInstrumentID = code;
    d->m_strInstrumentName = name;
    d->m_strProductID = product;
    CInstrumentFeePtr fee = boost::make_shared<CInstrumentFee>();
    fee->m_instrument = d;
    return fee;
}

CCustomStockFeeRatePtr stockRate(const std::string& category, double buyRate) {
    CCustomStockFeeRatePtr r = boost::make_shared<CCustomStockFeeRate>();
    r->m_strCategory = category;
    r->m_dBuyCommissionRate = buyRate;
    return r;
}

CCustomStockInstrumentFeePtr stockTable(const CCustomStockFeeRateList& rates) {
    CCustomStockInstrumentFeePtr t = boost::make_shared<CCustomStockInstrumentFee>();
    t->m_vRates = rates;
    return t;
}

CCustomFutureFeeRatePtr futureRate(const std::string& category, double value) {
    CCustomFutureFeeRatePtr r = boost::make_shared<CCustomFutureFeeRate>();
    r->m_strCategory = category;
    r->m_dOpenRatioByMoney = value;
    r->m_dCloseTodayRatioByVolume = value * 2;
    r->m_dLongMarginRatioByMoney = value;
    r->m_dShortMarginRatioByVolume = value * 2;
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

CGroupCategorySubInfoPtr member(const std::string& category, bool exclude = false) {
    CGroupCategorySubInfoPtr m = boost::make_shared<CGroupCategorySubInfo>();
    m->m_strCategory = category;
    m->m_bExclude = exclude;
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

    void setStock(const CAccountInfoPtr& a, const CCustomStockInstrumentFeePtr& t) {
        m_dc->setAccountsStockInstrumentFee({{a, t}});
    }
    // The buy commission rate the stock merge leaves on a fee for SH600000, or -1 with no sub-record.
    double mergedBuyRate(const CAccountInfoPtr& a, const std::string& market = "SH",
                         const std::string& code = "600000") {
        const CInstrumentFeePtr fee = feeFor(market, code, "浦发银行");
        m_dc->testMergeStockInstrumentFee(a, fee);
        return fee->m_stkExchange ? fee->m_stkExchange->m_dBuyCommissionRate : -1.0;
    }

    DataCenterPtr m_dc;
};

// ---- which tables apply ------------------------------------------------------------------------------

// Stock, futures, HGT and Sgt alike: a sub-account takes its parent's table, then its own; a super
// account takes its own table only.
TEST_F(FeeMergeTest, ParentThenOwnForSubAccountsOwnOnlyForSuperAccounts) {
    enum Kind { kStock, kFuture, kHgt, kSgt };
    // Files a one-entry table of `rate` for `a` (its entry of a category that holds none of the
    // instruments when `matching` is false), and reads back the rate a merge leaves (0: none).
    const auto file = [this](Kind kind, const CAccountInfoPtr& a, double rate, bool matching) {
        const char* const other = "10003";
        switch (kind) {
            case kStock: setStock(a, stockTable({stockRate(matching ? "10001" : other, rate)})); break;
            case kFuture:
                m_dc->setAccountFutureInstruemntFee(
                    {{a, futureTable({futureRate(matching ? "20003" : other, rate)}, {})}});
                break;
            case kHgt: {
                CCustomHGTInstrumentFeePtr t = boost::make_shared<CCustomHGTInstrumentFee>();
                t->m_vRates = {hkRate(matching ? "50001" : other, rate)};
                m_dc->setAccountsHGTInstrumentFee({{a, t}});
                break;
            }
            case kSgt: {
                CCustomSgtInstrumentFeePtr t = boost::make_shared<CCustomSgtInstrumentFee>();
                t->m_vRates = {hkRate(matching ? "50002" : other, rate)};
                m_dc->setAccountsSgtInstrumentFee({{a, t}});
                break;
            }
        }
    };
    const auto merged = [this](Kind kind, const CAccountInfoPtr& a) {
        switch (kind) {
            case kStock: {
                const double r = mergedBuyRate(a);
                return r < 0 ? 0.0 : r;
            }
            case kFuture: {
                const CInstrumentFeePtr fee = feeFor("SHFE", "rb2410");
                m_dc->testMergeFutureInstrumentFee(a, fee);
                return fee->m_dOpenRatioByMoney;
            }
            case kHgt: {
                const CInstrumentFeePtr fee = feeFor("HGT", "00700");
                m_dc->testMergeHGTInstrumentFee(a, fee);
                return fee->m_dHGTCommissionRate;
            }
            case kSgt: {
                const CInstrumentFeePtr fee = feeFor("SGT", "00700");
                m_dc->testMergeSgtInstrumentFee(a, fee);
                return fee->m_dSgtCommissionRate;
            }
        }
        return -1.0;
    };
    const struct {
        bool super;
        double parent, own;  // 0: no table; own < 0: an own table whose entry does not match
        double expected;
    } cases[] = {
        {false, 0.3, 0.0, 0.3}, {false, 0.3, 0.1, 0.1}, {false, 0.3, -1.0, 0.3}, {false, 0.0, 0.1, 0.1},
        {false, 0.0, 0.0, 0.0}, {true, 0.3, 0.0, 0.0},  {true, 0.3, 0.1, 0.1},
    };
    for (Kind kind : {kStock, kFuture, kHgt, kSgt}) {
        for (const auto& c : cases) {
            m_dc = boost::make_shared<DataCenter>();
            // A super account's would-be parent is the plain account of the same id.
            const CAccountInfoPtr a = c.super ? superAccount("880001", 2) : account("880001", "S1");
            if (c.parent > 0) file(kind, account("880001", ""), c.parent, true);
            if (c.own != 0) file(kind, a, c.own > 0 ? c.own : 0.9, c.own > 0);
            EXPECT_DOUBLE_EQ(c.expected, merged(kind, a))
                << "kind " << kind << (c.super ? " super" : " sub") << " parent " << c.parent << " own " << c.own;
        }
    }
}

// ---- the matching rule ---------------------------------------------------------------------------------

struct MatchCase {
    const char* category;
    std::vector<std::string> customList;  // filed under the entry's own category
    const char* customListCategory;       // the map key, when it differs from the entry's category
    std::vector<std::string> groupMembers;
    const char* market;
    const char* code;
    bool expected;
};

TEST_F(FeeMergeTest, MatchingRuleUsesCodeListsAndGroupsOnlyInsideTheirHalfOpenRanges) {
    const MatchCase cases[] = {
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
    for (const MatchCase& c : cases) {
        m_dc = boost::make_shared<DataCenter>();
        const CAccountInfoPtr a = account("880001", "");
        CCustomStockFeeRatePtr entry = stockRate(c.category, 0.0004);
        if (!c.customList.empty())
            entry->m_mapCustomCategory[c.customListCategory ? c.customListCategory : c.category] =
                c.customList;
        for (const std::string& g : c.groupMembers) entry->m_vGroupCategory.push_back(member(g));
        setStock(a, stockTable({entry}));
        EXPECT_EQ(c.expected, mergedBuyRate(a, c.market, c.code) > 0)
            << "category " << c.category << " for " << c.market << c.code;
    }
}

TEST_F(FeeMergeTest, FirstMatchingEntryWins) {
    const CAccountInfoPtr a = account("880001", "");
    setStock(a, stockTable({CCustomStockFeeRatePtr(), stockRate("10003", 0.0009), stockRate("10001", 0.0003),
                            stockRate("10001", 0.0005)}));
    EXPECT_DOUBLE_EQ(0.0003, mergedBuyRate(a));
}

// ---- what the stock merge writes -----------------------------------------------------------------------

TEST_F(FeeMergeTest, StockMergeCopiesSevenValuesIntoAFreshSubRecord) {
    const struct {
        double minVolume;
        int64_t expected;
    } volumes[] = {{100.0, 100}, {100.4, 100},      {99.6, 100}, {0.0, 0},
                   {-5.0, 0},    {std::nan(""), 0}, {1e20, 0}};
    for (const auto& v : volumes) {
        const CAccountInfoPtr a = account("880001", "");
        CCustomStockFeeRatePtr e = stockRate("10001", 0.0003);
        e->m_dSellCommissionRate = 0.0004;
        e->m_dMinCommission = 5.0;
        e->m_dStampTaxRate = 0.0005;
        e->m_dTransferFeeRate = 0.00001;
        e->m_dTradeFeeRate = 0.0000341;
        e->m_dMinVolume = v.minVolume;
        setStock(a, stockTable({e}));
        const CInstrumentFeePtr fee = feeFor("SH", "600000");
        const CStkExchangePtr shared = boost::make_shared<CStkExchange>();
        shared->m_dBuyCommissionRate = 0.9;
        shared->m_nMinVolume = 7;
        fee->m_stkExchange = shared;
        {
            test::LogCapture log;
            m_dc->testMergeStockInstrumentFee(a, fee);
            EXPECT_TRUE(log.contains("testMergeStockInstrumentFee: rate = ")) << v.minVolume;
            EXPECT_TRUE(log.contains(", isTypedStock is true."));
        }
        const CStkExchangePtr stk = fee->m_stkExchange;
        ASSERT_TRUE(stk);
        EXPECT_NE(shared, stk);  // someone holding the old sub-record sees it unchanged
        EXPECT_DOUBLE_EQ(0.9, shared->m_dBuyCommissionRate);
        EXPECT_EQ(7, shared->m_nMinVolume);
        EXPECT_DOUBLE_EQ(0.0003, stk->m_dBuyCommissionRate);
        EXPECT_DOUBLE_EQ(0.0004, stk->m_dSellCommissionRate);
        EXPECT_DOUBLE_EQ(5.0, stk->m_dMinCommission);
        EXPECT_DOUBLE_EQ(0.0005, stk->m_dStampTaxRate);
        EXPECT_DOUBLE_EQ(0.00001, stk->m_dTransferFeeRate);
        EXPECT_DOUBLE_EQ(0.0000341, stk->m_dTradeFeeRate);
        EXPECT_EQ(v.expected, stk->m_nMinVolume) << v.minVolume;
    }
}

TEST_F(FeeMergeTest, MissingPiecesLeaveTheFeeUnchanged) {
    const CAccountInfoPtr a = account("880001", "");
    setStock(a, stockTable({stockRate("10001", 0.0003)}));
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

// ---- stock options ---------------------------------------------------------------------------------------

CCustomStockFeeRatePtr optionRate(const std::string& category, int offset, int covered, int direction,
                                  double open) {
    CCustomStockFeeRatePtr r = boost::make_shared<CCustomStockFeeRate>();
    r->m_strCategory = category;
    r->m_dBuyCommissionRate = 0.5;
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

TEST_F(FeeMergeTest, StockOptionSuperAccountGetsAnItemFromEveryEntryWithoutCategoryTest) {
    const CAccountInfoPtr super = superAccount("990001", 6);
    setStock(super, stockTable({optionRate("abc", '0', '1', '0', 1.6),    // key "001"
                                optionRate("10003", 'D', '1', '1', 0.6),  // exercise: key "1D"
                                optionRate("", '1', '0', '1', 2.0),       // key "110"
                                optionRate("10001", '0', '1', '0', 1.8),  // "001" again: replaces the first
                                CCustomStockFeeRatePtr()}));
    const CInstrumentFeePtr fee = feeFor("SH", "10004567", "50ETF购9月2600");
    const CStockOptionFeeItemPtr kept = boost::make_shared<CStockOptionFeeItem>();
    fee->m_mapStockOptionFee["X"] = kept;
    test::LogCapture log;
    m_dc->testMergeStockInstrumentFee(super, fee);

    EXPECT_TRUE(log.contains("[ACCT|990001] [SH-10004567] loadCustomFeeRate_StockOption, custom fee cnt: 5"));
    EXPECT_EQ(4u, log.count("[ACCT|990001] [SH-10004567] loadCustomFeeRate_StockOption, rate: "));
    EXPECT_FALSE(fee->m_stkExchange);  // an option account gets items, not stock rates
    const CStockOptionFeeItemMap& items = fee->m_mapStockOptionFee;
    ASSERT_EQ((std::vector<std::string>{"001", "110", "1D", "X"}), ([&] {
                  std::vector<std::string> keys;
                  for (const auto& i : items) keys.push_back(i.first);
                  return keys;
              }()));
    EXPECT_EQ(kept, items.at("X"));
    const CStockOptionFeeItem& open = *items.at("001");
    EXPECT_DOUBLE_EQ(1.8, open.m_dOpenFee);
    EXPECT_DOUBLE_EQ(2.8, open.m_dCloseFee);
    EXPECT_DOUBLE_EQ(3.8, open.m_dExerciseFee);
    EXPECT_DOUBLE_EQ(0.12, open.m_dMarginRatio1);
    EXPECT_DOUBLE_EQ(0.07, open.m_dMarginRatio2);
    EXPECT_EQ('0', open.m_nOffsetFlag);
    EXPECT_EQ('1', open.m_nCoveredFlag);
    EXPECT_EQ('0', open.m_nDirection);
    EXPECT_EQ('D', items.at("1D")->m_nOffsetFlag);
}

TEST_F(FeeMergeTest, StockOptionSuperAccountWithoutTableLogsTheErrorAndLeavesTheFee) {
    const CInstrumentFeePtr fee = feeFor("SH", "10004567");
    test::LogCapture log;
    m_dc->testMergeStockInstrumentFee(superAccount("990001", 6), fee);
    EXPECT_EQ(1u, log.count("[ACCT|990001] [SH-10004567] loadCustomFeeRate_StockOption error: "
                            "CustomStockInstrumentFee is null"));
    EXPECT_TRUE(fee->m_mapStockOptionFee.empty());
    EXPECT_FALSE(fee->m_stkExchange);
    // A type-6 account that is not a super account takes the ordinary stock path.
    setStock(account("990001", "S"), stockTable({stockRate("10001", 0.0003)}));
    EXPECT_DOUBLE_EQ(0.0003, mergedBuyRate(account("990001", "S", 6)));
}

// ---- futures and the custom-rate queries -------------------------------------------------------------

TEST_F(FeeMergeTest, FuturesCommissionAndMarginAreMatchedSeparately) {
    const CAccountInfoPtr parent = account("880001", "");
    const CAccountInfoPtr sub = account("880001", "S1");
    m_dc->setAccountFutureInstruemntFee(
        {{parent, futureTable({futureRate("20003", 0.1)}, {futureRate("20003", 0.2)})},
         {sub, futureTable({futureRate("20001", 0.7), futureRate("20003", 0.3)}, {})}});
    const CInstrumentFeePtr fee = feeFor("SHFE", "rb2410");
    m_dc->testMergeFutureInstrumentFee(sub, fee);
    EXPECT_DOUBLE_EQ(0.3, fee->m_dOpenRatioByMoney);  // own commission
    EXPECT_DOUBLE_EQ(0.6, fee->m_dCloseTodayRatioByVolume);
    EXPECT_DOUBLE_EQ(0.2, fee->m_dLongMarginRatioByMoney);  // the parent's margin stays
    EXPECT_DOUBLE_EQ(0.4, fee->m_dShortMarginRatioByVolume);

    const struct {
        CAccountInfoPtr account;
        const char* code;
        bool commission;
        bool margin;
    } cases[] = {
        {sub, "rb2410", true, false},  // the parent's margin entry does not count
        {parent, "rb2410", true, true},   {sub, "au2412", true, false},
        {parent, "au2412", false, false}, {account("880002", ""), "rb2410", false, false},
    };
    for (const auto& c : cases) {
        const CInstrumentFeePtr f = feeFor("SHFE", c.code);
        EXPECT_EQ(c.commission, m_dc->isCustomCommission(c.account, f))
            << c.account->getKey() << " " << c.code;
        EXPECT_EQ(c.margin, m_dc->isCustomMargin(c.account, f)) << c.account->getKey() << " " << c.code;
    }
    test::LogCapture log;
    EXPECT_TRUE(m_dc->isCustomMargin(parent, feeFor("SHFE", "rb2410")));
    EXPECT_TRUE(log.contains("isCustomCommission: rate = "));
    EXPECT_TRUE(log.contains(", account = 10001_880001, ExchangeID = SHFE, InstrumentID = rb2410."));
}

// ---- Hong Kong connect -----------------------------------------------------------------------------------

TEST_F(FeeMergeTest, HgtUsesTheFullRuleWhileSgtUsesOnlyTheCategoryRules) {
    const CAccountInfoPtr a = account("770001", "");
    CCustomHKFeeRatePtr byList = hkRate("10001", 0.0011);
    byList->m_mapCustomCategory["10001"] = {"HGT00700", "SGT00700"};
    CCustomHKFeeRatePtr byGroup = hkRate("80001", 0.0012);
    byGroup->m_vGroupCategory = {member("50001"), member("50002")};
    CCustomHGTInstrumentFeePtr hgt = boost::make_shared<CCustomHGTInstrumentFee>();
    hgt->m_vRates = {byList, byGroup};
    CCustomSgtInstrumentFeePtr sgt = boost::make_shared<CCustomSgtInstrumentFee>();
    sgt->m_vRates = {byList, byGroup};
    m_dc->setAccountsHGTInstrumentFee({{a, hgt}});
    m_dc->setAccountsSgtInstrumentFee({{a, sgt}});

    const CInstrumentFeePtr hk = feeFor("HGT", "00700", "腾讯控股");
    {
        test::LogCapture log;
        m_dc->testMergeHGTInstrumentFee(a, hk);
        EXPECT_TRUE(log.contains(", account = 10001_770001, ExchangeID = HGT, InstrumentID = 00700."));
        EXPECT_TRUE(log.contains("testMergeAccountHGTInstrumentFee: rate = "));
    }
    EXPECT_DOUBLE_EQ(0.0011, hk->m_dHGTCommissionRate);  // matched by the code list
    EXPECT_DOUBLE_EQ(3.0, hk->m_dHGTMinCommission);
    EXPECT_DOUBLE_EQ(0.0013, hk->m_dHGTStampTaxRate);
    EXPECT_DOUBLE_EQ(0.0000565, hk->m_dHGTTradeFeeRate);
    EXPECT_DOUBLE_EQ(0.00002, hk->m_dHGTTransferFeeRate);
    EXPECT_DOUBLE_EQ(0.0, hk->m_dSgtCommissionRate);

    // Neither the list nor the group counts for Sgt: categories 10001 and 80001 hold no SGT code.
    const CInstrumentFeePtr south = feeFor("SGT", "00700", "腾讯控股");
    m_dc->testMergeSgtInstrumentFee(a, south);
    EXPECT_DOUBLE_EQ(0.0, south->m_dSgtCommissionRate);
    sgt = boost::make_shared<CCustomSgtInstrumentFee>();
    sgt->m_vRates = {byList, hkRate("50002", 0.0015)};
    m_dc->setAccountsSgtInstrumentFee({{a, sgt}});
    {
        test::LogCapture log;
        m_dc->testMergeSgtInstrumentFee(a, south);
        EXPECT_TRUE(log.contains("testMergeAccountsgtInstrumentFee: rate = "));
    }
    EXPECT_DOUBLE_EQ(0.0015, south->m_dSgtCommissionRate);
    EXPECT_DOUBLE_EQ(0.0013, south->m_dSgtStampTaxRate);
    EXPECT_DOUBLE_EQ(0.0, south->m_dHGTCommissionRate);
}

// ---- foreign
// -----------------------------------------------------------------------------------------------

CCustomSPFeeRatePtr spRate(const std::string& market, const std::string& product, double rate,
                           const std::string& currency) {
    CCustomSPFeeRatePtr r = boost::make_shared<CCustomSPFeeRate>();
    r->m_strExchangeID = market;
    r->m_strProductID = product;
    r->m_dRate = rate;
    r->m_strCurrency = currency;
    return r;
}

TEST_F(FeeMergeTest, ForeignMergeMatchesMarketAndProductAndCopiesTheCurrencyIntoAFreshInstrument) {
    const CAccountInfoPtr a = account("660001", "");
    CCustomSPInstrumentFeePtr table = boost::make_shared<CCustomSPInstrumentFee>();
    table->m_vRates = {spRate("SGX", "FEF", 3.0, "USD"), spRate("SGX", "CN", 2.5, "USD"),
                       spRate("SGX", "CN", 9.9, "SGD")};
    m_dc->setAccountForeignInstruemntFee({{a, table}});

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
    EXPECT_DOUBLE_EQ(2.5, after->m_dOpenCommission);
    EXPECT_DOUBLE_EQ(2.5, after->m_dCloseCommission);
    EXPECT_DOUBLE_EQ(2.5, after->m_dCloseTodayCommission);
    EXPECT_DOUBLE_EQ(0.0, after->m_dOpenCommissionRatio);
    EXPECT_DOUBLE_EQ(0.0, after->m_dCloseCommissionRatio);
    EXPECT_DOUBLE_EQ(0.0, after->m_dCloseTodayCommissionRatio);
    EXPECT_DOUBLE_EQ(1000.0, after->m_dLongMargin);
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
        double deposit;
        double dfee;
        double margin;
        double commission;
        double ratio;
    } cases[] = {
        {1500.0, 2.5, 1500.0, 2.5, 0.0},    {0.0, 2.5, 800.0, 2.5, 0.0},  // no deposit figure: margin kept
        {1500.0, -1.0, 1500.0, 1.0, 0.001},                               // no fee figure: commission kept
        {nan, nan, 800.0, 1.0, 0.001},      {1500.0, 0.0, 1500.0, 0.0, 0.0},  // a zero commission is a figure
    };
    for (const auto& c : cases) {
        const CInstrumentFeePtr fee = feeFor("SGX", "CN2409");
        CForeignFeePtr raw = boost::make_shared<CForeignFee>();
        raw->m_dLongMargin = 800.0;
        raw->m_dShortMargin = 800.0;
        raw->m_dOpenCommission = 1.0;
        raw->m_dCloseCommission = 1.0;
        raw->m_dCloseTodayCommission = 1.0;
        raw->m_dOpenCommissionRatio = 0.001;
        fee->m_foreignFee = raw;
        m_dc->updateForeignInstruemntFeeByBroker(fee, c.deposit, c.dfee);
        const CForeignFee& f = *fee->m_foreignFee;
        EXPECT_DOUBLE_EQ(c.margin, f.m_dLongMargin) << c.deposit << " " << c.dfee;
        EXPECT_DOUBLE_EQ(c.margin, f.m_dShortMargin) << c.deposit << " " << c.dfee;
        EXPECT_DOUBLE_EQ(c.commission, f.m_dOpenCommission) << c.deposit << " " << c.dfee;
        EXPECT_DOUBLE_EQ(c.commission, f.m_dCloseTodayCommission) << c.deposit << " " << c.dfee;
        EXPECT_DOUBLE_EQ(c.ratio, f.m_dOpenCommissionRatio) << c.deposit << " " << c.dfee;
        EXPECT_DOUBLE_EQ(800.0, raw->m_dLongMargin);  // never written in place
    }
    test::LogCapture log;
    m_dc->updateForeignInstruemntFeeByBroker(feeFor("SGX", "CN2409"), 1500, 2.5);
    EXPECT_TRUE(
        log.contains("[wp] MarketID:SGX, InstrumentID:CN2409, rawMargin:0, rawCommission:0, From "
                     "YS_Broker:[deposit:1500, dfee:2.5]"));
    m_dc->updateForeignInstruemntFeeByBroker(CInstrumentFeePtr(), 1500, 2.5);
}

// ---- setters
// -------------------------------------------------------------------------------------------------

TEST_F(FeeMergeTest, SettersSkipMissingAccountsAndTablesWithTheirLine) {
    const CAccountInfoPtr a = account("X", "");
    const CAccountInfoPtr b = account("Y", "");
    test::LogCapture log;
    const CCustomStockInstrumentFeePtr stock = stockTable({});
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
    const CCustomStockInstrumentFeePtr next = stockTable({stockRate("10001", 0.0001)});
    m_dc->setAccountsStockInstrumentFee({{b, next}});
    m_dc->setAccountsStockInstrumentFee({{a, next}});
    EXPECT_EQ(next, m_dc->getAccountStockInstrumentFee("10001_X"));
    EXPECT_EQ(next, m_dc->getAccountStockInstrumentFee("10001_Y"));
}

}  // namespace
