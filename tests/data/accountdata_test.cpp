// The account store: filing by kind and key, indexes, subscriptions, forwarding to the data center,
// look-ups, tradable volume and bad input. The push cache, initialisation and the price refresh are
// in accountdata_cache_test.cpp; concurrency in accountdata_stress_test.cpp.
#include <boost/make_shared.hpp>
#include <chrono>
#include <future>
#include <map>
#include <thread>

#include "base/data/CostData.h"
#include "testing/LogCapture.h"
#include "testing/StoreTestFixture.h"

namespace ttservice {
namespace {

using test::DealBuilder;
using test::OrderBuilder;
using test::PositionBuilder;

class AccountDataTest : public test::StoreTestFixture {
protected:
    // Asserts that the indexes agree with the records and prints the disagreements otherwise.
    static void expectIndexesAgree(const CAccountDataPtr& store, const char* when) {
        std::string report;
        EXPECT_TRUE(store->checkIndexes(&report)) << when << ":\n" << report;
    }

    // Counts the calls of a callback per record key.
    struct Counter {
        std::map<std::string, int> calls;
        std::vector<IDataPtr> seen;
        DataCallback callback() {
            return [this](const IDataPtr& d) {
                ++calls[d->getKey()];
                seen.push_back(d);
            };
        }
        int total() const {
            int n = 0;
            for (const auto& c : calls) n += c.second;
            return n;
        }
    };
};

TEST_F(AccountDataTest, RecordsAreFiledUnderTheirKindAndKey) {
    CAccountDataPtr store = makeStore();
    boost::shared_ptr<CFtAccountDetail> ftDetail = boost::make_shared<CFtAccountDetail>();
    ftDetail->m_strAccountKey = "ft";
    boost::shared_ptr<CAccountSummary> summary = boost::make_shared<CAccountSummary>();
    summary->m_strAccountKey = "sum";
    boost::shared_ptr<CPortfolio> portfolio = boost::make_shared<CPortfolio>();
    portfolio->m_strName = "p";
    portfolio->m_nPortfolioID = 7;
    struct Case {
        IDataPtr record;
        int kind;
        std::string key;
    } cases[] = {
        {OrderBuilder().sysId("11").build(), 542, "SHFE_11"},
        {test::makeAccountDetail(m_info), 543, "20001_880001"},
        {ftDetail, 543, "ft"},  // a subclass is filed under its base's kind
        {DealBuilder().tradeId("T9").direction('1').build(), 544, "SHFE_T9_1"},
        {PositionBuilder().build(), 545, "SHFE_rb2501_0_1"},
        {summary, 555, "sum"},
        {test::makeExchangeStatus("SHFE", '2'), 570, "SHFE"},
        {portfolio, 9014, "p_7"},  // a kind the store does not know: filed and published only
    };
    for (const Case& c : cases) {
        store->updateData(c.record, false);
        EXPECT_EQ(c.record, store->getData(c.kind, c.key)) << c.kind << " " << c.key;
    }
    EXPECT_EQ(2u, store->getVector(543).size());
    EXPECT_EQ(test::makeAccountDetail(m_info)->getKey(), store->getAccountDetail()->getKey());
    EXPECT_TRUE(store->getVector(4242).empty());
    EXPECT_TRUE(store->getData(4242, "x") == nullptr);
    // The calculation info is filed when the store is built.
    ASSERT_EQ(1u, store->getVector(567).size());
    EXPECT_EQ(store->getCalcInfo(), store->getVector(567)[0]);
    expectIndexesAgree(store, "after filing");
}

TEST_F(AccountDataTest, ReplacementReindexesAndNotifiesEachSubscriberOnce) {
    CAccountDataPtr store = makeStore();
    Counter byKey, byKind, other;
    SubRequestPtr s1 = store->subscribe(542, "SHFE_1", byKey.callback());
    SubRequestPtr s2 = store->subscribe(542, "", byKind.callback());
    SubRequestPtr s3 = store->subscribe(544, "", other.callback());

    COrderDetailPtr first = OrderBuilder().sysId("1").tag("tagA").volume(10).build();
    COrderDetailPtr second = OrderBuilder().sysId("1").tag("tagA").volume(10).traded(4).build();
    store->updateData(first, false);
    store->updateData(second, false);

    EXPECT_EQ(1u, store->getVector(542).size());
    EXPECT_EQ(second, store->getOrderDetail("SHFE_1"));
    EXPECT_EQ(second, store->getOrderById("1"));
    EXPECT_EQ(second, store->getOrderByNqTag(second->m_tag));
    EXPECT_EQ(2, byKey.calls["SHFE_1"]);
    EXPECT_EQ(2, byKind.calls["SHFE_1"]);
    EXPECT_EQ(0, other.total());
    ASSERT_EQ(2u, byKind.seen.size());
    EXPECT_EQ(second, byKind.seen[1]);
    expectIndexesAgree(store, "after replacement");

    // Releasing the request ends that subscription only.
    Counter byKeyToo;
    SubRequestPtr s4 = store->subscribe(542, "SHFE_1", byKeyToo.callback());
    s1.reset();
    store->updateData(OrderBuilder().sysId("1").build(), false);
    EXPECT_EQ(2, byKey.calls["SHFE_1"]);
    EXPECT_EQ(1, byKeyToo.calls["SHFE_1"]);
    EXPECT_EQ(3, byKind.calls["SHFE_1"]);
    s4.reset();
    store->updateData(OrderBuilder().sysId("1").build(), false);
    EXPECT_EQ(1, byKeyToo.calls["SHFE_1"]);
    SubRequestPtr s5 = store->subscribe(542, "SHFE_1", byKeyToo.callback(), true);  // snapshot, then updates
    store->updateData(OrderBuilder().sysId("1").build(), false);
    EXPECT_EQ(3, byKeyToo.calls["SHFE_1"]);
}

TEST_F(AccountDataTest, EmptyKeyNotifiesTheWholeKindOnce) {
    CAccountDataPtr store = makeStore();
    Counter kind;
    SubRequestPtr s = store->subscribe(555, "", kind.callback());
    store->updateData(boost::make_shared<CAccountSummary>(), false);  // key ""
    EXPECT_EQ(1, kind.total());
    EXPECT_EQ(1u, store->getStatistics().m_nNotifications);
}

TEST_F(AccountDataTest, SubscribersRunWithoutTheStoreLock) {
    CAccountDataPtr store = makeStore();
    bool otherThreadGotLock = false;
    SubRequestPtr s = store->subscribe(542, "", [&](const IDataPtr&) {
        // Another thread must be able to take the store lock while the callback runs.
        std::promise<void> locked;
        std::thread t([&] {
            CAccountData::Lock lock(store);
            locked.set_value();
        });
        otherThreadGotLock =
            locked.get_future().wait_for(std::chrono::seconds(5)) == std::future_status::ready;
        t.join();
    });
    store->updateData(OrderBuilder().build(), false);
    EXPECT_TRUE(otherThreadGotLock);
}

TEST_F(AccountDataTest, ForwardingAndCachingRules) {
    struct Case {
        const char* what;
        bool registered;
        bool withInfo;
        bool initialised;
        bool cacheOnly;
        bool caching;
        size_t forwarded;
        size_t cached;
    } cases[] = {
        {"not registered, not initialised", false, true, false, false, false, 0, 0},
        {"registered, not initialised", true, true, false, false, false, 0, 0},
        {"initialised but not registered", false, true, true, false, false, 0, 0},
        {"registered, initialised", true, true, true, false, false, 1, 0},
        {"registered, initialised, cache only", true, true, true, true, false, 0, 1},
        {"registered, initialised, caching", true, true, true, false, true, 0, 1},
        {"registered without account info", true, false, true, false, false, 0, 0},
        {"not initialised, cache only", true, true, false, true, false, 0, 0},
    };
    for (const Case& c : cases) {
        m_dataCenter->clearReceived();
        CAccountDataPtr store = boost::make_shared<CAccountData>(1000);
        m_stores.push_back(store);
        if (c.withInfo) store->setAccountInfo(m_info);
        m_dataCenter->addAccount(m_info->getKey(), c.registered ? store : CAccountDataPtr());
        if (c.initialised) store->setInitialized(true);
        if (c.caching) store->startCacheDatas();
        Counter subscriber;
        SubRequestPtr s = store->subscribe(542, "", subscriber.callback());
        COrderDetailPtr order = OrderBuilder().account(m_info).build();
        store->updateData(order, c.cacheOnly);

        EXPECT_EQ(order, store->getOrderDetail(order->getKey())) << c.what;  // always filed
        EXPECT_EQ(1, subscriber.total()) << c.what;                          // always published
        EXPECT_EQ(c.forwarded, m_dataCenter->receivedCount()) << c.what;
        const CAccountDataStats stats = store->getStatistics();
        EXPECT_EQ(c.forwarded, stats.m_nForwarded) << c.what;
        EXPECT_EQ(c.cached, stats.m_nCached) << c.what;
        if (c.forwarded == 1) {
            const test::FakeDataCenter::Received r = m_dataCenter->received()[0];
            EXPECT_EQ(m_info, r.account);
            EXPECT_EQ(order, r.data);
            EXPECT_FALSE(r.error.isError());
        }
    }
}

TEST_F(AccountDataTest, WithoutDataCenterRecordsAreStillFiledAndPublished) {
    CAccountDataPtr store = makeStore();
    store->setInitialized(true);
    TraderCenter::instance()->setDataCenter(IDataCenterPtr());
    Counter subscriber;
    SubRequestPtr s = store->subscribe(545, "", subscriber.callback());
    store->updateData(PositionBuilder().build(), false);
    store->flushDatas();
    EXPECT_EQ(1u, store->getVector(545).size());
    EXPECT_EQ(1, subscriber.total());
    EXPECT_EQ(0u, store->getStatistics().m_nForwarded);
}

TEST_F(AccountDataTest, RemovalsCrossOverDeliberately) {
    CAccountDataPtr store = makeStore();
    store->updateData(OrderBuilder().sysId("A").tag("tA").build(), false);
    store->updateData(OrderBuilder().sysId("B").tag("tB").build(), false);
    store->updateData(DealBuilder().tradeId("a1").orderSysId("A").build(), false);
    store->updateData(DealBuilder().tradeId("a2").orderSysId("A").build(), false);
    store->updateData(DealBuilder().tradeId("b1").orderSysId("B").build(), false);
    expectIndexesAgree(store, "before removals");

    // removeOrder: the order leaves the records and the tag index, the deal group goes, and
    // getOrderById still finds the removed order.
    store->removeOrder("A");
    std::vector<CDealDetailPtr> deals;
    EXPECT_EQ(1u, store->getVector(542).size());
    EXPECT_FALSE(store->getOrderByNqTag(OrderBuilder().tag("tA").build()->m_tag));
    ASSERT_TRUE(store->getOrderById("A"));
    EXPECT_EQ("A", store->getOrderById("A")->m_strOrderSysID);
    store->getDeals("A", "SHFE", deals);
    EXPECT_TRUE(deals.empty());
    EXPECT_EQ(3u, store->getVector(544).size());  // deal records stay
    expectIndexesAgree(store, "after removeOrder");

    // reomveDeals: the deals leave the records, getDeals still finds them, getOrderById does not.
    store->reomveDeals("B");
    EXPECT_EQ(2u, store->getVector(544).size());
    store->getDeals("B", "SHFE", deals);
    ASSERT_EQ(1u, deals.size());
    EXPECT_EQ("b1", deals[0]->m_strTradeID);
    EXPECT_FALSE(store->getOrderById("B"));
    EXPECT_TRUE(store->getOrderDetail("SHFE_B"));  // the order record stays
    expectIndexesAgree(store, "after reomveDeals");

    // An empty id is an id like any other: removeOrder("") takes out the orders that have none
    // and the group of deals that name none; reomveDeals("") takes out those deal records.
    store->updateData(OrderBuilder().sysId("").ref("local-1").build(), false);
    store->updateData(DealBuilder().tradeId("z1").orderSysId("").build(), false);
    store->removeOrder("");
    EXPECT_FALSE(store->getOrderDetail("local-1"));
    EXPECT_TRUE(store->getOrderDetail("SHFE_B"));
    deals.clear();
    store->getDeals("", "SHFE", deals);
    EXPECT_TRUE(deals.empty());
    EXPECT_TRUE(store->getData(544, "SHFE_z1_0"));
    expectIndexesAgree(store, "after removeOrder of the empty id");
    store->reomveDeals("");
    EXPECT_FALSE(store->getData(544, "SHFE_z1_0"));
    EXPECT_EQ(2u, store->getVector(544).size());
    expectIndexesAgree(store, "after reomveDeals of the empty id");

    // A new push of the order brings its id entry back.
    store->updateData(OrderBuilder().sysId("B").tag("tB").traded(1).build(), false);
    EXPECT_TRUE(store->getOrderById("B"));
    expectIndexesAgree(store, "after a new push");
}

TEST_F(AccountDataTest, CheckIndexesFindsIndexesThatDisagree) {
    CAccountDataPtr store = makeStore();
    store->updateData(OrderBuilder().ref("r1").sysId("A").tag("tA").build(), false);  // key "r1"
    store->updateData(DealBuilder().tradeId("a1").orderSysId("A").build(), false);
    // A record mutated in place after it was indexed: its entry now holds an order of another id.
    store->getOrderById("A")->m_strOrderSysID = "Z";
    std::string report;
    EXPECT_FALSE(store->checkIndexes(&report));
    EXPECT_NE(std::string::npos, report.find("S1")) << report;
    EXPECT_NE(std::string::npos, report.find("A1")) << report;  // order of id Z has no entry

    // The rebuild of setInitialized(true) makes them agree again.
    store->setInitialized(true);
    expectIndexesAgree(store, "after rebuild");
    EXPECT_TRUE(store->getOrderById("Z"));
    EXPECT_FALSE(store->getOrderById("A"));
}

TEST_F(AccountDataTest, ClearExpiredDatasKeepsTheTradeDateItself) {
    CAccountDataPtr store = makeStore();
    const struct {
        int id;
        const char* date;
        bool kept;
    } commands[] = {{1, "20250101", false}, {2, "20250102", true}, {3, "20250103", true}, {4, "", false}};
    for (const auto& c : commands) {
        COrderCommandPtr command = boost::make_shared<COrderCommand>();
        command->m_nID = c.id;
        command->m_strDate = c.date;
        store->updateData(command, false);
        boost::shared_ptr<CTaskDetail> task = boost::make_shared<CTaskDetail>();
        task->m_nTaskID = 100 + c.id;
        task->m_command = command;
        store->updateData(task, false);
    }
    boost::shared_ptr<CTaskDetail> noCommand = boost::make_shared<CTaskDetail>();
    noCommand->m_nTaskID = 99;
    store->updateData(noCommand, false);

    store->clearExpiredDatas("20250102");
    for (const auto& c : commands) {
        EXPECT_EQ(c.kept, static_cast<bool>(store->getData(535, std::to_string(c.id)))) << c.date;
        EXPECT_EQ(c.kept, static_cast<bool>(store->getData(541, std::to_string(100 + c.id)))) << c.date;
    }
    EXPECT_TRUE(store->getData(541, "99"));
}

TEST_F(AccountDataTest, BadInputIsFiledOrSkippedWithoutLoss) {
    CAccountDataPtr store = makeStore();
    store->setInitialized(true);
    COrderDetailPtr kept = OrderBuilder().account(m_info).sysId("K").build();
    store->updateData(kept, false);

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
    CDealDetailPtr orphan = DealBuilder().tradeId("x").orderSysId("").build();
    store->updateData(orphan, false);
    EXPECT_EQ(orphan, store->getData(544, orphan->getKey()));
    std::vector<CDealDetailPtr> deals;
    store->getDeals("", "SHFE", deals);
    EXPECT_EQ(std::vector<CDealDetailPtr>{orphan}, deals);

    // An order whose tag has an empty key is indexed under the empty key, which is what an empty
    // tag looks up; the later of two such orders holds the entry.
    EXPECT_FALSE(store->getOrderByNqTag(CNqOrderTagPtr()));
    store->updateData(OrderBuilder().account(m_info).sysId("E").tag("").build(), false);
    COrderDetailPtr laterEmptyTag = OrderBuilder().account(m_info).sysId("F").tag("").build();
    store->updateData(laterEmptyTag, false);
    EXPECT_EQ(laterEmptyTag, store->getOrderByNqTag(CNqOrderTagPtr()));
    EXPECT_EQ(laterEmptyTag, store->getOrderByNqTag(boost::make_shared<CNqOrderTag>()));
    EXPECT_TRUE(store->getOrderById("E"));
    expectIndexesAgree(store, "with empty keys indexed");
    // Removing one takes the shared entry with it; the other order stays filed.
    store->removeOrder("F");
    EXPECT_FALSE(store->getOrderByNqTag(CNqOrderTagPtr()));
    EXPECT_TRUE(store->getOrderDetail("SHFE_E"));
    expectIndexesAgree(store, "after removing one of two orders sharing a tag key");

    // An order without account info is filed and indexed; it is never complete, so it counts.
    store->updateData(OrderBuilder().sysId("N").status('6').volume(5).build(), false);
    EXPECT_TRUE(store->getOrderById("N"));
    int buy = 0, sell = 0;
    store->getUnDealVolume("rb2501", buy, sell);
    EXPECT_EQ(10 + 10 + 5, buy);

    EXPECT_EQ(kept, store->getOrderById("K"));
    EXPECT_EQ(3u, store->getVector(542).size());
    expectIndexesAgree(store, "after bad input");
}

TEST_F(AccountDataTest, SnapshotSubscriptionDeliversCurrentRecordsThenUpdates) {
    CAccountDataPtr store = makeStore();
    store->updateData(OrderBuilder().sysId("2").build(), false);
    store->updateData(OrderBuilder().sysId("1").build(), false);
    store->updateData(PositionBuilder().build(), false);

    Counter whole, one, plain;
    std::vector<std::string> order;
    SubRequestPtr s1 = store->subscribe(
        542, "",
        [&](const IDataPtr& d) {
            order.push_back(d->getKey());
            // An update made from inside the snapshot delivery arrives after the whole snapshot, once.
            if (order.size() == 1) store->updateData(OrderBuilder().sysId("3").build(), false);
        },
        true);
    SubRequestPtr s2 = store->subscribe(542, "SHFE_2", one.callback(), true);
    SubRequestPtr s3 = store->subscribe(542, "", plain.callback(), false);  // the published behaviour
    ASSERT_EQ(3u, order.size());
    EXPECT_EQ("SHFE_1", order[0]);
    EXPECT_EQ("SHFE_2", order[1]);
    EXPECT_EQ("SHFE_3", order[2]);
    EXPECT_EQ(1, one.total());
    EXPECT_EQ(0, plain.total());

    store->updateData(OrderBuilder().sysId("2").traded(1).build(), false);
    EXPECT_EQ(4u, order.size());
    EXPECT_EQ(2, one.calls["SHFE_2"]);
    EXPECT_EQ(1, plain.total());
}

// A pusher thread updates orders while another thread subscribes with a snapshot. Every update
// must reach the subscriber exactly once, in order: each key's versions arrive strictly rising and
// end with the last version pushed.
TEST_F(AccountDataTest, SnapshotSubscriptionRacingUpdatesLosesAndDoublesNothing) {
    const int kKeys = 8, kVersions = 300;
    for (int round = 0; round < 20; ++round) {
        CAccountDataPtr store = makeStore();
        std::atomic<bool> started{false};
        std::thread pusher([&] {
            for (int v = 1; v <= kVersions; ++v) {
                for (int k = 0; k < kKeys; ++k)
                    store->updateData(
                        OrderBuilder().sysId(std::to_string(k)).volume(kVersions + 1).traded(v).build(),
                        false);
                if (v == 20) started = true;
            }
        });
        while (!started) std::this_thread::yield();
        std::map<std::string, std::vector<int> > seen;  // called on the pusher and this thread, never at once
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
            // Nothing after the snapshot version is missing.
            EXPECT_EQ(static_cast<size_t>(kVersions - versions.front() + 1), versions.size()) << key.first;
        }
    }
}

TEST_F(AccountDataTest, ClearEndsSubscriptionsAndKeepsTheIndexes) {
    CAccountDataPtr store = makeStore();
    store->setInitialized(true);
    Counter subscriber;
    SubRequestPtr s = store->subscribe(542, "", subscriber.callback());
    store->updateData(OrderBuilder().sysId("1").build(), false);
    store->updateData(test::makeExchangeStatus("SHFE", '2'), false);
    std::map<std::string, double> settlement;
    settlement["SHFErb2501"] = 3456.0;
    store->setLastSettlement(settlement);
    std::map<std::string, CPositionTradeTablePtr> trades;
    trades["SHFE_rb2501"] = boost::make_shared<CPositionTradeTable>();
    store->resetPositionTradeTable(trades);
    std::map<std::string, CStructeFundPositiondetailPtr> funds;
    funds["SH_510300"] = boost::make_shared<CStructeFundPositiondetail>();
    store->resetFundPosTable(funds);
    m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3500));
    store->updateData(PositionBuilder().build(), false);
    ASSERT_FALSE(store->getPendingPriceChanges().empty());

    store->clear();
    EXPECT_FALSE(store->initialized());
    EXPECT_TRUE(store->getVector(542).empty());
    EXPECT_EQ(EXCHANGE_STATUS_UNKNOWN, store->getExchangeStatus("SHFE", "rb2501"));
    EXPECT_EQ(TT_INVALID_DOUBLE, store->getLastSettlement("SHFE", "rb2501"));
    EXPECT_FALSE(store->getFundPosTable("SH_510300"));
    EXPECT_TRUE(store->getPendingPriceChanges().empty());
    EXPECT_TRUE(store->getPositionTradeTable("SHFE_rb2501"));  // kept deliberately
    EXPECT_TRUE(store->getOrderById("1"));  // indexes are replaced as new records arrive
    store->updateData(OrderBuilder().sysId("2").build(), false);
    EXPECT_EQ(1, subscriber.total());
    expectIndexesAgree(store, "after clear");
}

TEST_F(AccountDataTest, SetDataFilesWithoutAnyFurtherStep) {
    CAccountDataPtr store = makeStore();
    store->setInitialized(true);
    Counter subscriber;
    SubRequestPtr s = store->subscribe(542, "", subscriber.callback());
    test::LogCapture log(utils::TT_LOG_INFO);
    store->setData(OrderBuilder().sysId("S").build());
    CAccountDetailPtr detail = test::makeAccountDetail(m_info, 1234.5);
    detail->m_dAvailable = 1000;
    store->setData(detail);
    EXPECT_TRUE(store->getOrderDetail("SHFE_S"));
    EXPECT_FALSE(store->getOrderById("S"));
    EXPECT_EQ(0, subscriber.total());
    EXPECT_EQ(0u, m_dataCenter->receivedCount());
    EXPECT_EQ(detail, store->getAccountDetail());
    EXPECT_EQ(1u,
              log.count("880001 status 0 : m_dBalance: 1234.5, m_dPreBalance: 1234.5, m_dAvailable: 1000, "
                        "m_dAssureAsset: 0, m_dEntrustAsset: 0"));
    expectIndexesAgree(store, "after setData");  // known: setData does not index
}

TEST_F(AccountDataTest, MapCopiesLiveReferencesAndPlainRemoval) {
    CAccountDataPtr store = makeStore();
    COrderDetailPtr a = OrderBuilder().sysId("a").build();
    COrderDetailPtr b = OrderBuilder().sysId("b").build();
    store->updateData(b, false);
    store->updateData(a, false);
    store->updateData(PositionBuilder().volume(4).openCost(14000).build(), false);

    const CAccountData::DataMap copy = store->getMapData(542);
    CAccountData::DataMap assigned;
    assigned["stale"] = a;
    store->getMapData(542, assigned);
    EXPECT_EQ(copy, assigned);  // assigned, not merged
    ASSERT_EQ(2u, copy.size());
    EXPECT_EQ(a, copy.begin()->second);  // key order

    // A kind never filed reads as empty and leaves an empty map behind; the copies stay copies
    // and the references are live.
    {
        CAccountData::Lock lock(store);
        EXPECT_EQ(0u, store->getDatas().count(4242));
    }
    EXPECT_TRUE(store->getVector(4242).empty());
    EXPECT_TRUE(store->getMapData(4243).empty());
    {
        CAccountData::Lock lock(store);
        EXPECT_EQ(1u, store->getDatas().count(4242));
        EXPECT_TRUE(store->getDatas()[4242].empty());
        EXPECT_EQ(1u, store->getDatas().count(4243));
        store->getMapDataRef(542).erase(a->getKey());
    }
    EXPECT_FALSE(store->getOrderDetail(a->getKey()));
    EXPECT_EQ(2u, copy.size());

    // removeData erases the record alone: the indexes and subscriptions are not touched.
    store->removeData(b);
    EXPECT_FALSE(store->getOrderDetail(b->getKey()));
    EXPECT_EQ(b, store->getOrderById("b"));
    store->removeData(OrderBuilder().sysId("never").build());  // not filed: nothing happens
    EXPECT_EQ(1u, store->getVector(545).size());

    store->setTradeDate("20250102");
    EXPECT_EQ("20250102", store->getTradeDate());
    EXPECT_FALSE(store->getCostData());
    store->initCostData("20250102");
    ASSERT_TRUE(store->getCostData());
    EXPECT_EQ("20250102", store->getCostData()->getTradeDate());
    EXPECT_EQ(4, store->getCostData()->getVolume("SHFErb2501", '0'));
    EXPECT_DOUBLE_EQ(3500.0, store->getCostData()->getAverageCost("SHFErb2501", '0'));
}

TEST_F(AccountDataTest, IncrementalFetchReturnsNewAndChangedRecords) {
    CAccountDataPtr store = makeStore();
    COrderDetailPtr a = OrderBuilder().sysId("a").build();
    COrderDetailPtr b = OrderBuilder().sysId("b").build();
    store->updateData(a, false);
    store->updateData(b, false);
    std::map<std::string, std::string> known;
    known[a->getKey()] = a->toString();
    known[b->getKey()] = b->toString();
    EXPECT_TRUE(store->getVectorInc(542, known).empty());

    COrderDetailPtr b2 = OrderBuilder().sysId("b").traded(1).build();
    COrderDetailPtr c = OrderBuilder().sysId("c").build();
    store->updateData(b2, false);
    store->updateData(c, false);
    std::vector<IDataPtr> changed = store->getVectorInc(542, known);
    ASSERT_EQ(2u, changed.size());
    EXPECT_EQ(b2, changed[0]);
    EXPECT_EQ(c, changed[1]);
    EXPECT_TRUE(store->getVectorInc(9999, known).empty());
}

TEST_F(AccountDataTest, DealsOfOrdersByIdAndExchange) {
    CAccountDataPtr store = makeStore();
    COrderDetailPtr order = OrderBuilder().sysId("7").build();
    store->updateData(order, false);
    store->updateData(DealBuilder().tradeId("2").orderSysId("7").volume(3).build(), false);
    store->updateData(DealBuilder().tradeId("1").orderSysId("7").volume(2).build(), false);
    store->updateData(DealBuilder().tradeId("9").orderSysId("7").exchange("DCE").volume(100).build(), false);
    store->updateData(DealBuilder().tradeId("3").orderSysId("8").volume(50).build(), false);

    std::vector<CDealDetailPtr> deals;
    store->getDeals(order, deals);
    ASSERT_EQ(2u, deals.size());
    EXPECT_EQ("1", deals[0]->m_strTradeID);  // deal key order
    EXPECT_EQ("2", deals[1]->m_strTradeID);

    COrderInfoPtr info = boost::make_shared<COrderInfo>();
    info->m_strOrderSysID = "8";
    info->m_strExchangeID = "SHFE";
    deals.clear();
    store->getDeals(std::vector<COrderInfoPtr>{info, info}, deals);
    EXPECT_EQ(2u, deals.size());  // appended order by order
    deals.clear();
    store->getDeals(std::vector<COrderDetailPtr>{order, COrderDetailPtr()}, deals);
    EXPECT_EQ(2u, deals.size());

    EXPECT_EQ(5, store->getUnRevDealVolume(order));
    EXPECT_EQ(0, store->getUnRevDealVolume(COrderDetailPtr()));

    std::vector<COrderDetailPtr> orders;
    store->updateData(OrderBuilder().sysId("8").instrument("rb2505").build(), false);
    store->getOrderDetail(orders, "SHFE", "rb2501");
    ASSERT_EQ(1u, orders.size());
    EXPECT_EQ(order, orders[0]);
}

TEST_F(AccountDataTest, UndealtVolumeRules) {
    const CAccountInfoPtr futures = m_info;
    const CAccountInfoPtr stock = test::makeAccountInfo("s1", 2);
    struct Case {
        const char* what;
        std::vector<COrderDetailPtr> orders;
        int buy;
        int sell;
    } cases[] = {
        {"no orders", {}, 0, 0},
        {"cancelled, nothing traded", {OrderBuilder().account(futures).status('6').volume(10).build()}, 0, 0},
        {"cancelled after 3 of 10",
         {OrderBuilder().account(futures).status('5').volume(10).traded(3).build()},
         7,
         0},
        {"open buy and sell",
         {OrderBuilder().account(futures).sysId("1").volume(10).traded(2).build(),
          OrderBuilder().account(futures).sysId("2").direction('1').volume(4).build()},
         8,
         4},
        {"any direction but '0' sells",
         {OrderBuilder().account(futures).sysId("1").direction('x').volume(6).build(),
          OrderBuilder().account(futures).sysId("2").direction(0).volume(1).build()},
         0,
         7},
        {"other instrument ignored",
         {OrderBuilder().account(futures).instrument("rb2505").volume(10).build()},
         0,
         0},
        {"stock account: status alone decides",
         {OrderBuilder().account(stock).status('7').volume(10).traded(4).build()},
         6,
         0},
        {"junk on a stock account", {OrderBuilder().account(stock).status('9').volume(10).build()}, 0, 0},
        {"traded more than ordered lowers its side",
         {OrderBuilder().account(futures).sysId("1").volume(5).traded(8).build(),
          OrderBuilder().account(futures).sysId("2").volume(10).build()},
         7,
         0},
    };
    for (const Case& c : cases) {
        CAccountDataPtr store = makeStore();
        for (const COrderDetailPtr& o : c.orders) store->updateData(o, false);
        int buy = -1, sell = -1;
        store->getUnDealVolume("rb2501", buy, sell);
        EXPECT_EQ(c.buy, buy) << c.what;
        EXPECT_EQ(c.sell, sell) << c.what;
    }
}

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
    EXPECT_EQ(store, calls[0].account);
    EXPECT_EQ("rb2501", calls[0].instrument);
    EXPECT_EQ('0', calls[0].direction);
    EXPECT_EQ('1', calls[0].offset);
    EXPECT_EQ(3500.5, calls[0].price);
    EXPECT_EQ(1e6, calls[1].amount);
    EXPECT_EQ("DCE", calls[2].exchange);

    TraderCenter::instance()->setCalculator(ICalculatorPtr());
    EXPECT_EQ(0.0, store->getCanOrderVolume("SHFE", "rb2501", '0', '0', 1));
    EXPECT_EQ(0.0, store->getSingleOpVolume("SHFE", "rb2501", '0', '0', 1, 1));
    reason = store->getCanOrderVolumeWithReason("SHFE", "rb2501", '0', '0', 1);
    ASSERT_TRUE(reason);
    EXPECT_EQ(0.0, reason->m_dVolume);
}

TEST_F(AccountDataTest, PositionFeeInstrumentAndTableLookUps) {
    CAccountDataPtr store = makeStore();
    store->updateData(PositionBuilder().direction('1').volume(2).build(), false);
    store->updateData(PositionBuilder().direction('0').volume(5).build(), false);
    store->updateData(PositionBuilder().instrument("rb2505").build(), false);
    CPositionDetailPtr p = store->getPositionDetail("SHFE", "rb2501");
    ASSERT_TRUE(p);
    EXPECT_EQ('0', p->m_nDirection);  // the first in key order
    EXPECT_FALSE(store->getPositionDetail("DCE", "rb2501"));
    CPositionStaticsPtr statics = boost::make_shared<CPositionStatics>();
    statics->m_strExchangeID = "SHFE";
    statics->m_strInstrumentID = "rb2505";
    store->updateData(statics, false);
    EXPECT_EQ(statics, store->getPositionStatic("SHFE", "rb2505"));
    EXPECT_FALSE(store->getPositionStatic("SHFE", "rb2501"));

    CInstrumentDetailPtr rb = test::makeInstrument("SHFE", "rb2501", "rb", 10);
    CInstrumentFeePtr own = test::makeInstrumentFee(m_info, rb);
    CInstrumentFeePtr parentsFee =
        test::makeInstrumentFee(test::makeAccountInfo("parent"), test::makeInstrument("DCE", "m2505"));
    store->updateData(own, false);
    store->updateData(parentsFee, false);
    EXPECT_EQ(own, store->getInstrumentFee("SHFE", "rb2501"));
    EXPECT_EQ(parentsFee, store->getInstrumentFee("DCE", "m2505"));  // found by its instrument
    EXPECT_FALSE(store->getInstrumentFee("CZCE", "SR505"));
    EXPECT_EQ(rb, store->getInstrumentDetail("SHFE", "rb2501"));
    CInstrumentDetailPtr fromCenter = test::makeInstrument("CZCE", "SR505", "SR");
    m_dataCenter->setInstrumentDetail({"CZCE"}, {fromCenter});
    EXPECT_EQ(fromCenter, store->getInstrumentDetail("CZCE", "SR505"));
    EXPECT_FALSE(store->getInstrumentDetail("CZCE", "nope"));

    CPositionTradeTablePtr trade = boost::make_shared<CPositionTradeTable>();
    trade->m_strExchangeID = "SHFE";
    trade->m_strInstrumentID = "rb2501";
    store->updateData(trade, false);
    EXPECT_EQ(trade, store->getPositionTradeTable("SHFE_rb2501"));
    CStructeFundPositiondetailPtr fund = boost::make_shared<CStructeFundPositiondetail>();
    fund->m_strExchangeID = "SH";
    fund->m_strFundCode = "510300";
    store->updateData(fund, false);
    EXPECT_EQ(fund, store->getFundPosTable("SH_510300"));
    store->resetFundPosTable(std::map<std::string, CStructeFundPositiondetailPtr>());
    EXPECT_FALSE(store->getFundPosTable("SH_510300"));
    store->updateData(test::makeGoldStorage("Au99.99", 12.5), false);
    EXPECT_EQ(12.5, store->getGoldStorage("Au99.99"));
    EXPECT_EQ(0.0, store->getGoldStorage("Ag"));

    // Exchange status: the product's entry wins over the exchange's.
    store->updateData(test::makeExchangeStatus("SHFE", '3'), false);
    EXPECT_EQ(EXCHANGE_STATUS_AUCTION_ORDERING, store->getExchangeStatus("SHFE", "rb2501"));
    store->updateData(test::makeExchangeStatus("SHFE", '2', "rb"), false);
    EXPECT_EQ(EXCHANGE_STATUS_CONTINOUS, store->getExchangeStatus("SHFE", "rb2501"));
    EXPECT_EQ(EXCHANGE_STATUS_UNKNOWN, store->getExchangeStatus("DCE", "m2505"));
}

TEST_F(AccountDataTest, LastSettlementSourcesAndTheirLogLines) {
    CAccountDataPtr store = makeStore();
    CInstrumentFeePtr fee = test::makeInstrumentFee(m_info, test::makeInstrument("SHFE", "rb2501"));
    fee->m_dPreSettlementPrice = 3510.0;
    store->updateData(fee, false);
    CInstrumentFeePtr emptyFee = test::makeInstrumentFee(m_info, test::makeInstrument("SHFE", "cu2502"));
    store->updateData(emptyFee, false);
    std::map<std::string, double> table;
    table["SHFErb2501"] = 1.0;
    table["SHFEcu2502"] = 75000.5;
    table["SHFEal2502"] = TT_INVALID_DOUBLE;
    store->setLastSettlement(table);

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

TEST_F(AccountDataTest, CountersOfFilingNotificationAndForwarding) {
    CAccountDataPtr store = makeStore();
    store->setInitialized(true);
    SubRequestPtr s1 = store->subscribe(542, "", [](const IDataPtr&) {});
    SubRequestPtr s2 = store->subscribe(542, "SHFE_1", [](const IDataPtr&) {});
    store->updateData(OrderBuilder().sysId("1").build(), false);  // 2 notifications
    store->updateData(OrderBuilder().sysId("2").build(), false);  // 1
    store->updateData(DealBuilder().build(), false);              // 0
    store->updateData(boost::make_shared<CPortfolio>(), false);   // "other" kind
    store->updateData(PositionBuilder().build(), true);           // cached
    store->flushDatas();
    const CAccountDataStats stats = store->getStatistics();
    EXPECT_EQ(2u, stats.filed(542));
    EXPECT_EQ(1u, stats.filed(544));
    EXPECT_EQ(1u, stats.filed(545));
    EXPECT_EQ(1u, stats.filed(9014));
    EXPECT_EQ(1u, stats.m_nFiled[CAccountDataStats::KNOWN_KIND_COUNT]);
    EXPECT_EQ(5u, stats.filedTotal());
    EXPECT_EQ(3u, stats.m_nNotifications);
    EXPECT_EQ(4u, stats.m_nForwarded);
    EXPECT_EQ(1u, stats.m_nCached);
    EXPECT_EQ(1u, stats.m_nReplays);
    EXPECT_EQ(1u, stats.m_nReplayedRecords);
}

TEST_F(AccountDataTest, MarginSumsFollowTheOrdersOfTheStore) {
    CAccountDataPtr store = makeStore();
    store->updateData(OrderBuilder().account(m_info).sysId("1").frozenMargin(1500).build(), false);
    store->updateData(OrderBuilder().account(m_info).sysId("2").direction('1').frozenMargin(700).build(),
                      false);
    EXPECT_EQ(1500.0, store->getProductLongMargin("rb"));
    EXPECT_EQ(700.0, store->getProductShortMargin("rb"));
    store->updateData(OrderBuilder().account(m_info).sysId("1").frozenMargin(1500).status('6').build(),
                      false);
    store->removeOrder("2");
    EXPECT_EQ(0.0, store->getProductLongMargin("rb"));
    EXPECT_EQ(0.0, store->getProductShortMargin("rb"));
}

}  // namespace
}  // namespace ttservice
