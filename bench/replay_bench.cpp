// Replay throughput of ttreplay against the work it cannot avoid, in the same run.
//
// A session of TT_REPLAY_BENCH_RECORDS record events (default 1,000,000) over
// TT_REPLAY_BENCH_ACCOUNTS accounts (default 100) is generated once into a temporary file. Then:
//   ReadLines     reading the file line by line
//   JsonOnly      reading and parsing each line's JSON
//   ParseOnly     reading and decoding every event in full (JSON, members, records built), nothing
//                 filed: the baseline of the replay
//   FullReplay    the replay proper: every event applied to the data layer (stores, indexes,
//                 subscribers, data-center listeners, timers) and the summary written
// and, after the benchmarks, the ratio FullReplay / ParseOnly (target: at most 2) and the peak memory
// per filed record (growth of the maximum resident set size over the full replay, divided by the
// records filed). The ratio is of thread CPU times; Google Benchmark's table shows wall and CPU time.
// Each benchmark makes one pass over the file; run it in a Release build.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "SessionEvent.h"
#include "SessionGenerator.h"
#include "SessionReplayer.h"

namespace {

using namespace ttservice::replay;

uint64_t envCount(const char* name, uint64_t def) {
    const char* v = std::getenv(name);
    return v && *v ? std::strtoull(v, nullptr, 10) : def;
}

struct CSession {
    std::string path;
    uint64_t records = 0;
    uint64_t lines = 0;
    uint64_t bytes = 0;
};

const CSession& session() {
    static CSession s = [] {
        CSession out;
        CGeneratorOptions o;
        o.m_nRecords = envCount("TT_REPLAY_BENCH_RECORDS", 1000000);
        o.m_nAccounts = static_cast<int>(envCount("TT_REPLAY_BENCH_ACCOUNTS", 100));
        o.m_nSeed = 20240315;
        char path[] = "/tmp/tt-replay-bench-XXXXXX";
        const int fd = mkstemp(path);
        if (fd >= 0) close(fd);
        out.path = path;
        std::ofstream file(out.path, std::ios::binary | std::ios::trunc);
        const CGeneratorCounts c = generateSession(o, file);
        file.close();
        out.records = c.m_nRecords;
        out.lines = c.m_nLines;
        std::ifstream in(out.path, std::ios::binary | std::ios::ate);
        out.bytes = static_cast<uint64_t>(in.tellg());
        std::cerr << "replay_bench: session of " << out.records << " records, " << out.lines << " lines, "
                  << out.bytes / (1024 * 1024) << " MiB over " << o.m_nAccounts << " accounts\n";
        return out;
    }();
    return s;
}

long maxRssKb() {
    struct rusage u;
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

// CPU time of the calling thread: the replay runs on one thread (the dispatcher on its manual
// clock starts none), and on a machine shared with other work the wall clock mostly measures the
// others.
double threadCpuSeconds() {
    struct timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

double g_parseSeconds = 0.0, g_jsonSeconds = 0.0, g_replaySeconds = 0.0;  // thread CPU time
double g_summarySeconds = 0.0;  // the part of the replay that builds and writes the end summary
long g_rssBeforeKb = 0, g_rssAfterKb = 0;

double seconds(double t0) {
    return threadCpuSeconds() - t0;
}

void ReadLines(benchmark::State& state) {
    const CSession& s = session();
    for (auto _ : state) {
        std::ifstream in(s.path, std::ios::binary);
        std::string line;
        uint64_t n = 0;
        while (std::getline(in, line)) n += line.size();
        benchmark::DoNotOptimize(n);
    }
    state.SetItemsProcessed(static_cast<int64_t>(s.records * state.iterations()));
    state.SetBytesProcessed(static_cast<int64_t>(s.bytes * state.iterations()));
}

void JsonOnly(benchmark::State& state) {
    const CSession& s = session();
    CSessionParser parser;
    for (auto _ : state) {
        const double t0 = threadCpuSeconds();
        std::ifstream in(s.path, std::ios::binary);
        std::string line, error;
        Json::Value v;
        uint64_t bad = 0;
        while (std::getline(in, line)) {
            if (CSessionParser::isBlank(line)) continue;
            bad += !parser.parseJson(line, v, &error);
        }
        benchmark::DoNotOptimize(bad);
        g_jsonSeconds = seconds(t0);
    }
    state.SetItemsProcessed(static_cast<int64_t>(s.records * state.iterations()));
}

void ParseOnly(benchmark::State& state) {
    const CSession& s = session();
    CSessionParser parser;
    for (auto _ : state) {
        const double t0 = threadCpuSeconds();
        std::ifstream in(s.path, std::ios::binary);
        std::string line, error;
        uint64_t bad = 0;
        while (std::getline(in, line)) {
            if (CSessionParser::isBlank(line)) continue;
            CSessionEvent e;
            bad += !parser.parse(line, e, &error);
            benchmark::DoNotOptimize(e.m_record.get());
        }
        if (bad) state.SkipWithError("the generated session has bad lines");
        g_parseSeconds = seconds(t0);
    }
    state.SetItemsProcessed(static_cast<int64_t>(s.records * state.iterations()));
}

void FullReplay(benchmark::State& state) {
    const CSession& s = session();
    for (auto _ : state) {
        g_rssBeforeKb = maxRssKb();
        const double t0 = threadCpuSeconds();
        std::ostream none(nullptr);
        CReplayOptions options;
        std::unique_ptr<CSessionReplayer> replayer(new CSessionReplayer(options, none, none));
        std::ifstream in(s.path, std::ios::binary);
        std::string line;
        int64_t n = 0;
        while (std::getline(in, line)) replayer->replayLine(line, ++n);
        const double t1 = threadCpuSeconds();
        replayer->finish();
        g_replaySeconds = seconds(t0);
        g_summarySeconds = seconds(t1);
        state.PauseTiming();
        g_rssAfterKb = maxRssKb();
        if (replayer->counters().m_nErrors) state.SkipWithError("the replay skipped lines");
        if (replayer->counters().m_nRecords != s.records) state.SkipWithError("not every record was filed");
        replayer.reset();  // tearing the accounts down is not part of the replay
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(s.records * state.iterations()));
}

BENCHMARK(ReadLines)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(JsonOnly)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(ParseOnly)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(FullReplay)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    session();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    const CSession& s = session();
    if (g_parseSeconds > 0 && g_replaySeconds > 0) {
        std::printf(
            "CPU time, full replay / parse-only: %.2f (target <= 2.00); full replay / JSON-only: %.2f\n",
            g_replaySeconds / g_parseSeconds, g_jsonSeconds > 0 ? g_replaySeconds / g_jsonSeconds : 0.0);
        std::printf("of the full replay, the end summary: %.3f s\n", g_summarySeconds);
        std::printf("records per CPU second: parse-only %.0f, full replay %.0f\n", s.records / g_parseSeconds,
                    s.records / g_replaySeconds);
        std::printf(
            "peak memory: max RSS %ld -> %ld KiB over the replay, %.0f bytes per filed record\n",
            g_rssBeforeKb, g_rssAfterKb,
            s.records ? (g_rssAfterKb - g_rssBeforeKb) * 1024.0 / static_cast<double>(s.records) : 0.0);
    }
    std::remove(s.path.c_str());
    return 0;
}
