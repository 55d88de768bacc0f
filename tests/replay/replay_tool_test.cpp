// The ttreplay command line: --json output is one JSON document that parses and carries what the
// text shows; the summaries land in the store under hash "TTReplay"; usage errors exit with 2.
#include <gtest/gtest.h>
#include <json/json.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "ReplayTestUtil.h"
#include "SessionGenerator.h"
#include "persist/CPersistService.h"

namespace ttservice {
namespace replay {
namespace {

using test::runTool;

const std::string kDemo = TT_SOURCE_DIR "/examples/demo/session.jsonl";

Json::Value parse(const std::string& text) {
    Json::CharReaderBuilder b;
    b["failIfExtra"] = true;
    std::unique_ptr<Json::CharReader> reader(b.newCharReader());
    Json::Value v;
    std::string err;
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &v, &err)) << err;
    return v;
}

class ReplayToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/tt-replay-XXXXXX";
        ASSERT_TRUE(mkdtemp(tmpl));
        m_dir = tmpl;
    }
    void TearDown() override { std::filesystem::remove_all(m_dir); }
    std::string write(const std::string& name, const std::string& text) {
        const std::string path = m_dir + "/" + name;
        FILE* f = std::fopen(path.c_str(), "wb");
        std::fwrite(text.data(), 1, text.size(), f);
        std::fclose(f);
        return path;
    }
    std::string m_dir;
};

TEST_F(ReplayToolTest, JsonOutputParsesAndCarriesAnswersAccountsAndCounts) {
    const test::CToolRun r = runTool({kDemo, "--json", "--no-store"});
    ASSERT_EQ(EXIT_OK, r.status) << r.err;
    const Json::Value doc = parse(r.out);
    ASSERT_TRUE(doc.isObject());
    EXPECT_EQ(0u, doc["errors"].size());
    EXPECT_EQ(2u, doc["accounts"].size());
    EXPECT_EQ(17u, doc["counts"]["records"].asUInt64());
    EXPECT_EQ(11u, doc["counts"]["queries"].asUInt64());
    bool undealt = false;
    for (const Json::Value& res : doc["results"]) {
        EXPECT_TRUE(res["line"].isInt()) << res;
        if (res["query"] == "undealt_volume" && res["instrument"] == "600000") {
            undealt = true;
            EXPECT_EQ(600, res["buy"].asInt());
            EXPECT_EQ(0, res["sell"].asInt());
        }
    }
    EXPECT_TRUE(undealt);
    const Json::Value& stock = doc["accounts"][0];
    EXPECT_EQ("10001_8800123", stock["account"].asString());
    EXPECT_EQ(492945.0, stock["funds"]["m_dAvailable"].asDouble());
    ASSERT_EQ(1u, stock["dataCenter"]["flushes"].size());
    const Json::Value& order = stock["dataCenter"]["flushes"][0]["order"];
    ASSERT_EQ(2u, order.size());
    EXPECT_EQ(542, order[0]["kind"].asInt());
    EXPECT_EQ(543, order[1]["kind"].asInt());
    // The trailer is on standard error, never in the document.
    EXPECT_NE(std::string::npos, r.err.find("records/s"));
}

TEST_F(ReplayToolTest, JsonOutputListsTheSkippedLines) {
    const std::string session =
        write("s.jsonl", test::readFile(kDemo) + "{\"event\":\"flush\",\"account\":\"20001_9100456\"}\n");
    const test::CToolRun r = runTool({session, "--json", "--no-store"});
    EXPECT_EQ(EXIT_ERRORS, r.status);
    const Json::Value doc = parse(r.out);
    ASSERT_EQ(1u, doc["errors"].size());
    EXPECT_EQ(62, doc["errors"][0]["line"].asInt());
    EXPECT_NE(std::string::npos, doc["errors"][0]["reason"].asString().find("without start_cache"));
    EXPECT_EQ(1u, doc["counts"]["errors"].asUInt64());
}

TEST_F(ReplayToolTest, SummariesAreStoredUnderTheAccountKeys) {
    const std::string url = "sqlite://" + m_dir + "/store.db";
    const test::CToolRun r = runTool({kDemo, "--store", url});
    ASSERT_EQ(EXIT_OK, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("2 account summaries stored in")) << r.err;
    std::string error;
    boost::shared_ptr<persist::CPersistService> store = persist::CPersistService::open(url, &error);
    ASSERT_TRUE(store) << error;
    const bson::BSONObj doc = store->readData("TTReplay", "20001_9100456");
    ASSERT_FALSE(doc.isEmpty());
    EXPECT_EQ("20001_9100456", doc.getStringField("account"));
    EXPECT_EQ(20001, doc.getIntField("platform"));
    const bson::BSONObj funds = doc.getObjectField("funds");
    EXPECT_DOUBLE_EQ(281746.52, funds.getDoubleField("m_dAvailable"));
    std::vector<bson::BSONObj> positions;
    ASSERT_TRUE(doc.getObjectArray("positions", positions));
    ASSERT_EQ(1u, positions.size());
    EXPECT_EQ("SHFE_rb2405_0_1", positions[0].getStringField("key"));
    EXPECT_FALSE(store->readData("TTReplay", "10001_8800123").isEmpty());
}

TEST_F(ReplayToolTest, AStoreThatCannotBeOpenedIsAnError) {
    const test::CToolRun r = runTool({kDemo, "--store", "nosuch://x"});
    EXPECT_EQ(EXIT_ERRORS, r.status);
    EXPECT_NE(std::string::npos, r.err.find("cannot open the store nosuch://x")) << r.err;
}

TEST_F(ReplayToolTest, ASessionThatCannotBeReadIsAnError) {
    const test::CToolRun r = runTool({m_dir + "/missing.jsonl", "--no-store"});
    EXPECT_EQ(EXIT_ERRORS, r.status);
    EXPECT_NE(std::string::npos, r.err.find("cannot read")) << r.err;
    EXPECT_TRUE(r.out.empty());
}

TEST_F(ReplayToolTest, UsageErrorsExitWithTwo) {
    const std::vector<std::vector<std::string> > bad = {
        {},
        {"--json"},
        {kDemo, "--frobnicate"},
        {kDemo, kDemo},
        {kDemo, "--store"},
        {kDemo, "--limit", "x"},
        {kDemo, "--store", "memory://", "--no-store"},
    };
    for (const auto& args : bad) {
        const test::CToolRun r = runTool(args);
        EXPECT_EQ(EXIT_USAGE, r.status) << ::testing::PrintToString(args);
        EXPECT_NE(std::string::npos, r.err.find("usage: ttreplay")) << r.err;
    }
}

// On a terminal a large session gets a progress bar on standard error; a bad line's message and the
// trailer wipe it first, so that each starts a line of its own.
TEST_F(ReplayToolTest, OnATerminalBadLinesAndTheTrailerDoNotRunIntoTheProgressBar) {
    CGeneratorOptions o;
    o.m_nRecords = 8000;
    std::ostringstream generated;
    generateSession(o, generated);
    std::string text = generated.str();
    ASSERT_GE(static_cast<long long>(text.size()), PROGRESS_MIN_BYTES);
    const size_t mid = text.find('\n', text.size() / 2) + 1;
    text.insert(mid, "{\"event\":\"nope\"}\n");
    const long badLine = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(mid), '\n') + 1;
    const std::string path = write("big.jsonl", text);

    std::ostringstream out, err;
    EXPECT_EQ(EXIT_ERRORS, run({path, "--no-store"}, out, err, true));
    const std::string e = err.str();
    EXPECT_NE(std::string::npos, e.find("replaying [")) << "no progress bar";
    const size_t message = e.find(path + ":" + std::to_string(badLine) + ": unknown event 'nope'");
    ASSERT_NE(std::string::npos, message) << e.substr(0, 2000);
    EXPECT_EQ("  \r", e.substr(message - 3, 3)) << "the bar is wiped before the message";
    const size_t trailer = e.find("ttreplay: " + path + ": ");
    ASSERT_NE(std::string::npos, trailer);
    EXPECT_EQ("  \r", e.substr(trailer - 3, 3)) << "the bar is wiped before the trailer";
    EXPECT_EQ(std::string::npos, out.str().find("replaying [")) << "the bar stays off standard output";
}

TEST_F(ReplayToolTest, LimitShortensEveryListAndSaysHowManyMore) {
    const test::CToolRun r = runTool({kDemo, "--no-store", "--limit", "1"});
    ASSERT_EQ(EXIT_OK, r.status);
    EXPECT_NE(std::string::npos, r.out.find("positions: 2\n  SH_600000_0_1")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("  ... and 1 more\n")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("flush at line 24, 2 slot(s): 542:SH_1001 ... and 1 more"))
        << r.out;
}

}  // namespace
}  // namespace replay
}  // namespace ttservice
