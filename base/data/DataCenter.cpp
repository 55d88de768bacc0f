#include "base/data/DataCenter.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <boost/thread/locks.hpp>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string_view>

#include "base/TraderCenter.h"
#include "base/data/CAccountData.h"
#include "base/data/DataHelper.h"
#include "category/CppCategory.h"
#include "utils/LogCenter.h"
#include "utils/StringUtils.h"
#include "utils/TimeUtils.h"

namespace ttservice {

namespace {

typedef boost::shared_lock<boost::shared_mutex> SharedLock;
typedef boost::unique_lock<boost::shared_mutex> ExclusiveLock;
typedef boost::recursive_mutex::scoped_lock RecursiveLock;

const double kDefaultPriceTick = 0.01;
const double kPriceTolerance = 1e-5;
const int kStockOptionAccountType = 6;

bool startsWith(const std::string& s, const char* prefix) {
    const size_t n = std::strlen(prefix);
    return s.size() >= n && s.compare(0, n, prefix) == 0;
}

// The key of a default-constructed account: records addressed to it belong to the global store.
const std::string& defaultAccountKey() {
    static const CAccountInfo s_defaultAccount;
    static const std::string s_key = s_defaultAccount.getKey();
    return s_key;
}

template <class Ptr>
Ptr findTable(boost::shared_mutex& mutex, const std::map<std::string, Ptr>& tables, const std::string& key) {
    SharedLock lock(mutex);
    const typename std::map<std::string, Ptr>::const_iterator it = tables.find(key);
    return it == tables.end() ? Ptr() : it->second;
}

template <class Ptr>
void fileTables(boost::shared_mutex& mutex, std::map<std::string, Ptr>& tables,
                std::vector<std::pair<std::string, Ptr> >& filed) {
    if (filed.empty()) return;
    ExclusiveLock lock(mutex);
    for (std::pair<std::string, Ptr>& t : filed) tables[t.first].swap(t.second);
    // The replaced tables are released with `filed`, after the lock.
}

// The fee's instrument, read under the fee's own lock (merges may replace it).
CInstrumentDetailPtr instrumentOf(const CInstrumentFeePtr& fee) {
    if (!fee) return CInstrumentDetailPtr();
    IData::Lock lock(fee);
    return fee->m_instrument;
}

// The matching rule of a custom rate entry (stock, futures, HGT and the custom-rate queries):
// the category service's rules for the entry's category, overridden by the entry's own code list
// for 10001 <= category < 20002 when it carries a custom category map, or by its group test for
// 70001 <= category < 80002 when it carries group members. The ranges are half-open on purpose.
template <class Entry>
bool entryMatches(const CppCategory& category, const Entry& entry, const CInstrumentDetail& inst) {
    const int code = std::atoi(entry.m_strCategory.c_str());
    if (code >= 10001 && code < 20002 && !entry.m_mapCustomCategory.empty()) {
        const StringListMap::const_iterator list = entry.m_mapCustomCategory.find(entry.m_strCategory);
        if (list == entry.m_mapCustomCategory.end()) return false;  // no code list for this category
        return category.isStockInCustomCategory(inst.m_strExchangeID, inst.m_strInstrumentID, list->second);
    }
    if (code >= 70001 && code < 80002 && !entry.m_vGroupCategory.empty())
        return category.isStockInGroupCategory(inst.m_strExchangeID, inst.m_strInstrumentID,
                                               inst.m_strInstrumentName, entry.m_vGroupCategory,
                                               entry.m_mapCustomCategory);
    return category.isStockInCategoryForTS(inst.m_strExchangeID, inst.m_strInstrumentID,
                                           inst.m_strInstrumentName, code);
}

// The first entry of `entries` that matches `inst`, in list order; empty when none does.
template <class EntryPtr>
EntryPtr firstMatch(const std::vector<EntryPtr>& entries, const CInstrumentDetail& inst) {
    if (entries.empty()) return EntryPtr();
    const CppCategory& category = CSingletonT<CppCategory>::instance();
    for (const EntryPtr& e : entries)
        if (e && entryMatches(category, *e, inst)) return e;
    return EntryPtr();
}

// A minimum volume from a custom entry's double: rounded to the nearest lot; 0 (no minimum) for a
// value that is not finite, not positive or beyond the 64-bit range.
int64_t toMinVolume(double v) {
    if (!std::isfinite(v) || v <= 0.0 || v >= 9.2e18) return 0;
    return static_cast<int64_t>(std::llround(v));
}

// A fresh copy of a sub-record, or a new one when there is none.
template <class T>
boost::shared_ptr<T> freshCopy(const boost::shared_ptr<T>& current) {
    return current ? boost::static_pointer_cast<T>(current->clone()) : boost::make_shared<T>();
}

// The day when it is a number, else the date of the terminal's clock.
std::string dayOrClockDate(const std::string& day) {
    if (std::atoi(day.c_str()) != 0) return day;
    const IPrimitivePtr primitive = TraderCenter::instance()->getPrimitive();
    const int64_t now = primitive ? primitive->getCurrentTime() : utils::nowSeconds();
    return std::to_string(utils::secondsToDate(now));
}

}  // namespace

// ---- construction --------------------------------------------------------------------------------

DataCenter::DataCenter()
    : m_globalData(boost::make_shared<CAccountData>(3000)),
      m_portfolioManager(boost::make_shared<PortfolioManager>()),
      m_etfDataCenter(boost::make_shared<ETFDataCenter>()),
      m_hgtSettlementRates(boost::make_shared<const SettlementRateMap>()),
      m_sgtSettlementRates(boost::make_shared<const SettlementRateMap>()),
      m_bUpToDate(false),
      m_nKLineStatus(static_cast<ENqKlineDataStatus>(0)) {
    m_mapAccounts[std::string()] = m_globalData;
}

DataCenter::~DataCenter() {}

// ---- accounts ------------------------------------------------------------------------------------

void DataCenter::addAccount(const std::string& accountKey, const boost::shared_ptr<CAccountData>& data) {
    TT_LOG_STD_INFO("%1% : account = %2%", "ttservice::DataCenter::addAccount", accountKey);
    if (!data) return;
    boost::shared_ptr<CAccountData> replaced;
    {
        RecursiveLock lock(m_accountMutex);
        boost::shared_ptr<CAccountData>& slot = m_mapAccounts[accountKey];
        if (slot && slot != data) replaced = slot;
        slot = data;
    }
    if (replaced) replaced->clear();
}

boost::shared_ptr<CAccountData> DataCenter::getAccount(const std::string& accountKey) {
    RecursiveLock lock(m_accountMutex);
    const std::map<std::string, boost::shared_ptr<CAccountData> >::const_iterator it =
        m_mapAccounts.find(accountKey);
    return it == m_mapAccounts.end() ? boost::shared_ptr<CAccountData>() : it->second;
}

void DataCenter::removeAccount(const std::string& accountKey) {
    boost::shared_ptr<CAccountData> removed;  // released after the lock
    RecursiveLock lock(m_accountMutex);
    const std::map<std::string, boost::shared_ptr<CAccountData> >::iterator it =
        m_mapAccounts.find(accountKey);
    if (it == m_mapAccounts.end()) return;
    removed.swap(it->second);
    m_mapAccounts.erase(it);
}

std::vector<boost::shared_ptr<CAccountData> > DataCenter::getAccounts() {
    std::vector<boost::shared_ptr<CAccountData> > accounts;
    RecursiveLock lock(m_accountMutex);
    accounts.reserve(m_mapAccounts.size());
    for (const auto& a : m_mapAccounts) accounts.push_back(a.second);
    return accounts;
}

void DataCenter::updateData(const std::string& accountKey, const IDataPtr& data) {
    if (!data) return;
    boost::shared_ptr<CAccountData> store;
    {
        RecursiveLock lock(m_accountMutex);
        std::map<std::string, boost::shared_ptr<CAccountData> >::const_iterator it =
            m_mapAccounts.find(accountKey);
        if (it == m_mapAccounts.end() && accountKey == defaultAccountKey())
            it = m_mapAccounts.find(std::string());
        if (it != m_mapAccounts.end()) store = it->second;
    }
    if (store) store->updateData(data, false);
}

boost::shared_ptr<CAccountData> DataCenter::getGlobalData() {
    return m_globalData;
}
boost::shared_ptr<ETFDataCenter> DataCenter::getETFDataCenter() {
    return m_etfDataCenter;
}
boost::shared_ptr<PortfolioManager> DataCenter::getPortfolioManager() {
    return m_portfolioManager;
}

SubRequestPtr DataCenter::subscribe(const std::string& recordKey, int kind, const DataCallback& cb) {
    if (!cb) return SubRequestPtr();
    return m_subTable.subscribe(IDataKey(kind, recordKey), cb);
}

CPriceDataPtr DataCenter::getPrice(int type, const std::string& market, const std::string& code) {
    const IPrimitivePtr primitive = TraderCenter::instance()->getPrimitive();
    return primitive ? primitive->getPrice(type, market, code) : CPriceDataPtr();
}

// ---- instruments ---------------------------------------------------------------------------------

const std::set<std::string>& DataCenter::getChinaFutureMarkets() {
    static const std::set<std::string> s_markets = {"CFFEX", "SHFE", "DCE", "CZCE", "INE"};
    return s_markets;
}

std::string DataCenter::productNameOf(const CInstrumentDetail& detail) {
    const std::string& name = detail.m_strInstrumentName;
    size_t end = name.size();
    while (end > 0 && name[end - 1] >= '0' && name[end - 1] <= '9') --end;
    if (end > 0) return name.substr(0, end);
    return detail.m_strProductName.empty() ? detail.m_strProductID : detail.m_strProductName;
}

CInstrumentDetailPtr DataCenter::findInstrumentLocked(const std::string& market,
                                                      const std::string& code) const {
    // The instrument key is built on the stack: a look-up allocates nothing.
    char buf[96];
    const size_t n = market.size() + code.size();
    KeyInstrumentMap::const_iterator it;
    if (n <= sizeof(buf)) {
        std::memcpy(buf, market.data(), market.size());
        std::memcpy(buf + market.size(), code.data(), code.size());
        it = m_mapInstrumentsByKey.find(std::string_view(buf, n));
    } else {
        it = m_mapInstrumentsByKey.find(market + code);
    }
    return it == m_mapInstrumentsByKey.end() ? CInstrumentDetailPtr() : it->second;
}

CInstrumentDetailPtr DataCenter::findInstrumentShared(const std::string& market,
                                                      const std::string& code) const {
    SharedLock lock(m_instrumentMutex);
    return findInstrumentLocked(market, code);
}

CInstrumentDetailPtr DataCenter::getInstrumentByKey(const std::string& key) {
    SharedLock lock(m_instrumentMutex);
    const KeyInstrumentMap::const_iterator it = m_mapInstrumentsByKey.find(key);
    return it == m_mapInstrumentsByKey.end() ? CInstrumentDetailPtr() : it->second;
}

CInstrumentDetailPtr DataCenter::getInstrumentByCode(const std::string& code) {
    SharedLock lock(m_instrumentMutex);
    const InstrumentMap::const_iterator it = m_mapInstrumentsByCode.find(code);
    return it == m_mapInstrumentsByCode.end() ? CInstrumentDetailPtr() : it->second;
}

CInstrumentDetailPtr DataCenter::getInstrument(const std::string& market, const std::string& code) {
    CInstrumentDetailPtr hit = findInstrumentShared(market, code);
    if (hit || market.empty() || code.empty()) return hit;
    const std::set<std::string>& futures = getChinaFutureMarkets();
    if (futures.find(market) == futures.end()) return hit;
    // Each attempt takes and releases the lock on its own, so a loader waiting for the exclusive
    // lock is not held off by a chain of attempts.
    for (const std::string& other : futures) {
        if (other == market) continue;
        hit = findInstrumentShared(other, code);
        if (hit) return hit;
    }
    return hit;
}

std::string DataCenter::getProduct(const std::string& market, const std::string& code) {
    const CInstrumentDetailPtr inst = getInstrument(market, code);
    return inst ? inst->m_strProductID : std::string();
}

std::string DataCenter::getRealMarket(const std::string& market, const std::string& code) {
    const CInstrumentDetailPtr inst = getInstrument(market, code);
    return inst ? inst->m_strExchangeID : std::string();
}

std::string DataCenter::getProductNameByID(const std::string& productId) {
    SharedLock lock(m_instrumentMutex);
    const InstrumentIndex::const_iterator it = m_mapProductInstruments.find(productId);
    if (it == m_mapProductInstruments.end() || it->second.empty() || !it->second.begin()->second)
        return std::string();
    return it->second.begin()->second->m_strProductName;
}

InstrumentMap DataCenter::getInstruments() {
    SharedLock lock(m_instrumentMutex);
    return InstrumentMap(m_mapInstrumentsByKey.begin(), m_mapInstrumentsByKey.end());
}

InstrumentMap DataCenter::getExchangeInstruments(const std::string& market) {
    SharedLock lock(m_instrumentMutex);
    const InstrumentIndex::const_iterator it = m_mapExchangeInstruments.find(market);
    return it == m_mapExchangeInstruments.end() ? InstrumentMap() : it->second;
}

InstrumentMap DataCenter::getProductInstruments(const std::string& productId) {
    SharedLock lock(m_instrumentMutex);
    const InstrumentIndex::const_iterator it = m_mapProductInstruments.find(productId);
    return it == m_mapProductInstruments.end() ? InstrumentMap() : it->second;
}

InstrumentIndex DataCenter::getAllProductInstruments() {
    SharedLock lock(m_instrumentMutex);
    return m_mapProductInstruments;
}

StringPairList DataCenter::getDceCrossProduct() {
    SharedLock lock(m_instrumentMutex);
    return m_vDceCrossProduct;
}

StringPairList DataCenter::getDceCrossPeriod() {
    SharedLock lock(m_instrumentMutex);
    return m_vDceCrossPeriod;
}

std::string DataCenter::getIpoCode() {
    SharedLock lock(m_instrumentMutex);
    return m_strIpoCode;
}

void DataCenter::setIpoCode() {
    ExclusiveLock lock(m_instrumentMutex);
    rebuildIpoCodeLocked();
}

void DataCenter::rebuildIpoCodeLocked() {
    std::string code;
    for (const auto& i : m_mapInstrumentsByKey) {
        if (!i.second || !i.second->m_bIsIPO) continue;
        if (!code.empty()) code += ',';
        code += i.first;
    }
    m_strIpoCode.swap(code);
}

// Removes `detail`, filed under `key`, from the code, exchange and product indexes (not from the
// key index, which the caller handles). Entries that point at another record are left alone.
void DataCenter::unindexLocked(const std::string& key, const CInstrumentDetailPtr& detail) {
    if (!detail) return;
    const InstrumentMap::iterator byCode = m_mapInstrumentsByCode.find(detail->m_strInstrumentID);
    if (byCode != m_mapInstrumentsByCode.end() && byCode->second == detail)
        m_mapInstrumentsByCode.erase(byCode);
    for (InstrumentIndex* index : {&m_mapExchangeInstruments, &m_mapProductInstruments}) {
        const std::string& group =
            index == &m_mapExchangeInstruments ? detail->m_strExchangeID : detail->m_strProductID;
        const InstrumentIndex::iterator g = index->find(group);
        if (g == index->end()) continue;
        const InstrumentMap::iterator e = g->second.find(key);
        if (e != g->second.end() && e->second == detail) g->second.erase(e);
        if (g->second.empty()) index->erase(g);
    }
}

void DataCenter::eraseMarketLocked(const std::string& market) {
    const InstrumentIndex::iterator ex = m_mapExchangeInstruments.find(market);
    if (ex == m_mapExchangeInstruments.end()) return;
    InstrumentMap instruments;
    instruments.swap(ex->second);
    m_mapExchangeInstruments.erase(ex);
    for (const auto& i : instruments) {
        const KeyInstrumentMap::iterator byKey = m_mapInstrumentsByKey.find(i.first);
        if (byKey != m_mapInstrumentsByKey.end() && byKey->second == i.second)
            m_mapInstrumentsByKey.erase(byKey);
        unindexLocked(i.first, i.second);
    }
}

void DataCenter::setInstrumentDetail(const std::vector<std::string>& markets,
                                     const std::vector<CInstrumentDetailPtr>& details) {
    std::vector<size_t> skipped;  // positions of details skipped, logged after the lock
    KeyInstrumentMap scattered;   // the key index as the load left it, freed after the lock
    {
        ExclusiveLock lock(m_instrumentMutex);
        const std::set<std::string> marketSet(markets.begin(), markets.end());
        for (const std::string& m : marketSet) eraseMarketLocked(m);
        if (marketSet.find("DCE") != marketSet.end()) {
            m_vDceCrossProduct.clear();
            m_vDceCrossPeriod.clear();
        }
        std::string key;
        for (size_t i = 0; i < details.size(); ++i) {
            const CInstrumentDetailPtr& d = details[i];
            if (!d || d->m_strInstrumentID.empty()) {
                skipped.push_back(i);
                continue;
            }
            std::string productName = productNameOf(*d);
            if (productName != d->m_strProductName) d->m_strProductName.swap(productName);

            key.assign(d->m_strExchangeID).append(d->m_strInstrumentID);
            const std::pair<KeyInstrumentMap::iterator, bool> res = m_mapInstrumentsByKey.emplace(key, d);
            bool replaced = false;
            if (!res.second) {
                replaced = true;
                if (res.first->second != d) {
                    unindexLocked(key, res.first->second);
                    res.first->second = d;
                }
            }

            if (d->m_bIsCombination && d->m_strExchangeID == "DCE") {
                const std::string& code = d->m_strInstrumentID;
                StringPairList* list = startsWith(code, "SPC")  ? &m_vDceCrossProduct
                                       : startsWith(code, "SP") ? &m_vDceCrossPeriod
                                                                : nullptr;
                if (list) {
                    const std::vector<std::string> parts = utils::split(code, " ");
                    if (parts.size() == 2) {
                        std::vector<std::string> legs = utils::split(parts[1], "&");
                        if (legs.size() == 2) {
                            std::pair<std::string, std::string> pair(std::move(legs[0]), std::move(legs[1]));
                            // A spread filed again without its market being reloaded is listed once.
                            if (!replaced || std::find(list->begin(), list->end(), pair) == list->end())
                                list->push_back(std::move(pair));
                        }
                    }
                }
            }

            m_mapInstrumentsByCode[d->m_strInstrumentID] = d;
            m_mapExchangeInstruments[d->m_strExchangeID][key] = d;
            m_mapProductInstruments[d->m_strProductID][key] = d;
        }
        rebuildIpoCodeLocked();
        // The key index is what every look-up walks: refiled in key order into fresh nodes it is
        // laid out compactly instead of interleaved with the other indexes and the product names,
        // which halves the cache misses of a look-up in a large table. The old nodes are freed
        // after the lock is released.
        KeyInstrumentMap compact(m_mapInstrumentsByKey.begin(), m_mapInstrumentsByKey.end());
        m_mapInstrumentsByKey.swap(compact);
        scattered.swap(compact);
    }
    for (size_t i : skipped) {
        if (!details[i])
            TT_LOG_STD_DEBUG("%1% : empty instrument detail at position %2% skipped",
                             "ttservice::DataCenter::setInstrumentDetail", i);
        else
            TT_LOG_STD_DEBUG("%1% : instrument detail at position %2% has no instrument code, skipped: %3%",
                             "ttservice::DataCenter::setInstrumentDetail", i, details[i]->toString());
    }
}

bool DataCenter::checkInstrumentIndexes(std::string* report) const {
    std::ostringstream out;
    bool ok = true;
    auto fail = [&](const std::string& what) {
        ok = false;
        out << what << '\n';
    };
    SharedLock lock(m_instrumentMutex);
    auto holds = [](const InstrumentIndex& index, const std::string& group, const std::string& key,
                    const CInstrumentDetailPtr& d) {
        const InstrumentIndex::const_iterator g = index.find(group);
        if (g == index.end()) return false;
        const InstrumentMap::const_iterator e = g->second.find(key);
        return e != g->second.end() && e->second == d;
    };
    std::string ipo;
    for (const auto& i : m_mapInstrumentsByKey) {
        const CInstrumentDetailPtr& d = i.second;
        if (!d) {
            fail("by key: " + i.first + " holds an empty record");
            continue;
        }
        if (i.first != d->m_strExchangeID + d->m_strInstrumentID)
            fail("by key: " + i.first + " holds " + d->m_strExchangeID + d->m_strInstrumentID);
        if (!holds(m_mapExchangeInstruments, d->m_strExchangeID, i.first, d))
            fail("by exchange: " + d->m_strExchangeID + " lacks " + i.first);
        if (!holds(m_mapProductInstruments, d->m_strProductID, i.first, d))
            fail("by product: " + d->m_strProductID + " lacks " + i.first);
        if (d->m_bIsIPO) {
            if (!ipo.empty()) ipo += ',';
            ipo += i.first;
        }
    }
    for (const InstrumentIndex* index : {&m_mapExchangeInstruments, &m_mapProductInstruments}) {
        const char* name = index == &m_mapExchangeInstruments ? "by exchange: " : "by product: ";
        for (const auto& g : *index) {
            if (g.second.empty()) fail(std::string(name) + g.first + " is an empty group");
            for (const auto& e : g.second) {
                const KeyInstrumentMap::const_iterator k = m_mapInstrumentsByKey.find(e.first);
                if (k == m_mapInstrumentsByKey.end() || k->second != e.second)
                    fail(std::string(name) + g.first + " holds " + e.first + ", which is not filed by key");
            }
        }
    }
    for (const auto& c : m_mapInstrumentsByCode) {
        if (!c.second || c.second->m_strInstrumentID != c.first) {
            fail("by code: " + c.first + " holds a record of another code");
            continue;
        }
        const KeyInstrumentMap::const_iterator k =
            m_mapInstrumentsByKey.find(c.second->m_strExchangeID + c.second->m_strInstrumentID);
        if (k == m_mapInstrumentsByKey.end() || k->second != c.second)
            fail("by code: " + c.first + " holds a record that is not filed by key");
    }
    if (ipo != m_strIpoCode) fail("IPO code \"" + m_strIpoCode + "\" should be \"" + ipo + "\"");
    if (report) *report = out.str();
    return ok;
}

void DataCenter::setPriceDiff(const std::string& key, double priceBound, double diff) {
    if (!std::isfinite(priceBound) || !std::isfinite(diff) || diff <= 0.0) {
        TT_LOG_STD_WARN("%1% : tick %2% for bound %3% of %4% refused", "ttservice::DataCenter::setPriceDiff",
                        diff, priceBound, key);
        return;
    }
    ExclusiveLock lock(m_instrumentMutex);
    m_mapPriceDiff[key][priceBound] = diff;
}

double DataCenter::getPriceDiff(const std::string& key, double price) {
    if (std::isnan(price)) return kDefaultPriceTick;
    SharedLock lock(m_instrumentMutex);
    const PriceDiffMap::const_iterator table = m_mapPriceDiff.find(key);
    if (table == m_mapPriceDiff.end()) return kDefaultPriceTick;
    // Bounds ascend; the first one the price does not exceed by more than the tolerance applies.
    for (const auto& b : table->second)
        if (!(price - b.first > kPriceTolerance)) return b.second;
    return kDefaultPriceTick;
}

// ---- exchanges and trade days --------------------------------------------------------------------

void DataCenter::setExchanges(const std::vector<CExchangeDetailPtr>& exchanges) {
    std::vector<CExchangeDetailPtr> replaced;  // released after the lock
    RecursiveLock lock(m_exchangeMutex);
    for (const CExchangeDetailPtr& e : exchanges) {
        if (!e || e->m_strExchangeID.empty()) continue;
        CExchangeDetailPtr& slot = m_mapExchanges[e->m_strExchangeID];
        if (slot) replaced.push_back(slot);
        slot = e;
    }
}

CExchangeDetailPtr DataCenter::getExchange(const std::string& code) {
    RecursiveLock lock(m_exchangeMutex);
    const ExchangeMap::const_iterator it = m_mapExchanges.find(code);
    return it == m_mapExchanges.end() ? CExchangeDetailPtr() : it->second;
}

ExchangeMap DataCenter::getMapExchange() {
    RecursiveLock lock(m_exchangeMutex);
    return m_mapExchanges;
}

std::string DataCenter::getMarketTradeDay(const std::string& market) {
    const CExchangeDetailPtr exchange = getExchange(market);
    return exchange ? exchange->m_strTradeDay : std::string();
}

std::string DataCenter::getMaxTradeDay() {
    std::string day;
    RecursiveLock lock(m_exchangeMutex);
    for (const auto& e : m_mapExchanges)
        if (e.second && e.second->m_strTradeDay > day) day = e.second->m_strTradeDay;
    return day;
}

void DataCenter::getMarketAndTradeDay(std::vector<std::string>& markets,
                                      std::vector<std::string>& tradeDays) {
    RecursiveLock lock(m_exchangeMutex);
    for (const auto& e : m_mapExchanges) {
        markets.push_back(e.first);
        tradeDays.push_back(e.second ? e.second->m_strTradeDay : std::string());
    }
}

std::string DataCenter::getStockTradeDay() {
    // Asked through the registered data center, so that a wrapper installed there is honoured.
    const IDataCenterPtr registered = TraderCenter::instance()->getDataCenter();
    IDataCenter& center = registered ? *registered : *this;
    const std::string sh = center.getMarketTradeDay("SH");
    const std::string sz = center.getMarketTradeDay("SZ");
    return dayOrClockDate(sh > sz ? sh : sz);
}

std::string DataCenter::getForeignTradeDay() {
    const IDataCenterPtr registered = TraderCenter::instance()->getDataCenter();
    IDataCenter& center = registered ? *registered : *this;
    std::string day;
    for (const char* market : {"SGX-A", "SGX", "GLOBEX"}) {
        const std::string d = center.getMarketTradeDay(market);
        if (d > day) day = d;
    }
    return dayOrClockDate(day);
}

void DataCenter::setUpToDate(bool upToDate) {
    m_bUpToDate.store(upToDate, std::memory_order_release);
}
bool DataCenter::isUpToDate() {
    return m_bUpToDate.load(std::memory_order_acquire);
}

// ---- exchange status, market time and status -------------------------------------------------------

void DataCenter::updateExchangeStatus(const CExchangeStatusPtr& status) {
    if (!status) return;
    const std::string key = status->getKey();
    CExchangeStatusPtr replaced;  // released after the lock
    RecursiveLock lock(m_statusMutex);
    CExchangeStatusPtr& slot = m_mapExchangeStatus[key];
    replaced.swap(slot);
    slot = status;
}

bool DataCenter::isAnyMarketTrading() const {
    const std::set<std::string> markets = getFullAuthenticatedMarketSet();
    if (markets.empty()) return false;
    CExchangeStatusPtr trading;
    {
        RecursiveLock lock(m_statusMutex);
        for (const auto& s : m_mapExchangeStatus) {
            const CExchangeStatusPtr& st = s.second;
            if (st && markets.find(st->m_strExchangeID) != markets.end() && st->m_nStatus == 50 &&
                st->m_nIsAuction == 0 && st->m_nIsPaused == 0) {
                trading = st;
                break;
            }
        }
    }
    if (!trading) return false;
    TT_LOG_STD_DEBUG("market = %1%, status = %2%.", trading->m_strExchangeID,
                     static_cast<int>(trading->m_nStatus));
    return true;
}

void DataCenter::setMarketTime(const std::map<std::string, int64_t>& times) {
    RecursiveLock lock(m_marketTimeMutex);
    for (const auto& t : times) m_mapMarketTime[t.first] = t.second;
}

int64_t DataCenter::getMarketTime(const std::string& market) {
    RecursiveLock lock(m_marketTimeMutex);
    const std::map<std::string, int64_t>::const_iterator it = m_mapMarketTime.find(market);
    return it == m_mapMarketTime.end() ? 0 : it->second;
}

void DataCenter::setMarketStatus(const std::string& market, int status) {
    RecursiveLock lock(m_marketStatusMutex);
    m_mapMarketStatus[market] = status;
}

int DataCenter::getMarketStatus(const std::string& market) const {
    RecursiveLock lock(m_marketStatusMutex);
    const std::map<std::string, int>::const_iterator it = m_mapMarketStatus.find(market);
    return it == m_mapMarketStatus.end() ? 0 : it->second;
}

// ---- rates -------------------------------------------------------------------------------------------

double DataCenter::getExchangeRate(const std::string& currency) {
    if (currency.empty() || currency == "USD") return 1.0;
    const CExchangeRatePtr rate = boost::atomic_load(&m_exchangeRate);
    if (!rate) return 1.0;
    const StringDoubleMap::const_iterator it = rate->m_mapRates.find(currency);
    if (it == rate->m_mapRates.end() || !std::isfinite(it->second) || it->second <= 0.0) return 1.0;
    return it->second;
}

void DataCenter::setExchangeRate(const CExchangeRatePtr& rate) {
    CExchangeRatePtr copy;
    if (rate) {
        IData::Lock lock(rate);
        copy = boost::static_pointer_cast<CExchangeRate>(rate->clone());
    }
    boost::atomic_store(&m_exchangeRate, copy);
}

void DataCenter::updateHGTAccountSettlementRate(const SettlementRateMap& rates) {
    boost::atomic_store(&m_hgtSettlementRates, boost::shared_ptr<const SettlementRateMap>(
                                                   boost::make_shared<SettlementRateMap>(rates)));
}

SettlementRateMap DataCenter::getHGTAccountSettlementRate() {
    return *boost::atomic_load(&m_hgtSettlementRates);
}

void DataCenter::updateSgtAccountSettlementRate(const SettlementRateMap& rates) {
    boost::atomic_store(&m_sgtSettlementRates, boost::shared_ptr<const SettlementRateMap>(
                                                   boost::make_shared<SettlementRateMap>(rates)));
}

SettlementRateMap DataCenter::getSgtAccountSettlementRate() {
    return *boost::atomic_load(&m_sgtSettlementRates);
}

// ---- product net values, K-line ----------------------------------------------------------------------

void DataCenter::addProductNSData(const boost::shared_ptr<CProductNSData>& data) {
    if (!data) return;
    boost::shared_ptr<CProductNSData> replaced;  // released after the lock
    RecursiveLock lock(m_productMutex);
    boost::shared_ptr<CProductNSData>& slot = m_mapProductNSData[data->getProductId()];
    replaced.swap(slot);
    slot = data;
}

boost::shared_ptr<CProductNSData> DataCenter::getProductNSData(int productId) {
    RecursiveLock lock(m_productMutex);
    const std::map<int, boost::shared_ptr<CProductNSData> >::const_iterator it =
        m_mapProductNSData.find(productId);
    return it == m_mapProductNSData.end() ? boost::shared_ptr<CProductNSData>() : it->second;
}

void DataCenter::setKLineDatas(const KLineDataMap& datas) {
    KLineDataMap copy(datas);  // built outside the lock; the old data is released after it
    RecursiveLock lock(m_klineMutex);
    m_mapKLineDatas.swap(copy);
}

KLineDataMap DataCenter::getKLineDatas() {
    RecursiveLock lock(m_klineMutex);
    return m_mapKLineDatas;
}

void DataCenter::setKLineDatasStatus(ENqKlineDataStatus status) {
    RecursiveLock lock(m_klineMutex);
    m_nKLineStatus = status;
}

ENqKlineDataStatus DataCenter::getKLineDatasStatus() {
    RecursiveLock lock(m_klineMutex);
    return m_nKLineStatus;
}

// ---- account-data notification -------------------------------------------------------------------

void DataCenter::notifySubscribers(const IDataPtr& data) const {
    if (!data || m_subTable.size() == 0) return;
    IDataKey key(data->getKind(), data->getKey());
    m_subTable.notify(key, data);
    if (key.m_strKey.empty()) return;
    key.m_strKey.clear();
    m_subTable.notify(key, data);
}

void DataCenter::onAccountData(const CAccountInfoPtr& account, const IDataPtr& data, const TTError& error) {
    const AccountDataEvent event = {&account, &data, &error, nullptr};
    m_listeners.notify(0, event);
    notifySubscribers(data);
}

void DataCenter::onAccountDatas(const CAccountInfoPtr& account, const std::vector<IDataPtr>& datas) {
    const AccountDataEvent event = {&account, nullptr, nullptr, &datas};
    m_listeners.notify(0, event);
    for (const IDataPtr& d : datas) notifySubscribers(d);
}

boost::shared_ptr<void> DataCenter::addAccountDataListener(const AccountDataCallback& onData,
                                                           const AccountDatasCallback& onDatas) {
    if (!onData && !onDatas) return boost::shared_ptr<void>();
    return m_listeners.subscribe(0, [onData, onDatas](const AccountDataEvent& event) {
        if (event.datas) {
            if (onDatas) {
                onDatas(*event.account, *event.datas);
            } else {
                const TTError none;
                for (const IDataPtr& d : *event.datas) onData(*event.account, d, none);
            }
        } else if (onData) {
            onData(*event.account, *event.data, *event.error);
        } else if (*event.data) {
            onDatas(*event.account, std::vector<IDataPtr>(1, *event.data));
        }
    });
}

// ---- custom fee tables -----------------------------------------------------------------------------

CCustomStockInstrumentFeePtr DataCenter::getAccountStockInstrumentFee(const std::string& accountKey) {
    return findTable(m_stockFeeMutex, m_mapStockFees, accountKey);
}
CCustomFutureInstrumentFeePtr DataCenter::getAccountFutureInstrumentFee(const std::string& accountKey) {
    return findTable(m_futureFeeMutex, m_mapFutureFees, accountKey);
}
CCustomHGTInstrumentFeePtr DataCenter::getAccountHGTInstrumentFee(const std::string& accountKey) {
    return findTable(m_hgtFeeMutex, m_mapHGTFees, accountKey);
}
CCustomSgtInstrumentFeePtr DataCenter::getAccountSgtInstrumentFee(const std::string& accountKey) {
    return findTable(m_sgtFeeMutex, m_mapSgtFees, accountKey);
}
CCustomSPInstrumentFeePtr DataCenter::getAccountForeignInstruments(const std::string& accountKey) {
    return findTable(m_foreignFeeMutex, m_mapForeignFees, accountKey);
}

void DataCenter::setAccountsStockInstrumentFee(
    const std::map<CAccountInfoPtr, CCustomStockInstrumentFeePtr>& fees) {
    std::vector<std::pair<std::string, CCustomStockInstrumentFeePtr> > filed;
    for (const auto& f : fees) {
        if (!f.first || !f.second) {
            TT_LOG_STD_ERROR("DataCenter::setAccountsStockInstrumentFee: accountDataPtr is Null.");
            continue;
        }
        filed.emplace_back(f.first->getKey(), f.second);
    }
    fileTables(m_stockFeeMutex, m_mapStockFees, filed);
}

void DataCenter::setAccountFutureInstruemntFee(
    const std::map<CAccountInfoPtr, CCustomFutureInstrumentFeePtr>& fees) {
    std::vector<std::pair<std::string, CCustomFutureInstrumentFeePtr> > filed;
    for (const auto& f : fees) {
        if (!f.first || !f.second) {
            TT_LOG_STD_ERROR("DataCenter::setAccountFutureInstruemntFee: accountDataPtr is Null.");
            continue;
        }
        filed.emplace_back(f.first->getKey(), f.second);
    }
    fileTables(m_futureFeeMutex, m_mapFutureFees, filed);
}

void DataCenter::setAccountsHGTInstrumentFee(
    const std::map<CAccountInfoPtr, CCustomHGTInstrumentFeePtr>& fees) {
    std::vector<std::pair<std::string, CCustomHGTInstrumentFeePtr> > filed;
    for (const auto& f : fees) {
        const std::string key = f.first ? f.first->getKey() : std::string();
        if (!f.first || !f.second) {
            TT_LOG_STD_ERROR("DataCenter::setAccountHGTInstruemntFee: accountDataPtr is Null. strKey = %1%",
                             key);
            continue;
        }
        filed.emplace_back(key, f.second);
    }
    fileTables(m_hgtFeeMutex, m_mapHGTFees, filed);
}

void DataCenter::setAccountsSgtInstrumentFee(
    const std::map<CAccountInfoPtr, CCustomSgtInstrumentFeePtr>& fees) {
    std::vector<std::pair<std::string, CCustomSgtInstrumentFeePtr> > filed;
    for (const auto& f : fees) {
        const std::string key = f.first ? f.first->getKey() : std::string();
        if (!f.first || !f.second) {
            TT_LOG_STD_ERROR("accountDataPtr[%1%] is Null.", key);
            continue;
        }
        filed.emplace_back(key, f.second);
    }
    fileTables(m_sgtFeeMutex, m_mapSgtFees, filed);
}

void DataCenter::setAccountForeignInstruemntFee(
    const std::map<CAccountInfoPtr, CCustomSPInstrumentFeePtr>& fees) {
    std::vector<std::pair<std::string, CCustomSPInstrumentFeePtr> > filed;
    for (const auto& f : fees) {
        const std::string key = f.first ? f.first->getKey() : std::string();
        if (!f.first || !f.second) {
            TT_LOG_STD_ERROR("accountInfoPtr[%1%] or foreignFee is Null.", key);
            continue;
        }
        filed.emplace_back(key, f.second);
    }
    fileTables(m_foreignFeeMutex, m_mapForeignFees, filed);
}

// ---- fee merges ------------------------------------------------------------------------------------

void DataCenter::testMergeStockInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) {
    if (!account || !fee) return;
    const std::string own = account->getKey();
    if (DataHelper::isSuperAccount(account)) {
        if (account->m_nAccountType == kStockOptionAccountType)
            loadCustomFeeRate_StockOption(account, fee);
        else
            testMergeAccountStockInstrumentFee(own, fee);
        return;
    }
    const std::string parent = genParentAccountKey(*account);
    if (parent != own) testMergeAccountStockInstrumentFee(parent, fee);
    testMergeAccountStockInstrumentFee(own, fee);
}

void DataCenter::testMergeFutureInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) {
    if (!account || !fee) return;
    const std::string own = account->getKey();
    if (!DataHelper::isSuperAccount(account)) {
        const std::string parent = genParentAccountKey(*account);
        if (parent != own) testMergeAccountFutureInstrumentFee(parent, fee);
    }
    testMergeAccountFutureInstrumentFee(own, fee);
}

void DataCenter::testMergeHGTInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) {
    if (!account || !fee) return;
    const std::string own = account->getKey();
    if (!DataHelper::isSuperAccount(account)) {
        const std::string parent = genParentAccountKey(*account);
        if (parent != own) testMergeAccountHGTInstrumentFee(parent, fee);
    }
    testMergeAccountHGTInstrumentFee(own, fee);
}

void DataCenter::testMergeSgtInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) {
    if (!account || !fee) return;
    const std::string own = account->getKey();
    if (!DataHelper::isSuperAccount(account)) {
        const std::string parent = genParentAccountKey(*account);
        if (parent != own) testMergeAccountSgtInstrumentFee(parent, fee);
    }
    testMergeAccountSgtInstrumentFee(own, fee);
}

void DataCenter::testMergeForeignInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) {
    if (!account || !fee) return;
    MergeAccountForeignInstrumentFee(account->getKey(), fee);
}

void DataCenter::testMergeAccountStockInstrumentFee(const std::string& accountKey,
                                                    const CInstrumentFeePtr& fee) {
    const CInstrumentDetailPtr inst = instrumentOf(fee);
    if (!inst) return;
    const CCustomStockInstrumentFeePtr table = findTable(m_stockFeeMutex, m_mapStockFees, accountKey);
    if (!table) return;
    const CCustomStockFeeRatePtr e = firstMatch(table->m_vRates, *inst);
    if (!e) return;
    TT_LOG_STD_DEBUG("testMergeStockInstrumentFee: rate = %s, isTypedStock is true.", e->toString());
    IData::Lock lock(fee);
    const CStkExchangePtr stk = freshCopy(fee->m_stkExchange);
    stk->m_dBuyCommissionRate = e->m_dBuyCommissionRate;
    stk->m_dSellCommissionRate = e->m_dSellCommissionRate;
    stk->m_dMinCommission = e->m_dMinCommission;
    stk->m_dStampTaxRate = e->m_dStampTaxRate;
    stk->m_dTransferFeeRate = e->m_dTransferFeeRate;
    stk->m_dTradeFeeRate = e->m_dTradeFeeRate;
    stk->m_nMinVolume = toMinVolume(e->m_dMinVolume);
    fee->m_stkExchange = stk;
}

// Every entry of the account's own stock table becomes a stock-option fee item, without any
// category test (an option account's table lists its rates per direction, offset and covered
// flag). Item key: direction, offset flag and, unless the offset is exercise ('D'), covered flag,
// each as a character (CStockOptionFeeItem::getKey()). A later entry with the same key wins.
void DataCenter::loadCustomFeeRate_StockOption(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) {
    if (!account || !fee) return;
    const CInstrumentDetailPtr inst = instrumentOf(fee);
    const std::string market = inst ? inst->m_strExchangeID : std::string();
    const std::string code = inst ? inst->m_strInstrumentID : std::string();
    const CCustomStockInstrumentFeePtr table = findTable(m_stockFeeMutex, m_mapStockFees, account->getKey());
    if (!table) {
        TT_LOG_STD_ERROR(
            "[ACCT|%s] [%s-%s] loadCustomFeeRate_StockOption error: CustomStockInstrumentFee is null",
            account->m_strAccountID, market, code);
        return;
    }
    TT_LOG_STD_DEBUG("[ACCT|%s] [%s-%s] loadCustomFeeRate_StockOption, custom fee cnt: %ld",
                     account->m_strAccountID, market, code, static_cast<long>(table->m_vRates.size()));
    std::vector<CStockOptionFeeItemPtr> items;
    items.reserve(table->m_vRates.size());
    for (const CCustomStockFeeRatePtr& e : table->m_vRates) {
        if (!e) continue;
        const CStockOptionFeeItemPtr item = boost::make_shared<CStockOptionFeeItem>();
        item->m_dOpenFee = e->m_dOptOpenFee;
        item->m_dCloseFee = e->m_dOptCloseFee;
        item->m_dExerciseFee = e->m_dOptExerciseFee;
        item->m_dMarginRatio1 = e->m_dOptMarginRatio1;
        item->m_dMarginRatio2 = e->m_dOptMarginRatio2;
        item->m_nOffsetFlag = e->m_nOffsetFlag;
        item->m_nCoveredFlag = e->m_nCoveredFlag;
        item->m_nDirection = e->m_nDirection;
        items.push_back(item);
        TT_LOG_STD_DEBUG("[ACCT|%s] [%s-%s] loadCustomFeeRate_StockOption, rate: %s", account->m_strAccountID,
                         market, code, e->toString());
    }
    IData::Lock lock(fee);
    CStockOptionFeeItemMap merged(fee->m_mapStockOptionFee);
    for (const CStockOptionFeeItemPtr& item : items) merged[item->getKey()] = item;
    fee->m_mapStockOptionFee.swap(merged);
}

// Commission and margin entries are matched separately: the first matching commission entry sets
// the six commission rates, the first matching margin entry the four margin rates.
void DataCenter::testMergeAccountFutureInstrumentFee(const std::string& accountKey,
                                                     const CInstrumentFeePtr& fee) {
    const CInstrumentDetailPtr inst = instrumentOf(fee);
    if (!inst) return;
    const CCustomFutureInstrumentFeePtr table = findTable(m_futureFeeMutex, m_mapFutureFees, accountKey);
    if (!table) return;
    const CCustomFutureFeeRatePtr c = firstMatch(table->m_vCommissionRates, *inst);
    const CCustomFutureFeeRatePtr m = firstMatch(table->m_vMarginRates, *inst);
    if (!c && !m) return;
    IData::Lock lock(fee);
    if (c) {
        fee->m_dOpenRatioByMoney = c->m_dOpenRatioByMoney;
        fee->m_dOpenRatioByVolume = c->m_dOpenRatioByVolume;
        fee->m_dCloseRatioByMoney = c->m_dCloseRatioByMoney;
        fee->m_dCloseRatioByVolume = c->m_dCloseRatioByVolume;
        fee->m_dCloseTodayRatioByMoney = c->m_dCloseTodayRatioByMoney;
        fee->m_dCloseTodayRatioByVolume = c->m_dCloseTodayRatioByVolume;
    }
    if (m) {
        fee->m_dLongMarginRatioByMoney = m->m_dLongMarginRatioByMoney;
        fee->m_dLongMarginRatioByVolume = m->m_dLongMarginRatioByVolume;
        fee->m_dShortMarginRatioByMoney = m->m_dShortMarginRatioByMoney;
        fee->m_dShortMarginRatioByVolume = m->m_dShortMarginRatioByVolume;
    }
}

void DataCenter::testMergeAccountHGTInstrumentFee(const std::string& accountKey,
                                                  const CInstrumentFeePtr& fee) {
    const CInstrumentDetailPtr inst = instrumentOf(fee);
    if (!inst) return;
    const CCustomHGTInstrumentFeePtr table = findTable(m_hgtFeeMutex, m_mapHGTFees, accountKey);
    if (!table) return;
    const CCustomHKFeeRatePtr e = firstMatch(table->m_vRates, *inst);
    if (!e) return;
    TT_LOG_STD_DEBUG(
        "testMergeAccountHGTInstrumentFee: rate = %s, account = %s, ExchangeID = %s, InstrumentID = %s.",
        e->toString(), accountKey, inst->m_strExchangeID, inst->m_strInstrumentID);
    IData::Lock lock(fee);
    fee->m_dHGTCommissionRate = e->m_dCommissionRate;
    fee->m_dHGTMinCommission = e->m_dMinCommission;
    fee->m_dHGTStampTaxRate = e->m_dStampTaxRate;
    fee->m_dHGTTradeFeeRate = e->m_dTradeFeeRate;
    fee->m_dHGTTransferFeeRate = e->m_dTransferFeeRate;
}

// Southbound entries are matched by the category service's rules alone: custom code lists and
// group categories are deliberately not consulted.
void DataCenter::testMergeAccountSgtInstrumentFee(const std::string& accountKey,
                                                  const CInstrumentFeePtr& fee) {
    const CInstrumentDetailPtr inst = instrumentOf(fee);
    if (!inst) return;
    const CCustomSgtInstrumentFeePtr table = findTable(m_sgtFeeMutex, m_mapSgtFees, accountKey);
    if (!table) return;
    const CppCategory& category = CSingletonT<CppCategory>::instance();
    CCustomHKFeeRatePtr e;
    for (const CCustomHKFeeRatePtr& r : table->m_vRates) {
        if (r &&
            category.isStockInCategoryForTS(inst->m_strExchangeID, inst->m_strInstrumentID,
                                            inst->m_strInstrumentName, std::atoi(r->m_strCategory.c_str()))) {
            e = r;
            break;
        }
    }
    if (!e) return;
    TT_LOG_STD_DEBUG("testMergeAccountsgtInstrumentFee: rate = %s, isTypedStock is true.", e->toString());
    IData::Lock lock(fee);
    fee->m_dSgtCommissionRate = e->m_dCommissionRate;
    fee->m_dSgtMinCommission = e->m_dMinCommission;
    fee->m_dSgtStampTaxRate = e->m_dStampTaxRate;
    fee->m_dSgtTradeFeeRate = e->m_dTradeFeeRate;
    fee->m_dSgtTransferFeeRate = e->m_dTransferFeeRate;
}

// Foreign entries match by market and product id, no category test. The entry's rate is a
// per-lot commission: it becomes the open, close and close-today commission of a fresh copy of
// the fee's foreign sub-record, whose three commission ratios become 0. The entry's currency is
// given to the fee's instrument (a fresh copy of it) when the instrument has none.
void DataCenter::MergeAccountForeignInstrumentFee(const std::string& accountKey,
                                                  const CInstrumentFeePtr& fee) {
    const CInstrumentDetailPtr inst = instrumentOf(fee);
    if (!inst) return;
    const CCustomSPInstrumentFeePtr table = findTable(m_foreignFeeMutex, m_mapForeignFees, accountKey);
    if (!table) return;
    CCustomSPFeeRatePtr e;
    for (const CCustomSPFeeRatePtr& r : table->m_vRates) {
        if (r && r->m_strExchangeID == inst->m_strExchangeID && r->m_strProductID == inst->m_strProductID) {
            e = r;
            break;
        }
    }
    if (!e) return;
    TT_LOG_STD_DEBUG("MergeAccountSPInstrumentFee: rate = %s", e->toString());
    IData::Lock lock(fee);
    const CForeignFeePtr foreign = freshCopy(fee->m_foreignFee);
    foreign->m_dOpenCommission = e->m_dRate;
    foreign->m_dCloseCommission = e->m_dRate;
    foreign->m_dCloseTodayCommission = e->m_dRate;
    foreign->m_dOpenCommissionRatio = 0.0;
    foreign->m_dCloseCommissionRatio = 0.0;
    foreign->m_dCloseTodayCommissionRatio = 0.0;
    fee->m_foreignFee = foreign;
    if (fee->m_instrument && fee->m_instrument->m_strCurrency.empty() && !e->m_strCurrency.empty()) {
        const CInstrumentDetailPtr withCurrency = freshCopy(fee->m_instrument);
        withCurrency->m_strCurrency = e->m_strCurrency;
        fee->m_instrument = withCurrency;
    }
}

void DataCenter::updateForeignInstruemntFeeByBroker(const CInstrumentFeePtr& fee, double deposit,
                                                    double dfee) {
    if (!fee) return;
    IData::Lock lock(fee);
    const std::string market = fee->m_instrument ? fee->m_instrument->m_strExchangeID : std::string();
    const std::string code = fee->m_instrument ? fee->m_instrument->m_strInstrumentID : std::string();
    const double rawMargin = fee->m_foreignFee ? fee->m_foreignFee->m_dLongMargin : 0.0;
    const double rawCommission = fee->m_foreignFee ? fee->m_foreignFee->m_dOpenCommission : 0.0;
    TT_LOG_STD_INFO(
        "[wp] MarketID:%1%, InstrumentID:%2%, rawMargin:%3%, rawCommission:%4%, From YS_Broker:[deposit:%5%, "
        "dfee:%6%]",
        market, code, rawMargin, rawCommission, deposit, dfee);
    const bool useDeposit = std::isfinite(deposit) && deposit > 0.0;
    const bool useFee = std::isfinite(dfee) && dfee >= 0.0;
    if (!useDeposit && !useFee) return;
    const CForeignFeePtr foreign = freshCopy(fee->m_foreignFee);
    if (useDeposit) {
        foreign->m_dLongMargin = deposit;
        foreign->m_dShortMargin = deposit;
    }
    if (useFee) {
        foreign->m_dOpenCommission = dfee;
        foreign->m_dCloseCommission = dfee;
        foreign->m_dCloseTodayCommission = dfee;
        foreign->m_dOpenCommissionRatio = 0.0;
        foreign->m_dCloseCommissionRatio = 0.0;
        foreign->m_dCloseTodayCommissionRatio = 0.0;
    }
    fee->m_foreignFee = foreign;
}

// ---- custom-rate queries -----------------------------------------------------------------------------

bool DataCenter::isCustomCommission(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) {
    if (!account) return false;
    const CCustomFutureInstrumentFeePtr table =
        findTable(m_futureFeeMutex, m_mapFutureFees, account->getKey());
    const CInstrumentDetailPtr inst = instrumentOf(fee);
    if (!table || !inst) return false;
    const CCustomFutureFeeRatePtr e = firstMatch(table->m_vCommissionRates, *inst);
    if (!e) return false;
    TT_LOG_STD_DEBUG("isCustomCommission: rate = %s, account = %s, ExchangeID = %s, InstrumentID = %s.",
                     e->toString(), account->getKey(), inst->m_strExchangeID, inst->m_strInstrumentID);
    return true;
}

bool DataCenter::isCustomMargin(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) {
    if (!account) return false;
    const CCustomFutureInstrumentFeePtr table =
        findTable(m_futureFeeMutex, m_mapFutureFees, account->getKey());
    const CInstrumentDetailPtr inst = instrumentOf(fee);
    if (!table || !inst) return false;
    const CCustomFutureFeeRatePtr e = firstMatch(table->m_vMarginRates, *inst);
    if (!e) return false;
    TT_LOG_STD_DEBUG("isCustomCommission: rate = %s, account = %s, ExchangeID = %s, InstrumentID = %s.",
                     e->toString(), account->getKey(), inst->m_strExchangeID, inst->m_strInstrumentID);
    return true;
}

}  // namespace ttservice
