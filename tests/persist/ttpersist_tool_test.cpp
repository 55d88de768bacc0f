// The ttpersist tool on real stores: listing, printing, mistakes, and a round trip
// SQLite -> Redis -> SQLite that must give back exactly what went in.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "PersistTool.h"
#include "persist/CPersistService.h"
#include "testing/PersistTestUtil.h"
#include "testing/RedisServer.h"
#include "testing/TempDir.h"

namespace persist {
namespace {

using ttservice::test::CRedisServer;
using ttservice::test::doc;

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

    ttservice::test::TempDir m_dir{"tt-tool"};
    const std::string m_strSource = "sqlite://" + m_dir.file("source.db");
};

// Listing and printing; a pattern without the trailing ".*" is one literal key; mistakes give
// usage or a clear error, and inspecting never creates a store.
TEST_F(TtpersistToolTest, ListsHashesKeysPrintsDocumentsAndRefusesMistakes) {
    const struct {
        std::vector<std::string> args;
        int status;
        std::string out, err;
    } cases[] = {
        {{m_strSource, "hashes"}, 0, "NqLoanRepurchaseImpawnData\nNqTradeData\n", ""},
        {{m_strSource, "keys", "NqTradeData", "SH____.*"}, 0, "SH____600000____1\nSH____600000____2\n", ""},
        {{m_strSource, "keys", "NqTradeData", "SH*____[odd]?"}, 0, "SH*____[odd]?\n", ""},
        {{m_strSource, "keys", "NqTradeData", "SH"}, 0, "", ""},
        {{m_strSource, "keys", "NqTradeData"},
         0,
         "SH*____[odd]?\nSH____600000____1\nSH____600000____2\nSZ____000001____1\n",
         ""},
        {{m_strSource, "get", "NqTradeData", "SZ____000001____1"}, 0, doc(3, "third").toJson() + "\n", ""},
        {{m_strSource, "get", "NqTradeData", "absent"}, tool::EXIT_FAILED, "", "'absent'"},
        {{}, tool::EXIT_USAGE, "", "usage:"},
        {{m_strSource, "frobnicate"}, tool::EXIT_USAGE, "", "usage:"},
        {{"copy", m_strSource}, tool::EXIT_USAGE, "", "usage:"},
        {{"sqlite://" + m_dir.file("typo.db"), "hashes"}, tool::EXIT_FAILED, "", "typo.db"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        const CResult r = ttpersist(c.args);
        EXPECT_EQ(c.status, r.status) << r.err;
        EXPECT_EQ(c.out, r.out);
        EXPECT_EQ(c.err.empty(), r.err.empty()) << r.err;
        EXPECT_NE(std::string::npos, r.err.find(c.err)) << r.err;
    }
    EXPECT_FALSE(std::filesystem::exists(m_dir.file("typo.db"))) << "inspecting never creates a store";
}

TEST_F(TtpersistToolTest, CopiesSqliteToRedisAndBackWithoutChange) {
    if (!CRedisServer::available()) GTEST_SKIP() << "redis-server is not installed: Redis cases skipped";
    CRedisServer server;
    std::string error;
    ASSERT_TRUE(server.start(&error)) << error;
    const std::string redis = server.url(0);
    const std::string back = "sqlite://" + m_dir.file("back.db");

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
    EXPECT_EQ(doc(2, "second"),
              ttservice::test::readAll(*s, "NqTradeData", "SH____600000____.*")["SH____600000____2"]);
}

}  // namespace
}  // namespace persist
