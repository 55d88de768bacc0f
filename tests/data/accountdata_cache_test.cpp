// The time-driven side of the account store: initialisation (index rebuild, commission, quote
// subscriptions), the price refresh on the dispatcher's manual clock, and the push cache replay.
#include "testing/LogCapture.h"
#include "testing/StoreTestFixture.h"

namespace ttservice {
namespace {

using test::DealBuilder;
using test::OrderBuilder;
using test::PositionBuilder;

class AccountDataCacheTest : public test::StoreTestFixture {
protected:
    CAccountDataPtr liveStore(int interval = 1000) {
        CAccountDataPtr store = makeStore(interval);
        store->setInitialized(true);
        return store;
    }
    std::vector<test::RecordingCalculator::PriceCall> priceCalls() const {
        return m_calculator->priceCalls();
    }
};

// ---- push cache ----------------------------------------------------------------------------------

TEST_F(AccountDataCacheTest, ReplayDeliversOrdersThenDealsThenTheAccountDetailLast) {
    CAccountDataPtr store = liveStore();
    store->startCacheDatas();
    COrderDetailPtr o2 = OrderBuilder().sysId("2").build();
    COrderDetailPtr o1 = OrderBuilder().sysId("1").build();
    COrderDetailPtr o1Later = OrderBuilder().sysId("1").traded(5).build();
    CDealDetailPtr d2 = DealBuilder().tradeId("2").build();
    CDealDetailPtr d1 = DealBuilder().tradeId("1").build();
    CAccountDetailPtr detail = test::makeAccountDetail(m_info);
    CPositionDetailPtr position = PositionBuilder().build();
    store->updateData(detail, false);
    store->updateData(d2, false);
    store->updateData(o2, false);
    store->updateData(o1, false);
    store->updateData(position, false);
    store->updateData(d1, false);
    store->updateData(o1Later, false);  // only the latest of one kind and key is kept
    EXPECT_EQ(0u, m_dataCenter->receivedCount());
    EXPECT_EQ(7u, store->getStatistics().m_nCached);

    store->flushDatas();
    const std::vector<test::FakeDataCenter::Batch> batches = m_dataCenter->batches();
    ASSERT_EQ(1u, batches.size());
    EXPECT_EQ(m_info, batches[0].account);
    const std::vector<IDataPtr> expected = {o1Later, o2, d1, d2, position, detail};
    EXPECT_EQ(expected, batches[0].datas);

    // Caching has ended: the next push is forwarded at once, and a second flush sends nothing.
    store->updateData(o2, false);
    EXPECT_EQ(1u, m_dataCenter->receivedCount());
    store->flushDatas();
    EXPECT_EQ(1u, m_dataCenter->batches().size());
    EXPECT_EQ(1u, store->getStatistics().m_nReplays);
    EXPECT_EQ(6u, store->getStatistics().m_nReplayedRecords);
}

TEST_F(AccountDataCacheTest, TwoAccountDetailsShareTheLastSlot) {
    CAccountDataPtr store = liveStore();
    CAccountDetailPtr a = test::makeAccountDetail(m_info);
    a->m_strAccountKey = "A";
    CAccountDetailPtr b = boost::make_shared<CFtAccountDetail>();
    b->m_strAccountKey = "B";
    COrderDetailPtr order = OrderBuilder().build();
    store->updateData(b, true);
    store->updateData(order, true);
    store->updateData(a, true);
    store->flushDatas();
    ASSERT_EQ(1u, m_dataCenter->batches().size());
    const std::vector<IDataPtr> batch = m_dataCenter->batches()[0].datas;
    ASSERT_EQ(3u, batch.size());
    EXPECT_EQ(order, batch[0]);
    EXPECT_FALSE(batch[1]);  // deliberately left empty
    EXPECT_EQ(b, batch[2]);  // the later in key order wins
}

TEST_F(AccountDataCacheTest, FlushBeforeRegistrationKeepsTheCacheButEndsCaching) {
    CAccountDataPtr store = liveStore();
    store->startCacheDatas();
    COrderDetailPtr cached = OrderBuilder().sysId("1").build();
    test::LogCapture log;
    store->updateData(cached, false);
    EXPECT_EQ(1u, log.count(">>> [PUSHCACHE] [ACCT|880001] cached push data: [542]-[SHFE_1]-[COrderDetail{"));

    m_dataCenter->removeAccount(m_info->getKey());
    store->flushDatas();
    EXPECT_TRUE(m_dataCenter->batches().empty());

    m_dataCenter->addAccount(m_info->getKey(), store);
    COrderDetailPtr direct = OrderBuilder().sysId("2").build();
    store->updateData(direct, false);
    ASSERT_EQ(1u, m_dataCenter->receivedCount());  // not cached: caching ended with the flush
    EXPECT_EQ(direct, m_dataCenter->received()[0].data);

    store->flushDatas();
    ASSERT_EQ(1u, m_dataCenter->batches().size());
    EXPECT_EQ(std::vector<IDataPtr>{cached}, m_dataCenter->batches()[0].datas);
}

TEST_F(AccountDataCacheTest, FlushOfAStoreThatIsNotInitialisedKeepsTheCache) {
    CAccountDataPtr store = liveStore();
    COrderDetailPtr cached = OrderBuilder().build();
    store->updateData(cached, true);
    store->setInitialized(false);
    store->flushDatas();
    EXPECT_TRUE(m_dataCenter->batches().empty());
    store->setInitialized(true);
    store->flushDatas();
    ASSERT_EQ(1u, m_dataCenter->batches().size());
    EXPECT_EQ(std::vector<IDataPtr>{cached}, m_dataCenter->batches()[0].datas);
}

// ---- initialisation ------------------------------------------------------------------------------

TEST_F(AccountDataCacheTest, InitialisationRebuildsTheIndexesFromTheRecords) {
    CAccountDataPtr store = makeStore();
    COrderDetailPtr order = OrderBuilder().sysId("9").tag("t9").build();
    CDealDetailPtr deal = DealBuilder().orderSysId("9").build();
    CAccountData::KindDataMap datas;
    datas[542][order->getKey()] = order;
    datas[544][deal->getKey()] = deal;
    store->setDatas(datas);
    EXPECT_FALSE(store->getOrderById("9"));
    std::string report;
    EXPECT_TRUE(store->checkIndexes(&report)) << report;

    store->setInitialized(true);
    EXPECT_EQ(order, store->getOrderById("9"));
    EXPECT_EQ(order, store->getOrderByNqTag(order->m_tag));
    std::vector<CDealDetailPtr> deals;
    store->getDeals(order, deals);
    EXPECT_EQ(std::vector<CDealDetailPtr>{deal}, deals);
    EXPECT_TRUE(store->checkIndexes(&report)) << report;
}

TEST_F(AccountDataCacheTest, CommissionOfOpenOrdersIsRecomputedOnCommissionAccounts) {
    struct Case {
        int accountType;
        double openOrder;  // expected commission of the open order
    } cases[] = {{1001, 35.0}, {1002, 35.0}, {1, 1.5}};
    for (const Case& c : cases) {
        const CAccountInfoPtr info =
            test::makeAccountInfo("c" + std::to_string(c.accountType), c.accountType);
        CAccountDataPtr store = makeStore(1000, true, info);
        CInstrumentFeePtr fee =
            test::makeInstrumentFee(info, test::makeInstrument("SHFE", "rb2501", "rb", 10));
        fee->m_dOpenRatioByMoney = 0.0001;
        store->updateData(fee, false);
        COrderDetailPtr open =
            OrderBuilder().account(info).sysId("1").price(3500).volume(10).commission(1.5).build();
        COrderDetailPtr done =
            OrderBuilder().account(info).sysId("2").status('8').traded(10).commission(7.7).build();
        COrderDetailPtr noFee =
            OrderBuilder().account(info).sysId("3").instrument("rb2505").commission(1.1).build();
        store->updateData(open, false);
        store->updateData(done, false);
        store->updateData(noFee, false);
        store->setInitialized(true);
        EXPECT_DOUBLE_EQ(c.openOrder, open->m_dCommission) << c.accountType;
        EXPECT_DOUBLE_EQ(7.7, done->m_dCommission) << c.accountType;
        EXPECT_DOUBLE_EQ(1.1, noFee->m_dCommission) << c.accountType;
    }
}

TEST_F(AccountDataCacheTest, QuotesAreSubscribedOncePerInstrument) {
    CAccountDataPtr store = makeStore();
    store->updateData(PositionBuilder().direction('0').volume(3).build(), false);
    store->updateData(PositionBuilder().direction('1').volume(2).build(), false);
    store->updateData(PositionBuilder().instrument("ag2506").volume(0).yesterdayVolume(3).build(), false);
    store->updateData(test::makeCompact(m_info, "SH", "600000", "C1"), false);
    store->updateData(test::makeGoldStorage("Au99.99", 10), false);
    test::LogCapture log;
    store->setInitialized(true);
    store->setInitialized(true);

    EXPECT_EQ(1u, m_board->subscriberCount("SHFE", "rb2501"));
    EXPECT_EQ(0u, m_board->subscriberCount("SHFE", "ag2506"));  // no volume today on a futures account
    EXPECT_EQ(1u, m_board->subscriberCount("SH", "600000"));
    EXPECT_EQ(1u, m_board->subscriberCount("SHGE", "Au99.99"));
    EXPECT_EQ(4u, log.count("setInitialized sub quoter SHFE rb2501 account 880001"));  // 2 positions, 2 calls
    EXPECT_EQ(2u, log.count("setInitialized sub quoter SH 600000 account 880001 NQ_CStkCompacts"));
    EXPECT_EQ(2u, log.count("setInitialized sub quoter SHGE Au99.99 account 880001 GoldStorage"));
    EXPECT_EQ(2u, log.count("CAccountData::restart onTimer 880001: 1000"));
    EXPECT_EQ(2u, log.count("ttservice::CAccountData::setInitialized : account = 20001_880001, inited = "));

    // A position that arrives afterwards for a new instrument is quoted too, once.
    store->updateData(PositionBuilder().instrument("cu2502").volume(1).build(), false);
    store->updateData(PositionBuilder().instrument("cu2502").direction('1').volume(1).build(), false);
    EXPECT_EQ(1u, m_board->subscriberCount("SHFE", "cu2502"));

    // The subscriptions end with the store.
    m_stores.clear();
    m_dataCenter->removeAccount(m_info->getKey());
    store->clear();
    net::RPCEngine::instance()->poll();
    store.reset();
    EXPECT_EQ(0u, m_board->subscriberCount("SHFE", "rb2501"));
}

TEST_F(AccountDataCacheTest, YesterdayOnlyPositionsAreQuotedOnStockLikeAccounts) {
    const struct {
        int accountType;
        bool quoted;
    } cases[] = {{1, false}, {2, true},  {3, true},  {5, false},
                 {7, true},  {10, true}, {11, true}, {1001, false}};
    for (const auto& c : cases) {
        const CAccountInfoPtr info =
            test::makeAccountInfo("y" + std::to_string(c.accountType), c.accountType);
        CAccountDataPtr store = makeStore(1000, true, info);
        const std::string instrument = "i" + std::to_string(c.accountType);
        store->updateData(PositionBuilder().instrument(instrument).volume(0).yesterdayVolume(5).build(),
                          false);
        store->updateData(PositionBuilder().instrument(instrument + "z").volume(0).yesterdayVolume(0).build(),
                          false);
        store->setInitialized(true);
        EXPECT_EQ(c.quoted ? 1u : 0u, m_board->subscriberCount("SHFE", instrument)) << c.accountType;
        EXPECT_EQ(0u, m_board->subscriberCount("SHFE", instrument + "z")) << c.accountType;
    }
}

TEST_F(AccountDataCacheTest, ValuationPriceIsTheLastPriceWithPreviousCloseFallback) {
    m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3500, 3400));
    m_board->publishQuote(test::makeQuote("SHFE", "cu2502", 0, 75000));
    m_board->publishQuote(test::makeQuote("SHFE", "al2502", 0, 0));
    CAccountDataPtr store = makeStore();
    store->updateData(PositionBuilder().instrument("rb2501").build(), false);
    store->updateData(PositionBuilder().instrument("cu2502").build(), false);
    store->updateData(PositionBuilder().instrument("al2502").build(), false);
    store->updateData(PositionBuilder().instrument("zn2502").build(), false);  // no quote at all
    test::LogCapture log;
    store->setInitialized(true);
    PriceChangeMap expected;
    expected["SHFErb2501"] = 3500;
    expected["SHFEcu2502"] = 75000;
    EXPECT_EQ(expected, store->getPendingPriceChanges());
    EXPECT_EQ(1u, log.count("on updatePrice : SHFErb2501, 3500"));
    EXPECT_EQ(1u, log.count("on updatePrice SHFEal2502"));
    EXPECT_EQ(1u, log.count("on updatePrice SHFEzn2502"));

    // A new quote of a subscribed instrument replaces its pending price.
    m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3520));
    m_board->publishQuote(test::makeQuote("SHFE", "ni2502", 130000));  // not held: not subscribed
    EXPECT_EQ(3520.0, store->getPendingPriceChanges()["SHFErb2501"]);
    EXPECT_EQ(0u, store->getPendingPriceChanges().count("SHFEni2502"));
}

// ---- the refresh timer ------------------------------------------------------------------------

TEST_F(AccountDataCacheTest, RefreshRunsEveryIntervalUntilCleared) {
    m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3500));
    CAccountDataPtr store = makeStore(1000);
    store->updateData(PositionBuilder().build(), false);
    store->setInitialized(true);

    EXPECT_EQ(0u, advanceMs(999));
    EXPECT_TRUE(priceCalls().empty());
    test::LogCapture log;
    EXPECT_EQ(1u, advanceMs(1));
    ASSERT_EQ(1u, priceCalls().size());
    EXPECT_EQ(store, priceCalls()[0].account);
    EXPECT_EQ(3500.0, priceCalls()[0].changes.at("SHFErb2501"));
    EXPECT_TRUE(store->getPendingPriceChanges().empty());
    const std::vector<std::string> dbg = log.texts(utils::LOGGER_DBG);
    ASSERT_EQ(1u, dbg.size());
    EXPECT_EQ("[dbg_id=103] CAccountData::updatePrice 880001: SHFErb2501=3500,", dbg[0]);

    EXPECT_EQ(1u, advanceMs(1000));  // nothing pending: the calculator is not called
    EXPECT_EQ(1u, priceCalls().size());
    m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3600));
    EXPECT_EQ(1u, advanceMs(1000));
    ASSERT_EQ(2u, priceCalls().size());
    EXPECT_EQ(3600.0, priceCalls()[1].changes.at("SHFErb2501"));

    store->clear();
    m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3700));
    EXPECT_EQ(0u, advanceMs(10000));
    EXPECT_EQ(2u, priceCalls().size());
}

TEST_F(AccountDataCacheTest, IntervalRules) {
    struct Case {
        const char* what;
        int interval;
        size_t refreshesIn10s;
    } cases[] = {
        {"below 1: one refresh, then the cycle ends", 0, 1},
        {"negative: one refresh", -5, 1},
        {"2147483647: never refreshes", 2147483647, 0},
        {"2 seconds", 2000, 5},
    };
    for (const Case& c : cases) {
        m_calculator->clear();
        CAccountDataPtr store = makeStore(c.interval);
        store->updateData(PositionBuilder().build(), false);
        m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3500));
        store->setInitialized(true);
        for (int second = 0; second < 10; ++second) {
            m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3500 + second));
            advanceMs(1000);
        }
        EXPECT_EQ(c.refreshesIn10s, priceCalls().size()) << c.what;
        if (c.refreshesIn10s == 0) {
            EXPECT_FALSE(store->getPendingPriceChanges().empty()) << c.what;
        }
        store->clear();
        advanceMs(0);
    }
}

TEST_F(AccountDataCacheTest, NewIntervalTakesEffectWhenTheTimerIsNextArmed) {
    CAccountDataPtr store = makeStore(1000);
    store->updateData(PositionBuilder().build(), false);
    store->setInitialized(true);
    store->setUpdateInterval(5000);
    EXPECT_EQ(5000, store->getPriceUpdateInterval());
    EXPECT_EQ(1u, advanceMs(1000));  // armed before the change
    EXPECT_EQ(0u, advanceMs(4999));
    EXPECT_EQ(1u, advanceMs(1));
}

TEST_F(AccountDataCacheTest, UninitialisingStopsForwardingButNotTheFiling) {
    CAccountDataPtr store = liveStore();
    store->updateData(OrderBuilder().sysId("1").build(), false);
    store->setInitialized(false);
    EXPECT_FALSE(store->initialized());
    store->updateData(OrderBuilder().sysId("2").build(), false);
    EXPECT_EQ(1u, m_dataCenter->receivedCount());
    EXPECT_EQ(2u, store->getVector(542).size());
}

}  // namespace
}  // namespace ttservice
