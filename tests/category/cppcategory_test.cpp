// Category service: which instruments a configured category holds (markets, prefixes, ranges, codes,
// futures products, name patterns), a broker's code lists, group categories, loading and validating
// the configuration section, and the example set shipped with the project.
#include "category/CppCategory.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include "config/ConfigCollector.h"

using namespace ttservice;

namespace {

const char* const kRules = R"({
  "10001": {"name": "SH main board", "rules": [{"market": "SH", "prefixes": ["600", "601", "603", "605"]}]},
  "10003": {"name": "ChiNext", "rules": [{"market": "SZ", "prefixes": ["300", "301"]}]},
  "10005": {"rules": [{"market": "SH", "prefixes": ["51"]}, {"market": "SZ", "prefixes": ["159"]}]},
  "10008": {"rules": [{"markets": ["SH", "SZ"], "prefixes": ["600", "000"], "nameContains": ["ST"]}]},
  "10010": {"rules": [{"market": "SZ", "ranges": [["160000", "169999"]], "codes": ["501018"]}]},
  "10012": {"rules": [{"markets": ["SH"], "prefixes": ["600"], "nameExcludes": ["ST"]}]},
  "20003": {"rules": [{"market": "SHFE", "products": ["rb", "HC"]}, {"market": "DCE", "products": ["i"]}]},
  "20007": {"rules": [{"market": "CFFEX", "products": ["T", "TS"]}]},
  "50001": {"rules": [{"market": "HGT"}]}
})";

class CppCategoryTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(m_category.loadJson(kRules, "test", &error)) << error;
    }
    CppCategory m_category;
};

struct CategoryCase {
    const char *market, *code, *name;
    int category;
    bool expected;
};

template <size_t N>
void expectMembership(const CppCategory& category, const CategoryCase (&cases)[N]) {
    for (const CategoryCase& c : cases)
        EXPECT_EQ(c.expected, category.isStockInCategoryForTS(c.market, c.code, c.name, c.category))
            << c.market << " " << c.code << " " << c.name << " in " << c.category;
}

TEST_F(CppCategoryTest, CategoryMembershipFollowsTheConfiguredRules) {
    const CategoryCase cases[] = {
        {"SH", "600000", "浦发银行", 10001, true},
        {"SH", "605599", "菜百股份", 10001, true},
        {"SZ", "600000", "", 10001, false},  // right prefix, wrong market
        {"SH", "688001", "华兴源创", 10001, false},
        {"SH", "60", "", 10001, false},  // shorter than the prefix
        {"SZ", "300750", "宁德时代", 10003, true},
        {"SZ", "159915", "创业板ETF", 10005, true},
        {"SH", "510300", "沪深300ETF", 10005, true},  // second rule of the same category
        {"SZ", "510300", "", 10005, false},
        {"SH", "600001", "*ST 邯钢", 10008, true},  // name pattern
        {"SH", "600001", "邯郸钢铁", 10008, false},
        {"SZ", "000001", "ST平安", 10008, true},
        {"SZ", "160105", "南方积配", 10010, true},  // inclusive range
        {"SZ", "160000", "", 10010, true},
        {"SZ", "169999", "", 10010, true},
        {"SZ", "170000", "", 10010, false},
        {"SZ", "16010", "", 10010, false},  // length differs from the range
        {"SZ", "1601050", "", 10010, false},
        {"SZ", "501018", "", 10010, true},  // explicit code
        {"SH", "600000", "浦发银行", 10012, true},
        {"SH", "600001", "ST邯钢", 10012, false},  // name exclusion
        {"SHFE", "rb2410", "螺纹钢2410", 20003, true},
        {"SHFE", "RB2410", "", 20003, true},  // products ignore case
        {"SHFE", "hc2410", "", 20003, true},
        {"SHFE", "rbb2410", "", 20003, false},  // product is the whole letter run
        {"SHFE", "2410", "", 20003, false},     // no product at all
        {"DCE", "i2409", "铁矿石2409", 20003, true},
        {"DCE", "m2409", "", 20003, false},
        {"CFFEX", "T2409", "", 20007, true},
        {"CFFEX", "TS2409", "", 20007, true},
        {"CFFEX", "TF2409", "", 20007, false},
        {"HGT", "00700", "腾讯控股", 50001, true},  // no code test: every code of the market
        {"SGT", "00700", "腾讯控股", 50001, false},
        {"SH", "600000", "", 99999, false},  // unknown category
        {"SH", "600000", "", 0, false},      // what a non-numeric code turns into
        {"SH", "600000", "", -10001, false},
        {"SH", "", "", 10001, false},  // empty code
    };
    expectMembership(m_category, cases);
}

// A bare code names the code in any market; "SZ000001" and "300750.SZ" name one market's code; a
// prefix of a listed key is no match.
TEST_F(CppCategoryTest, CustomCodeListNamesByCodeKeyOrSuffixedCode) {
    const std::vector<std::string> list = {"600000", "SZ000001", "300750.SZ"};
    const struct {
        const char *market, *code;
        bool expected;
    } cases[] = {
        {"SH", "600000", true},  {"SZ", "600000", true},   {"SZ", "000001", true},
        {"SH", "000001", false}, {"SZ", "300750", true},   {"SH", "300750", false},
        {"SZ", "00000", false},  {"SZ", "0000011", false}, {"SH", "", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, m_category.isStockInCustomCategory(c.market, c.code, list))
            << c.market << c.code;
    EXPECT_FALSE(m_category.isStockInCustomCategory("SH", "600000", std::vector<std::string>()));
}

CGroupCategorySubInfoPtr member(const std::string& category, bool exclude) {
    CGroupCategorySubInfoPtr m = boost::make_shared<CGroupCategorySubInfo>();
    m->m_strCategory = category;
    m->m_bExclude = exclude;
    return m;
}

TEST_F(CppCategoryTest, GroupNeedsAnIncludingMemberAndNoExcludingOne) {
    const CGroupCategorySubInfoList mainNoSt = {member("10001", false), member("10008", true)};
    const CGroupCategorySubInfoList onlyExclusion = {member("10008", true)};
    const CGroupCategorySubInfoList withCustom = {member("19999", false), CGroupCategorySubInfoPtr(),
                                                  member("abc", false)};
    StringListMap customLists;
    customLists["19999"] = {"SZ000001"};
    const struct {
        const CGroupCategorySubInfoList* groups;
        const char *market, *code, *name;
        bool expected;
    } cases[] = {
        {&mainNoSt, "SH", "600000", "浦发银行", true},
        {&mainNoSt, "SH", "600001", "*ST邯钢", false},   // excluded member wins
        {&mainNoSt, "SZ", "000001", "平安银行", false},  // in no including member
        {&onlyExclusion, "SH", "600000", "浦发银行", false},
        {&withCustom, "SZ", "000001", "平安银行", true},   // member tested with its own code list
        {&withCustom, "SH", "600000", "浦发银行", false},  // "abc" is category 0: holds nothing
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.expected,
                  m_category.isStockInGroupCategory(c.market, c.code, c.name, *c.groups, customLists))
            << c.market << c.code << " " << c.name;
    EXPECT_FALSE(
        m_category.isStockInGroupCategory("SH", "600000", "", CGroupCategorySubInfoList(), customLists));
}

// A bad section is refused with an error naming the origin and the entry (every problem at once),
// and the rules in force before are kept whole.
TEST(CppCategoryLoad, InvalidSectionsAreRefusedNamingTheEntry) {
    const struct {
        const char *json, *mentions;
    } cases[] = {
        {"{\"10001\": ", "not valid JSON"},
        {"[1, 2]", "must be an object"},
        {R"({"abc": {"rules": [{"market": "SH"}]}})",
         "\"abc\": the category code must be a positive decimal integer"},
        {R"({"-5": {"rules": [{"market": "SH"}]}})", "\"-5\""},
        {R"({"0": {"rules": [{"market": "SH"}]}})", "\"0\""},
        {R"({"10001x": {"rules": [{"market": "SH"}]}})", "\"10001x\""},
        {R"({"99999999999": {"rules": [{"market": "SH"}]}})", "\"99999999999\""},
        {R"({"10001": {"name": "x"}})", "\"10001\".rules: must be a non-empty array"},
        {R"({"10001": {"rules": []}})", "\"10001\".rules"},
        {R"({"10001": [{"market": "SH"}]})", "\"10001\": a category must be an object"},
        {R"({"10001": {"rules": [{"market": "SH"}], "rule": []}})",
         "\"10001\".rule: unknown category member"},
        {R"({"10001": {"rules": [{"market": "SH", "prefix": ["600"]}]}})",
         "\"10001\".rules[0].prefix: unknown rule member"},
        {R"({"10001": {"rules": [{"prefixes": ["600"]}]}})", "rules[0]: needs \"market\" or \"markets\""},
        {R"({"10001": {"rules": [{"market": ""}]}})", "rules[0].market"},
        {R"({"10001": {"rules": [{"market": "SH"}, {"market": "SH", "prefixes": ["600", ""]}]}})",
         "rules[1].prefixes[1]"},
        {R"({"10001": {"rules": [{"market": "SH", "prefixes": "600"}]}})",
         "rules[0].prefixes: must be a non-empty array"},
        {R"({"10001": {"rules": [{"market": "SH", "ranges": [["1600", "169999"]]}]}})",
         "rules[0].ranges[0]: low and high"},
        {R"({"10001": {"rules": [{"market": "SH", "ranges": [["169999", "160000"]]}]}})",
         "rules[0].ranges[0]: low must not"},
        {R"({"10001": {"rules": [{"market": "SH", "ranges": [["160000"]]}]}})",
         "rules[0].ranges[0]: must be a pair"},
        {R"({"20003": {"rules": [{"market": "SHFE", "products": ["rb1"]}]}})", "rules[0].products[0]"},
        {R"({"10001": {"rules": [{"market": "SH", "nameContains": [1]}]}})", "rules[0].nameContains[0]"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        CppCategory category;
        ASSERT_TRUE(category.loadJson(R"({"10001": {"rules": [{"market": "SH", "prefixes": ["600"]}]}})",
                                      "base", nullptr));
        std::string error;
        EXPECT_FALSE(category.loadJson(c.json, "broker.json", &error));
        EXPECT_NE(std::string::npos, error.find(c.mentions)) << error;
        EXPECT_NE(std::string::npos, error.find("broker.json")) << error;
        EXPECT_FALSE(CppCategory::checkJson(c.json, "broker.json", nullptr));
        EXPECT_TRUE(category.isStockInCategoryForTS("SH", "600000", "", 10001));
        EXPECT_EQ(std::vector<int>{10001}, category.getCategoryCodes());
    }
    CppCategory category;
    std::string error;
    EXPECT_FALSE(category.loadJson(R"({"abc": {"rules": [{"market": "SH"}]},
                                       "10002": {"rules": [{"market": "SZ", "codes": [""]}]}})",
                                   "broker.json", &error));
    EXPECT_NE(std::string::npos, error.find("\"abc\"")) << error;
    EXPECT_NE(std::string::npos, error.find("\"10002\".rules[0].codes[0]")) << error;
}

// A load replaces every category (a blank one loads none); the configuration's section feeds the
// service, a bad section keeps the rules in force; the process-wide instance follows the installed
// configuration.
TEST(CppCategoryLoad, LoadsReplaceEveryCategoryAndFollowTheConfiguration) {
    CppCategory category;
    ASSERT_TRUE(category.loadJson(R"({"10001": {"name": "A", "rules": [{"market": "SH"}]},
                                      "10003": {"rules": [{"market": "SZ"}]}})",
                                  "", nullptr));
    EXPECT_EQ("A", category.getCategoryName(10001));
    ASSERT_TRUE(
        category.loadJson(R"({"10003": {"rules": [{"market": "SZ", "prefixes": ["300"]}]}})", "", nullptr));
    EXPECT_FALSE(category.hasCategory(10001));
    EXPECT_FALSE(category.isStockInCategoryForTS("SH", "600000", "", 10001));
    EXPECT_FALSE(category.isStockInCategoryForTS("SZ", "000001", "", 10003));
    EXPECT_TRUE(category.isStockInCategoryForTS("SZ", "300001", "", 10003));
    ASSERT_TRUE(category.loadJson("  \n", "", nullptr));
    EXPECT_TRUE(category.getCategoryCodes().empty());

    ConfigCollector good;
    good.setSection("categories", R"({"10003": {"rules": [{"market": "SZ", "prefixes": ["300"]}]}})");
    std::string error;
    ASSERT_TRUE(category.loadFromConfig(good, &error)) << error;
    EXPECT_TRUE(category.isStockInCategoryForTS("SZ", "300750", "", 10003));
    ConfigCollector bad;
    bad.setSection("categories", R"({"10003": {"rules": [{"market": "SZ", "prefixes": [300]}]}})");
    EXPECT_FALSE(category.loadFromConfig(bad, &error));
    EXPECT_NE(std::string::npos, error.find("\"10003\".rules[0].prefixes[0]")) << error;
    EXPECT_TRUE(category.isStockInCategoryForTS("SZ", "300750", "", 10003));

    const boost::shared_ptr<ConfigCollector> previous = ConfigCollector::instance();
    boost::shared_ptr<ConfigCollector> config = boost::make_shared<ConfigCollector>();
    config->setSection("categories", R"({"10004": {"rules": [{"market": "SH", "prefixes": ["688"]}]}})");
    ConfigCollector::setInstance(config);
    CppCategory& shared = CSingletonT<CppCategory>::instance();
    EXPECT_EQ(&shared, &CSingletonT<CppCategory>::instance());
    EXPECT_TRUE(shared.reloadFromConfig());
    EXPECT_TRUE(shared.isStockInCategoryForTS("SH", "688981", "中芯国际", 10004));
    ConfigCollector::setInstance(previous);
    shared.clear();
    EXPECT_FALSE(shared.isStockInCategoryForTS("SH", "688981", "中芯国际", 10004));
}

// The example configuration shipped with the project loads cleanly and files real codes where a
// broker expects them.
TEST(CppCategoryExample, ShippedCategoriesLoadAndClassifyRealCodes) {
    std::string error;
    const boost::shared_ptr<ConfigCollector> config =
        ConfigCollector::loadFile(TT_SOURCE_DIR "/examples/ttservice.json", &error);
    ASSERT_TRUE(config) << error;
    CppCategory category;
    ASSERT_TRUE(category.loadFromConfig(*config, &error)) << error;
    const CategoryCase cases[] = {
        {"SH", "601318", "中国平安", 10001, true},   {"SZ", "002594", "比亚迪", 10002, true},
        {"SZ", "300750", "宁德时代", 10003, true},   {"SH", "688981", "中芯国际", 10004, true},
        {"SH", "510300", "沪深300ETF", 10005, true}, {"SZ", "159915", "创业板ETF", 10005, true},
        {"SH", "113050", "南银转债", 10006, true},   {"SZ", "128136", "立讯转债", 10006, true},
        {"SH", "204001", "GC001", 10007, true},      {"SZ", "131810", "R-001", 10007, true},
        {"SZ", "000001", "平安银行", 10007, false},  {"SH", "600000", "浦发银行", 10008, false},
        {"SZ", "000004", "*ST国华", 10008, true},    {"SH", "900901", "云赛B股", 10009, true},
        {"SZ", "161005", "富国天惠", 10010, true},   {"BJ", "920001", "", 10011, true},
        {"SH", "600000", "浦发银行", 10012, true},   {"SZ", "000004", "*ST国华", 10012, false},
        {"SHFE", "au2412", "黄金2412", 20001, true}, {"INE", "bc2409", "", 20002, true},
        {"SHFE", "rb2410", "", 20003, true},         {"CZCE", "SM409", "", 20003, true},
        {"DCE", "m2409", "豆粕2409", 20005, true},   {"CZCE", "SR409", "", 20005, true},
        {"CFFEX", "IF2406", "", 20006, true},        {"CFFEX", "T2409", "", 20007, true},
        {"CFFEX", "IF2406", "", 20007, false},       {"HGT", "00700", "腾讯控股", 50001, true},
    };
    expectMembership(category, cases);
}

}  // namespace
