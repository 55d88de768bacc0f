// Account store hot paths, each beside the bare work it cannot avoid, in the same run:
//   updateData of a realistic push mix           vs  the same records into nested std::maps with
//     (registered, initialised store; one            the order and deal indexes and one
//      whole-kind subscriber per kind; a data-       std::function call per record
//      center listener)
//   flushDatas of 100,000 cached records         vs  sorting the same 100,000 (kind, key) pairs
//   getUnDealVolume over 10,000 orders           vs  the same sum, by the same completion rule, over
//                                                    a bare std::map of orders
//   getOrderById                                 vs  a bare std::map look-up
// Targets: updateData at least half the baseline's throughput; flushDatas within 3x of the sort.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "base/TraderCenter.h"
#include "base/data/CAccountData.h"
#include "base/data/COrderDetailHelper.h"
#include "net/RPCEngine.h"
#include "testing/FakeDataCenter.h"
#include "testing/RecordBuilders.h"

using namespace ttservice;

namespace {

const int kMixSize = 10000;

std::string padded(const char* prefix, int n, int width) {
    std::string digits = std::to_string(n);
    return prefix + std::string(width > static_cast<int>(digits.size()) ? width - digits.size() : 0, '0') +
           digits;
}

// A push mix of kMixSize records: 40% orders (status updates of 1,000 live orders), 40% deals (new
// trades), 15% positions (100 positions revalued) and 5% account details (one account).
std::vector<IDataPtr> makeMix(const CAccountInfoPtr& info) {
    std::vector<IDataPtr> mix;
    mix.reserve(kMixSize);
    for (int i = 0; i < kMixSize; ++i) {
        const int slot = i % 20;
        if (slot < 8) {
            const int order = (i * 7) % 1000;
            mix.push_back(test::OrderBuilder()
                              .account(info)
                              .sysId(padded("      ", order, 6))
                              .ref(padded("", order, 12))
                              .instrument(padded("rb25", order % 12, 2))
                              .tag(padded("tag", order, 8))
                              .volume(10)
                              .traded(i % 10)
                              .frozenMargin(3500.0 * (10 - i % 10))
                              .build());
        } else if (slot < 16) {
            mix.push_back(test::DealBuilder()
                              .account(info)
                              .tradeId(padded("T", i, 10))
                              .orderSysId(padded("      ", (i * 7) % 1000, 6))
                              .volume(1)
                              .build());
        } else if (slot < 19) {
            mix.push_back(test::PositionBuilder()
                              .account(info)
                              .instrument(padded("rb25", i % 100, 2))
                              .volume(5)
                              .build());
        } else {
            mix.push_back(test::makeAccountDetail(info, 1e6 + i));
        }
    }
    return mix;
}

// A registered, initialised store with one whole-kind subscriber per kind of the mix and a
// data-center listener; its timer is off. Released by release() (cancels the timer's wait).
struct LiveStore {
    boost::shared_ptr<test::FakeDataCenter> center = boost::make_shared<test::FakeDataCenter>();
    CAccountInfoPtr info = test::makeAccountInfo();
    CAccountDataPtr store = boost::make_shared<CAccountData>(CAccountData::UPDATE_INTERVAL_DISABLED);
    std::vector<SubRequestPtr> subs;
    boost::shared_ptr<void> listener;
    size_t seen = 0;

    LiveStore() {
        TraderCenter::instance()->reset();
        TraderCenter::instance()->setDataCenter(center);
        center->setRecording(false);
        store->setAccountInfo(info);
        center->addAccount(info->getKey(), store);
        for (int kind : {542, 543, 544, 545})
            subs.push_back(store->subscribe(kind, "", [this](const IDataPtr&) { ++seen; }));
        listener = center->addAccountDataListener(
            [this](const CAccountInfoPtr&, const IDataPtr&, const TTError&) { ++seen; },
            AccountDatasCallback());
        store->setInitialized(true);
    }
    ~LiveStore() {
        subs.clear();
        center->clearAccounts();
        store->clear();
        net::RPCEngine::instance()->poll();
        store.reset();
        TraderCenter::instance()->reset();
    }
};

void BM_UpdateData_Store(benchmark::State& state) {
    LiveStore live;
    const std::vector<IDataPtr> mix = makeMix(live.info);
    for (const IDataPtr& d : mix) live.store->updateData(d, false);  // steady state: keys known
    for (auto _ : state) {
        for (const IDataPtr& d : mix) live.store->updateData(d, false);
    }
    state.SetItemsProcessed(state.iterations() * mix.size());
    benchmark::DoNotOptimize(live.seen);
}
BENCHMARK(BM_UpdateData_Store)->Unit(benchmark::kMicrosecond);

void BM_UpdateData_Baseline(benchmark::State& state) {
    const std::vector<IDataPtr> mix = makeMix(test::makeAccountInfo());
    std::map<int, std::map<std::string, IDataPtr> > datas;
    std::map<std::string, IDataPtr> bySysId, byTag;
    std::map<std::string, std::map<std::string, IDataPtr> > dealsByOrder;
    size_t seen = 0;
    const std::function<void(const IDataPtr&)> callback = [&seen](const IDataPtr&) { ++seen; };
    auto file = [&](const IDataPtr& d) {
        const int kind = d->getKind();
        const std::string key = d->getKey();
        datas[kind][key] = d;
        if (kind == 542) {
            const COrderDetail& o = static_cast<const COrderDetail&>(*d);
            bySysId[o.m_strOrderSysID] = d;
            if (o.m_tag) byTag[o.m_tag->getKey()] = d;
        } else if (kind == 544) {
            dealsByOrder[static_cast<const CDealDetail&>(*d).m_strOrderSysID][key] = d;
        }
        callback(d);
    };
    for (const IDataPtr& d : mix) file(d);
    for (auto _ : state) {
        for (const IDataPtr& d : mix) file(d);
    }
    state.SetItemsProcessed(state.iterations() * mix.size());
    benchmark::DoNotOptimize(seen);
}
BENCHMARK(BM_UpdateData_Baseline)->Unit(benchmark::kMicrosecond);

// 100,000 records of distinct (kind, key): orders, deals, positions and one account detail.
std::vector<IDataPtr> makeCacheLoad(const CAccountInfoPtr& info) {
    std::vector<IDataPtr> load;
    const int n = 100000;
    load.reserve(n);
    for (int i = 0; i < n - 1; ++i) {
        switch (i % 3) {
            case 0:
                load.push_back(test::OrderBuilder().account(info).sysId(padded("      ", i, 6)).build());
                break;
            case 1:
                load.push_back(test::DealBuilder().account(info).tradeId(padded("T", i, 10)).build());
                break;
            default:
                load.push_back(test::PositionBuilder().account(info).instrument(padded("i", i, 6)).build());
                break;
        }
    }
    load.push_back(test::makeAccountDetail(info));
    std::reverse(load.begin(), load.end());  // arrival order is not the replay order
    return load;
}

void BM_FlushDatas_100k(benchmark::State& state) {
    LiveStore live;
    live.subs.clear();
    const std::vector<IDataPtr> load = makeCacheLoad(live.info);
    for (auto _ : state) {
        state.PauseTiming();
        for (const IDataPtr& d : load) live.store->updateData(d, true);
        state.ResumeTiming();
        live.store->flushDatas();
    }
    state.SetItemsProcessed(state.iterations() * load.size());
}
BENCHMARK(BM_FlushDatas_100k)->Unit(benchmark::kMillisecond)->Iterations(20);

void BM_FlushDatas_Baseline_SortPairs(benchmark::State& state) {
    const std::vector<IDataPtr> load = makeCacheLoad(test::makeAccountInfo());
    std::vector<std::pair<int, std::string> > pairs;
    for (const IDataPtr& d : load) pairs.emplace_back(d->getKind(), d->getKey());
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<std::pair<int, std::string> > work = pairs;
        state.ResumeTiming();
        std::sort(work.begin(), work.end());
        benchmark::DoNotOptimize(work.data());
    }
    state.SetItemsProcessed(state.iterations() * pairs.size());
}
BENCHMARK(BM_FlushDatas_Baseline_SortPairs)->Unit(benchmark::kMillisecond)->Iterations(20);

// 10,000 orders over 100 instruments, a third of them finished.
std::vector<COrderDetailPtr> makeOrders(const CAccountInfoPtr& info) {
    std::vector<COrderDetailPtr> orders;
    for (int i = 0; i < 10000; ++i)
        orders.push_back(test::OrderBuilder()
                             .account(info)
                             .sysId(padded("      ", i, 6))
                             .instrument(padded("rb25", i % 100, 2))
                             .direction(i % 2 ? '1' : '0')
                             .status(i % 3 == 0 ? '6' : '2')
                             .volume(10)
                             .traded(i % 4)
                             .build());
    return orders;
}

void BM_GetUnDealVolume_Store(benchmark::State& state) {
    LiveStore live;
    const std::vector<COrderDetailPtr> orders = makeOrders(live.info);
    for (const COrderDetailPtr& o : orders) live.store->updateData(o, false);
    int buy = 0, sell = 0;
    for (auto _ : state) {
        live.store->getUnDealVolume("rb2507", buy, sell);
        benchmark::DoNotOptimize(buy + sell);
    }
}
BENCHMARK(BM_GetUnDealVolume_Store)->Unit(benchmark::kMicrosecond);

void BM_GetUnDealVolume_Baseline(benchmark::State& state) {
    const std::vector<COrderDetailPtr> orders = makeOrders(test::makeAccountInfo());
    std::map<std::string, COrderDetailPtr> byKey;
    for (const COrderDetailPtr& o : orders) byKey[o->getKey()] = o;
    for (auto _ : state) {
        int buy = 0, sell = 0;
        for (const auto& kv : byKey) {
            const COrderDetail& o = *kv.second;
            if (o.m_strInstrumentID != "rb2507") continue;
            if (o.m_nVolumeTraded == 0 && COrderDetailHelper::completed(o)) continue;
            (o.m_nDirection == '0' ? buy : sell) += o.m_nVolumeTotalOriginal - o.m_nVolumeTraded;
        }
        benchmark::DoNotOptimize(buy + sell);
    }
}
BENCHMARK(BM_GetUnDealVolume_Baseline)->Unit(benchmark::kMicrosecond);

void BM_GetOrderById_Store(benchmark::State& state) {
    LiveStore live;
    const std::vector<COrderDetailPtr> orders = makeOrders(live.info);
    for (const COrderDetailPtr& o : orders) live.store->updateData(o, false);
    std::vector<std::string> ids;
    for (int i = 0; i < 10000; i += 37) ids.push_back(orders[i]->m_strOrderSysID);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(live.store->getOrderById(ids[i]));
        if (++i == ids.size()) i = 0;
    }
}
BENCHMARK(BM_GetOrderById_Store);

void BM_GetOrderById_Baseline(benchmark::State& state) {
    const std::vector<COrderDetailPtr> orders = makeOrders(test::makeAccountInfo());
    std::map<std::string, COrderDetailPtr> bySysId;
    for (const COrderDetailPtr& o : orders) bySysId[o->m_strOrderSysID] = o;
    std::vector<std::string> ids;
    for (int i = 0; i < 10000; i += 37) ids.push_back(orders[i]->m_strOrderSysID);
    size_t i = 0;
    for (auto _ : state) {
        std::map<std::string, COrderDetailPtr>::const_iterator it = bySysId.find(ids[i]);
        COrderDetailPtr found = it == bySysId.end() ? COrderDetailPtr() : it->second;
        benchmark::DoNotOptimize(found);
        if (++i == ids.size()) i = 0;
    }
}
BENCHMARK(BM_GetOrderById_Baseline);

}  // namespace

BENCHMARK_MAIN();
