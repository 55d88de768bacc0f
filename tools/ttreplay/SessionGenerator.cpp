#include "SessionGenerator.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ttservice {
namespace replay {

namespace {

const char* const kTradeDay = "20240315";

// splitmix64: the same sequence on every platform and standard library.
class CRandom {
public:
    explicit CRandom(uint64_t seed) : m_state(seed) {}
    uint64_t next() {
        uint64_t z = (m_state += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    uint64_t below(uint64_t n) { return n ? next() % n : 0; }
    int64_t range(int64_t lo, int64_t hi) {
        return lo + static_cast<int64_t>(below(static_cast<uint64_t>(hi - lo + 1)));
    }
    bool chance(int percent) { return below(100) < static_cast<uint64_t>(percent); }
    template <class T>
    const T& pick(const std::vector<T>& v) {
        return v[below(v.size())];
    }

private:
    uint64_t m_state;
};

// Prices and amounts are whole numbers of 1/10000, written as exact decimals.
const int64_t UNIT = 10000;

std::string fmt(int64_t units) {
    const bool negative = units < 0;
    const uint64_t u = negative ? static_cast<uint64_t>(-units) : static_cast<uint64_t>(units);
    std::string s = std::to_string(u / UNIT);
    const uint64_t frac = u % UNIT;
    if (frac) {
        char buf[8];
        std::snprintf(buf, sizeof buf, "%04llu", static_cast<unsigned long long>(frac));
        std::string f = buf;
        while (f.back() == '0') f.pop_back();
        s += "." + f;
    }
    return negative ? "-" + s : s;
}

// One JSON object, members in the order written.
class CJson {
public:
    CJson& str(const char* k, const std::string& v) {
        key(k);
        quote(v);
        return *this;
    }
    CJson& num(const char* k, int64_t v) {
        key(k);
        m_s += std::to_string(v);
        return *this;
    }
    CJson& px(const char* k, int64_t units) {
        key(k);
        m_s += fmt(units);
        return *this;
    }
    CJson& flag(const char* k, bool v) {
        key(k);
        m_s += v ? "true" : "false";
        return *this;
    }
    CJson& raw(const char* k, const std::string& json) {
        key(k);
        m_s += json;
        return *this;
    }
    std::string done() const { return m_s + "}"; }

private:
    void key(const char* k) {
        if (m_s.size() > 1) m_s += ',';
        m_s += '"';
        m_s += k;
        m_s += "\":";
    }
    void quote(const std::string& v) {
        m_s += '"';
        for (char c : v) {
            if (c == '"' || c == '\\') {
                m_s += '\\';
                m_s += c;
            } else if (static_cast<unsigned char>(c) < 0x20) {
                char b[8];
                std::snprintf(b, sizeof b, "\\u%04x", static_cast<unsigned>(c));
                m_s += b;
            } else {
                m_s += c;
            }
        }
        m_s += '"';
    }
    std::string m_s = "{";
};

std::string jsonArray(const std::vector<std::string>& items) {
    std::string s = "[";
    for (size_t i = 0; i < items.size(); ++i) s += (i ? "," : "") + items[i];
    return s + "]";
}
std::string quoted(const std::string& v) {
    return "\"" + v + "\"";
}

std::string pad(uint64_t v, int width) {
    std::string s = std::to_string(v);
    return s.size() < static_cast<size_t>(width) ? std::string(width - s.size(), '0') + s : s;
}

enum EInstKind { STOCK, FUTURE, OPTION, HK };
enum EFamily { FAMILY_STOCK, FAMILY_FUTURE, FAMILY_OPTION, FAMILY_HGT };

struct CInst {
    EInstKind kind = STOCK;
    std::string exchange, code, name, product, tickKey;
    int multiple = 1;
    int lot = 100;
    int64_t tick = 100;
    int64_t preClose = 0;
    int64_t last = 0;
    int64_t upper = 0, lower = 0;
    bool marketOrder = false;
};

// Hong Kong spread table: (upper bound, tick), both in units.
const int64_t kHkTicks[][2] = {{2500, 10},        {5000, 50},        {100000, 100},    {200000, 200},
                               {1000000, 500},    {2000000, 1000},   {5000000, 2000},  {10000000, 5000},
                               {20000000, 10000}, {50000000, 20000}, {99950000, 50000}};

int64_t hkTick(int64_t price) {
    for (const auto& t : kHkTicks)
        if (price <= t[0]) return t[1];
    return 50000;
}

int64_t roundTo(int64_t v, int64_t tick) {
    return tick > 0 ? (v / tick) * tick : v;
}

struct CProductDef {
    const char* exchange;
    const char* id;
    const char* name;
    int multiple;
    int64_t tick;
    int64_t base;
    bool marketOrder;
};

const CProductDef kProducts[] = {
    {"SHFE", "cu", "沪铜", 5, 10 * UNIT, 70000 * UNIT, false},
    {"SHFE", "al", "沪铝", 5, 5 * UNIT, 19000 * UNIT, false},
    {"SHFE", "rb", "螺纹钢", 10, 1 * UNIT, 3600 * UNIT, false},
    {"DCE", "m", "豆粕", 10, 1 * UNIT, 3300 * UNIT, true},
    {"DCE", "i", "铁矿石", 100, UNIT / 2, 850 * UNIT, true},
    {"DCE", "a", "豆一", 10, 1 * UNIT, 4700 * UNIT, true},
    {"CZCE", "SR", "白糖", 10, 1 * UNIT, 6400 * UNIT, true},
    {"CZCE", "CF", "棉花", 5, 5 * UNIT, 16000 * UNIT, true},
    {"CZCE", "TA", "PTA", 5, 2 * UNIT, 5900 * UNIT, true},
    {"CFFEX", "IF", "沪深300", 300, UNIT / 5, 3500 * UNIT, true},
    {"CFFEX", "IC", "中证500", 200, UNIT / 5, 5400 * UNIT, true},
};

const char* const kNameHead[] = {"华", "中", "新", "东", "安", "国", "长", "海",
                                 "金", "天", "宏", "恒", "远", "广", "联", "盛"};
const char* const kNameMid[] = {"信", "达", "源", "泰", "通", "宇", "鑫", "瑞", "科", "川", "丰", "发"};
const char* const kNameTail[] = {"科技", "银行", "能源", "医药", "证券", "股份", "电子", "化工",
                                 "材料", "汽车", "传媒", "环保", "电气", "食品", "地产", "机械"};
const char* const kHkTail[] = {"控股", "集团", "地产", "电讯", "能源", "银行", "国际", "科技"};

struct CPos {
    int64_t volume = 0, yesterday = 0, canUse = 0, cost = 0;  // cost: units, of the whole position
};

struct COrd {
    std::string sysId;
    int inst = 0;
    int dir = 48;
    int offset = 48;
    int op = 0;
    int64_t price = 0;
    int volume = 0;
    int traded = 0;
    int64_t amount = 0;
    int64_t reserve = 0;  // funds frozen for the untraded part (buys and opens)
    int64_t commission = 0;
    std::string time;
};

struct CAcct {
    EFamily family = FAMILY_STOCK;
    std::string key, id;
    int platform = 0, type = 0;
    std::vector<int> universe;
    int64_t preBalance = 0, available = 0, frozen = 0, margin = 0, commission = 0, closeProfit = 0;
    std::map<std::pair<int, int>, CPos> positions;  // (instrument, direction)
    std::vector<COrd> open;
    uint64_t nextOrder = 1, nextTrade = 1;
    bool caching = false;
    uint64_t flushAt = 0;  // action count at which a reload's flush comes
};

class CGenerator {
public:
    CGenerator(const CGeneratorOptions& options, std::ostream& out)
        : m_options(options), m_out(out), m_rand(options.m_nSeed * 0x2545F4914F6CDD1DULL + 0x1234567ULL) {}

    CGeneratorCounts run() {
        line("# Synthetic session of ttreplay generate --accounts " + std::to_string(m_options.m_nAccounts) +
             " --records " + std::to_string(m_options.m_nRecords) + " --seed " +
             std::to_string(m_options.m_nSeed) + " --instruments " +
             std::to_string(m_options.m_nInstruments));
        line(CJson().str("event", "clock").str("start", "2024-03-15 01:25:00").done());
        makeInstruments();
        writeReference();
        makeAccounts();
        for (size_t a = 0; a < m_accounts.size(); ++a) loadAccount(a);
        trade();
        line(CJson().str("event", "advance").num("ms", 3000).done());
        return m_counts;
    }

private:
    bool budget() const { return m_counts.m_nRecords < m_options.m_nRecords; }

    void line(const std::string& s) {
        m_out << s << '\n';
        ++m_counts.m_nLines;
    }
    void record(const CAcct& a, const std::string& recordJson) {
        line(CJson().str("event", "record").str("account", a.key).raw("record", recordJson).done());
        ++m_counts.m_nRecords;
    }
    void lifecycle(const char* event, const CAcct& a) {
        line(CJson().str("event", event).str("account", a.key).done());
    }

    std::string timeOfDay() const {
        const int64_t s = (m_clockMs / 1000) % 86400;
        char buf[16];
        std::snprintf(buf, sizeof buf, "%02d:%02d:%02d", static_cast<int>(s / 3600),
                      static_cast<int>(s / 60 % 60), static_cast<int>(s % 60));
        return buf;
    }

    // ---- reference data ----

    std::string stockName() {
        std::string n = std::string(kNameHead[m_rand.below(16)]) + kNameMid[m_rand.below(12)] +
                        kNameTail[m_rand.below(16)];
        return m_rand.chance(2) ? "*ST" + n : n;
    }

    void addStocks(const std::string& exchange, uint64_t first, int count, int64_t minPx, int64_t maxPx,
                   int limitPct) {
        uint64_t code = first;
        for (int i = 0; i < count; ++i) {
            CInst s;
            s.kind = STOCK;
            s.exchange = exchange;
            s.code = pad(code, 6);
            s.name = stockName();
            s.tickKey = exchange;
            s.tick = UNIT / 100;
            s.lot = 100;
            s.preClose = roundTo(m_rand.range(minPx, maxPx), s.tick);
            s.last = s.preClose;
            s.upper = roundTo(s.preClose * (100 + limitPct) / 100, s.tick);
            s.lower = roundTo(s.preClose * (100 - limitPct) / 100 + s.tick - 1, s.tick);
            m_insts.push_back(s);
            code += 1 + m_rand.below(3);
        }
    }

    void makeInstruments() {
        const int n = m_options.m_nInstruments;
        const int stocks = n * 3 / 4, options = n / 10, hk = n - stocks - options;
        addStocks("SH", 600000, stocks * 35 / 100, 3 * UNIT, 80 * UNIT, 10);
        addStocks("SH", 688001, stocks * 10 / 100, 20 * UNIT, 200 * UNIT, 20);
        addStocks("SZ", 1, stocks * 30 / 100, 3 * UNIT, 60 * UNIT, 10);
        addStocks("SZ", 300001, stocks - stocks * 75 / 100, 5 * UNIT, 120 * UNIT, 20);

        static const char* const months[] = {"2404", "2405", "2406", "2407", "2408", "2409",
                                             "2410", "2411", "2412", "2501", "2502", "2503"};
        static const char* const cffexMonths[] = {"2403", "2404", "2406", "2409"};
        for (const CProductDef& p : kProducts) {
            const bool cffex = std::string(p.exchange) == "CFFEX";
            const bool czce = std::string(p.exchange) == "CZCE";
            const int count = cffex ? 4 : 12;
            for (int m = 0; m < count; ++m) {
                const std::string ym = cffex ? cffexMonths[m] : months[m];
                CInst f;
                f.kind = FUTURE;
                f.exchange = p.exchange;
                f.product = p.id;
                f.code = std::string(p.id) + (czce ? ym.substr(1) : ym);
                f.name = std::string(p.name) + ym;
                f.tickKey = p.id;
                f.multiple = p.multiple;
                f.lot = 1;
                f.tick = p.tick;
                f.marketOrder = p.marketOrder;
                f.preClose = roundTo(p.base + (m_rand.range(-30, 30) * p.base) / 1000, p.tick);
                f.last = f.preClose;
                f.upper = roundTo(f.preClose * 107 / 100, p.tick);
                f.lower = roundTo(f.preClose * 93 / 100 + p.tick - 1, p.tick);
                m_insts.push_back(f);
            }
        }

        static const char* const optMonths[] = {"3月", "4月", "6月", "9月"};
        uint64_t optCode = 10006001;
        for (int i = 0; i < options; ++i) {
            const bool fifty = i % 2 == 0;
            const int64_t strike =
                (fifty ? 2000 : 3000) + 50 * static_cast<int64_t>((i / 2) % 24);  // 1/1000 yuan
            CInst o;
            o.kind = OPTION;
            o.exchange = "SH";
            o.code = std::to_string(optCode++);
            o.product = fifty ? "510050" : "510300";
            o.name = std::string(fifty ? "50ETF" : "300ETF") + ((i / 48) % 2 ? "沽" : "购") +
                     optMonths[(i / 96) % 4] + std::to_string(strike);
            o.tickKey = "SH_OPTION";
            o.multiple = 10000;
            o.lot = 1;
            o.tick = 1;
            o.preClose = m_rand.range(50, 3500);
            o.last = o.preClose;
            o.upper = o.preClose + 3000;
            o.lower = 1;
            m_insts.push_back(o);
        }

        uint64_t hkCode = 1;
        for (int i = 0; i < hk; ++i) {
            CInst h;
            h.kind = HK;
            h.exchange = "HGT";
            h.code = pad(hkCode, 5);
            h.name = std::string(kNameHead[m_rand.below(16)]) + kNameMid[m_rand.below(12)] +
                     kHkTail[m_rand.below(8)];
            h.tickKey = "HGT";
            static const int lots[] = {100, 200, 500, 1000, 2000};
            h.lot = lots[m_rand.below(5)];
            const int64_t px = m_rand.range(5000, 4000000);
            h.tick = hkTick(px);
            h.preClose = roundTo(px, h.tick);
            h.last = h.preClose;
            h.upper = 0;
            h.lower = 0;
            m_insts.push_back(h);
            hkCode += 1 + m_rand.below(30);
        }
    }

    std::string instrumentJson(const CInst& i) const {
        CJson j;
        j.str("m_strExchangeID", i.exchange)
            .str("m_strInstrumentID", i.code)
            .str("m_strInstrumentName", i.name);
        if (!i.product.empty()) j.str("m_strProductID", i.product);
        if (i.kind == OPTION) j.str("m_strUnderlyingInstrID", i.product);
        j.str("m_strCurrency", i.kind == HK ? "HKD" : "CNY");
        j.num("m_nVolumeMultiple", i.multiple);
        if (i.marketOrder) j.num("m_nMaxMarketOrderVolume", 100);
        j.num("m_nMinLimitOrderVolume", i.lot);
        j.px("m_dPriceTick", i.tick).px("m_dPreClosePrice", i.preClose);
        if (i.upper) j.px("m_dUpperLimitPrice", i.upper).px("m_dLowerLimitPrice", i.lower);
        return j.done();
    }

    void writeReference() {
        struct Ex {
            const char* id;
            const char* name;
            const char* currency;
        };
        static const Ex exchanges[] = {
            {"SH", "上海证券交易所", "CNY"},   {"SZ", "深圳证券交易所", "CNY"},
            {"SHFE", "上海期货交易所", "CNY"}, {"DCE", "大连商品交易所", "CNY"},
            {"CZCE", "郑州商品交易所", "CNY"}, {"CFFEX", "中国金融期货交易所", "CNY"},
            {"HGT", "沪港通", "HKD"}};
        std::vector<std::string> ex;
        for (const Ex& e : exchanges)
            ex.push_back(CJson()
                             .str("m_strExchangeID", e.id)
                             .str("m_strExchangeName", e.name)
                             .str("m_strTradeDay", kTradeDay)
                             .str("m_strCurrency", e.currency)
                             .done());
        line(CJson().str("event", "exchanges").raw("exchanges", jsonArray(ex)).done());

        // One line per market and chunk; the first chunk of a market replaces the market.
        std::map<std::string, std::vector<const CInst*> > byMarket;
        std::vector<std::string> order;
        for (const CInst& i : m_insts) {
            if (!byMarket.count(i.exchange)) order.push_back(i.exchange);
            byMarket[i.exchange].push_back(&i);
        }
        for (const std::string& market : order) {
            const std::vector<const CInst*>& list = byMarket[market];
            for (size_t from = 0; from < list.size(); from += 500) {
                std::vector<std::string> items;
                for (size_t k = from; k < list.size() && k < from + 500; ++k)
                    items.push_back(instrumentJson(*list[k]));
                line(CJson()
                         .str("event", "instruments")
                         .raw("markets", from == 0 ? "[" + quoted(market) + "]" : "[]")
                         .raw("instruments", jsonArray(items))
                         .done());
            }
        }

        line(CJson().str("event", "tick_table").str("key", "SH").raw("ticks", "[[100000,0.01]]").done());
        line(CJson().str("event", "tick_table").str("key", "SZ").raw("ticks", "[[100000,0.01]]").done());
        line(CJson()
                 .str("event", "tick_table")
                 .str("key", "SH_OPTION")
                 .raw("ticks", "[[10000,0.0001]]")
                 .done());
        for (const CProductDef& p : kProducts)
            line(CJson()
                     .str("event", "tick_table")
                     .str("key", p.id)
                     .raw("ticks", "[[10000000," + fmt(p.tick) + "]]")
                     .done());
        std::vector<std::string> hk;
        for (const auto& t : kHkTicks) hk.push_back("[" + fmt(t[0]) + "," + fmt(t[1]) + "]");
        line(CJson().str("event", "tick_table").str("key", "HGT").raw("ticks", jsonArray(hk)).done());
        line(CJson()
                 .str("event", "exchange_rate")
                 .raw("rate", CJson()
                                  .str("m_strBaseCurrency", "CNY")
                                  .raw("m_mapRates", CJson().px("HKD", 9185).px("USD", 71012).done())
                                  .done())
                 .done());
    }

    // ---- accounts ----

    std::vector<int> instsOf(EInstKind kind) const {
        std::vector<int> out;
        for (size_t i = 0; i < m_insts.size(); ++i)
            if (m_insts[i].kind == kind) out.push_back(static_cast<int>(i));
        return out;
    }

    void makeAccounts() {
        const std::vector<int> stocks = instsOf(STOCK), futures = instsOf(FUTURE), options = instsOf(OPTION),
                               hk = instsOf(HK);
        for (int i = 0; i < m_options.m_nAccounts; ++i) {
            CAcct a;
            a.family = static_cast<EFamily>(i % 4);
            const int n = i / 4;
            const std::vector<int>* pool = &stocks;
            int size = 40;
            int64_t cash = 0;
            switch (a.family) {
                case FAMILY_STOCK:
                    a.platform = 10001 + n % 3;
                    a.type = 2;
                    a.id = "880" + pad(static_cast<uint64_t>(100 + n), 5);
                    cash = m_rand.range(100, 500) * 10000 * UNIT;
                    break;
                case FAMILY_FUTURE:
                    a.platform = 20001 + n % 3;
                    a.type = 1;
                    a.id = "9100" + pad(static_cast<uint64_t>(n), 4);
                    pool = &futures;
                    size = 14;
                    cash = m_rand.range(50, 200) * 10000 * UNIT;
                    break;
                case FAMILY_OPTION:
                    a.platform = 60001 + n % 2;
                    a.type = 6;
                    a.id = "3010" + pad(static_cast<uint64_t>(n), 6);
                    pool = &options;
                    size = 24;
                    cash = m_rand.range(20, 60) * 10000 * UNIT;
                    break;
                case FAMILY_HGT:
                    a.platform = 51001;
                    a.type = 7;
                    a.id = "881" + pad(static_cast<uint64_t>(100 + n), 5);
                    pool = &hk;
                    size = 30;
                    cash = m_rand.range(100, 300) * 10000 * UNIT;
                    break;
            }
            a.key = std::to_string(a.platform) + "_" + a.id;
            std::set<int> chosen;
            const size_t want = std::min<size_t>(static_cast<size_t>(size), pool->size());
            while (chosen.size() < want) chosen.insert(m_rand.pick(*pool));
            a.universe.assign(chosen.begin(), chosen.end());
            a.preBalance = cash;
            a.available = cash;
            m_accounts.push_back(a);
        }
    }

    std::string accountDetailJson(const CAcct& a) const {
        int64_t value = 0;
        for (const auto& kv : a.positions)
            value += m_insts[kv.first.first].last * kv.second.volume * m_insts[kv.first.first].multiple;
        const int64_t balance = a.available + a.frozen + a.margin;
        CJson j;
        j.str("class", a.family == FAMILY_FUTURE ? "CFtAccountDetail" : "CAccountDetail")
            .str("m_strTradingDay", kTradeDay)
            .px("m_dBalance", balance)
            .px("m_dPreBalance", a.preBalance)
            .px("m_dAvailable", a.available)
            .px("m_dFrozenCash", a.frozen)
            .px("m_dCommission", a.commission);
        if (a.family == FAMILY_FUTURE)
            j.px("m_dCurrMargin", a.margin).px("m_dCloseProfit", a.closeProfit);
        else
            j.px("m_dStockValue", value).px("m_dAssureAsset", balance + value);
        return j.done();
    }

    std::string positionJson(const CAcct& a, int inst, int dir, const CPos& p) const {
        const CInst& i = m_insts[inst];
        const int64_t open = p.volume ? p.cost / (p.volume * i.multiple) : 0;
        CJson j;
        j.str("class", "CPositionDetail")
            .str("m_strExchangeID", i.exchange)
            .str("m_strInstrumentID", i.code)
            .str("m_strInstrumentName", i.name)
            .str("m_strAccountKey", a.key)
            .num("m_nDirection", dir)
            .num("m_nVolume", p.volume)
            .num("m_nYesterdayVolume", p.yesterday)
            .num("m_nCanUseVolume", p.canUse)
            .px("m_dOpenPrice", roundTo(open, 1))
            .px("m_dOpenCost", p.cost)
            .px("m_dLastPrice", i.last)
            .px("m_dMarketValue", i.last * p.volume * i.multiple);
        if (i.kind == FUTURE) j.px("m_dMargin", i.last * p.volume * i.multiple / 10);
        return j.done();
    }

    void loadAccount(size_t index) {
        CAcct& a = m_accounts[index];
        CJson info;
        info.num("m_nPlatformID", a.platform)
            .num("m_nBrokerType", a.family == FAMILY_FUTURE ? 1 : 2)
            .num("m_nAccountType", a.type)
            .str("m_strBrokerID", a.family == FAMILY_FUTURE ? "9999" : "8888")
            .str("m_strBrokerName", a.family == FAMILY_FUTURE ? "宏源期货" : "华泰证券")
            .str("m_strAccountID", a.id)
            .str("m_strAccountName", std::string("客户") + a.id.substr(a.id.size() - 4));
        line(CJson().str("event", "create_account").raw("info", info.done()).num("interval", 3000).done());
        lifecycle("register", a);
        if (a.family == FAMILY_STOCK) {
            std::vector<std::string> codes;
            for (size_t k = 0; k < a.universe.size() && k < 5; ++k)
                codes.push_back(quoted(m_insts[a.universe[k]].code));
            const std::string rate = CJson()
                                         .str("m_strCategory", "10001")
                                         .raw("m_mapCustomCategory", "{\"10001\":" + jsonArray(codes) + "}")
                                         .px("m_dBuyCommissionRate", 2)
                                         .px("m_dSellCommissionRate", 2)
                                         .px("m_dMinCommission", 5 * UNIT)
                                         .px("m_dStampTaxRate", 5)
                                         .done();
            line(CJson()
                     .str("event", "custom_fees")
                     .str("account", a.key)
                     .str("market", "stock")
                     .raw("table", CJson().raw("m_vRates", "[" + rate + "]").done())
                     .done());
        } else if (a.family == FAMILY_FUTURE) {
            std::vector<std::string> codes;
            for (size_t k = 0; k < a.universe.size() && k < 3; ++k)
                codes.push_back(quoted(m_insts[a.universe[k]].code));
            const std::string list = "{\"10010\":" + jsonArray(codes) + "}";
            const std::string commission = CJson()
                                               .str("m_strCategory", "10010")
                                               .raw("m_mapCustomCategory", list)
                                               .px("m_dOpenRatioByMoney", 1)
                                               .px("m_dCloseRatioByMoney", 1)
                                               .px("m_dCloseTodayRatioByMoney", 2)
                                               .done();
            const std::string margin = CJson()
                                           .str("m_strCategory", "10010")
                                           .raw("m_mapCustomCategory", list)
                                           .px("m_dLongMarginRatioByMoney", 1200)
                                           .px("m_dShortMarginRatioByMoney", 1200)
                                           .done();
            line(CJson()
                     .str("event", "custom_fees")
                     .str("account", a.key)
                     .str("market", "future")
                     .raw("table", CJson()
                                       .raw("m_vCommissionRates", "[" + commission + "]")
                                       .raw("m_vMarginRates", "[" + margin + "]")
                                       .done())
                     .done());
        }
        lifecycle("start_cache", a);
        // The query answers of the login: yesterday's positions, then the funds.
        const int held = static_cast<int>(std::min<size_t>(a.universe.size(), 4 + m_rand.below(8)));
        for (int k = 0; k < held && budget(); ++k) {
            const int inst = a.universe[m_rand.below(a.universe.size())];
            const CInst& i = m_insts[inst];
            const int dir = (i.kind == FUTURE && m_rand.chance(40)) ? 49 : 48;
            CPos& p = a.positions[std::make_pair(inst, dir)];
            const int64_t lots = i.kind == FUTURE ? m_rand.range(1, 20) : m_rand.range(20, 200);
            const int64_t vol = lots * i.lot;
            p.volume += vol;
            p.yesterday += vol;
            p.canUse += vol;
            p.cost += i.preClose * vol * i.multiple;
            if (i.kind == FUTURE) a.margin += i.preClose * vol * i.multiple / 10;
            record(a, positionJson(a, inst, dir, p));
        }
        if (a.family == FAMILY_FUTURE) a.available -= a.margin;
        if (budget()) record(a, accountDetailJson(a));
        lifecycle("initialize", a);
        // Pushes that arrive before the flush are held by the cache and replayed, funds last.
        if (budget()) record(a, accountDetailJson(a));
        if (budget() && !a.positions.empty()) {
            const auto& p = *a.positions.begin();
            record(a, positionJson(a, p.first.first, p.first.second, p.second));
        }
        lifecycle("flush", a);
    }

    // ---- the trading day ----

    int64_t feeOf(const CAcct& a, int64_t amount, int volume, bool sell) const {
        switch (a.family) {
            case FAMILY_STOCK:
                return std::max<int64_t>(amount * 25 / 100000, 5 * UNIT) + (sell ? amount * 5 / 10000 : 0);
            case FAMILY_FUTURE:
                return std::max<int64_t>(amount / 10000, 3 * UNIT * volume);
            case FAMILY_OPTION:
                return 16000 * volume / 10;
            case FAMILY_HGT:
                return std::max<int64_t>(amount * 8 / 10000, 50 * UNIT) + amount / 1000;
        }
        return 0;
    }

    std::string orderJson(const CAcct& a, const COrd& o, int status, int submit,
                          const std::string& cancelTime, const std::string& error) const {
        const CInst& i = m_insts[o.inst];
        CJson j;
        j.str("class", "COrderDetail")
            .str("m_strAccountKey", a.key)
            .str("m_strExchangeID", i.exchange)
            .str("m_strInstrumentID", i.code)
            .str("m_strInstrumentName", i.name);
        if (!i.product.empty() && i.kind == FUTURE) j.str("m_strProductID", i.product);
        j.str("m_strOrderSysID", o.sysId)
            .num("m_nDirection", o.dir)
            .num("m_nOffsetFlag", o.offset)
            .num("m_eOperationType", o.op)
            .num("m_eOrderStatus", status)
            .num("m_eOrderSubmitStatus", submit)
            .num("m_nVolumeTotalOriginal", o.volume)
            .num("m_nVolumeTraded", o.traded)
            .px("m_dLimitPrice", o.price);
        if (o.traded)
            j.px("m_dTradedPrice", o.amount / (static_cast<int64_t>(o.traded) * i.multiple))
                .px("m_dTradeAmount", o.amount);
        if (o.commission) j.px("m_dCommission", o.commission);
        j.str("m_strInsertDate", kTradeDay).str("m_strInsertTime", o.time);
        if (!cancelTime.empty()) j.str("m_strCancelTime", cancelTime);
        if (!error.empty()) j.num("m_nErrorID", 10001).str("m_strErrorMsg", error);
        return j.done();
    }

    void newOrder(CAcct& a) {
        int inst = a.universe[m_rand.below(a.universe.size())];
        // Short of cash, a trader sells what it holds rather than sending orders that bounce.
        bool mustClose = false;
        if (a.available * 10 < a.preBalance) {
            std::vector<int> held;
            for (const auto& kv : a.positions)
                if (kv.second.canUse > 0) held.push_back(kv.first.first);
            if (!held.empty()) {
                inst = m_rand.pick(held);
                mustClose = true;
            }
        }
        CInst& i = m_insts[inst];
        COrd o;
        o.inst = inst;
        o.sysId = pad(a.nextOrder++, 10);
        o.time = timeOfDay();
        const CPos* longPos = nullptr;
        const CPos* shortPos = nullptr;
        auto lp = a.positions.find(std::make_pair(inst, 48));
        if (lp != a.positions.end() && lp->second.canUse > 0) longPos = &lp->second;
        auto sp = a.positions.find(std::make_pair(inst, 49));
        if (sp != a.positions.end() && sp->second.canUse > 0) shortPos = &sp->second;
        // The less cash is left, the likelier a close: 40% with all of it, 90% with a tenth or less.
        const int64_t cashPct = std::max<int64_t>(
            10, std::min<int64_t>(60, a.available * 100 / std::max<int64_t>(1, a.preBalance)));
        const bool close =
            (longPos || shortPos) && (mustClose || m_rand.chance(static_cast<int>(100 - cashPct)));
        if (a.family == FAMILY_FUTURE) {
            if (close) {
                const bool closeLong = longPos && (!shortPos || m_rand.chance(50));
                const CPos* p = closeLong ? longPos : shortPos;
                o.dir = closeLong ? 49 : 48;
                o.offset = (i.exchange == "SHFE" && p->canUse > p->yesterday) ? 51 : 49;
                o.op = closeLong ? 1 : 4;
                o.volume = static_cast<int>(std::min<int64_t>(p->canUse, m_rand.range(1, 10)));
            } else {
                const bool buy = m_rand.chance(55);
                o.dir = buy ? 48 : 49;
                o.offset = 48;
                o.op = buy ? 0 : 3;
                o.volume = static_cast<int>(m_rand.range(1, 10));
            }
        } else if (close && longPos) {
            o.dir = 49;
            o.offset = 49;
            o.op = a.family == FAMILY_OPTION ? 33 : 19;
            const int64_t lots =
                std::max<int64_t>(1, std::min<int64_t>(longPos->canUse / i.lot, m_rand.range(1, 10)));
            o.volume = static_cast<int>(std::min<int64_t>(lots * i.lot, longPos->canUse));
        } else {
            o.dir = 48;
            o.offset = 48;
            o.op = a.family == FAMILY_OPTION ? 32 : 18;
            // A buy spends a small share of the day's starting funds, smaller the longer the day, so
            // that cash lasts the whole session.
            const int64_t lotValue = std::max<int64_t>(1, i.last * i.lot * i.multiple);
            const int64_t most = std::max<int64_t>(1, a.preBalance / m_buyDivisor / lotValue);
            o.volume = static_cast<int>(
                std::min<int64_t>(most, m_rand.range(1, a.family == FAMILY_OPTION ? 20 : 10)) * i.lot);
        }
        // A limit price a few ticks from the last price, within the day's limits.
        const int64_t step = i.kind == HK ? hkTick(i.last) : i.tick;
        o.price = std::max<int64_t>(step, roundTo(i.last + step * m_rand.range(-3, 3), step));
        if (i.upper && o.price > i.upper) o.price = i.upper;
        if (i.lower && o.price < i.lower) o.price = i.lower;

        const bool opens = o.offset == 48;
        if (opens) {
            const int64_t amount = o.price * o.volume * i.multiple;
            int64_t need =
                (a.family == FAMILY_FUTURE ? amount / 10 : amount) + feeOf(a, amount, o.volume, false);
            if (need > a.available) {
                // Order what the funds allow; now and then the order goes out anyway and is refused.
                const int64_t lots = std::min<int64_t>(
                    o.volume / i.lot, a.available / std::max<int64_t>(1, need / (o.volume / i.lot)));
                if (lots < 1 || m_rand.chance(10)) {
                    if (m_rand.chance(20)) record(a, orderJson(a, o, 57, 52, std::string(), "可用资金不足"));
                    return;
                }
                o.volume = static_cast<int>(lots * i.lot);
                const int64_t smaller = o.price * o.volume * i.multiple;
                need =
                    (a.family == FAMILY_FUTURE ? smaller / 10 : smaller) + feeOf(a, smaller, o.volume, false);
                if (need > a.available) return;
            }
            o.reserve = need;
            a.available -= need;
            a.frozen += need;
        } else {
            CPos& p = a.positions[std::make_pair(inst, o.dir == 49 ? 48 : 49)];
            p.canUse -= o.volume;
        }
        record(a, orderJson(a, o, 50, 51, std::string(), std::string()));
        a.open.push_back(o);
    }

    void fill(CAcct& a, size_t index) {
        COrd& o = a.open[index];
        CInst& i = m_insts[o.inst];
        const int remaining = o.volume - o.traded;
        int vol = remaining;
        if (remaining > i.lot && m_rand.chance(45))
            vol = static_cast<int>(m_rand.range(1, remaining / i.lot - (remaining % i.lot ? 0 : 1)) * i.lot);
        if (vol <= 0 || vol > remaining) vol = remaining;
        const int64_t price = o.price;
        const int64_t amount = price * vol * i.multiple;
        const bool sell = o.dir == 49;
        const int64_t fee = feeOf(a, amount, vol, sell);
        o.traded += vol;
        o.amount += amount;
        o.commission += fee;
        a.commission += fee;
        i.last = price;

        CJson deal;
        deal.str("class", "CDealDetail")
            .str("m_strAccountKey", a.key)
            .str("m_strExchangeID", i.exchange)
            .str("m_strInstrumentID", i.code)
            .str("m_strInstrumentName", i.name)
            .str("m_strTradeID", pad(a.nextTrade++, 8))
            .str("m_strOrderSysID", o.sysId)
            .num("m_nDirection", o.dir)
            .num("m_nOffsetFlag", o.offset)
            .num("m_eOperationType", o.op)
            .num("m_nVolume", vol)
            .px("m_dPrice", price)
            .px("m_dAmount", amount)
            .px("m_dCommission", fee)
            .str("m_strTradeDate", kTradeDay)
            .str("m_strTradeTime", timeOfDay());

        // Funds and the position the deal moves.
        const bool opens = o.offset == 48;
        const int posDir = opens ? o.dir : (o.dir == 49 ? 48 : 49);
        CPos& p = a.positions[std::make_pair(o.inst, posDir)];
        if (opens) {
            const int64_t part = o.reserve * vol / remaining;
            o.reserve -= part;
            a.frozen -= part;
            a.available += part;
            if (a.family == FAMILY_FUTURE) {
                a.margin += amount / 10;
                a.available -= amount / 10 + fee;
            } else {
                a.available -= amount + fee;
            }
            p.volume += vol;
            p.cost += amount;
            // Futures, options and Hong Kong shares trade T+0; A shares bought today sell tomorrow.
            if (a.family != FAMILY_STOCK) p.canUse += vol;
        } else {
            const int64_t costPart = p.volume ? p.cost * vol / p.volume : 0;
            p.cost -= costPart;
            p.volume -= vol;
            p.yesterday = std::min(p.yesterday, p.volume);
            if (a.family == FAMILY_FUTURE) {
                const int64_t profit = (posDir == 48 ? amount - costPart : costPart - amount);
                const int64_t release = costPart / 10;
                a.margin -= release;
                a.closeProfit += profit;
                a.available += release + profit - fee;
            } else {
                a.available += amount - fee;
            }
        }
        record(a, deal.done());
        if (!budget()) return;
        const bool done = o.traded == o.volume;
        record(a, orderJson(a, o, done ? 56 : 55, 51, std::string(), std::string()));
        if (budget()) record(a, positionJson(a, o.inst, posDir, p));
        if (budget() && m_rand.chance(30)) record(a, accountDetailJson(a));
        if (done) a.open.erase(a.open.begin() + static_cast<std::ptrdiff_t>(index));
    }

    void cancel(CAcct& a, size_t index) {
        COrd& o = a.open[index];
        if (o.reserve) {
            a.frozen -= o.reserve;
            a.available += o.reserve;
            o.reserve = 0;
        }
        if (o.offset != 48) {
            CPos& p = a.positions[std::make_pair(o.inst, o.dir == 49 ? 48 : 49)];
            p.canUse += o.volume - o.traded;
        }
        record(a, orderJson(a, o, o.traded ? 53 : 54, 51, timeOfDay(), std::string()));
        a.open.erase(a.open.begin() + static_cast<std::ptrdiff_t>(index));
        if (budget() && m_rand.chance(30)) record(a, accountDetailJson(a));
    }

    void quote() {
        const CAcct& a = m_accounts[m_rand.below(m_accounts.size())];
        CInst& i = m_insts[a.universe[m_rand.below(a.universe.size())]];
        const int64_t step = i.kind == HK ? hkTick(i.last) : i.tick;
        i.last = std::max<int64_t>(step, roundTo(i.last + step * m_rand.range(-2, 2), step));
        if (i.upper && i.last > i.upper) i.last = i.upper;
        if (i.lower && i.last < i.lower) i.last = i.lower;
        CJson q;
        q.str("m_strExchangeID", i.exchange)
            .str("m_strInstrumentID", i.code)
            .str("m_strUpdateTime", timeOfDay())
            .str("m_strTradingDay", kTradeDay)
            .px("m_dLastPrice", i.last)
            .px("m_dPreClosePrice", i.preClose);
        if (i.upper) q.px("m_dUpperLimitPrice", i.upper).px("m_dLowerLimitPrice", i.lower);
        static const char* const bids[] = {"m_dBidPrice1", "m_dBidPrice2", "m_dBidPrice3", "m_dBidPrice4",
                                           "m_dBidPrice5"};
        static const char* const asks[] = {"m_dAskPrice1", "m_dAskPrice2", "m_dAskPrice3", "m_dAskPrice4",
                                           "m_dAskPrice5"};
        const int levels = m_rand.chance(10) ? 2 : 5;  // a thin book now and then
        for (int k = 0; k < levels; ++k) {
            if (i.last - step * (k + 1) > 0) q.px(bids[k], i.last - step * (k + 1));
            q.px(asks[k], i.last + step * (k + 1));
        }
        q.num("m_nVolume", static_cast<int64_t>(m_rand.range(1000, 5000000)));
        line(CJson().str("event", "quote").raw("quote", q.done()).done());
    }

    void query() {
        const CAcct& a = m_accounts[m_rand.below(m_accounts.size())];
        const CInst& i = m_insts[a.universe[m_rand.below(a.universe.size())]];
        switch (m_rand.below(6)) {
            case 0:
                line(CJson()
                         .str("event", "query")
                         .str("what", "undealt_volume")
                         .str("account", a.key)
                         .str("instrument", a.open.empty() ? i.code : m_insts[a.open.front().inst].code)
                         .done());
                break;
            case 1: {
                const bool sell = m_rand.chance(50);
                line(CJson()
                         .str("event", "query")
                         .str("what", "order_price")
                         .str("exchange", i.exchange)
                         .str("instrument", i.code)
                         .num("price_type", static_cast<int64_t>(m_rand.below(15)))
                         .num("operation", a.family == FAMILY_FUTURE ? (sell ? 3 : 0) : (sell ? 19 : 18))
                         .str("for", m_rand.chance(50) ? "order" : "calc")
                         .done());
                break;
            }
            case 2:
                line(CJson()
                         .str("event", "query")
                         .str("what", "tick_size")
                         .str("key", i.tickKey)
                         .px("price", i.last)
                         .done());
                break;
            case 3:
                line(CJson()
                         .str("event", "query")
                         .str("what", "can_order_volume")
                         .str("account", a.key)
                         .str("exchange", i.exchange)
                         .str("instrument", i.code)
                         .num("direction", 48)
                         .num("offset", 48)
                         .px("price", i.last)
                         .done());
                break;
            case 4:
                line(CJson()
                         .str("event", "query")
                         .str("what", "instrument")
                         .str("market", i.exchange)
                         .str("code", i.code)
                         .done());
                break;
            default:
                line(CJson()
                         .str("event", "query")
                         .str("what", "fees")
                         .str("account", a.key)
                         .str("exchange", i.exchange)
                         .str("instrument", i.code)
                         .done());
                break;
        }
    }

    void trade() {
        // Time of day moves from 09:30:00 over about four hours, whatever the size.
        const uint64_t expectedActions = std::max<uint64_t>(1, m_options.m_nRecords / 3);
        const int64_t stepMs = std::max<int64_t>(1, static_cast<int64_t>(4 * 3600 * 1000 / expectedActions));
        m_clockMs = (9 * 3600 + 30 * 60) * 1000LL;
        m_buyDivisor = std::max<int64_t>(
            50, static_cast<int64_t>(m_options.m_nRecords /
                                     static_cast<uint64_t>(std::max(1, m_options.m_nAccounts)) / 12));
        uint64_t actions = 0;
        bool reloaded = false;
        while (budget()) {
            ++actions;
            m_clockMs += stepMs;
            const size_t index = m_rand.below(m_accounts.size());
            CAcct& a = m_accounts[index];
            const uint64_t r = m_rand.below(100);
            const uint64_t before = m_counts.m_nRecords;
            // A fill writes its deal and the order together: near the end of the budget only funds
            // come, so that every deal's order tells its traded volume.
            if (m_options.m_nRecords - m_counts.m_nRecords < 3)
                record(a, accountDetailJson(a));
            else if (a.open.empty() || r < 40)
                newOrder(a);
            else if (r < 80)
                fill(a, m_rand.below(a.open.size()));
            else if (r < 92)
                cancel(a, m_rand.below(a.open.size()));
            else
                record(a, accountDetailJson(a));
            // An order it could not send: the funds are asked for instead.
            if (m_counts.m_nRecords == before) record(a, accountDetailJson(a));

            if (actions % 8 == 0) quote();
            if (actions % 150 == 0) line(CJson().str("event", "advance").num("ms", 1000).done());
            if (actions % 97 == 0) query();
            // Half-way, every third account reloads: its pushes are cached until the flush.
            if (!reloaded && m_counts.m_nRecords * 2 >= m_options.m_nRecords) {
                reloaded = true;
                for (size_t k = 0; k < m_accounts.size(); k += 3) {
                    m_accounts[k].caching = true;
                    m_accounts[k].flushAt = actions + 40 + m_rand.below(40);
                    lifecycle("start_cache", m_accounts[k]);
                }
            }
            for (CAcct& c : m_accounts) {
                if (c.caching && actions >= c.flushAt) {
                    c.caching = false;
                    lifecycle("flush", c);
                }
            }
        }
        for (CAcct& c : m_accounts) {
            if (c.caching) {
                c.caching = false;
                lifecycle("flush", c);
            }
        }
    }

    const CGeneratorOptions m_options;
    std::ostream& m_out;
    CRandom m_rand;
    CGeneratorCounts m_counts;
    std::vector<CInst> m_insts;
    std::vector<CAcct> m_accounts;
    int64_t m_clockMs = 0;
    int64_t m_buyDivisor = 50;
};

}  // namespace

CGeneratorCounts generateSession(const CGeneratorOptions& options, std::ostream& out) {
    CGenerator generator(options, out);
    return generator.run();
}

}  // namespace replay
}  // namespace ttservice
