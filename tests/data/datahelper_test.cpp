// DataHelper: platform families, counter systems, operation and order-type codes (with the order
// direction), instrument codes, value ranges, foreign-stock estimates, position order, accounts.
#include "base/data/DataHelper.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/data/CPriceDataHelper.h"
#include "config/ConfigCollector.h"
#include "testing/StoreTestFixture.h"
#include "utils/StockTypeCenter.h"

namespace ttservice {
namespace {

const double kMax = std::numeric_limits<double>::max();
const double kInf = std::numeric_limits<double>::infinity(), kNaN = std::numeric_limits<double>::quiet_NaN();
const int kIntMin = std::numeric_limits<int>::min();

TEST(DataHelperTest, MarketFamilyBoundsKeepTheirDeliberateGaps) {
    typedef bool (*Predicate)(const int&);
    const struct {
        const char* name;
        Predicate fn;
    } predicates[] = {
        {"stock", &DataHelper::isStockPlatform},       {"future", &DataHelper::isFuturePlatform},
        {"goldl", &DataHelper::isGoldlatform},         {"gold", &DataHelper::isGoldPlatform},
        {"yswp", &DataHelper::isYswpPlatform},         {"foreign", &DataHelper::isForeignPlatform},
        {"hgt", &DataHelper::isHGTPlatform},           {"sopt", &DataHelper::isStockOptionPlatform},
        {"fopt", &DataHelper::isFutureOptionPlatform}, {"n3b", &DataHelper::isNew3BoardPlatform},
        {"sgt", &DataHelper::isSGTPlatform},           {"interbank", &DataHelper::isInterbankPlatform}};
    // Each id with every family that claims it ("none": none); every other family must say no.
    const std::pair<int, const char*> cases[] = {
        {-60000, "none"},        {-1, "none"},          {0, "none"},           {9999, "none"},
        {10000, "stock"},        {19999, "stock"},      {20000, "future"},     {29998, "future"},
        {29999, "none"},         {30000, "goldl gold"}, {39998, "goldl gold"}, {39999, "gold"},
        {40000, "none"},         {40002, "yswp"},       {41000, "none"},       {41001, "foreign"},
        {41002, "yswp foreign"}, {49998, "foreign"},    {49999, "none"},       {51000, "none"},
        {51001, "hgt"},          {59998, "hgt"},        {59999, "none"},       {60000, "sopt"},
        {69999, "sopt"},         {70000, "none"},       {70001, "fopt"},       {79998, "fopt"},
        {79999, "none"},         {100000, "n3b"},       {109999, "n3b"},       {110000, "none"},
        {110001, "sgt"},         {119998, "sgt"},       {119999, "none"},      {1110002, "none"},
        {1110003, "interbank"},
    };
    for (const auto& c : cases)
        for (const auto& p : predicates) {
            const bool claims = (" " + std::string(c.second) + " ").find(" " + std::string(p.name) + " ") !=
                                std::string::npos;
            EXPECT_EQ(claims, p.fn(c.first)) << "id " << c.first << ", family " << p.name;
        }
}

TEST(DataHelperTest, SingleIdFlagsAndRepresentativePlatform) {
    const struct {
        int id;
        bool existBizNo, historyAllowNega, calcAssetGuosen;
    } flags[] = {{10001, false, false, false}, {10000, true, false, false}, {10004, true, true, false},
                 {10007, true, true, false},   {11007, true, true, false},  {10008, true, false, true},
                 {11008, true, false, true},   {11004, true, false, false}};
    for (const auto& c : flags) {
        EXPECT_EQ(c.existBizNo, DataHelper::isExistBizNo(c.id)) << c.id;
        EXPECT_EQ(c.historyAllowNega, DataHelper::isHistoryAllowNega(c.id)) << c.id;
        EXPECT_EQ(c.calcAssetGuosen, DataHelper::isNeedCalcAssetGuosen(c.id)) << c.id;
    }
    const struct {
        int id, expected;
    } ids[] = {{32000, 32000}, {41001, 41001}, {41002, 41002},  {40002, 40002},
               {41003, 41003}, {40003, 40003}, {11007, 10000},  {65000, 24001},
               {69999, 24001}, {30000, 31003}, {39999, 31003},  {29999, 10000},
               {40000, 10000}, {20001, 10000}, {-30000, 10000}, {kIntMin, 10000}};
    for (const auto& c : ids) EXPECT_EQ(c.expected, DataHelper::getPlatFormId(c.id)) << c.id;
}

// Counter families come from an installed configuration; the previous one is restored afterwards.
class DataHelperConfigTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_previous = ConfigCollector::instance();
        boost::shared_ptr<ConfigCollector> config = boost::make_shared<ConfigCollector>();
        const struct {
            const char* family;
            std::set<int> ids;
        } families[] = {{"ctp", {1}},
                        {"gold", {2}},
                        {"kcxp", {3, 9}},
                        {"kdmid", {4, 8}},
                        {"guosen", {5, 10}},
                        {"hundsun", {6, 7, 8, 9, 10}},
                        {"spx", {7, 14}},
                        {"apex", {11}},
                        {"fusdk", {12}},
                        {"v8t", {13}},
                        {"support_local_order_id", {20, 1}}};
        for (const auto& f : families) config->setFamily(f.family, f.ids);
        ConfigCollector::setInstance(config);
    }
    void TearDown() override {
        ConfigCollector::setInstance(m_previous);
        utils::StockTypeCenter::instance().clear();
    }
    boost::shared_ptr<ConfigCollector> m_previous;
};

// Each predicate asks its own family; composite ones several; no configuration: no family holds an id.
TEST_F(DataHelperConfigTest, CounterPredicatesAskTheirFamilies) {
    typedef bool (*Predicate)(int);
    // Each predicate with an id that only its own family holds.
    const struct {
        const char* name;
        Predicate fn;
        int member;
    } predicates[] = {
        {"ctp", &DataHelper::isCTPStock, 1},          {"gold", &DataHelper::isGoldOrder, 2},
        {"kcxp", &DataHelper::isKcxpPts, 3},          {"kdmid", &DataHelper::isKdmidPts, 4},
        {"guosen", &DataHelper::isGuosenIpwanPos, 5}, {"hundsun", &DataHelper::isHundsunIpwanPos, 6},
        {"spx", &DataHelper::isSPXIpwanPos, 14},      {"apex", &DataHelper::isAPEXIpwanPos, 11},
        {"fusdk", &DataHelper::isFusdkPts, 12},       {"v8t", &DataHelper::isV8TPts, 13}};
    for (const auto& p : predicates)
        for (const auto& other : predicates)
            EXPECT_EQ(&p == &other, p.fn(other.member)) << p.name << " asked for " << other.name << "'s id";
    // 3 kcxp, 4 kdmid, 6 hundsun only, 7 hundsun+spx, 8 hundsun+kdmid, 9 hundsun+kcxp,
    // 10 hundsun+guosen, 14 spx only, 15 none.
    const struct {
        int id;
        bool kingdom, needIpwan, checkRepurchase;
    } composite[] = {{3, true, false, false},  {4, true, false, false},  {6, false, true, true},
                     {7, false, true, false},  {8, true, true, false},   {9, true, true, false},
                     {10, false, true, false}, {14, false, true, false}, {15, false, false, false}};
    for (const auto& c : composite) {
        EXPECT_EQ(c.kingdom, DataHelper::isKingDomIpwanPos(c.id)) << c.id;
        EXPECT_EQ(c.needIpwan, DataHelper::isNeedIpwanPos(c.id)) << c.id;
        EXPECT_EQ(c.checkRepurchase, DataHelper::isNeedCheckRepurchasePos(c.id)) << c.id;
    }
    // 20: the local-order-id family only; 1: ctp too; 21: neither.
    const struct {
        int id, kind;
        bool expected;
    } local[] = {{20, 2, true}, {20, 3, true}, {20, 1, false}, {20, 4, false},
                 {1, 0, true},  {1, 7, true},  {21, 2, false}, {21, 3, false}};
    for (const auto& c : local)
        EXPECT_EQ(c.expected, DataHelper::isPlatformSupportLocalOrderId(c.id, c.kind))
            << c.id << "/" << c.kind;

    // isIpwanPos asks the stock types with the code, then the market; the platform plays no part.
    utils::StockTypeRule pledge;
    pledge.market = "SH";
    pledge.prefixes = {"204"};
    utils::StockTypeCenter::instance().addRule(100021, pledge);
    utils::StockTypeRule repo;
    repo.market = "SZ";
    repo.codes = {"131810"};
    utils::StockTypeCenter::instance().addRule(100018, repo);
    const struct {
        const char *code, *market;
        bool expected;
    } ipwan[] = {{"204001", "SH", true},  {"131810", "SZ", true},  {"204001", "SZ", false},
                 {"131810", "SH", false}, {"600000", "SH", false}, {"SH", "204001", false}};
    for (const auto& c : ipwan) {
        EXPECT_EQ(c.expected, DataHelper::isIpwanPos(c.code, c.market, 10000)) << c.code << "/" << c.market;
        EXPECT_EQ(c.expected, DataHelper::isIpwanPos(c.code, c.market, -5)) << c.code << "/" << c.market;
    }

    ConfigCollector::setInstance(boost::shared_ptr<ConfigCollector>());  // no families at all
    EXPECT_FALSE(DataHelper::isNeedCheckRepurchasePos(6));
    EXPECT_FALSE(DataHelper::isPlatformSupportLocalOrderId(20, 2));
}

// Every operation code against the published sets; the direction an order of it goes out with.
TEST(DataHelperTest, OperationsAgainstThePublishedSets) {
    const std::set<int> buy = {0,  4,  5,  8,  9,  12, 13,   18,   20,   22,  26,
                               28, 32, 35, 37, 38, 48, 1006, 1011, 1013, 1020};
    const std::set<int> lng = {0, 1, 2, 6, 7, 10, 11, 14};
    const std::set<int> open = {0,  3,  18, 20, 22, 26,   28,   32,   34,   36,   38,
                                42, 44, 46, 48, 55, 1004, 1006, 1007, 1011, 1013, 1020};
    const std::set<int> close = {1,  4,  14, 15, 19, 21, 23, 24,   25,   27,   29,   33,   35,   37,  39,
                                 43, 45, 47, 49, 51, 52, 56, 1005, 1010, 1012, 1014, 1019, 1021, 1022};
    const std::set<int> sells = {1,  2,  3,  6,  7,  10, 11, 14, 19,   21,   24,   27,   29,   33,  34,
                                 36, 39, 43, 45, 47, 49, 50, 52, 1005, 1007, 1010, 1014, 1021, 1022};
    for (int op = -3; op <= 1030; ++op) {
        EXPECT_EQ(sells.count(op) ? '1' : '0', getDirectionByOperation(op)) << op;
        EXPECT_EQ(buy.count(op) == 1, DataHelper::isBuy(op)) << op;
        EXPECT_EQ(lng.count(op) == 1, DataHelper::isLong(op)) << op;
        int expected = -1;
        if (open.count(op)) expected = '0';
        if (close.count(op)) expected = '1';
        if (op == 2 || op == 5) expected = '3';
        if (op == 30) expected = 'Q';
        if (op == 31) expected = 'B';
        if (op == 50) expected = 'D';
        EXPECT_EQ(expected, DataHelper::getOffsetFlagByOperation(op)) << op;
        EXPECT_EQ(expected == '0', DataHelper::isOpen(op)) << op;
    }
    // Far outside the tables: buy, whatever the bits of the value.
    for (int op : {kIntMin, -1000000, 1069, 1005 + 64, 1000000, std::numeric_limits<int>::max()})
        EXPECT_EQ('0', getDirectionByOperation(op)) << op;
}

// Order types: algorithmic ones, their trade platform type (3 by default) and authority ("" by
// default); trade platforms, command and stop-loss statuses; invalid net values.
TEST(DataHelperTest, OrderTypesTradePlatformsAndStatuses) {
    const std::set<int> algoTypes = {4, 8, 9, 10, 13};
    const std::map<int, int> platformTypes = {{5, 5}, {8, 7}, {9, 8}, {10, 9}, {11, 10}, {12, 10}, {13, 11}};
    const std::map<int, std::string> authorities = {
        {4, "mdl_alg_zxjt1"},  {5, "mdl_alg_zsgs1"},  {8, "mdl_alg_zxzq1"},  {9, "mdl_alg_genus1"},
        {10, "mdl_alg_jazz1"}, {11, "mdl_alg_twap1"}, {12, "mdl_alg_twap1"}, {13, "mdl_alg_nqalg1"}};
    for (int type = -5; type <= 20; ++type) {
        SCOPED_TRACE(type);
        EXPECT_EQ(algoTypes.count(type) == 1, DataHelper::isAlgoOrderType(type));
        EXPECT_EQ(platformTypes.count(type) ? platformTypes.at(type) : 3,
                  DataHelper::getPlatformTypeByOrderType(type));
        EXPECT_EQ(authorities.count(type) ? authorities.at(type) : "",
                  DataHelper::getAuthorityByOrderType(type));
    }
    const std::set<int> algoPlatforms = {3, 7, 8, 9, 11}, completed = {1, 4, 5, 7, 202};
    for (int v = -5; v <= 260; ++v) {
        EXPECT_EQ(algoPlatforms.count(v) == 1, DataHelper::isAlgoTradePlatform(v)) << v;
        EXPECT_EQ(completed.count(v) == 1, DataHelper::isCommandCompleted(v)) << v;
        EXPECT_EQ(v >= 3 && v <= 6, DataHelper::isSystemStopLoss(v)) << v;
        EXPECT_EQ(v != '0' && v != '1' && v != '6', DataHelper::canFutureOrder(v)) << v;
    }
    const struct {
        double value;
        bool invalid;
    } values[] = {{0.0, false},        {1e300, false}, {-1e300, false}, {1.0001e300, true},
                  {-1.0001e300, true}, {kMax, true},   {kInf, true},    {kNaN, false}};
    for (const auto& c : values) EXPECT_EQ(c.invalid, DataHelper::isInvalidNetValue(c.value)) << c.value;
}

TEST(DataHelperTest, ArbitrageCodes) {
    const struct {
        const char* code;
        bool split;
        const char *kind, *leg1, *leg2;
    } cases[] = {
        {"SP a1805&a1809", true, "SP", "a1805", "a1809"},
        {"SP a&", true, "SP", "a", ""},
        {" a1805&a1809", false, "", " a1805&a1809", " a1805&a1809"},  // blank at position 0
        {"&SP a1805", false, "", "&SP a1805", "&SP a1805"},           // '&' at position 0
        {"a1805&a1809", false, "", "a1805&a1809", "a1805&a1809"},     // no blank
        {"SP a1805", false, "", "SP a1805", "SP a1805"},              // no '&'
        {"a&b c", true, "a&b", "", "b c"},  // '&' before the blank: no first leg between them
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        std::string leg1 = "stale1", leg2 = "stale2", kind = "stale";
        EXPECT_EQ(c.split, DataHelper::isArbitrage(c.code, leg1, leg2, kind));
        EXPECT_EQ((std::vector<std::string>{c.kind, c.leg1, c.leg2}),
                  (std::vector<std::string>{kind, leg1, leg2}));
        EXPECT_EQ(std::string(c.code).find('&') != std::string::npos, DataHelper::isArbitrage(c.code));
    }
    const struct {
        const char *leg1, *leg2;
        bool expected;
    } periods[] = {
        {"a1805", "a1809", true},   {"a1805", "m1809", false}, {"ab", "a", false},  {"", "m1809", true},
        {"rb1805", "rb1901", true}, {"a1805", "ab809", false}, {"ab", "abc", true}, {"a", "", false}};
    for (const auto& c : periods)
        EXPECT_EQ(c.expected, DataHelper::isPeriodArbitrage(c.leg1, c.leg2)) << c.leg1 << " / " << c.leg2;
}

CValueRange range(double lower, int lowerKind, double upper, int upperKind) {
    CValueRange r;
    r.m_dLowerBound = lower;
    r.m_nLowerBoundType = lowerKind;
    r.m_dUpperBound = upper;
    r.m_nUpperBoundType = upperKind;
    return r;
}

// Within the 1e-5 tolerance a closed bound takes the value in and an open bound keeps it out;
// kinds other than closed (3) and exact (4) are open; exact compares with the lower bound alone.
TEST(DataHelperTest, ValueRangesWithTheirTolerances) {
    const int kNone = -1, kClosed = 3, kExact = 4, kOpen = 1;
    const struct {
        CValueRange r;
        double value;
        bool expected;
    } cases[] = {
        {range(5, kClosed, 10, kOpen), 5, true},
        {range(5, kOpen, 10, kOpen), 5, false},
        {range(5, kOpen, 10, kOpen), 5.000001, false},
        {range(5, kClosed, 10, kOpen), 4.999995, true},
        {range(5, kClosed, 10, kOpen), 4.9, false},
        {range(5, kClosed, 10, kOpen), 9.999995, false},
        {range(5, kClosed, 10, kClosed), 10.000005, true},
        {range(5, kClosed, 10, kClosed), 10.1, false},
        {range(5, 0, 10, 2), 7, true},
        {range(5, kExact, 0, kClosed), 5.000001, true},
        {range(5, kExact, 0, kClosed), 5.1, false},
        {range(5, kExact, 100, kOpen), 50, false},
        {range(0, kNone, 10, kClosed), -1e300, true},
        {range(5, kClosed, 0, kNone), 1e300, true},
        {range(0, kNone, 0, kNone), 0, true},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, DataHelper::isValueInRange(c.value, c.r))
            << c.value << " in " << c.r.m_dLowerBound << "(" << c.r.m_nLowerBoundType << "),"
            << c.r.m_dUpperBound << "(" << c.r.m_nUpperBoundType << ")";

    // isSameRange compares the bounds within the tolerance and the upper kinds only.
    const struct {
        const char* what;
        CValueRange a, b;
        bool expected;
    } same[] = {
        {"differ only in lower kinds", range(5, 3, 10, 1), range(5, 1, 10, 1), true},
        {"differ in upper kinds", range(5, 3, 10, 1), range(5, 3, 10, 3), false},
        {"bounds within the tolerance", range(5, 3, 10, 1), range(5.000001, 3, 10.000001, 1), true},
        {"lowers differ", range(5, 3, 10, 1), range(6, 3, 10, 1), false},
        {"uppers agree, both lowers invalid", range(kMax, -1, 10, 3), range(2e300, -1, 10, 3), true},
        {"uppers agree, one lower invalid", range(kMax, -1, 10, 3), range(5, -1, 10, 3), false},
        {"lowers agree, both uppers invalid", range(5, 3, kMax, -1), range(5, 3, -2e300, -1), true},
        {"all four invalid", range(kMax, -1, 2e300, -1), range(-kMax, -1, 3e300, -1), true},
    };
    for (const auto& c : same) {
        EXPECT_EQ(c.expected, DataHelper::isSameRange(c.a, c.b)) << c.what;
        EXPECT_EQ(c.expected, DataHelper::isSameRange(c.b, c.a)) << c.what << " (swapped)";
    }
}

// Margin is the amount; commission 0.5 % of the lesser of volume and amount, at least 1.0; the HK
// fee is at least 100.0.
TEST(DataHelperTest, ForeignStockEstimatesAndHkFeeFloor) {
    const struct {
        double volume, price, margin, commission;
    } cases[] = {{100, 0.5, 50.0, 1.0},   {1000, 10, 10000.0, 5.0}, {1000, 0.2, 200.0, 1.0},
                 {1000, 0.5, 500.0, 2.5}, {0, 10, 0.0, 1.0},        {400, 10, 4000.0, 2.0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.volume) + "@" + std::to_string(c.price));
        EXPECT_DOUBLE_EQ(c.margin, DataHelper::getOutterStockMargin(c.volume, c.price));
        EXPECT_DOUBLE_EQ(c.commission, DataHelper::getOutterStockComssion(c.volume, c.price));
    }
    const double fees[][2] = {{0.0, 100.0}, {-5.0, 100.0}, {99.99, 100.0}, {100.0, 100.0}, {100.5, 100.5}};
    for (const auto& f : fees) EXPECT_DOUBLE_EQ(f[1], DataHelper::isGreaterThanhgtFee(f[0])) << f[0];
}

TEST(DataHelperTest, CompPosAndSuperAccount) {
    const auto position = [](const char* exchange, const char* instrument) -> IDataPtr {
        return test::PositionBuilder().exchange(exchange).instrument(instrument).build();
    };
    const IDataPtr quote = boost::make_shared<CPriceData>();
    const struct {
        IDataPtr a, b;
        bool less;
    } cases[] = {{position("SHFE", "rb2501"), position("SHFE", "ru2501"), true},
                 {position("SHFE", "ru2501"), position("SHFE", "rb2501"), false},
                 {position("DCE", "z9999"), position("SHFE", "a0001"), true},  // the exchange decides first
                 {position("SHFE", "rb2501"), position("SHFE", "rb2501"), false},
                 {position("SHFE", "Rb"), position("SHFE", "rb"), true},  // byte-wise
                 {quote, position("SHFE", "rb2501"), false},
                 {position("SHFE", "rb2501"), quote, false},
                 {IDataPtr(), position("SHFE", "rb2501"), false}};
    for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i)
        EXPECT_EQ(cases[i].less, DataHelper::compPos(cases[i].a, cases[i].b)) << "case " << i;

    EXPECT_FALSE(DataHelper::isSuperAccount(CAccountInfoPtr()));
    for (const char* sub : {"__super__", "", "__super", "sub1"}) {
        CAccountInfoPtr info = test::makeAccountInfo();
        info->m_strSubAccount = sub;
        EXPECT_EQ(std::string(sub) == "__super__", DataHelper::isSuperAccount(info)) << sub;
    }
}

class DataHelperFutureTradingTest : public test::StoreTestFixture {};

TEST_F(DataHelperFutureTradingTest, FuturesAccountInitialisedWithAnExchangeThatTakesOrders) {
    EXPECT_FALSE(DataHelper::isFutureTrading(CAccountDataPtr()));
    CAccountDataPtr futures = makeStore();
    EXPECT_FALSE(DataHelper::isFutureTrading(futures)) << "not initialised";
    futures->setInitialized(true);
    EXPECT_TRUE(DataHelper::isFutureTrading(futures)) << "no exchange status told: nothing forbids orders";
    for (const char* exchange : {"CFFEX", "SHFE", "DCE", "CZCE", "INE"})
        futures->updateData(test::makeExchangeStatus(exchange, EXCHANGE_STATUS_CLOSED));
    EXPECT_FALSE(DataHelper::isFutureTrading(futures)) << "every futures exchange closed";
    futures->updateData(test::makeExchangeStatus("DCE", EXCHANGE_STATUS_CONTINOUS));
    EXPECT_TRUE(DataHelper::isFutureTrading(futures)) << "DCE trading";

    CAccountDataPtr option = makeStore(1000, true, test::makeAccountInfo("880002", 1, 70001));
    option->setInitialized(true);
    EXPECT_TRUE(DataHelper::isFutureTrading(option)) << "futures-option platform";
    CAccountDataPtr stock = makeStore(1000, true, test::makeAccountInfo("880003", 2, 10001));
    stock->setInitialized(true);
    EXPECT_FALSE(DataHelper::isFutureTrading(stock)) << "stock platform";
}

}  // namespace
}  // namespace ttservice
