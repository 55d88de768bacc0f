// The Redis store when the server goes away or stalls, with large hashes, and as seen from the
// server: the key index must always agree with the hash it indexes.
#include <gtest/gtest.h>
#include <hiredis/hiredis.h>

#include <random>
#include <thread>

#include "persist/CPersistService.h"
#include "testing/PersistTestUtil.h"
#include "testing/RedisServer.h"

namespace persist {
namespace {

using ttservice::test::CRedisServer;
using ttservice::test::doc;
using ttservice::test::readAll;
using ttservice::test::readList;

// A raw connection to the test server, to look behind the backend; with a timeout in ms if given.
class CRawRedis {
public:
    explicit CRawRedis(int port, int timeoutMs = 0) {
        const timeval tv = {0, timeoutMs * 1000};
        m_pCtx = timeoutMs ? redisConnectWithTimeout("127.0.0.1", port, tv) : redisConnect("127.0.0.1", port);
        if (m_pCtx && !m_pCtx->err && timeoutMs) redisSetTimeout(m_pCtx, tv);
    }
    ~CRawRedis() {
        if (m_pCtx) redisFree(m_pCtx);
    }
    bool ok() const { return m_pCtx && !m_pCtx->err; }
    // The string elements of an array reply, or the one string of a string or status reply.
    std::vector<std::string> strings(const std::vector<std::string>& args) {
        std::vector<std::string> out;
        if (!ok()) return out;
        std::vector<const char*> argv;
        std::vector<size_t> lens;
        for (const std::string& a : args) {
            argv.push_back(a.data());
            lens.push_back(a.size());
        }
        redisReply* r = static_cast<redisReply*>(
            redisCommandArgv(m_pCtx, static_cast<int>(argv.size()), argv.data(), lens.data()));
        if (!r) return out;
        if (r->type == REDIS_REPLY_STRING || r->type == REDIS_REPLY_STATUS) out.emplace_back(r->str, r->len);
        for (size_t i = 0; r->type == REDIS_REPLY_ARRAY && i < r->elements; ++i)
            out.emplace_back(r->element[i]->str, r->element[i]->len);
        freeReplyObject(r);
        return out;
    }

private:
    redisContext* m_pCtx;
};

class RedisBackendTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!CRedisServer::available()) GTEST_SKIP() << "redis-server is not installed: Redis cases skipped";
    }
    void startServer(bool durable) {
        m_server.setDurable(durable);
        std::string error;
        ASSERT_TRUE(m_server.start(&error)) << error;
    }
    PersistServicePtr open(const std::string& query = "?retry_ms=2&retry_max_ms=50&connect_timeout_ms=200") {
        std::string error;
        PersistServicePtr s = CPersistService::open(m_server.url(0) + query, &error);
        EXPECT_TRUE(s) << error;
        return s;
    }
    // The index of every hash holds exactly the keys of the hash.
    void checkIndexesAgree() {
        CRawRedis raw(m_server.port());
        ASSERT_TRUE(raw.ok());
        for (const std::string& name : raw.strings({"SMEMBERS", "tt:hashes"})) {
            std::vector<std::string> fields = raw.strings({"HKEYS", "tt:h:" + name});
            std::sort(fields.begin(), fields.end());
            EXPECT_EQ(fields, raw.strings({"ZRANGE", "tt:x:" + name, "0", "-1"}))
                << "index of '" << name << "'";
        }
    }

    CRedisServer m_server;
};

TEST_F(RedisBackendTest, KillingAndRestartingTheServerMidStreamLosesNoQueuedWrite) {
    startServer(true);
    PersistServicePtr s = open();
    ASSERT_TRUE(s);
    const int kWrites = 20000;
    for (int i = 0; i < kWrites; ++i) {
        ASSERT_TRUE(s->asyncWriteData("H", "k" + std::to_string(i), doc(i)));
        if (i % 100 == 0) {
            ASSERT_TRUE(s->asyncWriteListData("journal", {doc(i)}, false));
        }
        if (i == kWrites / 4) {
            ASSERT_TRUE(m_server.kill());
        } else if (i == kWrites / 2) {
            std::string error;
            ASSERT_TRUE(m_server.restart(&error)) << error;
        }
    }
    s->flush();
    const CPersistCounters c = s->counters();
    EXPECT_GT(c.m_nRetried, 0u) << "the outage was noticed";
    EXPECT_EQ(0u, c.m_nFailed);
    EXPECT_EQ(c.m_nQueued, c.m_nApplied);

    PersistServicePtr reader = open();
    std::map<std::string, bson::BSONObj> all = readAll(*reader, "H", "k.*");
    EXPECT_EQ(static_cast<size_t>(kWrites), all.size());
    for (int i = 0; i < kWrites; i += 997) EXPECT_EQ(doc(i), all["k" + std::to_string(i)]) << i;
    // Appends are applied exactly once, in order, even for a batch whose answer was lost.
    const std::vector<bson::BSONObj> journal = readList(*reader, "journal");
    ASSERT_EQ(static_cast<size_t>(kWrites / 100), journal.size());
    for (size_t i = 0; i < journal.size(); ++i) EXPECT_EQ(doc(static_cast<int>(i) * 100), journal[i]);
    checkIndexesAgree();
}

// A script holds the server while a batch is in flight: the writer times out not knowing whether
// the batch took effect, the server runs it once the script ends, and the retry must not append twice.
TEST_F(RedisBackendTest, ABatchWhoseAnswerWasLostIsNotAppliedTwice) {
    startServer(false);
    PersistServicePtr s = open("?timeout_ms=50&retry_ms=5&retry_max_ms=20");
    ASSERT_TRUE(s);
    ASSERT_TRUE(s->asyncWriteListData("journal", {doc(1)}, false));
    s->flush();
    std::thread stall([&] {
        CRawRedis(m_server.port())
            .strings({"EVAL",
                      "local t0 = redis.call('TIME') repeat local t = redis.call('TIME') "
                      "until (t[1] - t0[1]) * 1000000 + (t[2] - t0[2]) > 400000 return 1",
                      "0"});
    });
    // Wait until the server stops answering: the script is running.
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!CRawRedis(m_server.port(), 20).strings({"PING"}).empty() &&
           std::chrono::steady_clock::now() < giveUp)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_TRUE(s->asyncWriteListData("journal", {doc(2)}, false));
    EXPECT_TRUE(s->asyncWriteData("H", "k", doc(2)));
    stall.join();
    s->flush();
    EXPECT_GT(s->counters().m_nRetried, 0u) << "the stall was noticed";
    EXPECT_EQ((std::vector<bson::BSONObj>{doc(1), doc(2)}), readList(*open(), "journal"));
}

// While the server is down: queued writes are read back, other reads fail, and opening the store
// fails naming the server.
TEST_F(RedisBackendTest, WhileTheServerIsDownReadsOfQueuedWritesWorkAndOthersFail) {
    startServer(false);
    PersistServicePtr s = open();
    ASSERT_TRUE(s);
    ASSERT_TRUE(s->writeData("H", "stored", doc(1)));
    ASSERT_TRUE(m_server.stop());
    ASSERT_TRUE(s->asyncWriteData("H", "queued", doc(2)));
    EXPECT_EQ(doc(2), s->readData("H", "queued"));
    EXPECT_TRUE(s->readData("H", "stored").isEmpty()) << "the server is gone";
    std::map<std::string, bson::BSONObj> out;
    EXPECT_FALSE(s->readAllData("H", ".*", out));
    EXPECT_EQ(1u, out.size());
    std::string error;
    EXPECT_FALSE(CPersistService::open(m_server.url(0) + "?connect_timeout_ms=200", &error));
    EXPECT_NE(std::string::npos, error.find("127.0.0.1:" + std::to_string(m_server.port()))) << error;

    ASSERT_TRUE(m_server.restart(&error)) << error;  // an empty server: nothing was saved
    s->flush();
    EXPECT_EQ(doc(2), open()->readData("H", "queued"));
}

// Stores live under their namespace and database; prefix reads page through a large hash in key
// order; after random writes and removals every key index agrees with its hash.
TEST_F(RedisBackendTest, NamespacesPrefixPagesAndTheKeyIndexAsTheServerSeesThem) {
    startServer(false);
    std::string error;
    PersistServicePtr a = CPersistService::open(m_server.url(3) + "?namespace=deskA", &error);
    ASSERT_TRUE(a) << error;
    PersistServicePtr b = CPersistService::open(m_server.url(3) + "?namespace=deskB", &error);
    ASSERT_TRUE(b) << error;
    ASSERT_TRUE(a->writeData("H", "k", doc(1)));
    EXPECT_TRUE(b->readData("H", "k").isEmpty());
    CRawRedis raw(m_server.port());
    EXPECT_TRUE(raw.strings({"KEYS", "*"}).empty()) << "nothing in database 0";
    raw.strings({"SELECT", "3"});
    EXPECT_EQ(std::vector<std::string>{doc(1).bytes()}, raw.strings({"HMGET", "deskA:h:H", "k"}));

    PersistServicePtr s = open("?batch=13");
    ASSERT_TRUE(s);
    std::vector<std::pair<std::string, bson::BSONObj> > batch;
    for (int i = 0; i < 5000; ++i) {
        char key[32];
        snprintf(key, sizeof(key), "%s____%05d", i % 2 ? "SH" : "SZ", i);
        batch.emplace_back(key, doc(i));
    }
    ASSERT_TRUE(s->asyncWriteDatas("NqTradeData", batch));
    std::mt19937 rng(7);
    for (int i = 0; i < 3000; ++i) {
        const std::string hash = rng() % 2 ? "A" : "B", key = "k" + std::to_string(rng() % 200);
        ASSERT_TRUE(rng() % 3 == 0 ? s->removeData(hash, key) : s->asyncWriteData(hash, key, doc(i)));
    }
    s->flush();
    std::map<std::string, bson::BSONObj> out = readAll(*open(), "NqTradeData", "SH____.*");
    ASSERT_EQ(2500u, out.size());
    for (size_t i = 1; i < batch.size(); i += 2) EXPECT_EQ(batch[i].second, out[batch[i].first]);
    KeyBytesList rows;  // the scan itself returns keys in byte order
    ASSERT_TRUE(s->backend()->scan("NqTradeData", "SZ", &rows, &error)) << error;
    ASSERT_EQ(2500u, rows.size());
    EXPECT_TRUE(std::is_sorted(rows.begin(), rows.end()));
    checkIndexesAgree();
}

}  // namespace
}  // namespace persist
