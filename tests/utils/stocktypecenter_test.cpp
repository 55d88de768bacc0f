#include "utils/StockTypeCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

namespace {

using utils::StockTypeCenter;

const char* const kRules = R"({
  "100021": [
    {"market": "SH", "prefixes": ["204"]},
    {"market": "SZ", "prefixes": ["1318"]}
  ],
  "100018": [
    {"market": "SZ", "ranges": [["131990", "131999"]], "codes": ["131900"]}
  ],
  "7": [
    {"prefixes": ["51"], "codes": ["159919"]}
  ]
})";

// Each test starts with kRules in force.
class StockTypeCenterTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(StockTypeCenter::instance().loadJson(kRules, &m_error)) << m_error; }
    void TearDown() override { StockTypeCenter::instance().clear(); }
    std::string m_error;
};

TEST_F(StockTypeCenterTest, MatchesPrefixesRangesCodesAndMarket) {
    const struct {
        int type;
        const char* code;
        const char* market;
        bool expected;
    } cases[] = {
        {100021, "204001", "SH", true},
        {100021, "204007", "SH", true},
        {100021, "204001", "SZ", false},  // the SH prefix only counts on SH
        {100021, "131810", "SZ", true},
        {100021, "131810", "SH", false},
        {100021, "20", "SH", false},  // shorter than the prefix
        {100021, "600000", "SH", false},
        {100018, "131990", "SZ", true},  // range bounds are inclusive
        {100018, "131995", "SZ", true},
        {100018, "131999", "SZ", true},
        {100018, "131989", "SZ", false},
        {100018, "1319950", "SZ", false},  // a range only holds codes of its length
        {100018, "13199", "SZ", false},
        {100018, "131900", "SZ", true},  // explicit code
        {100018, "131995", "SH", false},
        {7, "510050", "SH", true},  // no market: every market
        {7, "510050", "", true},
        {7, "159919", "SZ", true},
        {7, "159918", "SZ", false},
        {42, "204001", "SH", false},  // unknown type
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, StockTypeCenter::instance().isTypedStock(c.type, c.code, c.market))
            << c.type << " " << c.market << " " << c.code;
}

// Bad JSON is refused with the entry named and the rules in force kept; a good load replaces them
// all, checkJson installs nothing, addRule adds, clear empties.
TEST_F(StockTypeCenterTest, BadJsonRefusedLoadReplacesAddKeepsClearEmpties) {
    std::string& error = m_error;
    const struct {
        const char* json;
        const char* mentions;
    } cases[] = {
        {"{\"100021\": [", "not valid JSON"},
        {"[1, 2]", "JSON object"},
        {"{\"abc\": []}", "\"abc\""},
        {"{\"-5\": []}", "\"-5\""},
        {"{\"100021\": {}}", "\"100021\" is not an array"},
        {"{\"100021\": [5]}", "\"100021\" rule 0 is not an object"},
        {"{\"100021\": [{\"prefix\": [\"204\"]}]}", "rule 0.prefix"},
        {"{\"100021\": [{\"prefixes\": \"204\"}]}", "prefixes is not an array"},
        {"{\"100021\": [{\"prefixes\": [\"204\", 5]}]}", "prefixes[1]"},
        {"{\"100021\": [{\"prefixes\": [\"204\", \"\"]}]}", "prefixes[1]"},
        {"{\"100021\": [{\"market\": 1, \"prefixes\": [\"204\"]}]}", "market is not a string"},
        {"{\"100018\": [{\"ranges\": [[\"131999\", \"131990\"]]}]}",
         "ranges[0]: low \"131999\" is above high"},
        {"{\"100018\": [{\"ranges\": [[\"13199\", \"131999\"]]}]}", "ranges[0]"},
        {"{\"100018\": [{\"ranges\": [[\"131990\"]]}]}", "ranges[0] is not a pair"},
        {"{\"100018\": [{\"codes\": [\"1\"]}, {\"market\": \"SZ\"}]}", "\"100018\" rule 1 has no prefixes"},
        {"{\"1\": [{\"codes\": [\"1\"]}], \"1\": []}", "not valid JSON"},  // duplicate key
    };
    for (const auto& c : cases) {
        error.clear();
        EXPECT_FALSE(StockTypeCenter::instance().loadJson(c.json, &error)) << c.json;
        EXPECT_NE(std::string::npos, error.find(c.mentions)) << c.json << " gave: " << error;
        EXPECT_FALSE(StockTypeCenter::checkJson(c.json, nullptr)) << c.json;
        // The rules loaded before are still the ones in force.
        EXPECT_TRUE(StockTypeCenter::instance().isTypedStock(100021, "204001", "SH")) << c.json;
        EXPECT_TRUE(StockTypeCenter::instance().isTypedStock(100018, "131995", "SZ")) << c.json;
    }

    ASSERT_TRUE(StockTypeCenter::checkJson(R"({"9": [{"codes": ["000001"]}]})", &error)) << error;
    EXPECT_FALSE(StockTypeCenter::instance().isTypedStock(9, "000001", "SZ"));

    ASSERT_TRUE(StockTypeCenter::instance().loadJson(R"({"9": [{"codes": ["000001"]}]})", &error)) << error;
    EXPECT_TRUE(StockTypeCenter::instance().isTypedStock(9, "000001", "SZ"));
    EXPECT_FALSE(StockTypeCenter::instance().isTypedStock(100021, "204001", "SH"));

    utils::StockTypeRule rule;
    rule.market = "SH";
    rule.prefixes.push_back("204");
    StockTypeCenter::instance().addRule(100021, rule);
    EXPECT_TRUE(StockTypeCenter::instance().isTypedStock(100021, "204001", "SH"));
    EXPECT_TRUE(StockTypeCenter::instance().isTypedStock(9, "000001", "SZ"));

    StockTypeCenter::instance().clear();
    EXPECT_FALSE(StockTypeCenter::instance().isTypedStock(100021, "204001", "SH"));
    EXPECT_FALSE(StockTypeCenter::instance().isTypedStock(9, "000001", "SZ"));
}

// A reload replaces the rule set whole: a code present in both the old and the new set is found by
// every reader throughout, which a clear-then-fill reload would break.
TEST_F(StockTypeCenterTest, ReloadNeverShowsAPartialRuleSet) {
    const std::string a = R"({"1": [{"codes": ["X"]}, {"codes": ["KEEP"]}]})";
    const std::string b = R"({"1": [{"codes": ["Y"]}, {"prefixes": ["KE"]}]})";
    ASSERT_TRUE(StockTypeCenter::instance().loadJson(a, &m_error)) << m_error;
    std::atomic<bool> done(false);
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i) StockTypeCenter::instance().loadJson(i % 2 ? a : b, nullptr);
        done = true;
    });
    size_t misses = 0, reads = 0;
    while (!done.load() || reads < 1000) {
        ++reads;
        if (!StockTypeCenter::instance().isTypedStock(1, "KEEP", "SH")) ++misses;
    }
    writer.join();
    EXPECT_EQ(0u, misses) << "of " << reads << " reads";
}

}  // namespace
