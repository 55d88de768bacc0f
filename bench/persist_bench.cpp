// Persistence benchmarks, each beside its baseline in the same run:
//
//   Queued write throughput: 100,000 documents of 500 bytes through asyncWriteData() and flush(),
//   against the backend's own bulk path written by hand:
//     SQLite  one transaction of prepared inserts into the same table layout (WAL, synchronous=NORMAL)
//     Redis   a pipelined HSET stream with hiredis (windows of 1,000 commands)
//   Target: the queue reaches at least 70% of the baseline's rate.
//
//   The caller's cost of asyncWriteData() (the enqueue, the push path's share of persisting a
//   deal) against allocating and copying the same document. Target: within 3x. Measured for bursts
//   of 1,000 writes, and for lone writes 50 us apart (deals trickling in, the writer idle between
//   them), where a write that had to wake the writer would pay a system call.
//
//   A Redis prefix read (readAllData "prefix.*") of 20 keys from a hash of 100 keys and from one of
//   100,000: the key index makes the cost depend on the keys read, not on the size of the hash.
//   Target: about the same.
//
// The ratios are printed after the table. The Redis cases start their own redis-server on a free
// loopback port (and are skipped when it is not installed).
#include <benchmark/benchmark.h>
#include <hiredis/hiredis.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>

#include "persist/CPersistService.h"
#include "testing/RedisServer.h"

namespace {

using ttservice::test::CRedisServer;

const int kDocs = 100000;
const int kDocBytes = 500;
const int kEnqueueRun = 1000;  // enqueues timed between two pauses
const char kHash[] = "NqTradeData";

std::unique_ptr<CRedisServer> g_redis;
std::string g_strDir;

bson::BSONObj makeDoc(int i) {
    bson::BSONObjBuilder probe;
    probe.append("id", i)
        .append("price", 10.5 + i)
        .append("volume", static_cast<int64_t>(i) * 100)
        .append("pad", "");
    const int pad = kDocBytes - probe.len();
    bson::BSONObjBuilder b;
    b.append("id", i).append("price", 10.5 + i).append("volume", static_cast<int64_t>(i) * 100);
    b.append("pad", std::string(static_cast<size_t>(pad), 'p'));
    return b.obj();
}

const std::vector<bson::BSONObj>& docs() {
    static std::vector<bson::BSONObj> d = [] {
        std::vector<bson::BSONObj> v;
        for (int i = 0; i < kDocs; ++i) v.push_back(makeDoc(i));
        return v;
    }();
    return d;
}

const std::vector<std::string>& keys() {
    static std::vector<std::string> k = [] {
        std::vector<std::string> v;
        for (int i = 0; i < kDocs; ++i) v.push_back("SH____600000____" + std::to_string(1000000 + i));
        return v;
    }();
    return k;
}

void removeDb(const std::string& path) {
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path + suffix);
}

// ---- SQLite ----
//
// Both SQLite cases end by copying the write-ahead log into the database file, so each pays for
// getting every row into the file, whatever its checkpoint schedule.

void checkpoint(sqlite3* db, benchmark::State& state) {
    if (sqlite3_exec(db, "PRAGMA wal_checkpoint(PASSIVE)", nullptr, nullptr, nullptr) != SQLITE_OK) {
        state.SkipWithError("checkpoint failed");
    }
}

void BM_SqliteBulkBaseline(benchmark::State& state) {
    const std::string path = g_strDir + "/baseline.db";
    for (auto _ : state) {
        state.PauseTiming();
        removeDb(path);
        sqlite3* db = nullptr;
        sqlite3_open(path.c_str(), &db);
        sqlite3_exec(db,
                     "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
                     "CREATE TABLE tt_hash(hash TEXT NOT NULL, key TEXT NOT NULL, value BLOB NOT NULL);"
                     "CREATE UNIQUE INDEX tt_hash_key ON tt_hash(hash, key);",
                     nullptr, nullptr, nullptr);
        sqlite3_stmt* ins = nullptr;
        sqlite3_prepare_v2(db, "INSERT INTO tt_hash(hash, key, value) VALUES(?1, ?2, ?3)", -1, &ins, nullptr);
        state.ResumeTiming();

        sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
        for (int i = 0; i < kDocs; ++i) {
            sqlite3_bind_text(ins, 1, kHash, -1, SQLITE_STATIC);
            sqlite3_bind_text(ins, 2, keys()[i].data(), static_cast<int>(keys()[i].size()), SQLITE_STATIC);
            sqlite3_bind_blob(ins, 3, docs()[i].objdata(), docs()[i].objsize(), SQLITE_STATIC);
            if (sqlite3_step(ins) != SQLITE_DONE) state.SkipWithError("insert failed");
            sqlite3_reset(ins);
        }
        if (sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK)
            state.SkipWithError("commit failed");

        state.PauseTiming();
        sqlite3_finalize(ins);
        sqlite3_close(db);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kDocs);
}

// Times queueing kDocs writes and flushing them, then `finish` (if any).
void runQueued(benchmark::State& state, const std::function<persist::PersistServicePtr()>& open,
               const std::function<void()>& reset,
               const std::function<void()>& finish = std::function<void()>()) {
    for (auto _ : state) {
        state.PauseTiming();
        reset();
        persist::PersistServicePtr s = open();
        if (!s) {
            state.SkipWithError("cannot open the store");
            break;
        }
        state.ResumeTiming();

        for (int i = 0; i < kDocs; ++i) {
            if (!s->asyncWriteData(kHash, keys()[i], docs()[i])) state.SkipWithError("write refused");
        }
        s->flush();
        if (finish) finish();

        state.PauseTiming();
        if (s->counters().m_nApplied != static_cast<uint64_t>(kDocs))
            state.SkipWithError("not everything applied");
        s->shutdown();
        s.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kDocs);
}

void BM_SqliteQueuedWrites(benchmark::State& state) {
    const std::string path = g_strDir + "/queued.db";
    sqlite3* db = nullptr;
    runQueued(
        state,
        [&] {
            std::string error;
            persist::PersistServicePtr s = persist::CPersistService::open("sqlite://" + path, &error);
            sqlite3_open(path.c_str(), &db);
            return s;
        },
        [&] {
            if (db) sqlite3_close(db);
            db = nullptr;
            removeDb(path);
        },
        [&] { checkpoint(db, state); });
    if (db) sqlite3_close(db);
}

// ---- Redis ----

redisContext* rawRedis() {
    redisContext* c = redisConnect("127.0.0.1", g_redis->port());
    if (c && c->err) {
        redisFree(c);
        return nullptr;
    }
    return c;
}

void flushAll() {
    redisContext* c = rawRedis();
    if (!c) return;
    freeReplyObject(redisCommand(c, "FLUSHALL"));
    redisFree(c);
}

void BM_RedisPipelinedHsetBaseline(benchmark::State& state) {
    if (!g_redis) {
        state.SkipWithError("redis-server is not installed");
        return;
    }
    const size_t kWindow = 1000;
    for (auto _ : state) {
        state.PauseTiming();
        flushAll();
        redisContext* c = rawRedis();
        state.ResumeTiming();

        for (size_t base = 0; base < static_cast<size_t>(kDocs); base += kWindow) {
            const size_t end = std::min(base + kWindow, static_cast<size_t>(kDocs));
            for (size_t i = base; i < end; ++i) {
                const char* argv[4] = {"HSET", kHash, keys()[i].data(),
                                       reinterpret_cast<const char*>(docs()[i].objdata())};
                const size_t lens[4] = {4, sizeof(kHash) - 1, keys()[i].size(),
                                        static_cast<size_t>(docs()[i].objsize())};
                redisAppendCommandArgv(c, 4, argv, lens);
            }
            for (size_t i = base; i < end; ++i) {
                void* r = nullptr;
                if (redisGetReply(c, &r) != REDIS_OK) {
                    state.SkipWithError("pipeline failed");
                    break;
                }
                freeReplyObject(r);
            }
        }

        state.PauseTiming();
        redisFree(c);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kDocs);
}

void BM_RedisQueuedWrites(benchmark::State& state) {
    if (!g_redis) {
        state.SkipWithError("redis-server is not installed");
        return;
    }
    runQueued(
        state,
        [] {
            std::string error;
            return persist::CPersistService::open(g_redis->url(0), &error);
        },
        [] { flushAll(); });
}

// ---- the caller's cost ----

void BM_CopyDocumentBaseline(benchmark::State& state) {
    std::vector<std::unique_ptr<uint8_t[]> > copies(kEnqueueRun);
    size_t next = 0;
    for (auto _ : state) {
        for (int i = 0; i < kEnqueueRun; ++i, ++next) {
            const bson::BSONObj& d = docs()[next % kDocs];
            copies[i].reset(new uint8_t[static_cast<size_t>(d.objsize())]);
            memcpy(copies[i].get(), d.objdata(), static_cast<size_t>(d.objsize()));
            benchmark::DoNotOptimize(copies[i].get());
        }
        state.PauseTiming();
        for (auto& c : copies) c.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kEnqueueRun);
}

void runEnqueue(benchmark::State& state, const persist::PersistServicePtr& s) {
    if (!s) {
        state.SkipWithError("cannot open the store");
        return;
    }
    size_t next = 0;
    for (auto _ : state) {
        for (int i = 0; i < kEnqueueRun; ++i, ++next) {
            const size_t k = next % kDocs;
            if (!s->asyncWriteData(kHash, keys()[k], docs()[k])) state.SkipWithError("write refused");
        }
        state.PauseTiming();
        s->flush();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kEnqueueRun);
    s->shutdown();
}

void BM_EnqueueSqlite(benchmark::State& state) {
    const std::string path = g_strDir + "/enqueue.db";
    removeDb(path);
    std::string error;
    runEnqueue(state, persist::CPersistService::open("sqlite://" + path, &error));
}

void BM_EnqueueMemory(benchmark::State& state) {
    std::string error;
    runEnqueue(state, persist::CPersistService::open("memory://", &error));
}

// ---- manually timed cases ----
//
// Each call is timed on its own. Its median goes to the counter "p50_ns", which the ratios use (a
// busy machine's preemptions move the mean a lot, the median hardly), and its 99th percentile to
// "p99_ns".
class CCallTimes {
public:
    explicit CCallTimes(benchmark::State& state) : m_state(state) {}
    ~CCallTimes() {
        if (m_ns.empty()) return;
        std::sort(m_ns.begin(), m_ns.end());
        m_state.counters["p50_ns"] = m_ns[m_ns.size() / 2];
        m_state.counters["p99_ns"] = m_ns[m_ns.size() * 99 / 100];
    }
    template <class F>
    void time(const F& f) {
        const auto t0 = std::chrono::steady_clock::now();
        f();
        const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        m_state.SetIterationTime(s);
        m_ns.push_back(s * 1e9);
    }

private:
    benchmark::State& m_state;
    std::vector<double> m_ns;
};

// ---- lone writes ----
//
// Writes kPaceUs apart: a busy wait lets the writer finish the previous write, then the call is
// timed.

const int kPaceUs = 50;
const int kPacedWrites = 20000;

template <class F>
void runPaced(benchmark::State& state, const F& op) {
    CCallTimes times(state);
    size_t next = 0;
    for (auto _ : state) {
        const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(kPaceUs);
        while (std::chrono::steady_clock::now() < until) {
        }
        const size_t k = next++ % kDocs;
        times.time([&] { op(k); });
    }
}

void BM_CopyDocumentPaced(benchmark::State& state) {
    std::vector<std::unique_ptr<uint8_t[]> > copies(kDocs);
    runPaced(state, [&](size_t k) {
        const bson::BSONObj& d = docs()[k];
        copies[k].reset(new uint8_t[static_cast<size_t>(d.objsize())]);
        memcpy(copies[k].get(), d.objdata(), static_cast<size_t>(d.objsize()));
        benchmark::DoNotOptimize(copies[k].get());
    });
}

void BM_EnqueuePacedSqlite(benchmark::State& state) {
    const std::string path = g_strDir + "/paced.db";
    removeDb(path);
    std::string error;
    persist::PersistServicePtr s = persist::CPersistService::open("sqlite://" + path, &error);
    if (!s) {
        state.SkipWithError("cannot open the store");
        return;
    }
    runPaced(state, [&](size_t k) {
        if (!s->asyncWriteData(kHash, keys()[k], docs()[k])) state.SkipWithError("write refused");
    });
    s->shutdown();
}

// ---- Redis prefix reads ----

const int kPrefixKeys = 20;

// A hash of `total` keys, kPrefixKeys of them beginning with "SH____600519____" and the others
// sorting before and after them; filled once per server.
std::string prefixHash(persist::CPersistService& s, int total) {
    const std::string hash = "Prefix" + std::to_string(total);
    char key[48];
    snprintf(key, sizeof(key), "SH____600519____%02d", kPrefixKeys - 1);
    if (!s.readData(hash, key).isEmpty()) return hash;
    std::vector<std::pair<std::string, bson::BSONObj> > batch;
    for (int i = 0; i < total; ++i) {
        if (i < kPrefixKeys) {
            snprintf(key, sizeof(key), "SH____600519____%02d", i);
        } else {
            snprintf(key, sizeof(key), "%s____%06d", i % 2 ? "SH____600000" : "SZ____000001", i);
        }
        batch.emplace_back(key, docs()[static_cast<size_t>(i) % kDocs]);
        if (batch.size() == 1000 || i + 1 == total) {
            s.asyncWriteDatas(hash, batch);
            batch.clear();
        }
    }
    s.flush();
    return hash;
}

void BM_RedisPrefixRead(benchmark::State& state) {
    if (!g_redis) {
        state.SkipWithError("redis-server is not installed");
        return;
    }
    std::string error;
    persist::PersistServicePtr s = persist::CPersistService::open(g_redis->url(0), &error);
    if (!s) {
        state.SkipWithError("cannot open the store");
        return;
    }
    const std::string hash = prefixHash(*s, static_cast<int>(state.range(0)));
    CCallTimes times(state);
    for (auto _ : state) {
        std::map<std::string, bson::BSONObj> out;
        times.time([&] { s->readAllData(hash, "SH____600519____.*", out); });
        if (out.size() != static_cast<size_t>(kPrefixKeys)) state.SkipWithError("wrong answer");
    }
}

BENCHMARK(BM_SqliteBulkBaseline)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_SqliteQueuedWrites)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_RedisPipelinedHsetBaseline)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_RedisQueuedWrites)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_CopyDocumentBaseline)->UseRealTime();
BENCHMARK(BM_EnqueueSqlite)->UseRealTime();
BENCHMARK(BM_EnqueueMemory)->UseRealTime();
BENCHMARK(BM_CopyDocumentPaced)->UseManualTime()->Iterations(kPacedWrites);
BENCHMARK(BM_EnqueuePacedSqlite)->UseManualTime()->Iterations(kPacedWrites);
BENCHMARK(BM_RedisPrefixRead)
    ->Arg(100)
    ->Arg(100000)
    ->Unit(benchmark::kMicrosecond)
    ->UseManualTime()
    ->Iterations(3000);

// Prints the table as usual and remembers the time per item of each case for the ratios: wall
// time (the median call, for manually timed cases), and the benchmark thread's CPU time (which a
// busy machine disturbs less).
class CRatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs) {
            if (r.error_occurred || r.iterations == 0) continue;
            auto median = r.counters.find("p50_ns");
            if (median != r.counters.end()) {
                m_perItemNs[r.benchmark_name()] = median->second.value;
                continue;
            }
            auto it = r.counters.find("items_per_second");
            if (it == r.counters.end() || it->second.value <= 0) continue;
            const double wallNs = 1e9 / it->second.value;
            m_perItemNs[r.benchmark_name()] = wallNs;
            const double real = r.GetAdjustedRealTime();
            m_cpuPerItemNs[r.benchmark_name()] = real > 0 ? wallNs * r.GetAdjustedCPUTime() / real : -1;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void printRatios() const {
        printf("\nRatios (per item):\n");
        ratio("SQLite queued throughput / bulk transaction", "BM_SqliteBulkBaseline", "BM_SqliteQueuedWrites",
              true, "target >= 0.70");
        ratio("Redis queued throughput / pipelined HSET", "BM_RedisPipelinedHsetBaseline",
              "BM_RedisQueuedWrites", true, "target >= 0.70");
        ratio("enqueue (SQLite service) / allocate+copy", "BM_CopyDocumentBaseline", "BM_EnqueueSqlite",
              false, "target <= 3.0");
        ratio("enqueue (memory service) / allocate+copy", "BM_CopyDocumentBaseline", "BM_EnqueueMemory",
              false, "target <= 3.0");
        ratio("  same, CPU time (SQLite service)", "BM_CopyDocumentBaseline", "BM_EnqueueSqlite", false,
              "target <= 3.0", m_cpuPerItemNs);
        ratio("  same, CPU time (memory service)", "BM_CopyDocumentBaseline", "BM_EnqueueMemory", false,
              "target <= 3.0", m_cpuPerItemNs);
        ratio("lone enqueue (SQLite service) / allocate+copy", "BM_CopyDocumentPaced",
              "BM_EnqueuePacedSqlite", false, "target <= 3.0; medians");
        ratio("Redis prefix read 20 of 100,000 / 20 of 100", "BM_RedisPrefixRead/100",
              "BM_RedisPrefixRead/100000", false, "target about 1; medians");
    }

private:
    void ratio(const char* what, const std::string& base, const std::string& subject, bool throughput,
               const char* target) const {
        ratio(what, base, subject, throughput, target, m_perItemNs);
    }
    void ratio(const char* what, const std::string& base, const std::string& subject, bool throughput,
               const char* target, const std::map<std::string, double>& perItem) const {
        auto b = find(perItem, base), s = find(perItem, subject);
        if (b <= 0 || s <= 0) {
            printf("  %-46s n/a (not run)\n", what);
            return;
        }
        const double r = throughput ? b / s : s / b;
        printf("  %-46s %6.2f   (%s; %.1f ns vs %.1f ns per item)\n", what, r, target, s, b);
    }
    // The case named `name`, with or without further "/..." parts (arguments, options).
    static double find(const std::map<std::string, double>& perItem, const std::string& name) {
        for (const auto& kv : perItem) {
            if (kv.first.compare(0, name.size(), name) == 0 &&
                (kv.first.size() == name.size() || kv.first[name.size()] == '/'))
                return kv.second;
        }
        return -1;
    }
    std::map<std::string, double> m_perItemNs;
    std::map<std::string, double> m_cpuPerItemNs;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    char tmpl[] = "/tmp/tt-persist-bench-XXXXXX";
    if (!mkdtemp(tmpl)) return 1;
    g_strDir = tmpl;
    if (CRedisServer::available()) {
        g_redis.reset(new CRedisServer);
        std::string error;
        if (!g_redis->start(&error)) {
            fprintf(stderr, "redis-server did not start: %s\n", error.c_str());
            g_redis.reset();
        }
    }
    docs();
    keys();
    CRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    benchmark::Shutdown();
    g_redis.reset();
    std::filesystem::remove_all(g_strDir);
    return 0;
}
