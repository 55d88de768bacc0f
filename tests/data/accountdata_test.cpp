// The account store: filing, indexes, subscriptions, forwarding, look-ups, tradable volume, bad input.
// Push cache, initialisation and price refresh: accountdata_cache_test.cpp; threads: *_stress_test.cpp.
#include <boost/make_shared.hpp>
#include <chrono>
#include <future>
#include <map>
#include <mutex>
#include <thread>
#include <tuple>

#include "base/data/CostData.h"
#include "testing/LogCapture.h"
#include "testing/StoreTestFixture.h"

namespace ttservice {
namespace {

using test::DealBuilder;
using test::OrderBuilder;
using test::PositionBuilder;
typedef std::vector<std::string> Keys;

class AccountDataTest : public test::StoreTestFixture {
protected:
    static COrderDetailPtr order(const std::string& sysId) { return OrderBuilder().sysId(sysId).build(); }
    static CDealDetailPtr deal(const std::string& tradeId, const std::string& orderSysId) {
        return DealBuilder().tradeId(tradeId).orderSysId(orderSysId).build();
    }
    static void put(const CAccountDataPtr& store, std::initializer_list<IDataPtr> records) {
        for (const IDataPtr& r : records) store->updateData(r, false);
    }
    static void expectIndexesAgree(const CAccountDataPtr& store, const char* when) {
        std::string report;
        EXPECT_TRUE(store->checkIndexes(&report)) << when << ":\n" << report;
    }
    // The keys of the records of `kind`, in key order.
    static Keys keys(const CAccountDataPtr& store, int kind) {
        Keys out;
        for (const IDataPtr& d : store->getVector(kind)) out.push_back(d->getKey());
        return out;
    }
    // The trade ids that getDeals(orderSysId, "SHFE") finds.
    static Keys dealIds(const CAccountDataPtr& store, const std::string& orderSysId) {
        std::vector<CDealDetailPtr> deals;
        store->getDeals(orderSysId, "SHFE", deals);
        Keys out;
        for (const CDealDetailPtr& d : deals) out.push_back(d->m_strTradeID);
        return out;
    }
    // A callback that collects what it is given.
    static DataCallback into(std::vector<IDataPtr>& seen) {
        return [&seen](const IDataPtr& d) { seen.push_back(d); };
    }
};

// Each record is filed and counted under its kind and key; an empty key notifies its kind once.
TEST_F(AccountDataTest, RecordsAreFiledUnderTheirKindAndKey) {
    CAccountDataPtr store = makeStore();
    boost::shared_ptr<CFtAccountDetail> ftDetail = boost::make_shared<CFtAccountDetail>();
    ftDetail->m_strAccountKey = "ft";
    boost::shared_ptr<CAccountSummary> summary = boost::make_shared<CAccountSummary>();
    summary->m_strAccountKey = "sum";
    boost::shared_ptr<CPortfolio> portfolio = boost::make_shared<CPortfolio>();
    portfolio->m_strName = "p";
    portfolio->m_nPortfolioID = 7;
    std::vector<IDataPtr> summaries, orders;
    SubRequestPtr s1 = store->subscribe(555, "", into(summaries));
    SubRequestPtr s2 = store->subscribe(542, "", into(orders));
    SubRequestPtr s3 = store->subscribe(542, "SHFE_11", into(orders));
    const struct {
        IDataPtr record;
        int kind;
        std::string key;
    } cases[] = {
        {order("11"), 542, "SHFE_11"},
        {test::makeAccountDetail(m_info), 543, "20001_880001"},
        {ftDetail, 543, "ft"},  // a subclass is filed under its base's kind
        {DealBuilder().tradeId("T9").direction('1').build(), 544, "SHFE_T9_1"},
        {PositionBuilder().build(), 545, "SHFE_rb2501_0_1"},
        {summary, 555, "sum"},
        {boost::make_shared<CAccountSummary>(), 555, ""},
        {test::makeExchangeStatus("SHFE", '2'), 570, "SHFE"},
        {portfolio, 9014, "p_7"},  // a kind the store does not know: filed and published only
    };
    for (const auto& c : cases) {
        store->updateData(c.record, false);
        EXPECT_EQ(c.record, store->getData(c.kind, c.key)) << c.kind << " " << c.key;
    }
    EXPECT_EQ(2u, summaries.size());
    EXPECT_EQ(2u, orders.size());
    const CAccountDataStats st = store->getStatistics();  // notifications; filed: 542, 543, other, total
    EXPECT_EQ(std::make_tuple(4u, 1u, 2u, 1u, 1u, 9u),
              std::make_tuple(st.m_nNotifications, st.filed(542), st.filed(543), st.filed(9014),
                              st.m_nFiled[CAccountDataStats::KNOWN_KIND_COUNT], st.filedTotal()));
    EXPECT_EQ((Keys{"20001_880001", "ft"}), keys(store, 543));
    EXPECT_EQ(test::makeAccountDetail(m_info)->getKey(), store->getAccountDetail()->getKey());
    EXPECT_TRUE(store->getData(4242, "x") == nullptr);
    ASSERT_EQ(1u, store->getVector(567).size());  // the calculation info, filed at construction
    EXPECT_EQ(store->getCalcInfo(), store->getVector(567)[0]);
    expectIndexesAgree(store, "after filing");
}

// A replaced record is re-indexed and heard once per subscriber; a released request stops alone.
TEST_F(AccountDataTest, ReplacementReindexesAndNotifiesEachSubscriberOnce) {
    CAccountDataPtr store = makeStore();
    std::vector<IDataPtr> byKey, byKind, other, byKeyToo;
    SubRequestPtr s1 = store->subscribe(542, "SHFE_1", into(byKey));
    SubRequestPtr s2 = store->subscribe(542, "", into(byKind));
    SubRequestPtr s3 = store->subscribe(544, "", into(other));
    COrderDetailPtr second = OrderBuilder().sysId("1").tag("tagA").traded(4).build();
    put(store, {OrderBuilder().sysId("1").tag("tagA").build(), second});
    EXPECT_EQ(Keys{"SHFE_1"}, keys(store, 542));
    EXPECT_EQ(second, store->getOrderDetail("SHFE_1"));
    EXPECT_EQ(second, store->getOrderById("1"));
    EXPECT_EQ(second, store->getOrderByNqTag(second->m_tag));
    EXPECT_EQ(2u, byKey.size());
    EXPECT_EQ(0u, other.size());
    ASSERT_EQ(2u, byKind.size());
    EXPECT_EQ(second, byKind[1]);
    expectIndexesAgree(store, "after replacement");

    SubRequestPtr s4 = store->subscribe(542, "SHFE_1", into(byKeyToo));
    s1.reset();
    put(store, {order("1")});
    EXPECT_EQ(2u, byKey.size());
    EXPECT_EQ(1u, byKeyToo.size());
    EXPECT_EQ(3u, byKind.size());
    s4.reset();
    put(store, {order("1")});
    EXPECT_EQ(1u, byKeyToo.size());
}

// A subscriber may take the store lock from another thread while its callback runs.
TEST_F(AccountDataTest, SubscribersRunWithoutTheStoreLock) {
    CAccountDataPtr store = makeStore();
    bool otherThreadGotLock = false;
    SubRequestPtr s = store->subscribe(542, "", [&](const IDataPtr&) {
        std::promise<void> locked;
        std::thread t([&] {
            CAccountData::Lock lock(store);
            locked.set_value();
        });
        otherThreadGotLock =
            locked.get_future().wait_for(std::chrono::seconds(5)) == std::future_status::ready;
        t.join();
    });
    put(store, {OrderBuilder().build()});
    EXPECT_TRUE(otherThreadGotLock);
}

// Always filed and published; forwarded or cached only when registered, initialised, with a data center.
TEST_F(AccountDataTest, ForwardingAndCachingRules) {
    const struct {
        const char* what;
        bool registered, withInfo, initialised, cacheOnly, caching, noDataCenter;
        size_t forwarded, cached;
    } cases[] = {
        {"not registered, not initialised", false, true, false, false, false, false, 0, 0},
        {"registered, not initialised", true, true, false, false, false, false, 0, 0},
        {"initialised but not registered", false, true, true, false, false, false, 0, 0},
        {"registered, initialised", true, true, true, false, false, false, 1, 0},
        {"registered, initialised, cache only", true, true, true, true, false, false, 0, 1},
        {"registered, initialised, caching", true, true, true, false, true, false, 0, 1},
        {"registered without account info", true, false, true, false, false, false, 0, 0},
        {"not initialised, cache only", true, true, false, true, false, false, 0, 0},
        {"no data center", true, true, true, false, false, true, 0, 0},
    };
    for (const auto& c : cases) {
        m_dataCenter->clearReceived();
        CAccountDataPtr store = boost::make_shared<CAccountData>(1000);
        m_stores.push_back(store);
        if (c.withInfo) store->setAccountInfo(m_info);
        m_dataCenter->addAccount(m_info->getKey(), c.registered ? store : CAccountDataPtr());
        if (c.initialised) store->setInitialized(true);
        if (c.caching) store->startCacheDatas();
        if (c.noDataCenter) TraderCenter::instance()->setDataCenter(IDataCenterPtr());
        std::vector<IDataPtr> subscriber;
        SubRequestPtr s = store->subscribe(542, "", into(subscriber));
        COrderDetailPtr order = OrderBuilder().account(m_info).build();
        store->updateData(order, c.cacheOnly);

        EXPECT_EQ(order, store->getOrderDetail(order->getKey())) << c.what;
        EXPECT_EQ(1u, subscriber.size()) << c.what;
        EXPECT_EQ(c.forwarded, m_dataCenter->receivedCount()) << c.what;
        EXPECT_EQ(c.forwarded, store->getStatistics().m_nForwarded) << c.what;
        EXPECT_EQ(c.cached, store->getStatistics().m_nCached) << c.what;
        if (c.forwarded == 1) {
            const test::FakeDataCenter::Received r = m_dataCenter->received()[0];
            EXPECT_EQ(m_info, r.account);
            EXPECT_EQ(order, r.data);
            EXPECT_FALSE(r.error.isError());
        }
        store->flushDatas();
        TraderCenter::instance()->setDataCenter(m_dataCenter);
    }
}

// removeOrder and reomveDeals cross over: each leaves one index entry behind, deliberately.
TEST_F(AccountDataTest, RemovalsCrossOverDeliberately) {
    CAccountDataPtr store = makeStore();
    put(store, {OrderBuilder().account(m_info).sysId("A").tag("tA").frozenMargin(1500).build(),
                OrderBuilder().account(m_info).sysId("B").tag("tB").direction('1').frozenMargin(700).build(),
                deal("a1", "A"), deal("a2", "A"), deal("b1", "B")});
    EXPECT_EQ(1500.0, store->getProductLongMargin("rb"));
    EXPECT_EQ(700.0, store->getProductShortMargin("rb"));
    expectIndexesAgree(store, "before removals");

    // removeOrder: the order leaves the records, the tag index, the margin sums and its deal
    // group; getOrderById still finds it and its deal records stay.
    store->removeOrder("A");
    EXPECT_EQ(Keys{"SHFE_B"}, keys(store, 542));
    EXPECT_FALSE(store->getOrderByNqTag(OrderBuilder().tag("tA").build()->m_tag));
    ASSERT_TRUE(store->getOrderById("A"));
    EXPECT_EQ("A", store->getOrderById("A")->m_strOrderSysID);
    EXPECT_TRUE(dealIds(store, "A").empty());
    EXPECT_EQ((Keys{"SHFE_a1_0", "SHFE_a2_0", "SHFE_b1_0"}), keys(store, 544));
    EXPECT_EQ(0.0, store->getProductLongMargin("rb"));
    EXPECT_EQ(700.0, store->getProductShortMargin("rb"));
    expectIndexesAgree(store, "after removeOrder");

    // reomveDeals: the deals leave the records, getDeals still finds them, getOrderById does not.
    store->reomveDeals("B");
    EXPECT_EQ((Keys{"SHFE_a1_0", "SHFE_a2_0"}), keys(store, 544));
    EXPECT_EQ(Keys{"b1"}, dealIds(store, "B"));
    EXPECT_FALSE(store->getOrderById("B"));
    EXPECT_EQ(Keys{"SHFE_B"}, keys(store, 542));
    expectIndexesAgree(store, "after reomveDeals");

    // The empty id is an id like any other for both removals.
    put(store, {OrderBuilder().sysId("").ref("local-1").build(), deal("z1", "")});
    store->removeOrder("");
    EXPECT_EQ(Keys{"SHFE_B"}, keys(store, 542));
    EXPECT_TRUE(dealIds(store, "").empty());
    EXPECT_TRUE(store->getData(544, "SHFE_z1_0"));
    expectIndexesAgree(store, "after removeOrder of the empty id");
    store->reomveDeals("");
    EXPECT_EQ((Keys{"SHFE_a1_0", "SHFE_a2_0"}), keys(store, 544));
    expectIndexesAgree(store, "after reomveDeals of the empty id");

    put(store, {OrderBuilder().sysId("B").tag("tB").traded(1).build()});  // brings the id entry back
    EXPECT_TRUE(store->getOrderById("B"));
    expectIndexesAgree(store, "after a new push");
}

// Commands and tasks dated before the trade date go; that date itself and tasks without a command stay.
TEST_F(AccountDataTest, ClearExpiredDatasKeepsTheTradeDateItself) {
    CAccountDataPtr store = makeStore();
    const char* dates[] = {"20250101", "20250102", "20250103", ""};  // command i + 1, task 101 + i
    for (int i = 0; i < 4; ++i) {
        COrderCommandPtr command = boost::make_shared<COrderCommand>();
        command->m_nID = i + 1;
        command->m_strDate = dates[i];
        boost::shared_ptr<CTaskDetail> task = boost::make_shared<CTaskDetail>();
        task->m_nTaskID = 101 + i;
        task->m_command = command;
        put(store, {command, task});
    }
    boost::shared_ptr<CTaskDetail> noCommand = boost::make_shared<CTaskDetail>();
    noCommand->m_nTaskID = 99;
    put(store, {noCommand});
    store->clearExpiredDatas("20250102");
    EXPECT_EQ((Keys{"2", "3"}), keys(store, 535));
    EXPECT_EQ((Keys{"102", "103", "99"}), keys(store, 541));
}

// Empty pointers, empty ids and tag keys, orders without account info: filed or skipped, nothing lost.
TEST_F(AccountDataTest, BadInputIsFiledOrSkippedWithoutLoss) {
    CAccountDataPtr store = makeStore();
    store->setInitialized(true);
    COrderDetailPtr kept = OrderBuilder().account(m_info).sysId("K").build();
    put(store, {kept});
    store->updateData(IDataPtr(), false);
    store->updateData(IDataPtr(), true);
    store->setData(IDataPtr());
    store->removeData(IDataPtr());
    std::vector<CDealDetailPtr> none;
    store->getDeals(COrderDetailPtr(), none);
    store->getDeals(COrderInfoPtr(), none);
    EXPECT_TRUE(none.empty());
    EXPECT_FALSE(store->getOrderById(""));

    // A deal without an order id is filed and grouped under the empty id.
    put(store, {deal("x", "")});
    EXPECT_EQ(Keys{"SHFE_x_0"}, keys(store, 544));
    EXPECT_EQ(Keys{"x"}, dealIds(store, ""));

    // Tags with an empty key are indexed under "", which an empty tag looks up; the later order wins.
    EXPECT_FALSE(store->getOrderByNqTag(CNqOrderTagPtr()));
    COrderDetailPtr laterEmptyTag = OrderBuilder().account(m_info).sysId("F").tag("").build();
    put(store, {OrderBuilder().account(m_info).sysId("E").tag("").build(), laterEmptyTag});
    EXPECT_EQ(laterEmptyTag, store->getOrderByNqTag(CNqOrderTagPtr()));
    EXPECT_EQ(laterEmptyTag, store->getOrderByNqTag(boost::make_shared<CNqOrderTag>()));
    EXPECT_TRUE(store->getOrderById("E"));
    expectIndexesAgree(store, "with empty keys indexed");
    store->removeOrder("F");  // takes the shared entry; the other order stays filed
    EXPECT_FALSE(store->getOrderByNqTag(CNqOrderTagPtr()));
    expectIndexesAgree(store, "after removing one of two orders sharing a tag key");

    // An order without account info is filed and indexed; it is never complete, so it counts.
    put(store, {OrderBuilder().sysId("N").status('6').volume(5).build()});
    EXPECT_TRUE(store->getOrderById("N"));
    int buy = 0, sell = 0;
    store->getUnDealVolume("rb2501", buy, sell);
    EXPECT_EQ(10 + 10 + 5, buy);
    EXPECT_EQ(kept, store->getOrderById("K"));
    EXPECT_EQ((Keys{"SHFE_E", "SHFE_K", "SHFE_N"}), keys(store, 542));
    expectIndexesAgree(store, "after bad input");
}

// A snapshot subscriber gets the records in key order, then each update once; plain subscribe no snapshot.
TEST_F(AccountDataTest, SnapshotSubscriptionDeliversCurrentRecordsThenUpdates) {
    CAccountDataPtr store = makeStore();
    put(store, {order("2"), order("1"), PositionBuilder().build()});
    std::vector<IDataPtr> one, plain;
    Keys seen;
    SubRequestPtr s1 = store->subscribe(
        542, "",
        [&](const IDataPtr& d) {
            seen.push_back(d->getKey());
            if (seen.size() == 1) put(store, {order("3")});
        },
        true);
    SubRequestPtr s2 = store->subscribe(542, "SHFE_2", into(one), true);
    SubRequestPtr s3 = store->subscribe(542, "", into(plain), false);
    EXPECT_EQ((Keys{"SHFE_1", "SHFE_2", "SHFE_3"}), seen);
    EXPECT_EQ(1u, one.size());
    EXPECT_EQ(0u, plain.size());
    put(store, {OrderBuilder().sysId("2").traded(1).build()});
    EXPECT_EQ(4u, seen.size());
    EXPECT_EQ(2u, one.size());
    EXPECT_EQ(1u, plain.size());
}

// Racing a pusher, a snapshot subscriber sees each key's versions rising, gap-free, up to the last.
TEST_F(AccountDataTest, SnapshotSubscriptionRacingUpdatesLosesAndDoublesNothing) {
    const int kKeys = 8, kVersions = 300;
    for (int round = 0; round < 20; ++round) {
        CAccountDataPtr store = makeStore();
        std::atomic<bool> started{false};
        std::thread pusher([&] {
            for (int v = 1; v <= kVersions; ++v) {
                for (int k = 0; k < kKeys; ++k)
                    put(store,
                        {OrderBuilder().sysId(std::to_string(k)).volume(kVersions + 1).traded(v).build()});
                if (v == 20) started = true;
            }
        });
        while (!started) std::this_thread::yield();
        std::map<std::string, std::vector<int> > seen;
        std::mutex seenMutex;
        SubRequestPtr s = store->subscribe(
            542, "",
            [&](const IDataPtr& d) {
                std::lock_guard<std::mutex> lock(seenMutex);
                seen[d->getKey()].push_back(boost::static_pointer_cast<COrderDetail>(d)->m_nVolumeTraded);
            },
            true);
        pusher.join();
        std::lock_guard<std::mutex> lock(seenMutex);
        ASSERT_EQ(static_cast<size_t>(kKeys), seen.size()) << "round " << round;
        for (const auto& key : seen) {
            const std::vector<int>& versions = key.second;
            for (size_t i = 1; i < versions.size(); ++i)
                ASSERT_LT(versions[i - 1], versions[i]) << key.first << " round " << round;
            EXPECT_EQ(kVersions, versions.back()) << key.first << " round " << round;
            EXPECT_EQ(static_cast<size_t>(kVersions - versions.front() + 1), versions.size()) << key.first;
        }
    }
}

// clear() ends subscriptions and empties records, margin and side tables; trade table and indexes stay.
TEST_F(AccountDataTest, ClearEndsSubscriptionsAndKeepsTheIndexes) {
    CAccountDataPtr store = makeStore();
    store->setInitialized(true);
    std::vector<IDataPtr> subscriber;
    SubRequestPtr s = store->subscribe(542, "", into(subscriber));
    put(store, {OrderBuilder().account(m_info).sysId("1").frozenMargin(1500).build(),
                test::makeExchangeStatus("SHFE", '2')});
    store->setLastSettlement({{"SHFErb2501", 3456.0}});
    store->resetPositionTradeTable({{"SHFE_rb2501", boost::make_shared<CPositionTradeTable>()}});
    store->resetFundPosTable({{"SH_510300", boost::make_shared<CStructeFundPositiondetail>()}});
    m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3500));
    put(store, {PositionBuilder().build()});
    ASSERT_FALSE(store->getPendingPriceChanges().empty());
    ASSERT_EQ(1500.0, store->getProductLongMargin("rb"));

    store->clear();
    EXPECT_FALSE(store->initialized());
    EXPECT_TRUE(store->getVector(542).empty());
    EXPECT_EQ(0.0, store->getProductLongMargin("rb"));
    EXPECT_EQ(EXCHANGE_STATUS_UNKNOWN, store->getExchangeStatus("SHFE", "rb2501"));
    EXPECT_EQ(TT_INVALID_DOUBLE, store->getLastSettlement("SHFE", "rb2501"));
    EXPECT_FALSE(store->getFundPosTable("SH_510300"));
    EXPECT_TRUE(store->getPendingPriceChanges().empty());
    EXPECT_TRUE(store->getPositionTradeTable("SHFE_rb2501"));
    EXPECT_TRUE(store->getOrderById("1"));
    put(store, {order("2")});
    EXPECT_EQ(1u, subscriber.size());
    expectIndexesAgree(store, "after clear");
}

// setData, the map accessors, getVectorInc, removeData and the cost ledger do exactly what they say.
TEST_F(AccountDataTest, PlainRecordAccessors) {
    CAccountDataPtr store = makeStore();
    store->setInitialized(true);
    std::vector<IDataPtr> subscriber;
    SubRequestPtr s = store->subscribe(542, "", into(subscriber));
    test::LogCapture log(utils::TT_LOG_INFO);
    store->setData(order("x"));
    CAccountDetailPtr detail = test::makeAccountDetail(m_info, 1234.5);
    detail->m_dAvailable = 1000;
    store->setData(detail);
    EXPECT_TRUE(store->getOrderDetail("SHFE_x"));
    EXPECT_FALSE(store->getOrderById("x"));
    EXPECT_EQ(0u, subscriber.size());
    EXPECT_EQ(0u, m_dataCenter->receivedCount());
    EXPECT_EQ(detail, store->getAccountDetail());
    EXPECT_EQ(1u,
              log.count("880001 status 0 : m_dBalance: 1234.5, m_dPreBalance: 1234.5, m_dAvailable: 1000, "
                        "m_dAssureAsset: 0, m_dEntrustAsset: 0"));
    expectIndexesAgree(store, "after setData");

    COrderDetailPtr a = order("a"), b = order("b");
    put(store, {b, a, PositionBuilder().volume(4).openCost(14000).build()});
    const CAccountData::DataMap copy = store->getMapData(542);
    CAccountData::DataMap assigned = {{"stale", a}};
    store->getMapData(542, assigned);
    EXPECT_EQ(copy, assigned);  // assigned, not merged
    ASSERT_EQ(3u, copy.size());
    EXPECT_EQ(a, copy.begin()->second);        // key order
    std::map<std::string, std::string> known;  // the caller's texts
    for (const auto& kv : copy) known[kv.first] = kv.second->toString();
    EXPECT_TRUE(store->getVectorInc(542, known).empty());
    COrderDetailPtr b2 = OrderBuilder().sysId("b").traded(1).build(), c = order("c");
    put(store, {b2, c});
    EXPECT_EQ((std::vector<IDataPtr>{b2, c}), store->getVectorInc(542, known));
    EXPECT_TRUE(store->getVectorInc(9999, known).empty());

    // A kind never filed reads as empty and leaves an empty map behind; the references are live.
    {
        CAccountData::Lock lock(store);  // recursive: the reads below take it again
        EXPECT_EQ(0u, store->getDatas().count(4242));
        EXPECT_TRUE(store->getVector(4242).empty());
        EXPECT_TRUE(store->getMapData(4243).empty());
        EXPECT_EQ(1u, store->getDatas().count(4242));
        EXPECT_EQ(1u, store->getDatas().count(4243));
        store->getMapDataRef(542).erase(a->getKey());
    }
    EXPECT_EQ((Keys{"SHFE_b", "SHFE_c", "SHFE_x"}), keys(store, 542));
    EXPECT_EQ(3u, copy.size());

    store->removeData(b2);
    store->removeData(order("never"));  // not filed: nothing happens
    EXPECT_EQ((Keys{"SHFE_c", "SHFE_x"}), keys(store, 542));
    EXPECT_EQ(b2, store->getOrderById("b"));

    EXPECT_FALSE(store->getCostData());
    store->initCostData("20250102");  // seeded from the positions
    ASSERT_TRUE(store->getCostData());
    EXPECT_EQ(4, store->getCostData()->getVolume("SHFErb2501", '0'));
    EXPECT_DOUBLE_EQ(3500.0, store->getCostData()->getAverageCost("SHFErb2501", '0'));
}

// Deals by order id and exchange in key order, order by order; orders by exchange and instrument.
TEST_F(AccountDataTest, DealsOfOrdersByIdAndExchange) {
    CAccountDataPtr store = makeStore();
    COrderDetailPtr order7 = order("7");
    put(store, {order7, OrderBuilder().sysId("8").instrument("rb2505").build(),
                DealBuilder().tradeId("2").orderSysId("7").volume(3).build(),
                DealBuilder().tradeId("1").orderSysId("7").volume(2).build(),
                DealBuilder().tradeId("9").orderSysId("7").exchange("DCE").volume(100).build(),
                DealBuilder().tradeId("3").orderSysId("8").volume(50).build()});
    EXPECT_EQ((Keys{"1", "2"}), dealIds(store, "7"));
    COrderInfoPtr info = boost::make_shared<COrderInfo>();
    info->m_strOrderSysID = "8";
    info->m_strExchangeID = "SHFE";
    std::vector<CDealDetailPtr> deals;
    store->getDeals(std::vector<COrderInfoPtr>{info, info}, deals);
    EXPECT_EQ(2u, deals.size());  // appended order by order
    deals.clear();
    store->getDeals(std::vector<COrderDetailPtr>{order7, COrderDetailPtr()}, deals);
    ASSERT_EQ(2u, deals.size());
    EXPECT_EQ("1", deals[0]->m_strTradeID);
    EXPECT_EQ("2", deals[1]->m_strTradeID);
    EXPECT_EQ(5, store->getUnRevDealVolume(order7));
    EXPECT_EQ(0, store->getUnRevDealVolume(COrderDetailPtr()));
    std::vector<COrderDetailPtr> orders;
    store->getOrderDetail(orders, "SHFE", "rb2501");
    EXPECT_EQ(std::vector<COrderDetailPtr>{order7}, orders);
}

// Open orders count their untraded rest per side; a completed order counts only if it traded some.
TEST_F(AccountDataTest, UndealtVolumeRules) {
    const CAccountInfoPtr stock = test::makeAccountInfo("s1", 2);
    auto f = [this](const char* id = "1") { return OrderBuilder().account(m_info).sysId(id); };
    auto s = [&stock]() { return OrderBuilder().account(stock); };
    const struct {
        const char* what;
        std::vector<COrderDetailPtr> orders;
        int buy, sell;
    } cases[] = {
        {"no orders", {}, 0, 0},
        {"cancelled, nothing traded", {f().status('6').build()}, 0, 0},
        {"cancelled after 3 of 10", {f().status('5').traded(3).build()}, 7, 0},
        {"open buy and sell", {f().traded(2).build(), f("2").direction('1').volume(4).build()}, 8, 4},
        {"not '0' sells",
         {f().direction('x').volume(6).build(), f("2").direction(0).volume(1).build()},
         0,
         7},
        {"other instrument ignored", {f().instrument("rb2505").build()}, 0, 0},
        {"stock account: status alone decides", {s().status('7').traded(4).build()}, 6, 0},
        {"junk on a stock account", {s().status('9').build()}, 0, 0},
        {"traded more than ordered lowers its side", {f().volume(5).traded(8).build(), f("2").build()}, 7, 0},
    };
    for (const auto& c : cases) {
        CAccountDataPtr store = makeStore();
        for (const COrderDetailPtr& o : c.orders) store->updateData(o, false);
        int buy = -1, sell = -1;
        store->getUnDealVolume("rb2501", buy, sell);
        EXPECT_EQ(c.buy, buy) << c.what;
        EXPECT_EQ(c.sell, sell) << c.what;
    }
}

// The calculator queries pass the store and every argument through; without a calculator: 0.
TEST_F(AccountDataTest, CalculatorQueriesPassEverythingThrough) {
    CAccountDataPtr store = makeStore();
    m_calculator->setCanOrderVolume(120);
    m_calculator->setSingleOpVolume(30);
    m_calculator->setReason(5, "margin");
    EXPECT_EQ(120.0, store->getCanOrderVolume("SHFE", "rb2501", '0', '1', 3500.5));
    EXPECT_EQ(30.0, store->getSingleOpVolume("SHFE", "rb2501", '1', '0', 3400, 1e6));
    CStructVolumePtr reason = store->getCanOrderVolumeWithReason("DCE", "m2505", '1', '3', 2800);
    ASSERT_TRUE(reason);
    EXPECT_EQ(120.0, reason->m_dVolume);
    EXPECT_EQ("margin", reason->m_strReason);
    const std::vector<test::RecordingCalculator::VolumeCall> calls = m_calculator->volumeCalls();
    ASSERT_EQ(3u, calls.size());
    EXPECT_EQ(std::make_tuple(store, std::string("SHFE"), std::string("rb2501"), int('0'), int('1'), 3500.5),
              std::tie(calls[0].account, calls[0].exchange, calls[0].instrument, calls[0].direction,
                       calls[0].offset, calls[0].price));
    EXPECT_EQ(1e6, calls[1].amount);
    EXPECT_EQ(std::make_tuple(std::string("DCE"), std::string("m2505"), int('1'), int('3'), 2800.0),
              std::tie(calls[2].exchange, calls[2].instrument, calls[2].direction, calls[2].offset,
                       calls[2].price));

    TraderCenter::instance()->setCalculator(ICalculatorPtr());
    EXPECT_EQ(0.0, store->getCanOrderVolume("SHFE", "rb2501", '0', '0', 1));
    EXPECT_EQ(0.0, store->getSingleOpVolume("SHFE", "rb2501", '0', '0', 1, 1));
    reason = store->getCanOrderVolumeWithReason("SHFE", "rb2501", '0', '0', 1);
    ASSERT_TRUE(reason);
    EXPECT_EQ(0.0, reason->m_dVolume);
}

// Look-ups of positions, statics, fees, instruments, side tables, gold storage and exchange status.
TEST_F(AccountDataTest, PositionFeeInstrumentAndTableLookUps) {
    CAccountDataPtr store = makeStore();
    CPositionStaticsPtr statics = boost::make_shared<CPositionStatics>();
    statics->m_strExchangeID = "SHFE";
    statics->m_strInstrumentID = "rb2505";
    CPositionTradeTablePtr trade = boost::make_shared<CPositionTradeTable>();
    trade->m_strExchangeID = "SHFE";
    trade->m_strInstrumentID = "rb2501";
    CStructeFundPositiondetailPtr fund = boost::make_shared<CStructeFundPositiondetail>();
    fund->m_strExchangeID = "SH";
    fund->m_strFundCode = "510300";
    CInstrumentDetailPtr rb = test::makeInstrument("SHFE", "rb2501", "rb", 10);
    CInstrumentFeePtr own = test::makeInstrumentFee(m_info, rb);
    CInstrumentFeePtr parentsFee =
        test::makeInstrumentFee(test::makeAccountInfo("parent"), test::makeInstrument("DCE", "m2505"));
    put(store, {PositionBuilder().direction('1').volume(2).build(), PositionBuilder().volume(5).build(),
                PositionBuilder().instrument("rb2505").build(), statics, own, parentsFee, trade, fund,
                test::makeGoldStorage("Au99.99", 12.5), test::makeExchangeStatus("SHFE", '3')});
    CPositionDetailPtr p = store->getPositionDetail("SHFE", "rb2501");
    ASSERT_TRUE(p);
    EXPECT_EQ('0', p->m_nDirection);  // the first in key order
    EXPECT_FALSE(store->getPositionDetail("DCE", "rb2501"));
    EXPECT_EQ(statics, store->getPositionStatic("SHFE", "rb2505"));
    EXPECT_FALSE(store->getPositionStatic("SHFE", "rb2501"));

    EXPECT_EQ(own, store->getInstrumentFee("SHFE", "rb2501"));
    EXPECT_EQ(parentsFee, store->getInstrumentFee("DCE", "m2505"));  // found by its instrument
    EXPECT_FALSE(store->getInstrumentFee("CZCE", "SR505"));
    EXPECT_EQ(rb, store->getInstrumentDetail("SHFE", "rb2501"));
    CInstrumentDetailPtr fromCenter = test::makeInstrument("CZCE", "SR505", "SR");
    m_dataCenter->setInstrumentDetail({"CZCE"}, {fromCenter});
    EXPECT_EQ(fromCenter, store->getInstrumentDetail("CZCE", "SR505"));
    EXPECT_FALSE(store->getInstrumentDetail("CZCE", "nope"));

    EXPECT_EQ(trade, store->getPositionTradeTable("SHFE_rb2501"));
    EXPECT_EQ(fund, store->getFundPosTable("SH_510300"));
    store->resetFundPosTable(std::map<std::string, CStructeFundPositiondetailPtr>());
    EXPECT_FALSE(store->getFundPosTable("SH_510300"));
    EXPECT_EQ(12.5, store->getGoldStorage("Au99.99"));
    EXPECT_EQ(0.0, store->getGoldStorage("Ag"));

    // Exchange status: the product's entry wins over the exchange's.
    EXPECT_EQ(EXCHANGE_STATUS_AUCTION_ORDERING, store->getExchangeStatus("SHFE", "rb2501"));
    put(store, {test::makeExchangeStatus("SHFE", '2', "rb")});
    EXPECT_EQ(EXCHANGE_STATUS_CONTINOUS, store->getExchangeStatus("SHFE", "rb2501"));
    EXPECT_EQ(EXCHANGE_STATUS_UNKNOWN, store->getExchangeStatus("DCE", "m2505"));
}

// The settlement price comes from the fee record, else the table, else is invalid: one log line each.
TEST_F(AccountDataTest, LastSettlementSourcesAndTheirLogLines) {
    CAccountDataPtr store = makeStore();
    CInstrumentFeePtr fee = test::makeInstrumentFee(m_info, test::makeInstrument("SHFE", "rb2501"));
    fee->m_dPreSettlementPrice = 3510.0;
    put(store, {fee, test::makeInstrumentFee(m_info, test::makeInstrument("SHFE", "cu2502"))});
    store->setLastSettlement(
        {{"SHFErb2501", 1.0}, {"SHFEcu2502", 75000.5}, {"SHFEal2502", TT_INVALID_DOUBLE}});
    test::LogCapture log;
    EXPECT_EQ(3510.0, store->getLastSettlement("SHFE", "rb2501"));
    EXPECT_EQ(75000.5, store->getLastSettlement("SHFE", "cu2502"));
    EXPECT_EQ(TT_INVALID_DOUBLE, store->getLastSettlement("SHFE", "al2502"));
    EXPECT_EQ(TT_INVALID_DOUBLE, store->getLastSettlement("SHFE", "zn2502"));
    EXPECT_EQ(1u, log.count("SHFE, rb2501 from fee, 880001, 3510"));
    EXPECT_EQ(1u, log.count("SHFE, cu2502 from map, 880001, 75000.5"));
    EXPECT_EQ(1u, log.count("SHFE, al2502 880001 get invalid price"));
    EXPECT_EQ(1u, log.count("SHFE, zn2502 880001 get invalid price"));
}

}  // namespace
}  // namespace ttservice
