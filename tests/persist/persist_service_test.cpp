// CPersistService on the in-memory store, with backends that fail or stall on command: queued writes
// when the store misbehaves, the queue bound, batching, shutdown, URL options and the process default.
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <thread>

#include "config/ConfigCollector.h"
#include "persist/CPersistService.h"
#include "persist/FaultInjectionBackend.h"
#include "testing/PersistTestUtil.h"
#include "testing/TempDir.h"

namespace persist {
namespace {

using ttservice::test::countStdLines;
using ttservice::test::doc;
using ttservice::test::LogCapture;

// A fault-injecting backend that records the size of every batch stored and, while closed, holds
// apply() at a gate.
class CGateBackend : public CFaultInjectionBackend {
public:
    explicit CGateBackend(const PersistBackendPtr& target) : CFaultInjectionBackend(target) {}
    void setClosed(bool closed) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bClosed = closed;
        m_cv.notify_all();
    }
    // Waits until the writer is held at the gate.
    void awaitWriter() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cv.wait(lock, [&] { return m_nWaiting > 0; });
    }
    std::vector<size_t> batchSizes() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_batchSizes;
    }
    EApplyResult apply(const CWriteOp* ops, size_t n, uint64_t id, std::string* error) override {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            ++m_nWaiting;
            m_cv.notify_all();
            m_cv.wait(lock, [&] { return !m_bClosed; });
            --m_nWaiting;
        }
        EApplyResult r = CFaultInjectionBackend::apply(ops, n, id, error);
        std::lock_guard<std::mutex> lock(m_mutex);
        if (r == APPLY_OK) m_batchSizes.push_back(n);
        return r;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_bClosed = false;
    int m_nWaiting = 0;
    std::vector<size_t> m_batchSizes;
};

CPersistOptions fastRetries() {
    CPersistOptions o;
    o.m_nRetryDelayMs = 1;
    o.m_nMaxRetryDelayMs = 5;
    return o;
}

bool stored(IPersistBackend& b, const std::string& key, const bson::BSONObj& expected) {
    std::string bytes, error;
    bool found = false;
    return b.get("H", key, &bytes, &found, &error) && found && bytes == expected.bytes();
}

// Polls until the store holds the document; false after 10 s.
bool storedSoon(IPersistBackend& b, const std::string& key, const bson::BSONObj& expected) {
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!stored(b, key, expected)) {
        if (std::chrono::steady_clock::now() > giveUp) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::string key(int i) {
    return "k" + std::to_string(i);
}

class PersistServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_pStore = newMemoryBackend();
        m_pFault.reset(new CFaultInjectionBackend(m_pStore));
    }
    void TearDown() override {
        m_pFault->setFailWrites(false);
        if (m_pService) m_pService->shutdown();
    }
    void start(const CPersistOptions& o = fastRetries()) {
        m_pService = CPersistService::create(m_pFault, o);
    }

    PersistBackendPtr m_pStore;
    boost::shared_ptr<CFaultInjectionBackend> m_pFault;
    PersistServicePtr m_pService;
};

// A write the store fails stays queued, is served to readers (even when reads of the store fail,
// which is reported), and is retried until stored.
TEST_F(PersistServiceTest, FailedWritesStayQueuedAreReadBackAndRetriedUntilStored) {
    start();
    m_pFault->failNextWrites(3);
    ASSERT_TRUE(m_pService->asyncWriteData("H", "k", doc(1)));
    m_pService->flush();
    EXPECT_TRUE(stored(*m_pStore, "k", doc(1)));
    EXPECT_EQ(4, m_pFault->writeAttempts());
    CPersistCounters c = m_pService->counters();
    EXPECT_EQ(1u, c.m_nQueued);
    EXPECT_EQ(1u, c.m_nApplied);
    EXPECT_EQ(3u, c.m_nRetried);
    EXPECT_EQ(0u, c.m_nFailed);
    EXPECT_EQ(0u, c.m_nPending);

    m_pFault->setFailWrites(true);  // the store is down
    for (int i = 0; i < 100; ++i) ASSERT_TRUE(m_pService->asyncWriteData("H", key(i), doc(i)));
    EXPECT_FALSE(m_pService->flushFor(std::chrono::milliseconds(50)));
    EXPECT_FALSE(stored(*m_pStore, "k0", doc(0)));
    EXPECT_EQ(doc(42), m_pService->readData("H", "k42"));
    c = m_pService->counters();
    EXPECT_EQ(100u, c.m_nPending);
    EXPECT_GT(c.m_nRetried, 3u);
    // Reads that fail are reported; the pending writes are still served.
    m_pFault->setFailReads(true);
    std::map<std::string, bson::BSONObj> out;
    EXPECT_FALSE(m_pService->readAllData("H", "k.*", out));
    EXPECT_EQ(100u, out.size()) << "the pending writes are still returned";
    EXPECT_TRUE(m_pService->readData("H", "unknown").isEmpty());
    std::set<std::string> members;
    EXPECT_FALSE(m_pService->readSetStrData("S", members));
    std::vector<bson::BSONObj> items;
    EXPECT_FALSE(m_pService->readListData("L", items));
    m_pFault->setFailReads(false);
    m_pFault->setFailWrites(false);
    m_pService->flush();
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(stored(*m_pStore, key(i), doc(i))) << i;
    EXPECT_EQ(101u, m_pService->counters().m_nApplied);
    EXPECT_EQ(0u, m_pService->counters().m_nFailed);
}

// Writes are applied without flush(), whether the writer was asleep, lingering after a batch, or
// asleep again after a quiet spell; with a linger longer than the test, a full batch wakes it.
TEST_F(PersistServiceTest, WritesReachTheStoreWithoutFlushWhateverTheWriterWasDoing) {
    for (int linger : {0, 5}) {
        CPersistOptions o = fastRetries();
        o.m_nLingerMs = linger;
        PersistServicePtr s = CPersistService::create(m_pStore, o);
        const std::string tag = "linger" + std::to_string(linger) + "_";
        ASSERT_TRUE(s->asyncWriteData("H", tag + "first", doc(1)));
        EXPECT_TRUE(storedSoon(*m_pStore, tag + "first", doc(1))) << tag << "from asleep";
        ASSERT_TRUE(s->asyncWriteData("H", tag + "next", doc(2)));
        EXPECT_TRUE(storedSoon(*m_pStore, tag + "next", doc(2))) << tag << "right after a batch";
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ASSERT_TRUE(s->asyncWriteData("H", tag + "later", doc(3)));
        EXPECT_TRUE(storedSoon(*m_pStore, tag + "later", doc(3))) << tag << "after a quiet spell";
    }
    CPersistOptions o = fastRetries();
    o.m_nLingerMs = 600000;
    o.m_nMaxBatchOps = 4;
    PersistServicePtr s = CPersistService::create(m_pStore, o);
    ASSERT_TRUE(s->writeData("H", "w0", doc(0)));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    for (int i = 1; i <= 4; ++i) ASSERT_TRUE(s->asyncWriteData("H", "w" + std::to_string(i), doc(i)));
    EXPECT_TRUE(storedSoon(*m_pStore, "w4", doc(4))) << "a full batch";
    ASSERT_TRUE(s->asyncWriteData("H", "w5", doc(5)));
    EXPECT_TRUE(s->flushFor(std::chrono::seconds(10))) << "flush wakes a lingering writer";
    EXPECT_TRUE(stored(*m_pStore, "w5", doc(5)));
}

// While the store is down: writeData times out (its write stays queued); a full queue refuses
// writes with a counter and a log line; once drained there is room again; a write the store rejects
// makes writeData fail; shutdown gives up what a dead store never takes after its timeout, naming it.
TEST_F(PersistServiceTest, AFailingStoreTimesOutWritesFillsTheQueueAndIsGivenUpAtShutdown) {
    CPersistOptions o = fastRetries();
    o.m_nQueueLimit = 10;
    o.m_nWriteTimeoutMs = 30;
    o.m_nShutdownTimeoutMs = 100;
    start(o);
    LogCapture log(utils::TT_LOG_ERROR);
    m_pFault->setFailWrites(true);
    EXPECT_FALSE(m_pService->writeData("H", "k", doc(1)));
    EXPECT_FALSE(m_pService->asyncWriteData("H", "k2", doc(2), true));
    EXPECT_EQ(2u, m_pService->counters().m_nPending);
    for (int i = 3; i < 11; ++i) ASSERT_TRUE(m_pService->asyncWriteData("H", key(i), doc(i)));
    EXPECT_FALSE(m_pService->asyncWriteData("H", "overflow", doc(10)));
    EXPECT_FALSE(m_pService->asyncWriteDatas("H", {{"b1", doc(1)}, {"b2", doc(2)}}));
    EXPECT_TRUE(m_pService->readData("H", "overflow").isEmpty()) << "a refused write is not visible";
    EXPECT_EQ(3u, m_pService->counters().m_nRejected);
    EXPECT_EQ(10u, m_pService->counters().m_nQueued);
    EXPECT_EQ(1u, countStdLines(log, "'overflow'"));
    EXPECT_EQ(1u, countStdLines(log, "'b1 (and 1 more)'"));

    m_pFault->setFailWrites(false);
    m_pService->flush();
    EXPECT_TRUE(m_pService->asyncWriteData("H", "after", doc(11))) << "room again once drained";
    m_pService->flush();
    EXPECT_TRUE(stored(*m_pStore, "k", doc(1)));
    EXPECT_TRUE(stored(*m_pStore, "k2", doc(2)));
    EXPECT_TRUE(stored(*m_pStore, "k10", doc(10)));
    EXPECT_TRUE(stored(*m_pStore, "after", doc(11)));
    EXPECT_FALSE(stored(*m_pStore, "overflow", doc(10)));

    m_pFault->failNextWrites(1, APPLY_REJECTED);
    EXPECT_FALSE(m_pService->writeData("H", "k", doc(3)));
    EXPECT_EQ(1u, m_pService->counters().m_nFailed);
    EXPECT_TRUE(stored(*m_pStore, "k", doc(1)));
    EXPECT_TRUE(m_pService->writeData("H", "k", doc(4)));
    EXPECT_TRUE(stored(*m_pStore, "k", doc(4)));

    m_pFault->setFailWrites(true);
    const uint64_t appliedBefore = m_pService->counters().m_nApplied;
    for (int i = 0; i < 5; ++i) ASSERT_TRUE(m_pService->asyncWriteData("H", "d" + std::to_string(i), doc(i)));
    ASSERT_TRUE(m_pService->asyncWriteDatas("H", {{"e1", doc(1)}, {"e2", doc(2)}}));
    m_pService->shutdown();
    const CPersistCounters c = m_pService->counters();
    EXPECT_EQ(1u + 7u, c.m_nFailed);
    EXPECT_EQ(appliedBefore, c.m_nApplied);
    EXPECT_EQ(0u, c.m_nPending);
    for (const char* k : {"'d0'", "'d4'", "'e1'", "'e2'"}) EXPECT_EQ(1u, countStdLines(log, k)) << k;
}

// The sizes of the transactions the writer used for one write that keeps it busy, then three single
// writes, a batch of ten and one more write queued meanwhile.
std::vector<size_t> transactionsWhileBusy(const PersistBackendPtr& store, size_t batchLimit) {
    boost::shared_ptr<CGateBackend> gate(new CGateBackend(store));
    CPersistOptions o = fastRetries();
    o.m_nMaxBatchOps = batchLimit;
    PersistServicePtr service = CPersistService::create(gate, o);
    gate->setClosed(true);
    EXPECT_TRUE(service->asyncWriteData("H", "first", doc(0)));
    gate->awaitWriter();
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(service->asyncWriteData("H", "s" + std::to_string(i), doc(i)));
    std::vector<std::pair<std::string, bson::BSONObj> > batch;
    for (int i = 0; i < 10; ++i) batch.emplace_back("b" + std::to_string(i), doc(i));
    EXPECT_TRUE(service->asyncWriteDatas("H", batch));
    EXPECT_TRUE(service->asyncWriteData("H", "last", doc(0)));
    gate->setClosed(false);
    service->flush();
    return gate->batchSizes();
}

TEST_F(PersistServiceTest, WritesQueuedWhileTheWriterIsBusyShareATransactionAndABatchIsNeverSplit) {
    EXPECT_EQ((std::vector<size_t>{1, 14}), transactionsWhileBusy(m_pStore, 100));
    // With a limit of 4 the singles go together, the batch of 10 goes whole, alone.
    EXPECT_EQ((std::vector<size_t>{1, 3, 10, 1}), transactionsWhileBusy(m_pStore, 4));
}

TEST_F(PersistServiceTest, AnUnstorableBatchIsGivenUpAloneAndTheOthersAreStored) {
    boost::shared_ptr<CGateBackend> gate(new CGateBackend(m_pStore));
    boost::shared_ptr<CFaultInjectionBackend> fault(new CFaultInjectionBackend(gate));
    m_pService = CPersistService::create(fault, fastRetries());
    LogCapture log(utils::TT_LOG_ERROR);
    gate->setClosed(true);
    ASSERT_TRUE(m_pService->asyncWriteData("H", "first", doc(0)));
    gate->awaitWriter();
    ASSERT_TRUE(m_pService->asyncWriteDatas("H", {{"bad1", doc(1)}, {"bad2", doc(2)}}));
    ASSERT_TRUE(m_pService->asyncWriteData("H", "good", doc(3)));
    ASSERT_TRUE(m_pService->asyncWriteDatas("H", {{"good2", doc(4)}, {"good3", doc(5)}}));
    fault->failNextWrites(2, APPLY_REJECTED);  // the gathered batch, then its first group alone
    gate->setClosed(false);
    m_pService->flush();
    EXPECT_TRUE(stored(*m_pStore, "first", doc(0)));
    EXPECT_FALSE(stored(*m_pStore, "bad1", doc(1)));
    EXPECT_FALSE(stored(*m_pStore, "bad2", doc(2)));
    EXPECT_TRUE(stored(*m_pStore, "good", doc(3)));
    EXPECT_TRUE(stored(*m_pStore, "good3", doc(5)));
    EXPECT_EQ(2u, m_pService->counters().m_nFailed);
    EXPECT_EQ(4u, m_pService->counters().m_nApplied);
    EXPECT_EQ(1u, countStdLines(log, "'bad1'"));
    EXPECT_EQ(1u, countStdLines(log, "'bad2'"));
    EXPECT_TRUE(m_pService->readData("H", "bad1").isEmpty()) << "a given-up write leaves the pending overlay";
}

TEST_F(PersistServiceTest, ShutdownAppliesEverythingQueued) {
    boost::shared_ptr<CGateBackend> gate(new CGateBackend(m_pStore));
    m_pService = CPersistService::create(gate, fastRetries());
    gate->setClosed(true);
    for (int i = 0; i < 500; ++i) ASSERT_TRUE(m_pService->asyncWriteData("H", key(i), doc(i)));
    gate->awaitWriter();
    std::thread stopper([&] { m_pService->shutdown(); });
    gate->setClosed(false);
    stopper.join();
    for (int i = 0; i < 500; ++i) EXPECT_TRUE(stored(*m_pStore, key(i), doc(i))) << i;
    EXPECT_FALSE(m_pService->asyncWriteData("H", "late", doc(1))) << "no writes after shutdown";
    EXPECT_EQ(doc(7), m_pService->readData("H", "k7")) << "reads keep working";
}

TEST_F(PersistServiceTest, ConcurrentWritersWithAFlappingStoreLoseNothing) {
    start();
    std::atomic<bool> done(false);
    std::thread flapper([&] {
        for (bool fail = true; !done.load(); fail = !fail) {
            m_pFault->setFailWrites(fail);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        m_pFault->setFailWrites(false);
    });
    auto name = [](int t, int k) { return "t" + std::to_string(t) + "_" + std::to_string(k); };
    std::vector<std::thread> writers;
    for (int t = 0; t < 3; ++t) {
        writers.emplace_back([&, t] {
            for (int i = 0; i < 3000; ++i) m_pService->asyncWriteData("H", name(t, i % 100), doc(i));
        });
    }
    for (std::thread& w : writers) w.join();
    done = true;
    flapper.join();
    m_pService->flush();
    for (int t = 0; t < 3; ++t)
        for (int k = 0; k < 100; ++k) EXPECT_TRUE(stored(*m_pStore, name(t, k), doc(2900 + k)));
    const CPersistCounters c = m_pService->counters();
    EXPECT_EQ(9000u, c.m_nQueued);
    EXPECT_EQ(9000u, c.m_nApplied);
    EXPECT_EQ(0u, c.m_nFailed);
}

TEST(PersistUrlTest, OptionsAreReadAndBadUrlsRefusedNamingTheProblem) {
    std::string error;
    PersistServicePtr s = CPersistService::open(
        "memory://?queue=77&batch=5&retry_ms=2&retry_max_ms=9&shutdown_timeout_ms=-1&write_timeout_ms=3&"
        "linger_ms=0",
        &error);
    ASSERT_TRUE(s) << error;
    const CPersistOptions& o = s->options();
    EXPECT_EQ(77u, o.m_nQueueLimit);
    EXPECT_EQ(5u, o.m_nMaxBatchOps);
    EXPECT_EQ(2, o.m_nRetryDelayMs);
    EXPECT_EQ(9, o.m_nMaxRetryDelayMs);
    EXPECT_EQ(-1, o.m_nShutdownTimeoutMs);
    EXPECT_EQ(3, o.m_nWriteTimeoutMs);
    EXPECT_EQ(0, o.m_nLingerMs);

    const std::pair<const char*, const char*> bad[] = {
        {"nowhere", "no scheme"},
        {"ftp://host/x", "unknown scheme 'ftp'"},
        {"sqlite://", "names no file"},
        {"sqlite:///tmp/x.db?sync=sometimes", "sync must be 'normal' or 'full'"},
        {"sqlite:///tmp/x.db?check=deep", "check must be 'quick' or 'none'"},
        {"sqlite:///tmp/x.db?colour=blue", "unknown option 'colour'"},
        {"sqlite:///tmp/x.db?queue=many", "'queue' must be a whole number"},
        {"sqlite:///tmp/x.db?batch=0", "'batch' is out of range"},
        {"memory://x?queue=5&size=3", "unknown option 'size'"},
        {"redis://127.0.0.1:http/0", "port 'http'"},
        {"redis://127.0.0.1:6379/zero", "database 'zero'"},
        {"sqlite:///tmp/x.db?sync=%zz", "malformed option 'sync=%zz'"},
        {"sqlite:///tmp/x%2.db", "bad %-escape"},
    };
    for (const auto& c : bad) {
        std::string e;
        EXPECT_FALSE(CPersistService::open(c.first, &e)) << c.first;
        EXPECT_NE(std::string::npos, e.find(c.second)) << c.first << " gave: " << e;
    }
}

// The exclusive upper bound of the keys that start with a prefix; none when every byte is 0xFF.
TEST(PrefixSuccessorTest, BoundsEveryKeyWithThePrefix) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},         {"a", "b"},         {"A____", "A___`"},
        {"a\xFF", "b"},   {"a\xFF\xFF", "b"}, {"\xFF", ""},
        {"\xFF\xFF", ""}, {"a\xFE", "a\xFF"}, {std::string("a\0", 2), std::string("a\x01", 2)},
    };
    for (const auto& c : cases) {
        std::string upper;
        EXPECT_EQ(!c.second.empty(), prefixSuccessor(c.first, &upper)) << c.first;
        if (!c.second.empty()) {
            EXPECT_EQ(c.second, upper) << c.first;
        }
    }
}

// The process default: setInstance, else the configured URL, else a file in the data folder; a
// default that cannot be opened refuses writes instead of crashing.
TEST(PersistInstanceTest, DefaultComesFromSetInstanceThenConfigurationThenTheDataFolder) {
    ttservice::test::TempDir dir("tt-xdg");
    auto configure = [](const std::string& url) {
        boost::shared_ptr<ttservice::ConfigCollector> config(new ttservice::ConfigCollector);
        if (!url.empty()) config->setString("persist.url", url);
        ttservice::ConfigCollector::setInstance(config);
        CPersistService::setInstance(PersistServicePtr());
    };
    std::string error;
    PersistServicePtr installed = CPersistService::open("memory://", &error);
    CPersistService::setInstance(installed);
    EXPECT_EQ(installed, CPersistService::instance());

    configure("memory://from-config");
    EXPECT_EQ("memory://from-config", CPersistService::instance()->backend()->url());

    configure("");
    const char* old = getenv("XDG_DATA_HOME");
    const std::string saved = old ? old : "";
    setenv("XDG_DATA_HOME", dir.path().c_str(), 1);
    PersistServicePtr s = CPersistService::instance();
    old ? setenv("XDG_DATA_HOME", saved.c_str(), 1) : unsetenv("XDG_DATA_HOME");
    EXPECT_EQ("sqlite://" + dir.path() + "/ttservice/ttservice.db", s->backend()->url());
    EXPECT_TRUE(std::filesystem::exists(dir.file("ttservice/ttservice.db")));
    EXPECT_TRUE(s->writeData("H", "k", doc(1)));

    configure("sqlite:///nonexistent-folder-for-tt/x/y.db");
    s = CPersistService::instance();
    ASSERT_TRUE(s);
    EXPECT_FALSE(s->backend());
    EXPECT_FALSE(s->asyncWriteData("H", "k", doc(1)));
    EXPECT_TRUE(s->readData("H", "k").isEmpty());
    s->flush();

    configure("");
}

}  // namespace
}  // namespace persist
