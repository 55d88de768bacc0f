// DataCenter under concurrent use (run under ThreadSanitizer): instrument reloads against look-ups,
// fee tables and category rules replaced during merges, listeners coming and going during delivery.
#include <gtest/gtest.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <thread>
#include <vector>

#include "base/data/DataCenter.h"
#include "category/CppCategory.h"
#include "testing/RecordBuilders.h"

using namespace ttservice;

namespace {

using test::makeNamedInstrument;

// Reloads are atomic for readers: a look-up sees one whole generation of the table, never a mix of
// two or a half-erased market; the futures fallback always finds a contract of a reloaded
// exchange; the DCE spread lists, the IPO code and the four indexes always agree with the table.
TEST(DataCenterConcurrent, ReloadAndLookUpsSeeWholeGenerations) {
    DataCenter dc;
    const int kInstruments = 200;
    const int kSpreads = 5;
    const int kGenerations = 150;
    auto generation = [&](int g) {
        std::vector<CInstrumentDetailPtr> details;
        for (int i = 0; i < kInstruments; ++i) {
            CInstrumentDetailPtr d =
                makeNamedInstrument("SH", std::to_string(600000 + i), "G" + std::to_string(g), "P");
            d->m_bIsIPO = (i == g % kInstruments);
            details.push_back(d);
        }
        details.push_back(makeNamedInstrument("DCE", "m2409", "豆粕2409", "m"));
        for (int i = 0; i < kSpreads; ++i) {
            CInstrumentDetailPtr spread =
                makeNamedInstrument("DCE", "SP m2409&m250" + std::to_string(i + 1), "", "m");
            spread->m_bIsCombination = true;
            details.push_back(spread);
        }
        return details;
    };
    dc.setInstrumentDetail({"SH", "DCE"}, generation(0));
    std::atomic<int> started(0);
    std::atomic<bool> done(false);
    std::atomic<int> problems(0);
    std::atomic<int> lookUps(0);
    std::thread writer([&] {
        while (started < 2) std::this_thread::yield();  // both readers run while the table changes
        for (int g = 1; g <= kGenerations; ++g) dc.setInstrumentDetail({"SH", "DCE"}, generation(g));
        done = true;
    });
    auto reader = [&] {
        ++started;
        int n = 0;
        do {
            const InstrumentMap all = dc.getExchangeInstruments("SH");
            if (all.size() != static_cast<size_t>(kInstruments)) {
                ++problems;
                continue;
            }
            const std::string name = all.begin()->second->m_strInstrumentName;
            for (const auto& i : all)
                if (i.second->m_strInstrumentName != name) ++problems;
            const CInstrumentDetailPtr one = dc.getInstrument("SH", "600007");
            if (!one || one->m_strInstrumentID != "600007") ++problems;
            if (dc.getIpoCode().empty()) ++problems;
            if (dc.getProductNameByID("P").empty()) ++problems;
            if (dc.getInstrument("SHFE", "600007")) ++problems;
            if (dc.getRealMarket("SHFE", "m2409") != "DCE") ++problems;
            if (dc.getDceCrossPeriod().size() != static_cast<size_t>(kSpreads)) ++problems;
            if (++n % 16 == 0) {
                std::string report;
                if (!dc.checkInstrumentIndexes(&report)) {
                    ADD_FAILURE() << report;
                    ++problems;
                }
            }
            ++lookUps;
        } while (!done);
    };
    std::thread r1(reader), r2(reader);
    writer.join();
    r1.join();
    r2.join();
    EXPECT_EQ(0, problems.load());
    EXPECT_GE(lookUps.load(), 2);
    EXPECT_EQ("SH" + std::to_string(600000 + kGenerations % kInstruments), dc.getIpoCode());
    std::string report;
    EXPECT_TRUE(dc.checkInstrumentIndexes(&report)) << report;
}

// A merge sees the account's old table or its new one, never a torn one, while the tables and the
// category rules are replaced under it.
TEST(DataCenterConcurrent, FeeTablesAndCategoriesReplacedWhileMerging) {
    CppCategory& category = CSingletonT<CppCategory>::instance();
    const char* const rulesA = R"({"10001": {"rules": [{"market": "SH", "prefixes": ["600"]}]}})";
    const char* const rulesB = R"({"10001": {"rules": [{"market": "SH", "prefixes": ["60"]}]}})";
    ASSERT_TRUE(category.loadJson(rulesA, "", nullptr));
    DataCenter dc;
    const CAccountInfoPtr account = test::makeAccountInfo("880001", 2, 10001);
    auto table = [](double rate) {
        CCustomStockFeeRatePtr r = boost::make_shared<CCustomStockFeeRate>();
        r->m_strCategory = "10001";
        r->m_dBuyCommissionRate = rate;
        r->m_dSellCommissionRate = rate;
        CCustomStockInstrumentFeePtr t = boost::make_shared<CCustomStockInstrumentFee>();
        t->m_vRates = {r};
        return t;
    };
    dc.setAccountsStockInstrumentFee({{account, table(0.0001)}});
    std::atomic<bool> done(false);
    std::atomic<int> problems(0);
    std::thread tables([&] {
        for (int i = 0; i < 2000; ++i)
            dc.setAccountsStockInstrumentFee({{account, table(i % 2 ? 0.0002 : 0.0001)}});
    });
    std::thread rules([&] {
        for (int i = 0; i < 500; ++i) category.loadJson(i % 2 ? rulesB : rulesA, "", nullptr);
    });
    auto merger = [&] {
        const CInstrumentDetailPtr inst = makeNamedInstrument("SH", "600000", "浦发银行");
        while (!done) {
            const CInstrumentFeePtr fee = test::makeInstrumentFee(CAccountInfoPtr(), inst);
            dc.testMergeStockInstrumentFee(account, fee);
            const CStkExchangePtr stk = fee->m_stkExchange;
            if (!stk || (stk->m_dBuyCommissionRate != 0.0001 && stk->m_dBuyCommissionRate != 0.0002) ||
                stk->m_dSellCommissionRate != stk->m_dBuyCommissionRate)
                ++problems;
        }
    };
    std::thread m1(merger), m2(merger);
    tables.join();
    rules.join();
    done = true;
    m1.join();
    m2.join();
    category.clear();
    EXPECT_EQ(0, problems.load());
}

// A listener held for the whole run receives every record once, while other listeners and
// subscriptions come and go on another thread.
TEST(DataCenterConcurrent, ListenersComeAndGoWhileRecordsAreDelivered) {
    DataCenter dc;
    std::atomic<int> steady(0);
    boost::shared_ptr<void> held = dc.addAccountDataListener(
        [&](const CAccountInfoPtr&, const IDataPtr&, const TTError&) { ++steady; }, AccountDatasCallback());
    std::atomic<bool> done(false);
    std::atomic<int> sink(0);  // outlives every callback that may still be running
    std::thread churn([&] {
        while (!done) {
            boost::shared_ptr<void> l = dc.addAccountDataListener(
                [&](const CAccountInfoPtr&, const IDataPtr&, const TTError&) { ++sink; },
                AccountDatasCallback());
            SubRequestPtr s = dc.subscribe("", 555, [&](const IDataPtr&) { ++sink; });
        }
    });
    const int kRecords = 20000;
    boost::shared_ptr<CAccountSummary> record = boost::make_shared<CAccountSummary>();
    record->m_strAccountKey = "K";
    for (int i = 0; i < kRecords; ++i) dc.onAccountData(CAccountInfoPtr(), record, TTError());
    done = true;
    churn.join();
    EXPECT_EQ(kRecords, steady.load());
}

}  // namespace
