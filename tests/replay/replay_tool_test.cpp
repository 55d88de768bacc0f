// The ttreplay command line: --json output, summaries stored under hash "TTReplay", errors and usage,
// the progress bar, --limit.
#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>

#include "ReplayTestUtil.h"
#include "SessionGenerator.h"
#include "persist/CPersistService.h"
#include "testing/TempDir.h"

namespace ttservice {
namespace replay {
namespace {

using test::runTool;
using ::testing::HasSubstr;

const std::string kDemo = TT_SOURCE_DIR "/examples/demo/session.jsonl";

class ReplayToolTest : public ::testing::Test {
protected:
    ttservice::test::TempDir m_dir{"tt-replay"};
};

// --json gives one document with the answers, the accounts, the counts and the skipped lines; the
// trailer stays on standard error.
TEST_F(ReplayToolTest, JsonOutputCarriesAnswersAccountsCountsAndSkippedLines) {
    const std::string session = m_dir.write(
        "s.jsonl", test::readFile(kDemo) + "{\"event\":\"flush\",\"account\":\"20001_9100456\"}\n");
    const test::CToolRun r = runTool({session, "--json", "--no-store"});
    EXPECT_EQ(EXIT_ERRORS, r.status);
    const Json::Value doc = test::parseJson(r.out);
    ASSERT_TRUE(doc.isObject());
    ASSERT_EQ(1u, doc["errors"].size());
    EXPECT_EQ(62, doc["errors"][0]["line"].asInt());
    EXPECT_THAT(doc["errors"][0]["reason"].asString(), HasSubstr("without start_cache"));
    EXPECT_EQ(1u, doc["counts"]["errors"].asUInt64());
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
    EXPECT_THAT(r.err, HasSubstr("records/s"));
}

TEST_F(ReplayToolTest, SummariesAreStoredUnderTheAccountKeys) {
    const std::string url = "sqlite://" + m_dir.file("store.db");
    const test::CToolRun r = runTool({kDemo, "--store", url});
    ASSERT_EQ(EXIT_OK, r.status) << r.err;
    EXPECT_THAT(r.err, HasSubstr("2 account summaries stored in"));
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

// Usage errors exit with 2 and print the usage; a session that cannot be read or a store that
// cannot be opened exit with 1 saying so.
TEST_F(ReplayToolTest, UsageErrorsExitWithTwoAndUnreadableSessionsOrStoresWithOne) {
    const struct {
        std::vector<std::string> args;
        int status;
        const char* says;
        bool printsNothing;
    } cases[] = {
        {{}, EXIT_USAGE, "usage: ttreplay", true},
        {{"--json"}, EXIT_USAGE, "usage: ttreplay", true},
        {{kDemo, "--frobnicate"}, EXIT_USAGE, "usage: ttreplay", true},
        {{kDemo, kDemo}, EXIT_USAGE, "usage: ttreplay", true},
        {{kDemo, "--store"}, EXIT_USAGE, "usage: ttreplay", true},
        {{kDemo, "--limit", "x"}, EXIT_USAGE, "usage: ttreplay", true},
        {{kDemo, "--store", "memory://", "--no-store"}, EXIT_USAGE, "usage: ttreplay", true},
        {{m_dir.file("missing.jsonl"), "--no-store"}, EXIT_ERRORS, "cannot read", true},
        {{kDemo, "--store", "nosuch://x"}, EXIT_ERRORS, "cannot open the store nosuch://x", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        const test::CToolRun r = runTool(c.args);
        EXPECT_EQ(c.status, r.status);
        EXPECT_THAT(r.err, HasSubstr(c.says));
        EXPECT_TRUE(!c.printsNothing || r.out.empty()) << r.out;
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
    const std::string path = m_dir.write("big.jsonl", text);

    std::ostringstream out, err;
    EXPECT_EQ(EXIT_ERRORS, run({path, "--no-store"}, out, err, true));
    const std::string e = err.str();
    EXPECT_THAT(e, HasSubstr("replaying [")) << "no progress bar";
    const size_t message = e.find(path + ":" + std::to_string(badLine) + ": unknown event 'nope'");
    ASSERT_NE(std::string::npos, message) << e.substr(0, 2000);
    EXPECT_EQ("  \r", e.substr(message - 3, 3)) << "the bar is wiped before the message";
    const size_t trailer = e.find("ttreplay: " + path + ": ");
    ASSERT_NE(std::string::npos, trailer);
    EXPECT_EQ("  \r", e.substr(trailer - 3, 3)) << "the bar is wiped before the trailer";
    EXPECT_THAT(out.str(), ::testing::Not(HasSubstr("replaying ["))) << "the bar stays off standard output";
}

TEST_F(ReplayToolTest, LimitShortensEveryListAndSaysHowManyMore) {
    const test::CToolRun r = runTool({kDemo, "--no-store", "--limit", "1"});
    ASSERT_EQ(EXIT_OK, r.status);
    EXPECT_THAT(r.out, HasSubstr("positions: 2\n  SH_600000_0_1"));
    EXPECT_THAT(r.out, HasSubstr("  ... and 1 more\n"));
    EXPECT_THAT(r.out, HasSubstr("flush at line 24, 2 slot(s): 542:SH_1001 ... and 1 more"));
}

}  // namespace
}  // namespace replay
}  // namespace ttservice
