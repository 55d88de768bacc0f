// What a replay does with the events of a session: the account info of records, the push cache and
// its replay order, forwarding by registration, clear and remove, the refresh timers on the manual
// clock, and the answers of the queries.
#include <gtest/gtest.h>

#include "ReplayTestUtil.h"

namespace ttservice {
namespace replay {
namespace {

using test::joinLines;
using test::replaySession;
using ::testing::HasSubstr;

const std::string kStock =
    R"({"event":"create_account","info":{"m_nPlatformID":10001,"m_nAccountType":2,"m_strAccountID":"S"}})";

// An account event ("register", "flush", ...) of the stock account.
std::string ev(const std::string& name) {
    return R"({"event":")" + name + R"(","account":"10001_S"})";
}

std::string record(const std::string& json, bool cacheOnly = false) {
    return std::string(R"({"event":"record","account":"10001_S",)") +
           (cacheOnly ? R"("cache_only":true,)" : "") + "\"record\":" + json + "}";
}

std::string order(const std::string& id) {
    return record(R"({"class":"COrderDetail","m_strExchangeID":"SH","m_strOrderSysID":")" + id + "\"}");
}

const std::string kPosition = record(
    R"({"class":"CPositionDetail","m_strExchangeID":"SH","m_strInstrumentID":"600000","m_nVolume":100})");

const Json::Value& account(const test::CReplayRun& r) {
    return r.summary["accounts"][0];
}

// A stock order that traded its whole volume but is still "partly traded" ('7'): on a stock account
// only the entrust status completes an order; on a futures account a fully traded one is complete.
const std::string kFilledButPartStatus =
    R"({"class":"COrderDetail","m_strExchangeID":"SH","m_strInstrumentID":"600000","m_strOrderSysID":"9","m_eOrderStatus":55,"m_nVolumeTotalOriginal":100,"m_nVolumeTraded":100)";

TEST(ReplaySession, RecordsWithoutAccountInfoGetTheAccounts) {
    const test::CReplayRun r = replaySession(joinLines({kStock, record(kFilledButPartStatus + "}")}));
    ASSERT_EQ(0u, r.counters.m_nErrors) << r.err;
    EXPECT_EQ(1u, account(r)["openOrderCount"].asUInt64())
        << "completed by the stock account's rule: still open";
    // A record's own account info is kept: with the futures info of its own the order is complete.
    const test::CReplayRun own = replaySession(joinLines(
        {kStock,
         record(kFilledButPartStatus +
                R"(,"m_accountInfo":{"m_nPlatformID":20001,"m_nAccountType":1,"m_strAccountID":"F"}})")}));
    EXPECT_EQ(0u, account(own)["openOrderCount"].asUInt64());
}

// The cache replays in kind and key order with the funds last, and nothing goes one by one while
// caching; a cache-only record allows a flush without start_cache.
TEST(ReplaySession, TheCacheReplaysInKindAndKeyOrderWithTheFundsLast) {
    const test::CReplayRun r = replaySession(joinLines(
        {kStock, ev("register"), ev("initialize"), ev("start_cache"),
         record(R"({"class":"CAccountDetail","m_dAvailable":1})"),
         record(
             R"({"class":"CDealDetail","m_strExchangeID":"SH","m_strTradeID":"T2","m_strOrderSysID":"2"})"),
         order("2"), order("1"), ev("flush"), record(R"({"class":"CAccountDetail","m_dAvailable":1})", true),
         ev("flush")}));
    ASSERT_EQ(0u, r.counters.m_nErrors) << r.err;
    const Json::Value& flushes = account(r)["dataCenter"]["flushes"];
    ASSERT_EQ(2u, flushes.size());
    std::vector<std::string> replayed;
    for (const Json::Value& k : flushes[0]["order"])
        replayed.push_back(k["kind"].asString() + ":" + k["key"].asString());
    EXPECT_EQ((std::vector<std::string>{"542:SH_1", "542:SH_2", "544:SH_T2_0", "543:10001_S"}), replayed);
    EXPECT_TRUE(account(r)["dataCenter"]["forwarded"].empty()) << "nothing went one by one while caching";
    EXPECT_THAT(r.out, HasSubstr("line 9 flush 10001_S: 4 slot(s) replayed"));
    EXPECT_EQ(1u, flushes[1]["slots"].asUInt64()) << "the cache-only record";
}

// A flush that finds the account unregistered keeps the push cache; once the account is back, a
// flush without a new start_cache replays what was kept.
TEST(ReplaySession, ACacheKeptByAFlushIsReplayedByTheNextOne) {
    const test::CReplayRun r =
        replaySession(joinLines({kStock, ev("register"), ev("initialize"), ev("start_cache"), order("1"),
                                 ev("remove"), ev("flush"), ev("register"), ev("flush"), ev("flush")}));
    EXPECT_THAT(r.out,
                HasSubstr("line 7 flush 10001_S: nothing replayed (not registered: the cache is kept)"));
    EXPECT_THAT(r.out, HasSubstr("line 9 flush 10001_S: 1 slot(s) replayed"));
    ASSERT_EQ(1u, account(r)["dataCenter"]["flushes"].size());
    EXPECT_EQ("SH_1", account(r)["dataCenter"]["flushes"][0]["order"][0]["key"].asString());
    // The cache is empty again: one more flush has nothing to replay and is out of order.
    EXPECT_EQ(1u, r.counters.m_nErrors) << r.err;
    EXPECT_THAT(r.err, ::testing::StartsWith("session:10: flush of account '10001_S' without start_cache"));
}

TEST(ReplaySession, OnlyARegisteredInitialisedAccountForwardsAndSubscribersHearEverything) {
    const test::CReplayRun r = replaySession(joinLines({
        kStock, order("1"),                        // not registered: filed, told to subscribers
        ev("register"), order("1"),                // registered, not initialised
        ev("initialize"), order("1"), order("1"),  // forwarded
        ev("remove"), order("1"),                  // removed: not forwarded
        ev("register"), order("1"),                // back: forwarded
    }));
    ASSERT_EQ(0u, r.counters.m_nErrors) << r.err;
    EXPECT_EQ(6u, account(r)["subscribers"]["542"].asUInt64());
    EXPECT_EQ(3u, account(r)["dataCenter"]["forwarded"]["542"].asUInt64());
    EXPECT_TRUE(account(r)["registered"].asBool());
}

TEST(ReplaySession, ClearEmptiesTheStoreAndTheSubscribersKeepListening) {
    const test::CReplayRun r =
        replaySession(joinLines({kStock, order("1"), kPosition, ev("clear"), order("2")}));
    ASSERT_EQ(0u, r.counters.m_nErrors) << r.err;
    EXPECT_EQ("{\"542\":1}", compactJson(account(r)["held"]));
    EXPECT_EQ(0u, account(r)["positionCount"].asUInt64());
    EXPECT_EQ(2u, account(r)["subscribers"]["542"].asUInt64());
}

TEST(ReplaySession, TheRefreshTimerFiresOnlyWhenTheClockIsAdvanced) {
    auto session = [](int interval) {
        return joinLines({
            R"({"event":"create_account","info":{"m_nPlatformID":10001,"m_nAccountType":2,"m_strAccountID":"S"},"interval":)" +
                std::to_string(interval) + "}",
            kPosition,
            ev("register"),
            ev("initialize"),
            R"({"event":"quote","quote":{"m_strExchangeID":"SH","m_strInstrumentID":"600000","m_dLastPrice":7.5}})",
            R"({"event":"advance","ms":999})",
            R"({"event":"advance","ms":1})",
            R"({"event":"advance","ms":1000})",
        });
    };
    const test::CReplayRun r = replaySession(session(1000));
    ASSERT_EQ(0u, r.counters.m_nErrors) << r.err;
    EXPECT_THAT(r.out, HasSubstr("line 6 advance 999 ms: 0 timer(s) fired, 0 revaluation(s)\n"));
    EXPECT_THAT(
        r.out,
        HasSubstr(
            "line 7 advance 1 ms: 1 timer(s) fired, 1 revaluation(s)\n  revalue 10001_S: SH600000=7.5\n"));
    EXPECT_THAT(r.out, HasSubstr("line 8 advance 1000 ms: 1 timer(s) fired, 0 revaluation(s)\n"));
    EXPECT_EQ(1u, account(r)["revaluations"]["count"].asUInt64());
    const test::CReplayRun off = replaySession(session(2147483647));
    EXPECT_EQ(0u, account(off)["revaluations"]["count"].asUInt64()) << off.out;
}

TEST(ReplaySession, QueriesAnswerFromTheReferenceDataAndTheQuotes) {
    const test::CReplayRun r = replaySession(joinLines({
        R"({"event":"exchanges","exchanges":[{"m_strExchangeID":"SH","m_strTradeDay":"20240314"},{"m_strExchangeID":"SZ","m_strTradeDay":"20240315"}]})",
        R"({"event":"instruments","instruments":[{"m_strExchangeID":"SHFE","m_strInstrumentID":"rb2405","m_strProductID":"rb","m_nVolumeMultiple":10}]})",
        R"({"event":"tick_table","key":"HGT","ticks":[[0.25,0.001],[0.5,0.005],[10,0.05]]})",
        R"({"event":"exchange_rate","rate":{"m_mapRates":{"HKD":0.92}}})",
        R"({"event":"quote","quote":{"m_strExchangeID":"SH","m_strInstrumentID":"600000","m_dLastPrice":7.5,"m_dAskPrice1":7.51}})",
        R"({"event":"create_account","info":{"m_nPlatformID":20001,"m_nAccountType":1,"m_strAccountID":"F"}})",
        R"({"event":"custom_fees","account":"20001_F","market":"future","table":{"m_vMarginRates":[{"m_strCategory":"10010","m_mapCustomCategory":{"10010":["rb2405"]},"m_dLongMarginRatioByMoney":0.12}]}})",
        R"({"event":"query","what":"tick_size","key":"HGT","price":0.3})",
        R"({"event":"query","what":"tick_size","key":"HGT","price":50})",
        R"({"event":"query","what":"exchange_rate","currency":"HKD"})",
        R"({"event":"query","what":"exchange_rate","currency":"USD"})",
        R"({"event":"query","what":"trade_day"})",
        R"({"event":"query","id":"q1","what":"order_price","exchange":"SH","instrument":"600000","price_type":11,"operation":18,"fix_price":7.2})",
        R"({"event":"query","what":"order_price","exchange":"SH","instrument":"600001","price_type":4,"operation":18})",
        R"({"event":"query","what":"instrument","market":"CZCE","code":"rb2405"})",
        R"({"event":"query","what":"instrument","market":"SH","code":"rb2405"})",
        R"({"event":"query","what":"fees","account":"20001_F","exchange":"SHFE","instrument":"rb2405"})",
    }));
    ASSERT_EQ(0u, r.counters.m_nErrors) << r.err;
    for (const char* expected : {
             "line 8 tick_size HGT price 0.3: 0.005\n",
             "line 9 tick_size HGT price 50: 0.01\n",  // above every bound: the default
             "line 10 exchange_rate HKD: 0.92\n",
             "line 11 exchange_rate USD: 1\n",
             "line 12 trade_day (stock): 20240315\n",
             "line 13 order_price [q1] SH 600000 type 11 operation 18 for order fix 7.2: 7.2\n",
             "line 14 order_price SH 600001 type 4 operation 18 for order: no price (no quote published)\n",
             "line 15 instrument CZCE rb2405: SHFErb2405 (real market SHFE)",
             "line 16 instrument SH rb2405: unknown\n",
             "line 17 fees 20001_F SHFE rb2405 (future): {\"m_dLongMarginRatioByMoney\":0.12}\n",
         })
        EXPECT_THAT(r.out, HasSubstr(expected));
}

}  // namespace
}  // namespace replay
}  // namespace ttservice
