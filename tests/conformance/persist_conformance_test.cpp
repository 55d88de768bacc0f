// One behavioural suite for CPersistService on every backend: the in-memory fake, SQLite on a real
// temporary file, and Redis on a private server; passing it lets the fake stand in for the real
// stores elsewhere. Each service sits on a CFaultInjectionBackend, so a case can hold writes in the
// queue and check what readers see before and after the store has them. "Another connection" is a
// second service on the same URL: it shares only the store, so it shows what really reached it.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "persist/CPersistService.h"
#include "persist/FaultInjectionBackend.h"
#include "testing/PersistTestUtil.h"
#include "testing/RedisServer.h"
#include "testing/TempDir.h"

namespace persist {
namespace {

using ttservice::test::CRedisServer;
using ttservice::test::doc;
using ttservice::test::readAll;
using ttservice::test::readList;
using ttservice::test::readSet;

const char kHash[] = "NqTradeData";

class PersistConformance : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        static int s_nStore = 0;
        const std::string& kind = GetParam();
        if (kind == "redis") {
            if (!CRedisServer::available())
                GTEST_SKIP() << "redis-server is not installed: Redis cases skipped";
            std::string error;
            ASSERT_TRUE(m_redis.start(&error)) << error;
            m_strUrl = m_redis.url(0);
        } else if (kind == "sqlite") {
            m_strUrl = "sqlite://" + m_dir.file("store.db");
        } else {
            m_strUrl = "memory://conformance-" + std::to_string(++s_nStore);
        }
        m_pService = openService();
        ASSERT_TRUE(m_pService);
    }

    void TearDown() override {
        if (m_pFault) m_pFault->setFailWrites(false);
        if (m_pService) m_pService->shutdown();
        m_pService.reset();
        m_pFault.reset();
        dropMemoryStores();
    }

    PersistServicePtr openService(size_t batchOps = 2048) {
        std::string error;
        PersistBackendPtr b = openBackend(m_strUrl, &error);
        EXPECT_TRUE(b) << error;
        if (!b) return PersistServicePtr();
        m_pFault.reset(new CFaultInjectionBackend(b));
        CPersistOptions o;
        o.m_nRetryDelayMs = 1;
        o.m_nMaxRetryDelayMs = 5;
        o.m_nMaxBatchOps = batchOps;
        return CPersistService::create(m_pFault, o);
    }

    // A second, independent service on the same store.
    PersistServicePtr anotherConnection() {
        std::string error;
        PersistServicePtr s = CPersistService::open(m_strUrl, &error);
        EXPECT_TRUE(s) << error;
        return s;
    }

    void reopen(size_t batchOps = 2048) {
        m_pService->shutdown();
        m_pService.reset();
        m_pService = openService(batchOps);
        ASSERT_TRUE(m_pService);
    }

    static std::set<std::string> keysMatching(CPersistService& s, const std::string& pattern) {
        std::set<std::string> keys;
        for (const auto& kv : readAll(s, kHash, pattern)) keys.insert(kv.first);
        return keys;
    }

    ttservice::test::TempDir m_dir{"tt-persist"};
    CRedisServer m_redis;
    std::string m_strUrl;
    boost::shared_ptr<CFaultInjectionBackend> m_pFault;
    PersistServicePtr m_pService;
};

// Documents round trip, overwrite and remove; writeData (and a write-through write) is stored, after
// everything queued before it, by the time it returns.
TEST_P(PersistConformance, DocumentsRoundTripOverwriteAndRemove) {
    bson::BSONObjBuilder nested;
    nested.append("price", 10.25).append("volume", static_cast<int64_t>(1) << 40).append("open", true);
    nested.append("name", std::string("\xE6\xB5\xA6\xE5\x8F\x91\xE9\x93\xB6\xE8\xA1\x8C"));  // UTF-8 text
    nested.appendArray("legs", std::vector<bson::BSONObj>{doc(1), doc(2)});
    const bson::BSONObj rich = nested.obj();

    EXPECT_TRUE(m_pService->readData(kHash, "SH____600000").isEmpty());
    ASSERT_TRUE(m_pService->asyncWriteData(kHash, "SH____600000", rich));
    ASSERT_TRUE(m_pService->asyncWriteData(kHash, "SZ____000001", doc(1)));
    EXPECT_EQ(rich, m_pService->readData(kHash, "SH____600000"));
    m_pService->flush();
    PersistServicePtr other = anotherConnection();
    EXPECT_EQ(rich, other->readData(kHash, "SH____600000"));
    EXPECT_EQ(doc(1), other->readData(kHash, "SZ____000001"));
    EXPECT_TRUE(other->readData("NqLoanRepurchaseImpawnData", "SH____600000").isEmpty())
        << "hashes are separate";

    ASSERT_TRUE(m_pService->asyncWriteData(kHash, "SZ____000001", doc(2)));
    ASSERT_TRUE(m_pService->removeData(kHash, "SH____600000"));
    ASSERT_TRUE(m_pService->removeData(kHash, "never-written"));
    m_pService->flush();
    EXPECT_TRUE(other->readData(kHash, "SH____600000").isEmpty());
    EXPECT_EQ(doc(2), other->readData(kHash, "SZ____000001"));

    for (int i = 0; i < 5; ++i) ASSERT_TRUE(m_pService->asyncWriteData(kHash, "W", doc(i)));
    ASSERT_TRUE(m_pService->writeData(kHash, "W", doc(99)));
    EXPECT_EQ(doc(99), other->readData(kHash, "W")) << "stored, and after the queued writes";
    ASSERT_TRUE(m_pService->asyncWriteData(kHash, "W2", doc(7), true));
    EXPECT_EQ(doc(7), other->readData(kHash, "W2"));
}

// Keys full of the characters other stores treat as wildcards, and bytes at the top of the range.
const std::vector<std::string> kAwkwardKeys = {
    "A",    "A____1", "A____2",   "A____10", "AB____1", "A*",   "A*____x",  "A?b",          "A[1]",
    "A[",   "A.b",    "A.*",      "A__",     "B____1",  "\xFF", "\xFF\xFF", "\xFF\xFF\x61", "\xFE\xFF",
    "a.*b", "%",      "A\\____1", "^A$",     "x y"};

// Pattern -> the keys it reads. Only a trailing ".*" is a wildcard: '*', '?', '[' and '.' elsewhere
// are literal, and a pattern without it is one literal key.
const std::vector<std::pair<std::string, std::set<std::string> > > kPatternCases = {
    {"A____.*", {"A____1", "A____10", "A____2"}},
    {"A.*",
     {"A", "A____1", "A____2", "A____10", "AB____1", "A*", "A*____x", "A?b", "A[1]", "A[", "A.b", "A.*",
      "A__", "A\\____1"}},
    {"A", {"A"}},
    {"A*", {"A*"}},
    {"A*.*", {"A*", "A*____x"}},
    {"A?b", {"A?b"}},
    {"A?.*", {"A?b"}},
    {"A[.*", {"A[1]", "A["}},
    {"A[1]", {"A[1]"}},
    {"A..*", {"A.b", "A.*"}},
    {"A.*.*", {"A.*"}},
    {"A____", {}},
    {"A__.*", {"A__", "A____1", "A____2", "A____10"}},
    {"^A$", {"^A$"}},
    {"%", {"%"}},
    {"A\\.*", {"A\\____1"}},
    {"x y", {"x y"}},
    {"Z.*", {}},
    {"\xFF.*", {"\xFF", "\xFF\xFF", "\xFF\xFF\x61"}},
    {"\xFF\xFF.*", {"\xFF\xFF", "\xFF\xFF\x61"}},
    {"\xFE.*", {"\xFE\xFF"}},  // the range ends before "\xFF"
    {"a.*", {"a.*b"}},
    {".*", std::set<std::string>(kAwkwardKeys.begin(), kAwkwardKeys.end())},
};

TEST_P(PersistConformance, PatternReadsTreatOnlyATrailingDotStarAsWildcardAndMergePendingChanges) {
    // Writes held in the queue: answers come from the pending writes.
    m_pFault->setFailWrites(true);
    for (size_t i = 0; i < kAwkwardKeys.size(); ++i) {
        ASSERT_TRUE(m_pService->asyncWriteData(kHash, kAwkwardKeys[i], doc(static_cast<int>(i))));
        ASSERT_TRUE(m_pService->asyncWriteData("OtherHash", kAwkwardKeys[i], doc(-1)));
    }
    for (const auto& c : kPatternCases)
        EXPECT_EQ(c.second, keysMatching(*m_pService, c.first)) << "pending, pattern '" << c.first << "'";
    // The same answers from the store itself.
    m_pFault->setFailWrites(false);
    m_pService->flush();
    PersistServicePtr other = anotherConnection();
    for (const auto& c : kPatternCases)
        EXPECT_EQ(c.second, keysMatching(*other, c.first)) << "stored, pattern '" << c.first << "'";
    std::map<std::string, bson::BSONObj> all = readAll(*other, kHash, ".*");
    for (size_t i = 0; i < kAwkwardKeys.size(); ++i)
        EXPECT_EQ(doc(static_cast<int>(i)), all[kAwkwardKeys[i]]);

    // Pending removals and writes are merged over what is stored; what the caller had in `out` stays.
    m_pFault->setFailWrites(true);
    ASSERT_TRUE(m_pService->removeData(kHash, "A____1"));
    ASSERT_TRUE(m_pService->asyncWriteData(kHash, "A____2", doc(20)));
    ASSERT_TRUE(m_pService->asyncWriteData(kHash, "A____9", doc(9)));
    std::map<std::string, bson::BSONObj> out = {{"kept-from-caller", doc(-1)}};
    ASSERT_TRUE(m_pService->readAllData(kHash, "A____.*", out));
    std::map<std::string, bson::BSONObj> expected = {
        {"kept-from-caller", doc(-1)}, {"A____2", doc(20)}, {"A____10", doc(3)}, {"A____9", doc(9)}};
    EXPECT_EQ(expected, out);
    EXPECT_TRUE(m_pService->readData(kHash, "A____1").isEmpty());
    EXPECT_EQ(doc(1), other->readData(kHash, "A____1")) << "the removal is still queued";
    m_pFault->setFailWrites(false);
    m_pService->flush();
    expected.erase("kept-from-caller");
    EXPECT_EQ(expected, readAll(*other, kHash, "A____.*"));
}

TEST_P(PersistConformance, BatchesAreAppliedWholeEvenAfterFailures) {
    // Round r writes doc(10000 * r + i) to the kKeys keys "B____i" and adds the key "B____x<r>".
    // Another connection watches the store meanwhile: every state it sees must be the end of some
    // round, never part of one. The batches are larger than one page of a Redis prefix read.
    const int kKeys = 1500;
    auto round = [&](int r) {
        std::vector<std::pair<std::string, bson::BSONObj> > batch;
        for (int i = 0; i < kKeys; ++i) batch.emplace_back("B____" + std::to_string(i), doc(10000 * r + i));
        if (r > 0) batch.emplace_back("B____x" + std::to_string(r), doc(r));
        return batch;
    };
    PersistServicePtr other = anotherConnection();
    std::atomic<bool> done(false);
    std::atomic<int> torn(0);
    std::thread watcher([&] {
        while (!done.load()) {
            std::map<std::string, bson::BSONObj> seen;
            if (!other->readAllData(kHash, "B____.*", seen)) continue;
            std::set<int> rounds;
            size_t numbered = 0, added = 0;
            for (const auto& kv : seen) {
                if (kv.first.compare(0, 6, "B____x") == 0) {
                    ++added;
                } else {
                    ++numbered;
                    rounds.insert(kv.second.getIntField("n") / 10000);
                }
            }
            const bool whole = numbered == 0 ? added == 0
                                             : numbered == static_cast<size_t>(kKeys) && rounds.size() == 1 &&
                                                   *rounds.begin() == static_cast<int>(added);
            if (!whole) ++torn;
        }
    });
    m_pFault->failNextWrites(2);
    const int attemptsBefore = m_pFault->writeAttempts();
    ASSERT_TRUE(m_pService->asyncWriteDatas(kHash, round(0)));
    m_pService->flush();
    EXPECT_EQ(3, m_pFault->writeAttempts() - attemptsBefore)
        << "two failed attempts and one that stored the whole batch";
    for (int r = 1; r <= 5; ++r) {
        ASSERT_TRUE(m_pService->asyncWriteDatas(kHash, round(r)));
        m_pService->flush();
    }
    done = true;
    watcher.join();
    EXPECT_EQ(0, torn.load()) << "states seen that were part of a batch";

    std::map<std::string, bson::BSONObj> out = readAll(*other, kHash, "B____.*");
    ASSERT_EQ(static_cast<size_t>(kKeys + 5), out.size());
    for (int i = 0; i < kKeys; ++i) EXPECT_EQ(doc(50000 + i), out["B____" + std::to_string(i)]);
    const CPersistCounters c = m_pService->counters();
    EXPECT_EQ(static_cast<uint64_t>(kKeys + 5 * (kKeys + 1)), c.m_nApplied);
    EXPECT_EQ(2u, c.m_nRetried);
    EXPECT_EQ(0u, c.m_nFailed);
}

// Set members and list items: pending changes over stored ones, then stored; a hash may share a
// set's name; a list is appended to or replaced, and emptied by replacing it with nothing.
TEST_P(PersistConformance, SetsAndListsChangeAndRead) {
    EXPECT_TRUE(readSet(*m_pService, "Portfolios").empty());
    EXPECT_TRUE(readList(*m_pService, "Repurchase").empty());
    ASSERT_TRUE(m_pService->asyncWriteSetStrData("Portfolios", "x"));
    ASSERT_TRUE(m_pService->asyncWriteListData("Repurchase", {doc(1), doc(2)}, false));
    m_pService->flush();

    m_pFault->setFailWrites(true);
    for (const char* m : {"y", "z", "*", "a b", "[1]"})
        ASSERT_TRUE(m_pService->asyncWriteSetStrData("Portfolios", m));
    ASSERT_TRUE(m_pService->removeSetStrData("Portfolios", "y"));
    ASSERT_TRUE(m_pService->removeSetStrData("Portfolios", "x"));
    ASSERT_TRUE(m_pService->asyncWriteData("Portfolios", "x", doc(1))) << "a hash of the same name";
    const std::set<std::string> members = {"z", "*", "a b", "[1]"};
    EXPECT_EQ(members, readSet(*m_pService, "Portfolios")) << "pending";
    ASSERT_TRUE(m_pService->asyncWriteListData("Repurchase", {doc(3)}, false));
    EXPECT_EQ((std::vector<bson::BSONObj>{doc(1), doc(2), doc(3)}), readList(*m_pService, "Repurchase"))
        << "stored part plus pending append";
    ASSERT_TRUE(m_pService->asyncWriteListData("Repurchase", {doc(9)}, true));
    ASSERT_TRUE(m_pService->asyncWriteListData("Repurchase", {doc(10), doc(11)}, false));
    const std::vector<bson::BSONObj> items = {doc(9), doc(10), doc(11)};
    EXPECT_EQ(items, readList(*m_pService, "Repurchase")) << "pending replace then append";

    m_pFault->setFailWrites(false);
    m_pService->flush();
    PersistServicePtr other = anotherConnection();
    EXPECT_EQ(members, readSet(*other, "Portfolios")) << "stored";
    EXPECT_EQ(doc(1), other->readData("Portfolios", "x"));
    EXPECT_EQ(items, readList(*other, "Repurchase")) << "stored";
    for (const std::string& m : members) ASSERT_TRUE(m_pService->removeSetStrData("Portfolios", m));
    ASSERT_TRUE(m_pService->asyncWriteListData("Repurchase", {}, true));
    m_pService->flush();
    EXPECT_TRUE(readSet(*other, "Portfolios").empty());
    EXPECT_TRUE(readList(*other, "Repurchase").empty());
}

// Queued operations apply in queue order, across many small transactions too, and flush leaves
// nothing pending; shutdown drains the queue, so after a restart everything queued before it is there.
TEST_P(PersistConformance, QueuedOperationsApplyInQueueOrderAndSurviveARestart) {
    reopen(7);
    std::mt19937 rng(12345);
    std::map<std::string, bson::BSONObj> model;
    for (int i = 0; i < 2000; ++i) {
        const std::string key = "O____" + std::to_string(rng() % 40);
        if (rng() % 4 == 0) {
            ASSERT_TRUE(m_pService->removeData(kHash, key));
            model.erase(key);
        } else if (rng() % 8 == 0) {
            ASSERT_TRUE(m_pService->asyncWriteDatas(kHash, {{key, doc(i)}, {key + "b", doc(-i)}}));
            model[key] = doc(i);
            model[key + "b"] = doc(-i);
        } else {
            ASSERT_TRUE(m_pService->asyncWriteData(kHash, key, doc(i)));
            model[key] = doc(i);
        }
    }
    m_pService->flush();
    const CPersistCounters c = m_pService->counters();
    EXPECT_EQ(0u, c.m_nPending) << "flush leaves nothing pending";
    EXPECT_EQ(c.m_nQueued, c.m_nApplied);
    EXPECT_EQ(model, readAll(*anotherConnection(), kHash, "O____.*"));

    for (int i = 0; i < 200; ++i)
        ASSERT_TRUE(m_pService->asyncWriteData(kHash, "R____" + std::to_string(i), doc(i)));
    ASSERT_TRUE(m_pService->removeData(kHash, "R____7"));
    ASSERT_TRUE(
        m_pService->asyncWriteDatas("NqLoanRepurchaseImpawnData", {{"L____1", doc(1)}, {"L____2", doc(2)}}));
    ASSERT_TRUE(m_pService->asyncWriteSetStrData("Accounts", "10086"));
    ASSERT_TRUE(m_pService->asyncWriteListData("History", {doc(1), doc(2)}, false));
    reopen();  // shutdown drains the queue; no flush
    std::map<std::string, bson::BSONObj> out = readAll(*m_pService, kHash, "R____.*");
    EXPECT_EQ(199u, out.size());
    EXPECT_EQ(0u, out.count("R____7"));
    EXPECT_EQ(doc(150), out["R____150"]);
    EXPECT_EQ(doc(2), m_pService->readData("NqLoanRepurchaseImpawnData", "L____2"));
    EXPECT_EQ(std::set<std::string>{"10086"}, readSet(*m_pService, "Accounts"));
    EXPECT_EQ((std::vector<bson::BSONObj>{doc(1), doc(2)}), readList(*m_pService, "History"));
    std::vector<std::string> hashes;
    std::string error;
    ASSERT_TRUE(m_pService->backend()->listNames(NAMES_HASHES, &hashes, &error)) << error;
    EXPECT_EQ((std::vector<std::string>{"NqLoanRepurchaseImpawnData", kHash}), hashes);
}

TEST_P(PersistConformance, ReadsSeeEarlierWritesFromEveryThread) {
    // Writer thread t writes doc(i) to key "T<t>____<i % 7>" and then publishes i. Every thread
    // reads its own writes back at once; an observer thread that has seen i published must read
    // doc(i) or a later write of the same key, never an older one. The writers go on until the
    // observer has looked often enough.
    const int kWriters = 3, kMinWrites = 400, kMaxWrites = 40000, kMinObservations = 300;
    auto key = [](int t, int i) { return "T" + std::to_string(t) + "____" + std::to_string(i % 7); };
    std::atomic<int> stale(0), observed(0), finished(0);
    std::vector<std::atomic<int> > published(kWriters);
    for (auto& p : published) p = -1;
    std::vector<std::thread> threads;
    for (int t = 0; t < kWriters; ++t) {
        threads.emplace_back([&, t] {
            const std::string prefix = "T" + std::to_string(t) + "____";
            for (int i = 0; i < kMaxWrites && (i < kMinWrites || observed.load() < kMinObservations); ++i) {
                if (!m_pService->asyncWriteData(kHash, key(t, i), doc(i))) ++stale;
                published[t] = i;
                if (m_pService->readData(kHash, key(t, i)) != doc(i)) ++stale;
                if (i % 25 == 0) {
                    std::map<std::string, bson::BSONObj> out;
                    m_pService->readAllData(kHash, prefix + ".*", out);
                    if (out[key(t, i)] != doc(i)) ++stale;
                }
            }
            ++finished;
        });
    }
    threads.emplace_back([&] {
        while (finished.load() < kWriters) {
            for (int t = 0; t < kWriters; ++t) {
                const int i = published[t].load();
                if (i < 0) continue;
                const int n = m_pService->readData(kHash, key(t, i)).getIntField("n", -1);
                if (n < i || n % 7 != i % 7) ++stale;
                ++observed;
            }
        }
    });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(0, stale.load());
    EXPECT_GE(observed.load(), kMinObservations);
    m_pService->flush();
    PersistServicePtr other = anotherConnection();
    for (int t = 0; t < kWriters; ++t) {
        const int last = published[t].load();
        EXPECT_EQ(doc(last), other->readData(kHash, key(t, last)));
    }
}

INSTANTIATE_TEST_SUITE_P(conformance, PersistConformance, ::testing::Values("memory", "sqlite", "redis"),
                         [](const ::testing::TestParamInfo<std::string>& info) { return info.param; });

}  // namespace
}  // namespace persist
