// Price selection and the DataHelper predicates on the hot path, each beside its baseline.
//
//   BM_ReadOneQuoteField            baseline: one price field read through the quote's shared pointer
//                                   (a raw member load)
//   BM_ReadOneQuoteFieldByItem      baseline: the same field read the way generic code reads a record
//                                   field, through getDouble with its ITEM_ number
//   BM_ReadLadderWalkFields         baseline: the seven fields a five-level walk cannot avoid reading
//   BM_GetPriceForOrder_*           the selector on several books; target: the ladder walk within 5x
//                                   of one field read
//   BM_DataHelper_*                 every DataHelper predicate but isFutureTrading (which asks an
//                                   account store); "allocs" is the number of operator new calls
//                                   per iteration, counted by this program's global operator new:
//                                   it must read 0 for every predicate measured here
//
// The price type and the operation pass through DoNotOptimize each iteration, so the inline
// selector is measured as order entry runs it (on values known only at run time), not folded for
// one constant type. Run a Release build; compare figures of one run only (the machine is shared).
#include "base/TraderCenter.h"
#include "base/data/CPriceDataHelper.h"
#include "base/data/DataHelper.h"
#include "config/ConfigCollector.h"
#include "testing/FakeDataCenter.h"
#include "utils/StockTypeCenter.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

namespace {
std::atomic<unsigned long long> g_allocations(0);
}  // namespace

// Every allocation of the process passes here, the shared libraries' included. The functions are
// kept out of line so that the compiler never pairs an inlined malloc with an inlined free.
__attribute__((noinline)) void* operator new(std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
__attribute__((noinline)) void* operator new[](std::size_t size) { return operator new(size); }
__attribute__((noinline)) void operator delete(void* p) noexcept { std::free(p); }
__attribute__((noinline)) void operator delete[](void* p) noexcept { std::free(p); }
__attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept { std::free(p); }
__attribute__((noinline)) void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace ttservice {
namespace {

// Counts the allocations of the timed loop and reports them per iteration.
class AllocationCounter {
public:
    explicit AllocationCounter(benchmark::State& state)
        : m_state(state), m_start(g_allocations.load(std::memory_order_relaxed)) {}
    ~AllocationCounter() {
        const double n = static_cast<double>(g_allocations.load(std::memory_order_relaxed) - m_start);
        m_state.counters["allocs"] = benchmark::Counter(n, benchmark::Counter::kAvgIterations);
    }

private:
    benchmark::State& m_state;
    unsigned long long m_start;
};

CPriceDataPtr makeBook(const char* exchange) {
    CPriceDataPtr q = boost::make_shared<CPriceData>();
    q->m_nPlatformId = 10001;
    q->m_strExchangeID = exchange;
    q->m_strInstrumentID = "m2505";
    q->m_dAskPrice1 = 10.1;
    q->m_dAskPrice2 = 10.2;
    q->m_dAskPrice3 = 10.3;
    q->m_dAskPrice4 = 10.4;
    q->m_dAskPrice5 = 10.5;
    q->m_dBidPrice1 = 10.0;
    q->m_dBidPrice2 = 9.9;
    q->m_dBidPrice3 = 9.8;
    q->m_dBidPrice4 = 9.7;
    q->m_dBidPrice5 = 9.6;
    q->m_dLastPrice = 10.05;
    q->m_dPreClosePrice = 9.5;
    q->m_dUpperLimitPrice = 11.0;
    q->m_dLowerLimitPrice = 9.0;
    return q;
}

// ---- Price selection ------------------------------------------------------------------------------

void BM_ReadOneQuoteField(benchmark::State& state) {
    const CPriceDataPtr q = makeBook("SH");
    AllocationCounter allocs(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(q.get());
        double p = q->m_dAskPrice1;
        benchmark::DoNotOptimize(p);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_ReadOneQuoteField);

void BM_ReadOneQuoteFieldByItem(benchmark::State& state) {
    const CPriceDataPtr q = makeBook("SH");
    AllocationCounter allocs(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(q.get());
        double p = q->getDouble(CPriceData::ITEM_m_dAskPrice1);
        benchmark::DoNotOptimize(p);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_ReadOneQuoteFieldByItem);

// Second baseline: the seven fields the ladder-walk case below cannot avoid reading (ask levels 5
// to 1 and both limits), read and summed with no tests at all.
void BM_ReadLadderWalkFields(benchmark::State& state) {
    const CPriceDataPtr q = makeBook("SH");
    AllocationCounter allocs(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(q.get());
        double p = q->m_dAskPrice5 + q->m_dAskPrice4 + q->m_dAskPrice3 + q->m_dAskPrice2 + q->m_dAskPrice1 +
                   q->m_dUpperLimitPrice + q->m_dLowerLimitPrice;
        benchmark::DoNotOptimize(p);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_ReadLadderWalkFields);

// Ask level 5 requested, levels 5..2 empty: the walk reads five levels before it finds ask 1.
void BM_GetPriceForOrder_LadderWalk(benchmark::State& state) {
    const CPriceDataPtr q = makeBook("SH");
    q->m_dAskPrice5 = q->m_dAskPrice4 = q->m_dAskPrice3 = q->m_dAskPrice2 = 0.0;
    AllocationCounter allocs(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(q.get());
        int type = PRTP_SALE5, op = OPT_OPEN_LONG;
        benchmark::DoNotOptimize(type);
        benchmark::DoNotOptimize(op);
        double p = CPriceDataHelper::getPriceForOrder(q, type, op);
        benchmark::DoNotOptimize(p);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_GetPriceForOrder_LadderWalk);

void BM_GetPriceForOrder_DirectLevel(benchmark::State& state) {
    const CPriceDataPtr q = makeBook("SH");
    AllocationCounter allocs(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(q.get());
        int type = PRTP_COMPETE, op = OPT_CLOSE_LONG_HISTORY;
        benchmark::DoNotOptimize(type);
        benchmark::DoNotOptimize(op);
        double p = CPriceDataHelper::getPriceForOrder(q, type, op);
        benchmark::DoNotOptimize(p);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_GetPriceForOrder_DirectLevel);

// Empty book, no last price: every level, then the last price, then the previous close.
void BM_GetPriceForCalc_EmptyBookToPreClose(benchmark::State& state) {
    const CPriceDataPtr q = makeBook("SH");
    q->m_dAskPrice5 = q->m_dAskPrice4 = q->m_dAskPrice3 = q->m_dAskPrice2 = q->m_dAskPrice1 = 0.0;
    q->m_dLastPrice = 0.0;
    AllocationCounter allocs(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(q.get());
        int type = PRTP_SALE5, op = OPT_OPEN_LONG;
        benchmark::DoNotOptimize(type);
        benchmark::DoNotOptimize(op);
        double p = CPriceDataHelper::getPriceForCalc(q, type, op);
        benchmark::DoNotOptimize(p);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_GetPriceForCalc_EmptyBookToPreClose);

// A price outside the limits while the error logger is off: nothing may be built.
void BM_GetPriceForOrder_OutOfLimitLoggerOff(benchmark::State& state) {
    const CPriceDataPtr q = makeBook("SH");
    q->m_dLastPrice = 12.0;
    AllocationCounter allocs(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(q.get());
        int type = PRTP_LATEST, op = OPT_OPEN_LONG;
        benchmark::DoNotOptimize(type);
        benchmark::DoNotOptimize(op);
        double p = CPriceDataHelper::getPriceForOrder(q, type, op);
        benchmark::DoNotOptimize(p);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_GetPriceForOrder_OutOfLimitLoggerOff);

// Type 12 on a futures exchange: the market-order rule asks the data center for the instrument.
void BM_GetPriceForOrder_Type12FuturesWithDataCenter(benchmark::State& state) {
    boost::shared_ptr<test::FakeDataCenter> dataCenter = boost::make_shared<test::FakeDataCenter>();
    CInstrumentDetailPtr instrument = boost::make_shared<CInstrumentDetail>();
    instrument->m_strExchangeID = "DCE";
    instrument->m_strInstrumentID = "m2505";
    instrument->m_nMaxMarketOrderVolume = 1000;
    dataCenter->setInstrumentDetail({"DCE"}, {instrument});
    TraderCenter::instance()->setDataCenter(dataCenter);
    const CPriceDataPtr q = makeBook("DCE");
    {
        AllocationCounter allocs(state);
        for (auto _ : state) {
            benchmark::DoNotOptimize(q.get());
            int type = PRTP_MARKET, op = OPT_OPEN_LONG;
            benchmark::DoNotOptimize(type);
            benchmark::DoNotOptimize(op);
            double p = CPriceDataHelper::getPriceForOrder(q, type, op);
            benchmark::DoNotOptimize(p);
            benchmark::ClobberMemory();
        }
    }
    TraderCenter::instance()->reset();
}
BENCHMARK(BM_GetPriceForOrder_Type12FuturesWithDataCenter);

// ---- DataHelper predicates --------------------------------------------------------------------------

const std::vector<int>& platformIds() {
    static const std::vector<int> ids = {10001, 20001, 29999, 31003, 39999, 41002, 51001, 60001,
                                         70001, 100001, 110001, 1110003, -1, 40002, 65000, 119999};
    return ids;
}

// Every market-family predicate, single-id flag and getPlatFormId over a spread of ids.
void BM_DataHelper_PlatformPredicates(benchmark::State& state) {
    const std::vector<int>& ids = platformIds();
    AllocationCounter allocs(state);
    size_t i = 0;
    for (auto _ : state) {
        const int id = ids[i++ & 15];
        int n = DataHelper::isStockPlatform(id) + DataHelper::isFuturePlatform(id) + DataHelper::isGoldlatform(id) +
                DataHelper::isGoldPlatform(id) + DataHelper::isYswpPlatform(id) + DataHelper::isForeignPlatform(id) +
                DataHelper::isHGTPlatform(id) + DataHelper::isStockOptionPlatform(id) +
                DataHelper::isFutureOptionPlatform(id) + DataHelper::isNew3BoardPlatform(id) +
                DataHelper::isSGTPlatform(id) + DataHelper::isInterbankPlatform(id) + DataHelper::isExistBizNo(id) +
                DataHelper::isHistoryAllowNega(id) + DataHelper::isNeedCalcAssetGuosen(id) +
                DataHelper::getPlatFormId(id);
        benchmark::DoNotOptimize(n);
    }
}
BENCHMARK(BM_DataHelper_PlatformPredicates);

// Operation, order-type and status predicates over every code of their tables.
void BM_DataHelper_OperationPredicates(benchmark::State& state) {
    AllocationCounter allocs(state);
    int op = 0;
    for (auto _ : state) {
        op = op == 1030 ? -1 : op + 1;
        int n = DataHelper::isBuy(op) + DataHelper::isLong(op) + DataHelper::isOpen(op) +
                DataHelper::getOffsetFlagByOperation(op) + getDirectionByOperation(op) +
                DataHelper::isAlgoOrderType(op & 15) + DataHelper::getPlatformTypeByOrderType(op & 15) +
                static_cast<int>(DataHelper::getAuthorityByOrderType(op & 15).size()) +
                DataHelper::isAlgoTradePlatform(op & 15) + DataHelper::isCommandCompleted(op & 255) +
                DataHelper::isSystemStopLoss(op & 7) + DataHelper::canFutureOrder(48 + (op & 7));
        benchmark::DoNotOptimize(n);
    }
}
BENCHMARK(BM_DataHelper_OperationPredicates);

// Value ranges, numbers, codes and positions.
void BM_DataHelper_ValueAndCodePredicates(benchmark::State& state) {
    CValueRange a;
    a.m_dLowerBound = 5.0;
    a.m_nLowerBoundType = 3;
    a.m_dUpperBound = 10.0;
    a.m_nUpperBoundType = 1;
    CValueRange b = a;
    b.m_nLowerBoundType = 1;
    const std::string leg1 = "a1805", leg2 = "a1809", code = "SP a1805&a1809", name = "Au(T+D)";
    CPositionDetailPtr p1 = boost::make_shared<CPositionDetail>();
    p1->m_strExchangeID = "SHFE";
    p1->m_strInstrumentID = "rb2505";
    CPositionDetailPtr p2 = boost::make_shared<CPositionDetail>();
    p2->m_strExchangeID = "SHFE";
    p2->m_strInstrumentID = "ru2505";
    const IDataPtr d1 = p1, d2 = p2;
    CAccountInfoPtr super = boost::make_shared<CAccountInfo>();
    super->m_strSubAccount = CAccountInfo::SUPER_ACCOUNT_TAG;
    // The split legs are written into strings that already hold a leg: assigning a short code
    // allocates nothing.
    std::string splitLeg1 = leg1, splitLeg2 = leg2, kind = "SP";
    double v = 4.0;
    AllocationCounter allocs(state);
    for (auto _ : state) {
        v = v > 11.0 ? 4.0 : v + 0.5;
        int n = DataHelper::isValueInRange(v, a) + DataHelper::isSameRange(a, b) + DataHelper::isInvalidNetValue(v) +
                DataHelper::isArbitrage(code) + DataHelper::isArbitrage(code, splitLeg1, splitLeg2, kind) +
                DataHelper::isPeriodArbitrage(leg1, leg2) + DataHelper::isGoldCash(name) +
                DataHelper::compPos(d1, d2) + DataHelper::isSuperAccount(super);
        double f = DataHelper::getOutterStockMargin(v, 3.0) + DataHelper::getOutterStockComssion(v * 100, 3.0) +
                   DataHelper::isGreaterThanhgtFee(v * 20);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(f);
    }
}
BENCHMARK(BM_DataHelper_ValueAndCodePredicates);

// The counter-system predicates: a configuration look-up each, still without allocating.
void BM_DataHelper_CounterPredicates(benchmark::State& state) {
    const boost::shared_ptr<ConfigCollector> previous = ConfigCollector::instance();
    boost::shared_ptr<ConfigCollector> config = boost::make_shared<ConfigCollector>();
    config->setFamily("ctp", {20001, 20002});
    config->setFamily("hundsun", {10001, 10002, 10003});
    config->setFamily("spx", {10003});
    config->setFamily("kdmid", {10004});
    config->setFamily("support_local_order_id", {10001});
    ConfigCollector::setInstance(config);
    const std::vector<int>& ids = platformIds();
    {
        AllocationCounter allocs(state);
        size_t i = 0;
        for (auto _ : state) {
            const int id = ids[i++ & 15];
            int n = DataHelper::isCTPStock(id) + DataHelper::isGoldOrder(id) + DataHelper::isAPEXIpwanPos(id) +
                    DataHelper::isFusdkPts(id) + DataHelper::isV8TPts(id) + DataHelper::isNeedIpwanPos(id) +
                    DataHelper::isNeedCheckRepurchasePos(id) + DataHelper::isKingDomIpwanPos(id) +
                    DataHelper::isPlatformSupportLocalOrderId(id, 2);
            benchmark::DoNotOptimize(n);
        }
    }
    ConfigCollector::setInstance(previous);
}
BENCHMARK(BM_DataHelper_CounterPredicates);

// The pledge-repurchase test asks the stock-type rules with the strings it was given.
void BM_DataHelper_IpwanPos(benchmark::State& state) {
    utils::StockTypeRule pledge;
    pledge.market = "SH";
    pledge.prefixes = {"204"};
    utils::StockTypeCenter::instance().addRule(100021, pledge);
    const std::string codes[] = {"204001", "600000"};
    const std::string market = "SH";
    {
        AllocationCounter allocs(state);
        size_t i = 0;
        for (auto _ : state) {
            bool b = DataHelper::isIpwanPos(codes[i++ & 1], market, 10001);
            benchmark::DoNotOptimize(b);
        }
    }
    utils::StockTypeCenter::instance().clear();
}
BENCHMARK(BM_DataHelper_IpwanPos);

}  // namespace
}  // namespace ttservice

BENCHMARK_MAIN();
