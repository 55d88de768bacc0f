// The ttpersist tool on real stores: listing, printing, and a round trip SQLite -> Redis -> SQLite
// that must give back exactly what went in.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "PersistTool.h"
#include "persist/CPersistService.h"
#include "testing/RedisServer.h"

namespace bson {
// Failures print documents as JSON.
inline void PrintTo(const BSONObj& o, std::ostream* os) {
    *os << o.toJson();
}
}  // namespace bson

namespace persist {
namespace {

using ttservice::test::CRedisServer;

bson::BSONObj doc(int n, const std::string& name) {
    bson::BSONObjBuilder b;
    b.append("n", n);
    b.append("name", name);
    return b.obj();
}

struct CResult {
    int status;
    std::string out;
    std::string err;
};

CResult ttpersist(const std::vector<std::string>& args) {
    std::ostringstream out, err;
    int status = tool::run(args, out, err);
    return CResult{status, out.str(), err.str()};
}

class TtpersistToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/tt-tool-XXXXXX";
        ASSERT_TRUE(mkdtemp(tmpl));
        m_strDir = tmpl;
        m_strSource = "sqlite://" + m_strDir + "/source.db";
        std::string error;
        PersistServicePtr s = CPersistService::open(m_strSource, &error);
        ASSERT_TRUE(s) << error;
        ASSERT_TRUE(s->asyncWriteDatas("NqTradeData", {{"SH____600000____1", doc(1, "first")},
                                                       {"SH____600000____2", doc(2, "second")},
                                                       {"SZ____000001____1", doc(3, "third")},
                                                       {"SH*____[odd]?", doc(4, "odd key")}}));
        ASSERT_TRUE(s->asyncWriteData("NqLoanRepurchaseImpawnData", "204001____1", doc(5, "repo")));
        ASSERT_TRUE(s->asyncWriteSetStrData("Accounts", "10086"));
        ASSERT_TRUE(s->asyncWriteSetStrData("Accounts", "10010"));
        ASSERT_TRUE(s->asyncWriteListData("Journal", {doc(6, "a"), doc(7, "b")}, false));
        s->shutdown();
    }
    void TearDown() override { std::filesystem::remove_all(m_strDir); }

    // Everything a store holds, as the tool prints it.
    std::string inventory(const std::string& url) {
        std::string all;
        for (const std::vector<std::string>& cmd :
             std::vector<std::vector<std::string> >{{url, "hashes"},
                                                    {url, "dump", "NqTradeData"},
                                                    {url, "dump", "NqLoanRepurchaseImpawnData"},
                                                    {url, "sets"},
                                                    {url, "set", "Accounts"},
                                                    {url, "lists"},
                                                    {url, "list", "Journal"}}) {
            CResult r = ttpersist(cmd);
            EXPECT_EQ(0, r.status) << r.err;
            all += r.out;
        }
        return all;
    }

    std::string m_strDir;
    std::string m_strSource;
};

TEST_F(TtpersistToolTest, ListsHashesKeysAndPrintsDocuments) {
    CResult r = ttpersist({m_strSource, "hashes"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("NqLoanRepurchaseImpawnData\nNqTradeData\n", r.out);

    r = ttpersist({m_strSource, "keys", "NqTradeData", "SH____.*"});
    EXPECT_EQ("SH____600000____1\nSH____600000____2\n", r.out);
    r = ttpersist({m_strSource, "keys", "NqTradeData", "SH*____[odd]?"});
    EXPECT_EQ("SH*____[odd]?\n", r.out) << "a pattern without the trailing .* is one literal key";
    r = ttpersist({m_strSource, "keys", "NqTradeData"});
    EXPECT_EQ("SH*____[odd]?\nSH____600000____1\nSH____600000____2\nSZ____000001____1\n", r.out);

    r = ttpersist({m_strSource, "get", "NqTradeData", "SZ____000001____1"});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ(doc(3, "third").toJson() + "\n", r.out);
    EXPECT_NE(std::string::npos, r.out.find("\"third\""));

    r = ttpersist({m_strSource, "get", "NqTradeData", "absent"});
    EXPECT_EQ(tool::EXIT_FAILED, r.status);
    EXPECT_NE(std::string::npos, r.err.find("'absent'"));
}

TEST_F(TtpersistToolTest, MistakesGiveUsageOrAClearError) {
    EXPECT_EQ(tool::EXIT_USAGE, ttpersist({}).status);
    EXPECT_EQ(tool::EXIT_USAGE, ttpersist({m_strSource, "frobnicate"}).status);
    EXPECT_EQ(tool::EXIT_USAGE, ttpersist({"copy", m_strSource}).status);
    CResult r = ttpersist({"sqlite://" + m_strDir + "/typo.db", "hashes"});
    EXPECT_EQ(tool::EXIT_FAILED, r.status);
    EXPECT_NE(std::string::npos, r.err.find("typo.db"));
    EXPECT_FALSE(std::filesystem::exists(m_strDir + "/typo.db")) << "inspecting never creates a store";
}

TEST_F(TtpersistToolTest, CopiesSqliteToRedisAndBackWithoutChange) {
    if (!CRedisServer::available()) GTEST_SKIP() << "redis-server is not installed: Redis cases skipped";
    CRedisServer server;
    std::string error;
    ASSERT_TRUE(server.start(&error)) << error;
    const std::string redis = server.url(0);
    const std::string back = "sqlite://" + m_strDir + "/back.db";

    CResult r = ttpersist({"copy", m_strSource, redis});
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("copied 5 keys in 2 hashes, 2 members in 1 sets, 2 documents in 1 lists\n", r.out);
    r = ttpersist({"copy", redis, back});
    EXPECT_EQ(0, r.status) << r.err;

    const std::string expected = inventory(m_strSource);
    EXPECT_NE(std::string::npos, expected.find("SH*____[odd]?\t"));
    EXPECT_EQ(expected, inventory(redis));
    EXPECT_EQ(expected, inventory(back));

    // The copy is a working store for the service too.
    PersistServicePtr s = CPersistService::open(back, &error);
    ASSERT_TRUE(s) << error;
    std::map<std::string, bson::BSONObj> out;
    ASSERT_TRUE(s->readAllData("NqTradeData", "SH____600000____.*", out));
    EXPECT_EQ(doc(2, "second"), out["SH____600000____2"]);
}

}  // namespace
}  // namespace persist
