// DataCenter hot paths, each beside the bare container work it cannot avoid, in the same run:
//   - getInstrument hit            vs  one std::map find of a prebuilt key, copying the record out;
//   - getInstrument futures miss   vs  the four finds of prebuilt keys the fallback must make;
//   - setInstrumentDetail, 100,000 instruments into an empty table
//                                  vs  building the same four maps by hand;
//   - setInstrumentDetail reloading the same 100,000 over a full table
//                                  vs  clearing and rebuilding the four maps by hand.
// Targets: each operation within 2x of its baseline. Look-ups walk a shuffled list of 4096
// instruments so both sides pay the same cache misses as a real table.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "base/data/DataCenter.h"

using namespace ttservice;

namespace {

const char* const kFutures[] = {"CFFEX", "CZCE", "DCE", "INE", "SHFE"};

struct Universe {
    std::vector<std::string> markets;
    std::vector<CInstrumentDetailPtr> details;
    std::vector<CInstrumentDetailPtr> probes;     // a shuffled sample for look-ups
    std::vector<CInstrumentDetailPtr> dceProbes;  // DCE instruments, asked under SHFE
};

// 100,000 instruments: 40,000 each of SH and SZ stocks, 4,000 futures on each China futures exchange.
const Universe& universe() {
    static const Universe u = [] {
        Universe u;
        u.markets = {"SH", "SZ", "CFFEX", "CZCE", "DCE", "INE", "SHFE"};
        u.details.reserve(100000);
        auto add = [&](const std::string& market, const std::string& code, const std::string& name,
                       const std::string& product) {
            CInstrumentDetailPtr d = boost::make_shared<CInstrumentDetail>();
            d->m_strExchangeID = market;
            d->m_strInstrumentID = code;
            d->m_strInstrumentName = name;
            d->m_strProductID = product;
            d->m_bIsIPO = code.size() == 6 && code[0] == '7';
            u.details.push_back(d);
        };
        for (int i = 0; i < 40000; ++i)
            add("SH", std::to_string(600000 + i), "上证样本" + std::to_string(i), "SHA");
        for (int i = 0; i < 40000; ++i)
            add("SZ", std::to_string(100000 + i).substr(1), "深证样本" + std::to_string(i), "SZA");
        for (int e = 0; e < 5; ++e) {
            for (int i = 0; i < 4000; ++i) {
                // Codes unique across exchanges: exchange letter, two product letters, contract month.
                const std::string product = {static_cast<char>('a' + e), static_cast<char>('a' + i / 400),
                                             static_cast<char>('a' + i / 40 % 10)};
                const std::string code = product + std::to_string(2401 + i % 40);
                add(kFutures[e], code, "期货" + code, product);
            }
        }
        std::mt19937 rng(7);
        std::vector<CInstrumentDetailPtr> shuffled = u.details;
        std::shuffle(shuffled.begin(), shuffled.end(), rng);
        u.probes.assign(shuffled.begin(), shuffled.begin() + 4096);
        for (const CInstrumentDetailPtr& d : shuffled)
            if (d->m_strExchangeID == "DCE" && u.dceProbes.size() < 4096) u.dceProbes.push_back(d);
        return u;
    }();
    return u;
}

typedef std::map<std::string, CInstrumentDetailPtr> Map;

Map byKey() {
    Map m;
    for (const CInstrumentDetailPtr& d : universe().details) m[d->m_strExchangeID + d->m_strInstrumentID] = d;
    return m;
}

struct FourMaps {
    Map byKey;
    Map byCode;
    std::map<std::string, Map> byExchange;
    std::map<std::string, Map> byProduct;
};

void buildByHand(FourMaps& maps) {
    std::string key;
    for (const CInstrumentDetailPtr& d : universe().details) {
        key.assign(d->m_strExchangeID).append(d->m_strInstrumentID);
        maps.byKey[key] = d;
        maps.byCode[d->m_strInstrumentID] = d;
        maps.byExchange[d->m_strExchangeID][key] = d;
        maps.byProduct[d->m_strProductID][key] = d;
    }
}

// ---- look-ups ---------------------------------------------------------------------------------------

void BM_Baseline_MapFind(benchmark::State& state) {
    const Map m = byKey();
    std::vector<std::string> keys;
    for (const CInstrumentDetailPtr& d : universe().probes)
        keys.push_back(d->m_strExchangeID + d->m_strInstrumentID);
    size_t i = 0;
    for (auto _ : state) {
        const Map::const_iterator it = m.find(keys[i++ & 4095]);
        CInstrumentDetailPtr hit = it == m.end() ? CInstrumentDetailPtr() : it->second;
        benchmark::DoNotOptimize(hit);
    }
}
BENCHMARK(BM_Baseline_MapFind);

// The same look-up in a key map built together with the other three indexes, as a loader that
// keeps them must build it (its nodes interleave with theirs in memory).
void BM_Baseline_MapFindInterleaved(benchmark::State& state) {
    FourMaps maps;
    buildByHand(maps);
    std::vector<std::string> keys;
    for (const CInstrumentDetailPtr& d : universe().probes)
        keys.push_back(d->m_strExchangeID + d->m_strInstrumentID);
    size_t i = 0;
    for (auto _ : state) {
        const Map::const_iterator it = maps.byKey.find(keys[i++ & 4095]);
        CInstrumentDetailPtr hit = it == maps.byKey.end() ? CInstrumentDetailPtr() : it->second;
        benchmark::DoNotOptimize(hit);
    }
}
BENCHMARK(BM_Baseline_MapFindInterleaved);

void BM_GetInstrument_Hit(benchmark::State& state) {
    DataCenter dc;
    dc.setInstrumentDetail(universe().markets, universe().details);
    const std::vector<CInstrumentDetailPtr>& probes = universe().probes;
    size_t i = 0;
    for (auto _ : state) {
        const CInstrumentDetail& p = *probes[i++ & 4095];
        CInstrumentDetailPtr hit = dc.getInstrument(p.m_strExchangeID, p.m_strInstrumentID);
        benchmark::DoNotOptimize(hit);
    }
}
BENCHMARK(BM_GetInstrument_Hit);

// A DCE code asked under SHFE misses there, then under CFFEX and CZCE, and hits under DCE.
void BM_Baseline_FourMapFinds(benchmark::State& state) {
    const Map m = byKey();
    std::vector<std::string> keys;
    for (const CInstrumentDetailPtr& d : universe().dceProbes)
        for (const char* market : {"SHFE", "CFFEX", "CZCE", "DCE"})
            keys.push_back(market + d->m_strInstrumentID);
    const size_t n = universe().dceProbes.size();
    size_t i = 0;
    for (auto _ : state) {
        const size_t base = (i++ % n) * 4;
        CInstrumentDetailPtr hit;
        for (size_t k = 0; k < 4 && !hit; ++k) {
            const Map::const_iterator it = m.find(keys[base + k]);
            if (it != m.end()) hit = it->second;
        }
        benchmark::DoNotOptimize(hit);
    }
}
BENCHMARK(BM_Baseline_FourMapFinds);

void BM_GetInstrument_FuturesFallback(benchmark::State& state) {
    DataCenter dc;
    dc.setInstrumentDetail(universe().markets, universe().details);
    const std::vector<CInstrumentDetailPtr>& probes = universe().dceProbes;
    const std::string shfe = "SHFE";
    size_t i = 0;
    for (auto _ : state) {
        CInstrumentDetailPtr hit = dc.getInstrument(shfe, probes[i++ % probes.size()]->m_strInstrumentID);
        benchmark::DoNotOptimize(hit);
    }
}
BENCHMARK(BM_GetInstrument_FuturesFallback);

// ---- loading ------------------------------------------------------------------------------------------

void BM_Baseline_BuildFourMaps(benchmark::State& state) {
    universe();
    for (auto _ : state) {
        std::unique_ptr<FourMaps> maps(new FourMaps);
        buildByHand(*maps);
        benchmark::DoNotOptimize(maps.get());
        state.PauseTiming();
        maps.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * universe().details.size());
}
BENCHMARK(BM_Baseline_BuildFourMaps)->Unit(benchmark::kMillisecond);

void BM_SetInstrumentDetail_Empty(benchmark::State& state) {
    universe();
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<DataCenter> dc(new DataCenter);
        state.ResumeTiming();
        dc->setInstrumentDetail(universe().markets, universe().details);
        state.PauseTiming();
        dc.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * universe().details.size());
}
BENCHMARK(BM_SetInstrumentDetail_Empty)->Unit(benchmark::kMillisecond);

void BM_Baseline_ClearAndRebuildFourMaps(benchmark::State& state) {
    FourMaps maps;
    buildByHand(maps);
    for (auto _ : state) {
        maps.byKey.clear();
        maps.byCode.clear();
        maps.byExchange.clear();
        maps.byProduct.clear();
        buildByHand(maps);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * universe().details.size());
}
BENCHMARK(BM_Baseline_ClearAndRebuildFourMaps)->Unit(benchmark::kMillisecond);

void BM_SetInstrumentDetail_Reload(benchmark::State& state) {
    DataCenter dc;
    dc.setInstrumentDetail(universe().markets, universe().details);
    for (auto _ : state) dc.setInstrumentDetail(universe().markets, universe().details);
    state.SetItemsProcessed(state.iterations() * universe().details.size());
}
BENCHMARK(BM_SetInstrumentDetail_Reload)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
