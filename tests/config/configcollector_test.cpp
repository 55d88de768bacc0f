#include "config/ConfigCollector.h"
#include "utils/StockTypeCenter.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <string>

// Counts the allocations of the current thread while enabled, to check the look-ups that must not
// allocate.
namespace {
thread_local bool g_countAllocations = false;
thread_local size_t g_allocations = 0;
}  // namespace

// Kept out of line so that the compiler does not pair an inlined free() with operator new.
__attribute__((noinline)) void* operator new(std::size_t size) {
    if (g_countAllocations) ++g_allocations;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* p) noexcept {
    std::free(p);
}
__attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

namespace {

using ttservice::ConfigCollector;
typedef boost::shared_ptr<ConfigCollector> ConfigPtr;

class ConfigCollectorTest : public ::testing::Test {
protected:
    void SetUp() override {
        char dir[] = "/tmp/tt_config_XXXXXX";
        ASSERT_NE(nullptr, ::mkdtemp(dir));
        m_dir = dir;
        utils::StockTypeCenter::instance().clear();
    }
    void TearDown() override {
        for (const std::string& f : m_files) std::remove(f.c_str());
        ::rmdir(m_dir.c_str());
        utils::StockTypeCenter::instance().clear();
        ConfigCollector::setInstance(ConfigPtr());
    }
    std::string writeFile(const std::string& name, const std::string& text) {
        const std::string path = m_dir + "/" + name;
        std::ofstream(path.c_str()) << text;
        m_files.push_back(path);
        return path;
    }

    std::string m_dir;
    std::vector<std::string> m_files;
};

TEST_F(ConfigCollectorTest, ShippedExampleLoads) {
    std::string error;
    ConfigPtr config = ConfigCollector::loadFile(TT_SOURCE_DIR "/examples/ttservice.json", &error);
    ASSERT_TRUE(config) << error;
    EXPECT_EQ(TT_SOURCE_DIR "/examples/ttservice.json", config->origin());
    // Every family is a non-empty set of platform ids.
    for (const char* family : {"ctp", "gold", "kcxp", "kdmid", "guosen", "hundsun", "spx", "apex", "fusdk",
                               "v8t", "support_local_order_id"}) {
        bool any = false;
        for (int id = 10000; id < 70000 && !any; ++id) any = config->isSomePt(family, id);
        EXPECT_TRUE(any) << family;
    }
    EXPECT_TRUE(config->isSomePt("hundsun", 10001));
    EXPECT_FALSE(config->isSomePt("hundsun", 20001));
    EXPECT_TRUE(config->isSomePt("gold", 31003));
    EXPECT_EQ("", config->getString("persist.url", "unset"));
    // The counter families that the classification tests separately must not overlap.
    for (int id = 10000; id < 70000; ++id) {
        int in = 0;
        for (const char* family : {"kcxp", "kdmid", "guosen", "hundsun", "spx", "apex"})
            in += config->isSomePt(family, id) ? 1 : 0;
        ASSERT_LE(in, 1) << id;
    }
    // loadFile installed the stock types.
    const utils::StockTypeCenter& types = utils::StockTypeCenter::instance();
    EXPECT_TRUE(types.isTypedStock(100021, "204001", "SH"));
    EXPECT_TRUE(types.isTypedStock(100021, "131810", "SZ"));
    EXPECT_FALSE(types.isTypedStock(100021, "131810", "SH"));
    EXPECT_TRUE(types.isTypedStock(100018, "131990", "SZ"));
    EXPECT_TRUE(types.isTypedStock(100018, "131999", "SZ"));
    EXPECT_FALSE(types.isTypedStock(100018, "131989", "SZ"));
}

// A missing file, bad JSON or a mistyped option: no configuration, a message naming the file and
// the option (or line), and nothing of the file applied (the stock types in force are kept).
TEST_F(ConfigCollectorTest, BadFilesAndOptionsAreNamedAndNothingIsApplied) {
    std::string error;
    ASSERT_TRUE(utils::StockTypeCenter::instance().loadJson(R"({"5": [{"codes": ["000001"]}]})", &error));
    const struct {
        const char* json;  // nullptr: no file
        const char* option;
    } cases[] = {
        {nullptr, "absent.json"},
        {"{\n  \"flags\": {\"a\": true,,}\n}\n", "Line 2"},
        {R"({"platformFamilies": []})", "\"platformFamilies\""},
        {R"({"platformFamilies": {"ctp": 20001}})", "\"platformFamilies.ctp\""},
        {R"({"platformFamilies": {"ctp": [20001, "20002"]}})", "\"platformFamilies.ctp\""},
        {R"({"platformFamilies": {"gold": [30001, 1.5]}})", "\"platformFamilies.gold\""},
        {R"({"platformFamilies": {"gold": [30001, 9999999999]}})", "\"platformFamilies.gold\""},
        {R"({"flags": {"quote.subscribeOnInit": "yes"}})", "\"flags.quote.subscribeOnInit\""},
        {R"({"flags": {"x": 1}})", "\"flags.x\""},
        {R"({"flags": true})", "\"flags\""},
        {R"({"values": {"persist.url": ["a"]}})", "\"values.persist.url\""},
        {R"({"values": {"n": null}})", "\"values.n\""},
        {R"({"stockTypes": {"100021": [{"prefix": ["204"]}]}})", "\"stockTypes\""},
        {R"({"stockTypes": {"pledge": []}})", "\"pledge\""},
        // Valid stock types followed by a bad option.
        {R"({"stockTypes": {"6": [{"codes": ["1"]}]}, "flags": {"a": 2}})", "\"flags.a\""},
        // The category service's own section is checked at load as well.
        {R"({"categories": {"groups": [{"name": "x"}]}})", "categories.\"groups\""},
        {R"({"categories": {"10001": {"rules": [{"market": 1}]}}})", "categories.\"10001\".rules[0].market"},
        {R"([1, 2])", "JSON object"},
    };
    for (const auto& c : cases) {
        const std::string path = c.json ? writeFile("options.json", c.json) : m_dir + "/absent.json";
        EXPECT_FALSE(ConfigCollector::loadFile(path, &error)) << path;
        EXPECT_NE(std::string::npos, error.find(path)) << c.option << " gave: " << error;
        EXPECT_NE(std::string::npos, error.find(c.option)) << c.option << " gave: " << error;
        EXPECT_TRUE(utils::StockTypeCenter::instance().isTypedStock(5, "000001", "SZ")) << c.option;
        EXPECT_FALSE(utils::StockTypeCenter::instance().isTypedStock(6, "1", "SZ")) << c.option;
    }
}

TEST_F(ConfigCollectorTest, ValuesFlagsSectionsAndDefaults) {
    std::string error;
    ConfigPtr config = ConfigCollector::loadText(R"({
        "flags": {"on": true, "off": false},
        "values": {"text": "abc", "n": 42, "neg": -7, "real": 2.5, "big": "99999999999", "b": true},
        "terminal": {"groups": [{"name": "板块", "codes": ["600000"]}]},
        "futureSection": [1, 2, 3]
    })",
                                                 "inline", &error);
    ASSERT_TRUE(config) << error;
    EXPECT_EQ("inline", config->origin());

    EXPECT_TRUE(config->getFlag("on"));
    EXPECT_FALSE(config->getFlag("off", true));
    EXPECT_FALSE(config->getFlag("absent"));
    EXPECT_TRUE(config->getFlag("absent", true));

    // An integer read of a value that is not a 32-bit integer gives the default.
    const struct {
        const char* name;
        int intDefault, asInt;
        const char* asString;
    } values[] = {{"n", 0, 42, "42"},      {"neg", 0, -7, "-7"}, {"text", 5, 5, "abc"},
                  {"real", 5, 5, "2.5"},   {"b", 5, 5, "true"},  {"big", 5, 5, "99999999999"},
                  {"absent", 9, 9, "dflt"}};
    for (const auto& c : values) {
        EXPECT_EQ(c.asInt, config->getInt(c.name, c.intDefault)) << c.name;
        EXPECT_EQ(c.asString, config->getString(c.name, "dflt")) << c.name;
    }

    // Unknown sections are kept for the services that read them, texts in UTF-8.
    EXPECT_EQ(R"({"groups":[{"codes":["600000"],"name":"板块"}]})", config->getSection("terminal"));
    EXPECT_EQ("[1,2,3]", config->getSection("futureSection"));
    EXPECT_EQ("", config->getSection("absent"));
    EXPECT_FALSE(config->isSomePt("ctp", 20001));
}

// The process-wide configuration can be swapped, never to an empty pointer; a family look-up does
// not allocate.
TEST_F(ConfigCollectorTest, InstanceIsReplaceableAndFamilyLookupDoesNotAllocate) {
    ConfigPtr initial = ConfigCollector::instance();
    ASSERT_TRUE(initial);
    EXPECT_FALSE(initial->isSomePt("ctp", 20001));

    ConfigPtr mine = boost::make_shared<ConfigCollector>();
    mine->setFamily("support_local_order_id", std::set<int>{20001});
    ConfigCollector::setInstance(mine);
    EXPECT_EQ(mine, ConfigCollector::instance());
    const std::string family = "support_local_order_id";
    const std::string absent = "a family name longer than any small-string buffer";
    g_allocations = 0;
    g_countAllocations = true;
    const bool hit = mine->isSomePt(family, 20001);
    const bool miss = mine->isSomePt(family, 20002);
    const bool unknown = mine->isSomePt(absent, 20001);
    g_countAllocations = false;
    EXPECT_TRUE(hit);
    EXPECT_FALSE(miss);
    EXPECT_FALSE(unknown);
    EXPECT_EQ(0u, g_allocations);
    EXPECT_TRUE(ConfigCollector::instance()->isSomePt(family, 20001));

    ConfigCollector::setInstance(ConfigPtr());
    ASSERT_TRUE(ConfigCollector::instance());
    EXPECT_FALSE(ConfigCollector::instance()->isSomePt(family, 20001));
    // A holder keeps its configuration after a swap.
    EXPECT_TRUE(mine->isSomePt(family, 20001));
}

}  // namespace
