// Record library hot paths, each beside the baseline it cannot beat:
//   field read by ITEM_ number      vs  direct member access
//   BSON round trip of an order     vs  memcpy of the same number of bytes (twice: out and back)
// The round trip is measured twice: from a document this process built (trusted, as in transfer
// between modules) and through the bytes as a store hands them back (validated by
// BSONObj::fromBytes before parsing), which is the path every persisted record takes.
#include "bson/BSONObj.h"
#include "records/Records.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

using namespace ttservice;

namespace {

COrderDetailPtr makeOrder() {
    COrderDetailPtr o = boost::make_shared<COrderDetail>();
    o->m_accountInfo = boost::make_shared<CAccountInfo>();
    o->m_accountInfo->m_nPlatformID = 20001;
    o->m_accountInfo->m_strAccountID = "880001";
    o->m_strExchangeID = "SHFE";
    o->m_strInstrumentID = "cu2501";
    o->m_strInstrumentName = "copper 2501";
    o->m_strOrderSysID = "      123456";
    o->m_strOrderRef = "000000000017";
    o->m_nVolumeTotalOriginal = 10;
    o->m_nVolumeTraded = 3;
    o->m_dLimitPrice = 74210.0;
    o->m_eOrderStatus = ENTRUST_STATUS_PART_SUCC;
    o->m_strInsertDate = "20261123";
    o->m_strInsertTime = "09:31:02";
    return o;
}

void BM_FieldRead_ByItem(benchmark::State& state) {
    COrderDetailPtr o = makeOrder();
    const IData& d = *o;
    for (auto _ : state) {
        int v = d.getInt(COrderDetail::ITEM_m_nVolumeTotalOriginal) - d.getInt(COrderDetail::ITEM_m_nVolumeTraded);
        double p = d.getDouble(COrderDetail::ITEM_m_dLimitPrice);
        benchmark::DoNotOptimize(v);
        benchmark::DoNotOptimize(p);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_FieldRead_ByItem);

void BM_FieldRead_Baseline_Direct(benchmark::State& state) {
    COrderDetailPtr o = makeOrder();
    const COrderDetail* d = o.get();
    for (auto _ : state) {
        benchmark::DoNotOptimize(d);
        int v = d->m_nVolumeTotalOriginal - d->m_nVolumeTraded;
        double p = d->m_dLimitPrice;
        benchmark::DoNotOptimize(v);
        benchmark::DoNotOptimize(p);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_FieldRead_Baseline_Direct);

void BM_StringRead_ByItem(benchmark::State& state) {
    COrderDetailPtr o = makeOrder();
    std::string s;
    for (auto _ : state) {
        o->getData(COrderDetail::ITEM_m_strOrderSysID, s);
        benchmark::DoNotOptimize(s.data());
    }
}
BENCHMARK(BM_StringRead_ByItem);

void BM_StringRead_Baseline_Direct(benchmark::State& state) {
    COrderDetailPtr o = makeOrder();
    std::string s;
    for (auto _ : state) {
        benchmark::DoNotOptimize(o.get());
        s = o->m_strOrderSysID;
        benchmark::DoNotOptimize(s.data());
    }
}
BENCHMARK(BM_StringRead_Baseline_Direct);

void BM_OrderBsonRoundTrip(benchmark::State& state) {
    COrderDetailPtr o = makeOrder();
    size_t bytes = 0;
    for (auto _ : state) {
        bson::BSONObj doc = o->toBson();
        IDataPtr back = TypeManager::instance().parse(doc);
        bytes = doc.objsize();
        benchmark::DoNotOptimize(back.get());
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_OrderBsonRoundTrip);

void BM_OrderBsonRoundTrip_ThroughStoredBytes(benchmark::State& state) {
    COrderDetailPtr o = makeOrder();
    size_t bytes = 0;
    for (auto _ : state) {
        const std::string stored = o->toBson().bytes();
        std::string reason;
        IDataPtr back = TypeManager::instance().parse(bson::BSONObj::fromBytes(stored, &reason));
        bytes = stored.size();
        benchmark::DoNotOptimize(back.get());
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_OrderBsonRoundTrip_ThroughStoredBytes);

void BM_OrderBsonRoundTrip_Baseline_Memcpy(benchmark::State& state) {
    COrderDetailPtr o = makeOrder();
    const std::string src = o->toBson().bytes();
    std::vector<char> a(src.size()), b(src.size());
    for (auto _ : state) {
        memcpy(a.data(), src.data(), src.size());
        benchmark::ClobberMemory();
        memcpy(b.data(), a.data(), a.size());
        benchmark::DoNotOptimize(b.data());
    }
    state.counters["bytes"] = static_cast<double>(src.size());
}
BENCHMARK(BM_OrderBsonRoundTrip_Baseline_Memcpy);

void BM_OrderBsonRoundTrip_Baseline_AllocCopy(benchmark::State& state) {
    // A fairer floor for a serialiser: allocate the output and copy the bytes out and back.
    COrderDetailPtr o = makeOrder();
    const std::string src = o->toBson().bytes();
    for (auto _ : state) {
        std::string out(src);
        std::string back(out);
        benchmark::DoNotOptimize(back.data());
    }
}
BENCHMARK(BM_OrderBsonRoundTrip_Baseline_AllocCopy);

}  // namespace

BENCHMARK_MAIN();
