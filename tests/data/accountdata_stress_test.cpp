// Two threads push into one store while a third subscribes, reads under Lock, clears, (un)initialises
// and caches; phase 2 re-pushes under a snapshot subscriber. Every final version must be filed once,
// indexed, seen rising and delivered. Run under ThreadSanitizer too.
#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "testing/StoreTestFixture.h"

namespace ttservice {
namespace {

using test::DealBuilder;
using test::OrderBuilder;
using test::PositionBuilder;

const int kOrders = 200, kPositions = 30, kReaderLoops = 40;
const int kPhase1Rounds = 5, kPhase1MaxRounds = 999;  // at least 5, more until the reader is warm
const int kPhase2Rounds = 3, kPhase2Version = 1000;   // above every phase-1 version

class AccountDataStressTest : public test::StoreTestFixture {};

std::string orderId(char thread, int i) {
    return std::string(1, thread) + "-o-" + std::to_string(i);
}
std::string tradeId(char thread, int i) {
    return std::string(1, thread) + "-d-" + std::to_string(i);
}

void pushRound(const CAccountDataPtr& store, char thread, int version, const CAccountInfoPtr& info) {
    for (int i = 0; i < kOrders; ++i) {
        const std::string id = orderId(thread, i), instrument = std::string("p") + thread + std::to_string(i);
        store->updateData(OrderBuilder().account(info).sysId(id).tag(id).volume(1000).traded(version).build(),
                          false);
        store->updateData(
            DealBuilder().account(info).tradeId(tradeId(thread, i)).orderSysId(id).volume(version).build(),
            false);
        if (i < kPositions)
            store->updateData(PositionBuilder().account(info).instrument(instrument).volume(version).build(),
                              false);
    }
}

TEST_F(AccountDataStressTest, TwoPushersAndAReaderLeaveEveryRecordFiledOnceWithAgreeingIndexes) {
    CAccountDataPtr store = makeStore(2147483647);
    store->setInitialized(true);
    std::atomic<int> phase1Done{0}, roundsPushed{0};  // rounds: by both pushers, both phases
    std::atomic<bool> readerWarm{false}, phase2Go{false};

    // What the snapshot subscriber of phase 2 saw: versions per order key.
    std::mutex seenMutex;
    std::map<std::string, std::vector<int> > seen;
    SubRequestPtr snapshotSub;

    std::thread reader([&] {
        int loop = 0;
        const DataCallback ignore = [](const IDataPtr&) {};
        while (phase1Done.load() < 2 || loop < kReaderLoops) {
            ++loop;
            if (loop == kReaderLoops) readerWarm = true;
            SubRequestPtr a = store->subscribe(542, "", ignore, loop % 2 == 0);
            SubRequestPtr b = store->subscribe(544, tradeId('A', loop % kOrders), ignore);
            {
                CAccountData::Lock lock(store);
                store->getVector(542);
                for (const auto& kv : store->getMapDataRef(544)) (void)kv;
            }
            int buy = 0, sell = 0;
            store->getUnDealVolume("rb2501", buy, sell);
            store->getOrderById(orderId('B', loop % kOrders));
            store->checkIndexes(nullptr);
            if (loop % 10 == 0) store->clear();
            if (loop % 7 == 0) store->setInitialized(loop % 2 == 0);
            std::this_thread::yield();
        }
        store->clear();
        store->setInitialized(true);
        m_dataCenter->clearReceived();
        snapshotSub = store->subscribe(
            542, "",
            [&](const IDataPtr& d) {
                std::lock_guard<std::mutex> lock(seenMutex);
                seen[d->getKey()].push_back(boost::static_pointer_cast<COrderDetail>(d)->m_nVolumeTraded);
            },
            true);
        phase2Go = true;
        while (phase1Done.load() < 4) {
            ++loop;
            SubRequestPtr a = store->subscribe(545, "", ignore, loop % 2 == 0);
            {
                CAccountData::Lock lock(store);
                for (const auto& kv : store->getMapDataRef(542)) (void)kv;
            }
            store->getVector(544);
            store->checkIndexes(nullptr);
            if (loop % 5 == 0) store->startCacheDatas();
            if (loop % 5 == 2) store->flushDatas();
            std::this_thread::yield();
        }
    });

    auto pusher = [&](char thread) {
        int round = 1;
        for (; round <= kPhase1Rounds || (!readerWarm.load() && round <= kPhase1MaxRounds); ++round)
            pushRound(store, thread, round, m_info);
        roundsPushed += round - 1;
        ++phase1Done;
        while (!phase2Go.load()) std::this_thread::yield();
        for (round = 1; round <= kPhase2Rounds; ++round)
            pushRound(store, thread, kPhase2Version + round, m_info);
        roundsPushed += kPhase2Rounds;
        ++phase1Done;
    };
    std::thread a(pusher, 'A'), b(pusher, 'B');
    a.join();
    b.join();
    reader.join();
    store->flushDatas();

    const int finalVersion = kPhase2Version + kPhase2Rounds;
    ASSERT_EQ(static_cast<size_t>(2 * kOrders), store->getVector(542).size());
    ASSERT_EQ(static_cast<size_t>(2 * kOrders), store->getVector(544).size());
    EXPECT_EQ(static_cast<size_t>(2 * kPositions), store->getVector(545).size());

    // Which (key, version) reached the data center, one by one or in a replay.
    std::set<std::pair<std::string, int> > delivered;
    std::vector<IDataPtr> forwarded;
    for (const auto& r : m_dataCenter->received()) forwarded.push_back(r.data);
    for (const auto& batch : m_dataCenter->batches())
        forwarded.insert(forwarded.end(), batch.datas.begin(), batch.datas.end());
    for (const IDataPtr& d : forwarded)
        if (d && d->getKind() == 542)
            delivered.insert({d->getKey(), boost::static_pointer_cast<COrderDetail>(d)->m_nVolumeTraded});

    for (char thread : {'A', 'B'}) {
        for (int i = 0; i < kOrders; ++i) {
            const std::string id = orderId(thread, i);
            COrderDetailPtr order = store->getOrderById(id);
            ASSERT_TRUE(order) << id;
            EXPECT_EQ(finalVersion, order->m_nVolumeTraded) << id;
            EXPECT_EQ(order, store->getOrderDetail(order->getKey())) << id;
            EXPECT_EQ(order, store->getOrderByNqTag(order->m_tag)) << id;
            std::vector<CDealDetailPtr> orderDeals;
            store->getDeals(order, orderDeals);
            ASSERT_EQ(1u, orderDeals.size()) << id;
            EXPECT_EQ(finalVersion, orderDeals[0]->m_nVolume) << id;
            EXPECT_EQ(1u, delivered.count({order->getKey(), finalVersion})) << id;

            std::lock_guard<std::mutex> lock(seenMutex);
            const std::vector<int>& versions = seen[order->getKey()];
            ASSERT_FALSE(versions.empty()) << id;
            for (size_t v = 1; v < versions.size(); ++v) EXPECT_LT(versions[v - 1], versions[v]) << id;
            EXPECT_EQ(finalVersion, versions.back()) << id;
        }
    }

    const CAccountDataStats stats = store->getStatistics();
    const uint64_t pushesPerKind = static_cast<uint64_t>(kOrders) * roundsPushed.load();
    EXPECT_EQ(pushesPerKind, stats.filed(542));
    EXPECT_EQ(pushesPerKind, stats.filed(544));
    std::string report;
    EXPECT_TRUE(store->checkIndexes(&report)) << report;
}

}  // namespace
}  // namespace ttservice
