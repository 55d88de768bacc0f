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
    CAccountDataPtr liveStore() {
        CAccountDataPtr store = makeStore();
        store->setInitialized(true);
        return store;
    }
    static void put(const CAccountDataPtr& store, std::initializer_list<IDataPtr> records,
                    bool cacheOnly = false) {
        for (const IDataPtr& r : records) store->updateData(r, cacheOnly);
    }
    std::vector<test::RecordingCalculator::PriceCall> priceCalls() const {
        return m_calculator->priceCalls();
    }
};

// A replay: latest per key, by kind and key, the account detail in the last slot (shared by two).
TEST_F(AccountDataCacheTest, ReplayOrdersByKindAndKeyWithTheAccountDetailLast) {
    CAccountDataPtr store = liveStore();
    store->startCacheDatas();
    COrderDetailPtr o2 = OrderBuilder().sysId("2").build();
    COrderDetailPtr o1Later = OrderBuilder().sysId("1").traded(5).build();
    CDealDetailPtr d2 = DealBuilder().tradeId("2").build(), d1 = DealBuilder().tradeId("1").build();
    CAccountDetailPtr detail = test::makeAccountDetail(m_info);
    CPositionDetailPtr position = PositionBuilder().build();
    put(store, {detail, d2, o2, OrderBuilder().sysId("1").build(), position, d1, o1Later});
    EXPECT_EQ(0u, m_dataCenter->receivedCount());
    EXPECT_EQ(7u, store->getStatistics().m_nCached);

    store->flushDatas();
    ASSERT_EQ(1u, m_dataCenter->batches().size());
    EXPECT_EQ(m_info, m_dataCenter->batches()[0].account);
    EXPECT_EQ((std::vector<IDataPtr>{o1Later, o2, d1, d2, position, detail}),
              m_dataCenter->batches()[0].datas);

    // Caching has ended: the next push is forwarded at once, and a second flush sends nothing.
    put(store, {o2});
    EXPECT_EQ(1u, m_dataCenter->receivedCount());
    store->flushDatas();
    EXPECT_EQ(1u, m_dataCenter->batches().size());
    EXPECT_EQ(1u, store->getStatistics().m_nReplays);
    EXPECT_EQ(6u, store->getStatistics().m_nReplayedRecords);

    CAccountDetailPtr a = test::makeAccountDetail(m_info);
    a->m_strAccountKey = "A";
    CAccountDetailPtr b = boost::make_shared<CFtAccountDetail>();
    b->m_strAccountKey = "B";
    put(store, {b, o2, a}, true);
    store->flushDatas();
    ASSERT_EQ(2u, m_dataCenter->batches().size());
    EXPECT_EQ((std::vector<IDataPtr>{o2, IDataPtr(), b}), m_dataCenter->batches()[1].datas);
}

// A flush keeps the cache until registered and initialised, but always ends caching.
TEST_F(AccountDataCacheTest, FlushKeepsTheCacheUntilRegisteredAndInitialised) {
    CAccountDataPtr store = liveStore();
    store->startCacheDatas();
    COrderDetailPtr cached = OrderBuilder().sysId("1").build();
    test::LogCapture log;
    put(store, {cached});
    EXPECT_EQ(1u, log.count(">>> [PUSHCACHE] [ACCT|880001] cached push data: [542]-[SHFE_1]-[COrderDetail{"));

    m_dataCenter->removeAccount(m_info->getKey());
    store->flushDatas();
    EXPECT_TRUE(m_dataCenter->batches().empty());

    m_dataCenter->addAccount(m_info->getKey(), store);
    COrderDetailPtr direct = OrderBuilder().sysId("2").build();
    put(store, {direct});
    ASSERT_EQ(1u, m_dataCenter->receivedCount());  // not cached: caching ended with the flush
    EXPECT_EQ(direct, m_dataCenter->received()[0].data);

    store->setInitialized(false);
    put(store, {OrderBuilder().sysId("3").build()});
    EXPECT_EQ(1u, m_dataCenter->receivedCount());
    EXPECT_EQ(3u, store->getVector(542).size());
    store->flushDatas();
    EXPECT_TRUE(m_dataCenter->batches().empty());

    store->setInitialized(true);
    store->flushDatas();
    ASSERT_EQ(1u, m_dataCenter->batches().size());
    EXPECT_EQ(std::vector<IDataPtr>{cached}, m_dataCenter->batches()[0].datas);
}

// Initialisation rebuilds the indexes from the records, which checkIndexes verifies.
TEST_F(AccountDataCacheTest, InitialisationRebuildsTheIndexesFromTheRecords) {
    CAccountDataPtr store = makeStore();
    COrderDetailPtr order = OrderBuilder().ref("r9").sysId("9").tag("t9").build();
    CDealDetailPtr deal = DealBuilder().orderSysId("9").build();
    store->setDatas({{542, {{order->getKey(), order}}}, {544, {{deal->getKey(), deal}}}});
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

    order->m_strOrderSysID = "Z";
    EXPECT_FALSE(store->checkIndexes(&report));
    EXPECT_NE(std::string::npos, report.find("S1")) << report;  // the entry of 9 holds an order of Z
    EXPECT_NE(std::string::npos, report.find("A1")) << report;  // the order of Z has no entry
    store->setInitialized(true);
    EXPECT_TRUE(store->checkIndexes(&report)) << report;
    EXPECT_TRUE(store->getOrderById("Z"));
    EXPECT_FALSE(store->getOrderById("9"));
}

// On account types 1001/1002 initialisation recomputes the commission of open orders with a fee.
TEST_F(AccountDataCacheTest, CommissionOfOpenOrdersIsRecomputedOnCommissionAccounts) {
    // Account type, and the open order's commission after initialisation.
    for (const auto& c : {std::make_pair(1001, 35.0), std::make_pair(1002, 35.0), std::make_pair(1, 1.5)}) {
        const CAccountInfoPtr info = test::makeAccountInfo("c" + std::to_string(c.first), c.first);
        CAccountDataPtr store = makeStore(1000, true, info);
        CInstrumentFeePtr fee =
            test::makeInstrumentFee(info, test::makeInstrument("SHFE", "rb2501", "rb", 10));
        fee->m_dOpenRatioByMoney = 0.0001;
        auto o = [&info](const char* id) { return OrderBuilder().account(info).sysId(id); };
        COrderDetailPtr open = o("1").price(3500).volume(10).commission(1.5).build();
        COrderDetailPtr done = o("2").status('8').traded(10).commission(7.7).build();
        COrderDetailPtr noFee = o("3").instrument("rb2505").commission(1.1).build();
        put(store, {fee, open, done, noFee});
        store->setInitialized(true);
        EXPECT_DOUBLE_EQ(c.second, open->m_dCommission) << c.first;
        EXPECT_DOUBLE_EQ(7.7, done->m_dCommission) << c.first;
        EXPECT_DOUBLE_EQ(1.1, noFee->m_dCommission) << c.first;
    }
}

// Positions, compacts and gold storage subscribe their quote once per instrument, for the store's life.
TEST_F(AccountDataCacheTest, QuotesAreSubscribedOncePerInstrument) {
    CAccountDataPtr store = makeStore();
    put(store, {PositionBuilder().direction('0').volume(3).build(),
                PositionBuilder().direction('1').volume(2).build(),
                PositionBuilder().instrument("ag2506").volume(0).yesterdayVolume(3).build(),
                test::makeCompact(m_info, "SH", "600000", "C1"), test::makeGoldStorage("Au99.99", 10)});
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
    put(store, {PositionBuilder().instrument("cu2502").build(),
                PositionBuilder().instrument("cu2502").direction('1').build()});
    EXPECT_EQ(1u, m_board->subscriberCount("SHFE", "cu2502"));

    // The subscriptions end with the store.
    m_stores.clear();
    m_dataCenter->removeAccount(m_info->getKey());
    store->clear();
    net::RPCEngine::instance()->poll();
    store.reset();
    EXPECT_EQ(0u, m_board->subscriberCount("SHFE", "rb2501"));
}

// A position with only yesterday's volume is quoted on account types 2, 3, 7, 10 and 11 only.
TEST_F(AccountDataCacheTest, YesterdayOnlyPositionsAreQuotedOnStockLikeAccounts) {
    const std::pair<int, size_t> cases[] = {{1, 0}, {2, 1},  {3, 1},  {5, 0},
                                            {7, 1}, {10, 1}, {11, 1}, {1001, 0}};  // type, quoted
    for (const auto& c : cases) {
        const std::string instrument = "i" + std::to_string(c.first);
        CAccountDataPtr store = makeStore(1000, true, test::makeAccountInfo("y" + instrument, c.first));
        put(store, {PositionBuilder().instrument(instrument).volume(0).yesterdayVolume(5).build(),
                    PositionBuilder().instrument(instrument + "z").volume(0).yesterdayVolume(0).build()});
        store->setInitialized(true);
        EXPECT_EQ(c.second, m_board->subscriberCount("SHFE", instrument)) << c.first;
        EXPECT_EQ(0u, m_board->subscriberCount("SHFE", instrument + "z")) << c.first;
    }
}

// A position is valued at the last price, else the previous close, else not at all (logged).
TEST_F(AccountDataCacheTest, ValuationPriceIsTheLastPriceWithPreviousCloseFallback) {
    m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3500, 3400));
    m_board->publishQuote(test::makeQuote("SHFE", "cu2502", 0, 75000));
    m_board->publishQuote(test::makeQuote("SHFE", "al2502", 0, 0));
    CAccountDataPtr store = makeStore();
    put(store,
        {PositionBuilder().instrument("rb2501").build(), PositionBuilder().instrument("cu2502").build(),
         PositionBuilder().instrument("al2502").build(),
         PositionBuilder().instrument("zn2502").build()});  // no quote at all
    test::LogCapture log;
    store->setInitialized(true);
    EXPECT_EQ((PriceChangeMap{{"SHFErb2501", 3500}, {"SHFEcu2502", 75000}}), store->getPendingPriceChanges());
    EXPECT_EQ(1u, log.count("on updatePrice : SHFErb2501, 3500"));
    EXPECT_EQ(1u, log.count("on updatePrice SHFEal2502"));
    EXPECT_EQ(1u, log.count("on updatePrice SHFEzn2502"));

    // A new quote of a subscribed instrument replaces its pending price.
    m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3520));
    m_board->publishQuote(test::makeQuote("SHFE", "ni2502", 130000));  // not held: not subscribed
    EXPECT_EQ(3520.0, store->getPendingPriceChanges()["SHFErb2501"]);
    EXPECT_EQ(0u, store->getPendingPriceChanges().count("SHFEni2502"));
}

// Each interval the pending changes go to the calculator (and the debug log), until clear().
TEST_F(AccountDataCacheTest, RefreshRunsEveryIntervalUntilCleared) {
    m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3500));
    CAccountDataPtr store = makeStore(1000);
    put(store, {PositionBuilder().build()});
    store->setInitialized(true);

    EXPECT_EQ(0u, advanceMs(999));
    EXPECT_TRUE(priceCalls().empty());
    test::LogCapture log;
    EXPECT_EQ(1u, advanceMs(1));
    ASSERT_EQ(1u, priceCalls().size());
    EXPECT_EQ(store, priceCalls()[0].account);
    EXPECT_EQ(3500.0, priceCalls()[0].changes.at("SHFErb2501"));
    EXPECT_TRUE(store->getPendingPriceChanges().empty());
    EXPECT_EQ(std::vector<std::string>{"[dbg_id=103] CAccountData::updatePrice 880001: SHFErb2501=3500,"},
              log.texts(utils::LOGGER_DBG));

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

// Below 1 refreshes once, 2147483647 never; a changed interval applies from the next arming.
TEST_F(AccountDataCacheTest, IntervalRules) {
    // Interval, and the refreshes in 10 s.
    const std::pair<int, size_t> cases[] = {{0, 1}, {-5, 1}, {2147483647, 0}, {2000, 5}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first);
        m_calculator->clear();
        CAccountDataPtr store = makeStore(c.first);
        put(store, {PositionBuilder().build()});
        m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3500));
        store->setInitialized(true);
        for (int second = 0; second < 10; ++second) {
            m_board->publishQuote(test::makeQuote("SHFE", "rb2501", 3500 + second));
            advanceMs(1000);
        }
        EXPECT_EQ(c.second, priceCalls().size());
        EXPECT_TRUE(c.second != 0 || !store->getPendingPriceChanges().empty());  // collected, never handed on
        store->clear();
        advanceMs(0);
    }

    CAccountDataPtr store = liveStore();
    store->setUpdateInterval(5000);
    EXPECT_EQ(1u, advanceMs(1000));  // armed before the change
    EXPECT_EQ(0u, advanceMs(4999));
    EXPECT_EQ(1u, advanceMs(1));
}

}  // namespace
}  // namespace ttservice
