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
    const char* const families[] = {"ctp",
                                    "gold",
                                    "kcxp",
                                    "kdmid",
                                    "guosen",
                                    "hundsun",
                                    "spx",
                                    "apex",
                                    "fusdk",
                                    "v8t",
                                    "support_local_order_id"};
    for (const char* family : families) {
        // Every family is a non-empty set of platform ids.
        bool any = false;
        for (int id = 10000; id < 70000 && !any; ++id) any = config->isSomePt(family, id);
        EXPECT_TRUE(any) << family;
    }
    EXPECT_TRUE(config->isSomePt("hundsun", 10001));
    EXPECT_FALSE(config->isSomePt("hundsun", 20001));
    EXPECT_TRUE(config->isSomePt("gold", 31003));
    EXPECT_EQ("", config->getString("persist.url", "unset"));
    // The counter families that the classification tests separately must not overlap.
    const char* const disjoint[] = {"kcxp", "kdmid", "guosen", "hundsun", "spx", "apex"};
    for (int id = 10000; id < 70000; ++id) {
        int in = 0;
        for (const char* family : disjoint) in += config->isSomePt(family, id) ? 1 : 0;
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

TEST_F(ConfigCollectorTest, MissingFileNamesTheFile) {
    const std::string path = m_dir + "/absent.json";
    std::string error;
    EXPECT_FALSE(ConfigCollector::loadFile(path, &error));
    EXPECT_NE(std::string::npos, error.find(path)) << error;
}

TEST_F(ConfigCollectorTest, BadJsonNamesFileAndLine) {
    const std::string path = writeFile("bad.json", "{\n  \"flags\": {\"a\": true,,}\n}\n");
    std::string error;
    EXPECT_FALSE(ConfigCollector::loadFile(path, &error));
    EXPECT_NE(std::string::npos, error.find(path)) << error;
    EXPECT_NE(std::string::npos, error.find("Line 2")) << error;
}

TEST_F(ConfigCollectorTest, BadOptionTypesNameTheOption) {
    struct Case {
        const char* json;
        const char* option;
    };
    const Case cases[] = {
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
        // The category service's own section is checked at load as well.
        {R"({"categories": {"groups": [{"name": "x"}]}})", "categories.\"groups\""},
        {R"({"categories": {"10001": {"rules": [{"market": 1}]}}})", "categories.\"10001\".rules[0].market"},
        {R"([1, 2])", "JSON object"},
    };
    for (const Case& c : cases) {
        const std::string path = writeFile("options.json", c.json);
        std::string error;
        EXPECT_FALSE(ConfigCollector::loadFile(path, &error)) << c.json;
        EXPECT_NE(std::string::npos, error.find(path)) << c.json << " gave: " << error;
        EXPECT_NE(std::string::npos, error.find(c.option)) << c.json << " gave: " << error;
    }
}

TEST_F(ConfigCollectorTest, FailedLoadKeepsStockTypes) {
    std::string error;
    ASSERT_TRUE(utils::StockTypeCenter::instance().loadJson(R"({"5": [{"codes": ["000001"]}]})", &error));
    // The stock types are valid, but a later option is not: nothing of the file is applied.
    const std::string path =
        writeFile("half.json", R"({"stockTypes": {"6": [{"codes": ["1"]}]}, "flags": {"a": 2}})");
    EXPECT_FALSE(ConfigCollector::loadFile(path, &error));
    EXPECT_TRUE(utils::StockTypeCenter::instance().isTypedStock(5, "000001", "SZ"));
    EXPECT_FALSE(utils::StockTypeCenter::instance().isTypedStock(6, "1", "SZ"));
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

    struct IntCase {
        const char* name;
        int def, expected;
    };
    const IntCase ints[] = {{"n", 0, 42},   {"neg", 0, -7}, {"text", 5, 5},
                            {"real", 5, 5}, {"big", 5, 5},  {"absent", 9, 9}};
    for (const IntCase& c : ints) EXPECT_EQ(c.expected, config->getInt(c.name, c.def)) << c.name;
    EXPECT_EQ("abc", config->getString("text"));
    EXPECT_EQ("42", config->getString("n"));
    EXPECT_EQ("2.5", config->getString("real"));
    EXPECT_EQ("true", config->getString("b"));
    EXPECT_EQ("dflt", config->getString("absent", "dflt"));

    // Unknown sections are kept for the services that read them, texts in UTF-8.
    EXPECT_EQ(R"({"groups":[{"codes":["600000"],"name":"板块"}]})", config->getSection("terminal"));
    EXPECT_EQ("[1,2,3]", config->getSection("futureSection"));
    EXPECT_EQ("", config->getSection("absent"));
    EXPECT_FALSE(config->isSomePt("ctp", 20001));
}

TEST_F(ConfigCollectorTest, FamilyLookupDoesNotAllocate) {
    ConfigPtr config = boost::make_shared<ConfigCollector>();
    std::set<int> ids;
    ids.insert(20001);
    config->setFamily("support_local_order_id", ids);
    const std::string family = "support_local_order_id";
    const std::string absent = "a family name longer than any small-string buffer";
    g_allocations = 0;
    g_countAllocations = true;
    const bool hit = config->isSomePt(family, 20001);
    const bool miss = config->isSomePt(family, 20002);
    const bool unknown = config->isSomePt(absent, 20001);
    g_countAllocations = false;
    EXPECT_TRUE(hit);
    EXPECT_FALSE(miss);
    EXPECT_FALSE(unknown);
    EXPECT_EQ(0u, g_allocations);
}

TEST_F(ConfigCollectorTest, InstanceIsReplaceable) {
    ConfigPtr initial = ConfigCollector::instance();
    ASSERT_TRUE(initial);
    EXPECT_FALSE(initial->isSomePt("ctp", 20001));

    ConfigPtr mine = boost::make_shared<ConfigCollector>();
    mine->setFamily("ctp", std::set<int>{20001});
    mine->setFlag("f", true);
    mine->setString("s", "v");
    mine->setSection("categories", "{}");
    ConfigCollector::setInstance(mine);
    EXPECT_EQ(mine, ConfigCollector::instance());
    EXPECT_TRUE(ConfigCollector::instance()->isSomePt("ctp", 20001));
    EXPECT_TRUE(ConfigCollector::instance()->getFlag("f"));
    EXPECT_EQ("v", ConfigCollector::instance()->getString("s"));
    EXPECT_EQ("{}", ConfigCollector::instance()->getSection("categories"));

    // Clearing installs an empty configuration, never an empty pointer.
    ConfigCollector::setInstance(ConfigPtr());
    ASSERT_TRUE(ConfigCollector::instance());
    EXPECT_FALSE(ConfigCollector::instance()->isSomePt("ctp", 20001));
    // A holder keeps its configuration after a swap.
    EXPECT_TRUE(mine->isSomePt("ctp", 20001));
}

}  // namespace
