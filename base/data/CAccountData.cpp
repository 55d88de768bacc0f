#include "base/data/CAccountData.h"

#include <boost/thread/mutex.hpp>
#include <cmath>
#include <memory_resource>
#include <sstream>
#include <string_view>
#include <tuple>

#include "base/TraderCenter.h"
#include "base/data/CInstrumentFeeHelper.h"
#include "base/data/COrderDetailHelper.h"
#include "base/data/CostData.h"
#include "net/RPCEngine.h"
#include "utils/LogCenter.h"
#include "utils/StringUtils.h"

namespace ttservice {

namespace {

typedef boost::recursive_mutex::scoped_lock StoreLock;

// The debug id under which the refresh writes its price list to "TTDbgFile".
const int kPriceDebugId = 103;
const char* const kGoldExchange = "SHGE";

// The sequence number of the update whose subscribers are being notified on this thread (0 when
// none). Snapshot subscriptions read it to tell updates already in their snapshot from newer ones.
thread_local uint64_t tls_notifySeq = 0;

bool validPrice(double p) {
    return std::isfinite(p) && std::fabs(p) > 1e-5 && p != TT_INVALID_DOUBLE;
}

// Valuation price of a quote: its last price, else its previous close, else its previous
// settlement price; TT_INVALID_DOUBLE when the quote has none of them.
double valuationPrice(const CPriceData& quote) {
    if (validPrice(quote.m_dLastPrice)) return quote.m_dLastPrice;
    if (validPrice(quote.m_dPreClosePrice)) return quote.m_dPreClosePrice;
    if (validPrice(quote.m_dPreSettlementPrice)) return quote.m_dPreSettlementPrice;
    return TT_INVALID_DOUBLE;
}

template <class T>
const T* recordAs(const IDataPtr& data) {
    return dynamic_cast<const T*>(data.get());
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Counters

const int CAccountDataStats::KNOWN_KINDS[CAccountDataStats::KNOWN_KIND_COUNT] = {
    535, 541, 542, 543, 544, 545, 547, 555, 567, 570, 661, 678, 7227, 13902};

int CAccountDataStats::slotOf(int kind) {
    switch (kind) {
        case 535:
            return 0;
        case 541:
            return 1;
        case 542:
            return 2;
        case 543:
            return 3;
        case 544:
            return 4;
        case 545:
            return 5;
        case 547:
            return 6;
        case 555:
            return 7;
        case 567:
            return 8;
        case 570:
            return 9;
        case 661:
            return 10;
        case 678:
            return 11;
        case 7227:
            return 12;
        case 13902:
            return 13;
        default:
            return KNOWN_KIND_COUNT;
    }
}

uint64_t CAccountDataStats::filedTotal() const {
    uint64_t total = 0;
    for (int i = 0; i < SLOT_COUNT; ++i) total += m_nFiled[i];
    return total;
}

// ---------------------------------------------------------------------------------------------
// The refresh timer: a deadline timer of the dispatcher whose handlers run on its strand. Arming
// (expiry, then wait) happens under the store mutex, so two arms never leave two waits pending.

struct CAccountData::RefreshTimer {
    explicit RefreshTimer(boost::asio::io_context::strand& strand) : timer(strand) {}

    // Throws boost::system::system_error ("expires_from_now") when the expiry cannot be set.
    void arm(int milliseconds, const net::DeadlineTimer::WaitHandler& handler) {
        timer.expires_from_now(boost::posix_time::milliseconds(milliseconds));
        timer.async_wait(handler);
    }
    void cancel() { timer.cancel(); }

    net::DeadlineTimer timer;
};

// ---------------------------------------------------------------------------------------------
// Snapshot subscriptions.
//
// subscribe(..., withSnapshot) registers a relay and reads the snapshot in one critical section of
// the store mutex, and remembers the store's update sequence number at that moment. Every
// notifying update gets its sequence number in the critical section that files it, so an update
// with a number at or below the remembered one was filed before the registration and is in the
// snapshot: the relay drops its notification. A newer update is delivered, but only after the
// snapshot: until the subscribing thread has delivered the whole snapshot the relay holds such
// updates, and the subscribing thread delivers what it holds before it lets them through directly.

struct CAccountData::SnapshotRelay {
    explicit SnapshotRelay(const DataCallback& callback) : cb(callback) {}

    void deliver(const IDataPtr& data) {
        if (tls_notifySeq <= snapshotSeq) return;  // reflected in the snapshot
        {
            boost::mutex::scoped_lock lock(mutex);
            if (!ready) {
                held.push_back(data);
                return;
            }
        }
        cb(data);
    }

    // Delivers the updates held during the snapshot, then lets updates through directly. Returns
    // the number delivered.
    size_t release() {
        size_t delivered = 0;
        for (;;) {
            std::vector<IDataPtr> batch;
            {
                boost::mutex::scoped_lock lock(mutex);
                if (held.empty()) {
                    ready = true;
                    return delivered;
                }
                batch.swap(held);
            }
            for (size_t i = 0; i < batch.size(); ++i) cb(batch[i]);
            delivered += batch.size();
        }
    }

    DataCallback cb;
    uint64_t snapshotSeq = 0;  // written before registration, read-only afterwards
    boost::mutex mutex;
    bool ready = false;
    std::vector<IDataPtr> held;
};

// ---------------------------------------------------------------------------------------------
// The push cache: kind -> key -> record in ascending order, the latest push per (kind, key). A
// cache holds what arrives while an account is (re)loaded, often tens of thousands of records,
// and is replayed and dropped as a whole: its nodes and keys are carved from an arena of its own,
// so caching allocates by bumping a pointer and dropping the cache frees a few large blocks instead
// of every node.

struct CAccountData::PushCache {
    // Orders keys as std::string's do, and finds a std::string key without converting it.
    struct KeyLess {
        typedef void is_transparent;
        bool operator()(std::string_view a, std::string_view b) const { return a < b; }
    };
    typedef std::pmr::map<std::pmr::string, IDataPtr, KeyLess> KeyMap;
    typedef std::pmr::map<int, KeyMap> KindMap;

    PushCache() : records(&arena) {}

    void put(int kind, const std::string& key, const IDataPtr& data) {
        KeyMap& byKey = records[kind];
        KeyMap::iterator it = byKey.find(key);
        if (it != byKey.end()) {
            it->second = data;
            return;
        }
        byKey.emplace(std::piecewise_construct, std::forward_as_tuple(key.data(), key.size()),
                      std::forward_as_tuple(data));
        ++size;
    }

    std::pmr::monotonic_buffer_resource arena;  // declared first: destroyed after the maps
    KindMap records;
    size_t size = 0;  // records held
};

struct CAccountData::Identity {
    CAccountInfoPtr info;
    std::string key;        // the account key: CAccountInfo::getKey()
    std::string displayId;  // the account id as log lines show it
};

// ---------------------------------------------------------------------------------------------
// Construction and identity

CAccountData::CAccountData(int updateInterval)
    : m_identity(boost::make_shared<const Identity>()),
      m_calcInfo(boost::make_shared<CCalcInfo>()),
      m_nUpdateInterval(updateInterval),
      m_bInitialized(false),
      m_bCaching(false),
      m_nSeq(0),
      m_nDataVersion(0),
      m_keyedSubs(boost::make_shared<std::atomic<size_t> >(0)),
      m_bIndexesDetached(false),
      m_nNotifications(0),
      m_nForwarded(0),
      m_nCached(0),
      m_nReplays(0),
      m_nReplayedRecords(0) {
    for (int i = 0; i < CAccountDataStats::SLOT_COUNT; ++i) m_nFiled[i].store(0, std::memory_order_relaxed);
    m_datas[KIND_CALC_INFO][m_calcInfo->getKey()] = m_calcInfo;
    m_timer.reset(new RefreshTimer(net::RPCEngine::instance()->getDisPatcherStrand()));
}

CAccountData::~CAccountData() {
    StoreLock lock(m_mutex);
    if (m_timer) m_timer->cancel();
}

CAccountData::Lock::Lock(const CAccountDataPtr& data) : m_data(data) {
    if (m_data) m_data->m_mutex.lock();
}

CAccountData::Lock::~Lock() {
    if (m_data) m_data->m_mutex.unlock();
}

void CAccountData::setAccountInfo(const CAccountInfoPtr& info) {
    boost::shared_ptr<Identity> identity = boost::make_shared<Identity>();
    identity->info = info;
    if (info) {
        IData::Lock recordLock(info);
        identity->key = info->getKey();
        identity->displayId = info->m_strAccountID;
    }
    StoreLock lock(m_mutex);
    m_identity = identity;  // updates in flight keep the identity they copied
}

CAccountInfoPtr CAccountData::getAccountInfo() const {
    StoreLock lock(m_mutex);
    return m_identity->info;
}

std::string CAccountData::getAccountKey() const {
    StoreLock lock(m_mutex);
    return m_identity->key;
}

std::string CAccountData::getAccountDisplayId() const {
    StoreLock lock(m_mutex);
    return m_identity->displayId;
}

CAccountDetailPtr CAccountData::getAccountDetail() const {
    StoreLock lock(m_mutex);
    KindDataMap::const_iterator kind = m_datas.find(KIND_ACCOUNT_DETAIL);
    if (kind == m_datas.end()) return CAccountDetailPtr();
    DataMap::const_iterator it = kind->second.find(m_identity->key);
    return it == kind->second.end() ? CAccountDetailPtr()
                                    : boost::dynamic_pointer_cast<CAccountDetail>(it->second);
}

CCalcInfoPtr CAccountData::getCalcInfo() const {
    StoreLock lock(m_mutex);
    return m_calcInfo;
}

CAccountCalcInfoPtr CAccountData::getAccountCalcInfo() const {
    StoreLock lock(m_mutex);
    return m_accountCalcInfo;
}

void CAccountData::setAccountCalcInfo(const CAccountCalcInfoPtr& info) {
    StoreLock lock(m_mutex);
    m_accountCalcInfo = info;
}

boost::shared_ptr<CostData> CAccountData::getCostData() const {
    StoreLock lock(m_mutex);
    return m_costData;
}

void CAccountData::initCostData(const std::string& tradeDate) {
    boost::shared_ptr<CostData> ledger = boost::make_shared<CostData>(tradeDate);
    StoreLock lock(m_mutex);
    KindDataMap::const_iterator kind = m_datas.find(KIND_POSITION);
    if (kind != m_datas.end()) {
        for (DataMap::const_iterator it = kind->second.begin(); it != kind->second.end(); ++it) {
            if (const CPositionDetail* position = recordAs<CPositionDetail>(it->second))
                ledger->addPosition(*position);
        }
    }
    m_costData = ledger;
}

void CAccountData::setTradeDate(const std::string& tradeDate) {
    StoreLock lock(m_mutex);
    m_strTradeDate = tradeDate;
}

std::string CAccountData::getTradeDate() const {
    StoreLock lock(m_mutex);
    return m_strTradeDate;
}

// ---------------------------------------------------------------------------------------------
// Records

// An account detail is recognised by its kind, 543, which covers CAccountDetail (type 543 with
// no base id) and its subclasses (base id 543) alike.
void CAccountData::setData(const IDataPtr& data) {
    if (!data) return;
    const int kind = data->getKind();
    if (kind == KIND_ACCOUNT_DETAIL) onAccountDetailUpdate(boost::dynamic_pointer_cast<CAccountDetail>(data));
    const std::string key = data->getKey();
    StoreLock lock(m_mutex);
    m_datas[kind][key] = data;
    ++m_nDataVersion;
    if (kind == KIND_ORDER || kind == KIND_DEAL) m_bIndexesDetached = true;
    std::atomic<uint64_t>& filed = m_nFiled[CAccountDataStats::slotOf(kind)];
    filed.store(filed.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

void CAccountData::updateData(const IDataPtr& data, bool cacheOnly) {
    if (!data) return;
    const int kind = data->getKind();
    const IDataKey dataKey(kind, data->getKey());
    const std::string& key = dataKey.m_strKey;

    // 1. File the record; take its sequence number, the account's identity and the flags.
    uint64_t seq, version;
    boost::shared_ptr<const Identity> identity;
    bool forward;
    {
        StoreLock lock(m_mutex);
        m_datas[kind][key] = data;
        seq = ++m_nSeq;
        version = ++m_nDataVersion;
        identity = m_identity;
        forward = m_bInitialized && !m_bCaching && !cacheOnly;
        // Every writer of the filing counters holds the mutex: no read-modify-write needed.
        std::atomic<uint64_t>& filed = m_nFiled[CAccountDataStats::slotOf(kind)];
        filed.store(filed.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }

    // 2. The kind's own step, with the mutex released (each step takes it as it needs).
    switch (kind) {
        case KIND_ORDER:
            updateOrder(key, data, version);
            break;
        case KIND_ACCOUNT_DETAIL:
            // Its step is the fund log line: the down-cast is made only when that line is written.
            if (utils::CLogCenter::instance().logEnabled(utils::LOGGER_STD, utils::TT_LOG_INFO))
                onAccountDetailUpdate(boost::dynamic_pointer_cast<CAccountDetail>(data));
            break;
        case KIND_DEAL:
            updateDeal(key, data, version);
            break;
        case KIND_POSITION:
            updatePositionDetail(data);
            break;
        case KIND_POSITION_STATICS:
            updatePositionStatics(data);
            break;
        case KIND_EXCHANGE_STATUS:
            updateExchangeStatus(data);
            break;
        case KIND_POSITION_TRADE_TABLE:
            updatePositionTradeTable(data);
            break;
        case KIND_FUND_POSITION:
            updateFundPosTable(data);
            break;
        case KIND_GOLD_STORAGE:
            updateStorage(data);
            break;
        case KIND_COMPACT:
            updateCompact(data);
            break;
        default:
            break;  // 555 and every other kind: filed and published only
    }

    // 3. Subscribers of (kind, key), then of the whole kind (once when the key is empty).
    if (m_subTable.size() != 0) {
        const uint64_t outerSeq = tls_notifySeq;
        tls_notifySeq = seq;
        // A keyed subscription registered before this record was filed is seen by the count: the
        // store mutex orders the two.
        size_t called = (key.empty() || m_keyedSubs->load(std::memory_order_relaxed) != 0)
                            ? m_subTable.notify(dataKey, data)
                            : 0;
        if (!key.empty()) called += m_subTable.notify(IDataKey(kind, std::string()), data);
        tls_notifySeq = outerSeq;
        if (called != 0) countNotifications(called);
    }

    // 4. Forward or cache, only for the registered, initialised store. A push found live and
    // not caching when it was filed is forwarded; any other push looks again under the mutex, so
    // that caching and the replay of flushDatas agree on which pushes the cache holds.
    IDataCenterPtr dataCenter = registeredDataCenter(*identity);
    if (!dataCenter) return;
    if (!forward) {
        StoreLock lock(m_mutex);
        if (!m_bInitialized) return;
        if (cacheOnly || m_bCaching) {
            if (!m_cache) m_cache.reset(new PushCache);
            m_cache->put(kind, key, data);
            m_nCached.fetch_add(1, std::memory_order_relaxed);
            TT_LOG_STD_DEBUG(">>> [PUSHCACHE] [ACCT|%s] cached push data: [%d]-[%s]-[%s]",
                             identity->displayId, kind, key, data->toString());
            return;
        }
    }
    dataCenter->onAccountData(identity->info, data, TTError());
    m_nForwarded.fetch_add(1, std::memory_order_relaxed);
}

IDataCenterPtr CAccountData::registeredDataCenter(const Identity& identity) const {
    if (!identity.info) return IDataCenterPtr();
    IDataCenterPtr dataCenter = TraderCenter::instance()->getDataCenter();
    if (!dataCenter || dataCenter->getAccount(identity.key).get() != this) return IDataCenterPtr();
    return dataCenter;
}

IDataPtr CAccountData::getData(int kind, const std::string& key) const {
    StoreLock lock(m_mutex);
    KindDataMap::const_iterator k = m_datas.find(kind);
    if (k == m_datas.end()) return IDataPtr();
    DataMap::const_iterator it = k->second.find(key);
    return it == k->second.end() ? IDataPtr() : it->second;
}

void CAccountData::removeData(const IDataPtr& data) {
    if (!data) return;
    const int kind = data->getKind();
    const std::string key = data->getKey();
    StoreLock lock(m_mutex);
    KindDataMap::iterator k = m_datas.find(kind);
    if (k == m_datas.end()) return;
    if (k->second.erase(key) == 0) return;
    ++m_nDataVersion;
    if (kind == KIND_ORDER || kind == KIND_DEAL) m_bIndexesDetached = true;
}

std::vector<IDataPtr> CAccountData::getVector(int kind) {
    std::vector<IDataPtr> out;
    StoreLock lock(m_mutex);
    const DataMap& records = m_datas[kind];
    out.reserve(records.size());
    for (DataMap::const_iterator it = records.begin(); it != records.end(); ++it) out.push_back(it->second);
    return out;
}

CAccountData::DataMap CAccountData::getMapData(int kind) {
    StoreLock lock(m_mutex);
    return m_datas[kind];
}

void CAccountData::getMapData(int kind, DataMap& out) {
    StoreLock lock(m_mutex);
    out = m_datas[kind];
}

// A live reference may be used to change the records: the data version moves on, so the order and
// deal steps in flight check against the map again.
CAccountData::DataMap& CAccountData::getMapDataRef(int kind) {
    StoreLock lock(m_mutex);
    ++m_nDataVersion;
    return m_datas[kind];
}

CAccountData::KindDataMap& CAccountData::getDatas() {
    StoreLock lock(m_mutex);
    ++m_nDataVersion;
    return m_datas;
}

void CAccountData::setDatas(const KindDataMap& datas) {
    StoreLock lock(m_mutex);
    m_datas = datas;
    ++m_nDataVersion;
    m_bIndexesDetached = true;
}

std::vector<IDataPtr> CAccountData::getVectorInc(int kind, const std::map<std::string, std::string>& known) {
    std::vector<IDataPtr> out;
    StoreLock lock(m_mutex);
    KindDataMap::const_iterator k = m_datas.find(kind);
    if (k == m_datas.end()) return out;
    for (DataMap::const_iterator it = k->second.begin(); it != k->second.end(); ++it) {
        if (!it->second) continue;
        std::map<std::string, std::string>::const_iterator seen = known.find(it->first);
        if (seen == known.end()) {
            out.push_back(it->second);
            continue;
        }
        IData::Lock recordLock(it->second);
        if (it->second->toString() != seen->second) out.push_back(it->second);
    }
    return out;
}

// Subscriptions to one record key are counted, so that updateData skips the keyed look-up of the
// subscription table while there are none (views mostly subscribe whole kinds). The count is
// raised before the subscription is registered and lowered after it is released, so it never
// falls below the number of live keyed subscriptions (clear() leaves it as it is: too high only
// costs a look-up).
SubRequestPtr CAccountData::trackKeyed(const SubRequestPtr& request) {
    struct Release {
        SubRequestPtr request;
        boost::shared_ptr<std::atomic<size_t> > count;
        ~Release() {
            request.reset();
            count->fetch_sub(1, std::memory_order_relaxed);
        }
    };
    boost::shared_ptr<Release> release = boost::make_shared<Release>();
    release->request = request;
    release->count = m_keyedSubs;
    return SubRequestPtr(release, request.get());
}

SubRequestPtr CAccountData::subscribe(int kind, const std::string& key, const DataCallback& cb) {
    if (key.empty()) return m_subTable.subscribe(IDataKey(kind, key), cb);
    m_keyedSubs->fetch_add(1, std::memory_order_relaxed);
    return trackKeyed(m_subTable.subscribe(IDataKey(kind, key), cb));
}

SubRequestPtr CAccountData::subscribe(int kind, const std::string& key, const DataCallback& cb,
                                      bool withSnapshot) {
    if (!withSnapshot) return subscribe(kind, key, cb);
    boost::shared_ptr<SnapshotRelay> relay = boost::make_shared<SnapshotRelay>(cb);
    std::vector<IDataPtr> snapshot;
    SubRequestPtr request;
    {
        StoreLock lock(m_mutex);
        relay->snapshotSeq = m_nSeq;
        if (!key.empty()) m_keyedSubs->fetch_add(1, std::memory_order_relaxed);
        request = m_subTable.subscribe(IDataKey(kind, key),
                                       [relay](const IDataPtr& data) { relay->deliver(data); });
        if (!key.empty()) request = trackKeyed(request);
        KindDataMap::const_iterator k = m_datas.find(kind);
        if (k != m_datas.end()) {
            if (key.empty()) {
                snapshot.reserve(k->second.size());
                for (DataMap::const_iterator it = k->second.begin(); it != k->second.end(); ++it)
                    if (it->second) snapshot.push_back(it->second);
            } else {
                DataMap::const_iterator it = k->second.find(key);
                if (it != k->second.end() && it->second) snapshot.push_back(it->second);
            }
        }
    }
    for (size_t i = 0; i < snapshot.size(); ++i) cb(snapshot[i]);
    const size_t held = relay->release();
    countNotifications(snapshot.size() + held);
    return request;
}

// ---------------------------------------------------------------------------------------------
// Orders and deals

// The step indexes a record only while it is the one filed under its key: when a newer push of
// the same order was filed in between (on another thread), that push's own step indexes it, and
// a record that clear() or a removal took out meanwhile is not indexed again.
void CAccountData::updateOrder(const std::string& key, const IDataPtr& data) {
    updateOrder(key, data, 0);
}

void CAccountData::updateOrder(const std::string& key, const IDataPtr& data, uint64_t version) {
    const COrderDetail* order = recordAs<COrderDetail>(data);
    if (!order) return;
    StoreLock lock(m_mutex);
    if (version == 0 || version != m_nDataVersion) {
        KindDataMap::const_iterator k = m_datas.find(KIND_ORDER);
        if (k == m_datas.end()) return;
        DataMap::const_iterator filed = k->second.find(key);
        if (filed == k->second.end() || filed->second != data) return;
    }
    indexOrderLocked(data, *order);
    m_marginSum.updateOrder(key, *order);
}

void CAccountData::indexOrderLocked(const IDataPtr& data, const COrderDetail& order) {
    if (!order.m_strOrderSysID.empty()) m_ordersBySysId[order.m_strOrderSysID] = data;
    if (order.m_tag) m_ordersByTag[order.m_tag->getKey()] = data;
}

void CAccountData::updateDeal(const std::string& key, const IDataPtr& data) {
    updateDeal(key, data, 0);
}

void CAccountData::updateDeal(const std::string& key, const IDataPtr& data, uint64_t version) {
    const CDealDetail* deal = recordAs<CDealDetail>(data);
    if (!deal) return;
    StoreLock lock(m_mutex);
    if (version == 0 || version != m_nDataVersion) {
        KindDataMap::const_iterator k = m_datas.find(KIND_DEAL);
        if (k == m_datas.end()) return;
        DataMap::const_iterator filed = k->second.find(key);
        if (filed == k->second.end() || filed->second != data) return;
    }
    indexDealLocked(key, data, *deal);
}

// Every deal is grouped, those without an order-system id under "".
void CAccountData::indexDealLocked(const std::string& key, const IDataPtr& data, const CDealDetail& deal) {
    m_dealsByOrder[deal.m_strOrderSysID][key] = data;
}

COrderDetailPtr CAccountData::getOrderById(const std::string& orderSysId) const {
    StoreLock lock(m_mutex);
    std::map<std::string, IDataPtr>::const_iterator it = m_ordersBySysId.find(orderSysId);
    return it == m_ordersBySysId.end() ? COrderDetailPtr()
                                       : boost::dynamic_pointer_cast<COrderDetail>(it->second);
}

COrderDetailPtr CAccountData::getOrderByNqTag(const CNqOrderTagPtr& tag) const {
    const std::string tagKey = tag ? tag->getKey() : std::string();
    StoreLock lock(m_mutex);
    std::map<std::string, IDataPtr>::const_iterator it = m_ordersByTag.find(tagKey);
    return it == m_ordersByTag.end() ? COrderDetailPtr()
                                     : boost::dynamic_pointer_cast<COrderDetail>(it->second);
}

COrderDetailPtr CAccountData::getOrderDetail(const std::string& key) const {
    return boost::dynamic_pointer_cast<COrderDetail>(getData(KIND_ORDER, key));
}

void CAccountData::getOrderDetail(std::vector<COrderDetailPtr>& orders, const std::string& exchangeId,
                                  const std::string& instrumentId) const {
    StoreLock lock(m_mutex);
    KindDataMap::const_iterator k = m_datas.find(KIND_ORDER);
    if (k == m_datas.end()) return;
    for (DataMap::const_iterator it = k->second.begin(); it != k->second.end(); ++it) {
        const COrderDetail* order = recordAs<COrderDetail>(it->second);
        if (order && order->m_strExchangeID == exchangeId && order->m_strInstrumentID == instrumentId)
            orders.push_back(boost::static_pointer_cast<COrderDetail>(it->second));
    }
}

void CAccountData::getDeals(const std::string& orderSysId, const std::string& exchangeId,
                            std::vector<CDealDetailPtr>& deals) const {
    StoreLock lock(m_mutex);
    std::map<std::string, DataMap>::const_iterator group = m_dealsByOrder.find(orderSysId);
    if (group == m_dealsByOrder.end()) return;
    for (DataMap::const_iterator it = group->second.begin(); it != group->second.end(); ++it) {
        const CDealDetail* deal = recordAs<CDealDetail>(it->second);
        if (deal && deal->m_strExchangeID == exchangeId)
            deals.push_back(boost::static_pointer_cast<CDealDetail>(it->second));
    }
}

void CAccountData::getDeals(const COrderDetailPtr& order, std::vector<CDealDetailPtr>& deals) const {
    if (!order) return;
    std::string orderSysId, exchangeId;
    {
        IData::Lock recordLock(order);
        orderSysId = order->m_strOrderSysID;
        exchangeId = order->m_strExchangeID;
    }
    getDeals(orderSysId, exchangeId, deals);
}

void CAccountData::getDeals(const COrderInfoPtr& order, std::vector<CDealDetailPtr>& deals) const {
    if (!order) return;
    std::string orderSysId, exchangeId;
    {
        IData::Lock recordLock(order);
        orderSysId = order->m_strOrderSysID;
        exchangeId = order->m_strExchangeID;
    }
    getDeals(orderSysId, exchangeId, deals);
}

void CAccountData::getDeals(const std::vector<COrderDetailPtr>& orders,
                            std::vector<CDealDetailPtr>& deals) const {
    for (size_t i = 0; i < orders.size(); ++i) getDeals(orders[i], deals);
}

void CAccountData::getDeals(const std::vector<COrderInfoPtr>& orders,
                            std::vector<CDealDetailPtr>& deals) const {
    for (size_t i = 0; i < orders.size(); ++i) getDeals(orders[i], deals);
}

void CAccountData::removeOrder(const std::string& orderSysId) {
    StoreLock lock(m_mutex);
    m_dealsByOrder.erase(orderSysId);
    KindDataMap::iterator k = m_datas.find(KIND_ORDER);
    if (k != m_datas.end()) {
        for (DataMap::iterator it = k->second.begin(); it != k->second.end();) {
            const COrderDetail* order = recordAs<COrderDetail>(it->second);
            if (order && order->m_strOrderSysID == orderSysId) {
                if (order->m_tag) {
                    const std::string tagKey = order->m_tag->getKey();
                    m_ordersByTag.erase(tagKey);
                    m_removedTagKeys.insert(tagKey);
                }
                m_marginSum.removeOrder(it->first);
                k->second.erase(it++);
                ++m_nDataVersion;
            } else {
                ++it;
            }
        }
    }
    m_removedOrderIds.insert(orderSysId);
}

void CAccountData::reomveDeals(const std::string& orderSysId) {
    StoreLock lock(m_mutex);
    m_ordersBySysId.erase(orderSysId);
    KindDataMap::iterator k = m_datas.find(KIND_DEAL);
    if (k != m_datas.end()) {
        for (DataMap::iterator it = k->second.begin(); it != k->second.end();) {
            const CDealDetail* deal = recordAs<CDealDetail>(it->second);
            if (deal && deal->m_strOrderSysID == orderSysId) {
                k->second.erase(it++);
                ++m_nDataVersion;
            } else {
                ++it;
            }
        }
    }
    m_removedDealIds.insert(orderSysId);
}

void CAccountData::clearExpiredDatas(const std::string& tradeDate) {
    StoreLock lock(m_mutex);
    KindDataMap::iterator k = m_datas.find(KIND_TASK_DETAIL);
    if (k != m_datas.end()) {
        for (DataMap::iterator it = k->second.begin(); it != k->second.end();) {
            const CTaskDetail* task = recordAs<CTaskDetail>(it->second);
            if (task && task->m_command && task->m_command->m_strDate < tradeDate) {
                k->second.erase(it++);
                ++m_nDataVersion;
            } else {
                ++it;
            }
        }
    }
    k = m_datas.find(KIND_ORDER_COMMAND);
    if (k != m_datas.end()) {
        for (DataMap::iterator it = k->second.begin(); it != k->second.end();) {
            const COrderCommand* command = recordAs<COrderCommand>(it->second);
            if (command && command->m_strDate < tradeDate) {
                k->second.erase(it++);
                ++m_nDataVersion;
            } else {
                ++it;
            }
        }
    }
}

// ---------------------------------------------------------------------------------------------
// Kind-specific steps

void CAccountData::onAccountDetailUpdate(const CAccountDetailPtr& detail) {
    if (!detail) return;
    if (!utils::CLogCenter::instance().logEnabled(utils::LOGGER_STD, utils::TT_LOG_INFO)) return;
    const std::string displayId = getAccountDisplayId();
    IData::Lock recordLock(detail);
    TT_LOG_STD_INFO(
        "%1% status %2% : m_dBalance: %3%, m_dPreBalance: %4%, m_dAvailable: %5%, m_dAssureAsset: %6%, "
        "m_dEntrustAsset: %7%",
        displayId, static_cast<int>(detail->m_nAccountStatus), detail->m_dBalance, detail->m_dPreBalance,
        detail->m_dAvailable, detail->m_dAssureAsset, detail->m_dEntrustAsset);
}

bool CAccountData::positionWantsQuoteLocked(const CPositionDetail& position) const {
    if (position.m_nVolume >= 1) return true;
    const CAccountInfoPtr& info = m_identity->info;
    if (position.m_nYesterdayVolume <= 0 || !info) return false;
    return COrderDetailHelper::isStatusOnlyAccountType(info->m_nAccountType);
}

// Once the store is initialised, a position, compact or gold storage that arrives for an
// instrument not yet quoted gets its quote subscribed and its valuation price queued, as
// setInitialized does for the records it finds.
void CAccountData::updatePositionDetail(const IDataPtr& data) {
    const CPositionDetail* position = recordAs<CPositionDetail>(data);
    if (!position) return;
    std::string exchangeId, instrumentId;
    {
        StoreLock lock(m_mutex);
        if (!m_bInitialized || !positionWantsQuoteLocked(*position)) return;
        std::map<std::string, std::map<std::string, boost::shared_ptr<void> > >::const_iterator ex =
            m_quoteSubs.find(position->m_strExchangeID);
        if (ex != m_quoteSubs.end() && ex->second.count(position->m_strInstrumentID) != 0) return;
        exchangeId = position->m_strExchangeID;
        instrumentId = position->m_strInstrumentID;
    }
    if (subscribeQuote(exchangeId, instrumentId)) updatePrice(data);
}

void CAccountData::updatePositionStatics(const IDataPtr& data) {
    (void)data;  // filed and published; looked up by getPositionStatic
}

void CAccountData::updateExchangeStatus(const IDataPtr& data) {
    const std::string key = data->getKey();
    StoreLock lock(m_mutex);
    m_exchangeStatus[key] = data;
}

void CAccountData::updatePositionTradeTable(const IDataPtr& data) {
    CPositionTradeTablePtr entry = boost::dynamic_pointer_cast<CPositionTradeTable>(data);
    if (!entry) return;
    const std::string key = entry->getKey();
    StoreLock lock(m_mutex);
    m_positionTradeTable[key] = entry;
}

void CAccountData::updateFundPosTable(const IDataPtr& data) {
    CStructeFundPositiondetailPtr entry = boost::dynamic_pointer_cast<CStructeFundPositiondetail>(data);
    if (!entry) return;
    const std::string key = entry->getKey();
    StoreLock lock(m_mutex);
    m_fundPosTable[key] = entry;
}

void CAccountData::updateStorage(const IDataPtr& data) {
    const GoldQueryStorageResp* storage = recordAs<GoldQueryStorageResp>(data);
    if (!storage) return;
    std::string code;
    {
        StoreLock lock(m_mutex);
        if (!m_bInitialized) return;
        code = storage->code;
    }
    if (subscribeQuote(kGoldExchange, code)) updatePrice(data);
}

void CAccountData::updateCompact(const IDataPtr& data) {
    const CStkCompacts* compact = recordAs<CStkCompacts>(data);
    if (!compact) return;
    std::string exchangeId, instrumentId;
    {
        StoreLock lock(m_mutex);
        if (!m_bInitialized) return;
        exchangeId = compact->m_strExchangeID;
        instrumentId = compact->m_strInstrumentID;
    }
    if (subscribeQuote(exchangeId, instrumentId)) updatePrice(data);
}

// ---------------------------------------------------------------------------------------------
// Positions, fees, instruments, settlement prices

CPositionDetailPtr CAccountData::getPositionDetail(const std::string& exchangeId,
                                                   const std::string& instrumentId) const {
    StoreLock lock(m_mutex);
    KindDataMap::const_iterator k = m_datas.find(KIND_POSITION);
    if (k == m_datas.end()) return CPositionDetailPtr();
    for (DataMap::const_iterator it = k->second.begin(); it != k->second.end(); ++it) {
        const CPositionDetail* p = recordAs<CPositionDetail>(it->second);
        if (p && p->m_strExchangeID == exchangeId && p->m_strInstrumentID == instrumentId)
            return boost::static_pointer_cast<CPositionDetail>(it->second);
    }
    return CPositionDetailPtr();
}

CPositionStaticsPtr CAccountData::getPositionStatic(const std::string& exchangeId,
                                                    const std::string& instrumentId) const {
    StoreLock lock(m_mutex);
    KindDataMap::const_iterator k = m_datas.find(KIND_POSITION_STATICS);
    if (k == m_datas.end()) return CPositionStaticsPtr();
    for (DataMap::const_iterator it = k->second.begin(); it != k->second.end(); ++it) {
        const CPositionStatics* p = recordAs<CPositionStatics>(it->second);
        if (p && p->m_strExchangeID == exchangeId && p->m_strInstrumentID == instrumentId)
            return boost::static_pointer_cast<CPositionStatics>(it->second);
    }
    return CPositionStaticsPtr();
}

CInstrumentFeePtr CAccountData::getInstrumentFee(const std::string& exchangeId,
                                                 const std::string& instrumentId) const {
    StoreLock lock(m_mutex);
    KindDataMap::const_iterator k = m_datas.find(CInstrumentFee::TYPE_ID_);
    if (k == m_datas.end()) return CInstrumentFeePtr();
    DataMap::const_iterator it =
        k->second.find(m_identity->key + "_" + utils::nqStockKey(exchangeId, instrumentId));
    if (it != k->second.end()) {
        CInstrumentFeePtr fee = boost::dynamic_pointer_cast<CInstrumentFee>(it->second);
        if (fee) return fee;
    }
    for (it = k->second.begin(); it != k->second.end(); ++it) {
        const CInstrumentFee* fee = recordAs<CInstrumentFee>(it->second);
        if (fee && fee->m_instrument && fee->m_instrument->m_strExchangeID == exchangeId &&
            fee->m_instrument->m_strInstrumentID == instrumentId)
            return boost::static_pointer_cast<CInstrumentFee>(it->second);
    }
    return CInstrumentFeePtr();
}

CInstrumentDetailPtr CAccountData::getInstrumentDetail(const std::string& exchangeId,
                                                       const std::string& instrumentId) const {
    CInstrumentFeePtr fee = getInstrumentFee(exchangeId, instrumentId);
    if (fee) {
        IData::Lock recordLock(fee);
        if (fee->m_instrument) return fee->m_instrument;
    }
    CInstrumentDetailPtr own = boost::dynamic_pointer_cast<CInstrumentDetail>(
        getData(CInstrumentDetail::TYPE_ID_, utils::nqStockKey(exchangeId, instrumentId)));
    if (own) return own;
    IDataCenterPtr dataCenter = TraderCenter::instance()->getDataCenter();
    return dataCenter ? dataCenter->getInstrument(exchangeId, instrumentId) : CInstrumentDetailPtr();
}

double CAccountData::getGoldStorage(const std::string& code) const {
    IDataPtr data = getData(KIND_GOLD_STORAGE, code);
    const GoldQueryStorageResp* storage = recordAs<GoldQueryStorageResp>(data);
    if (!storage) return 0.0;
    IData::Lock recordLock(data);
    return storage->totalStorage;
}

void CAccountData::setLastSettlement(const std::map<std::string, double>& prices) {
    StoreLock lock(m_mutex);
    m_lastSettlement = prices;
}

double CAccountData::getLastSettlement(const std::string& exchangeId, const std::string& instrumentId) const {
    const std::string displayId = getAccountDisplayId();
    CInstrumentFeePtr fee = getInstrumentFee(exchangeId, instrumentId);
    if (fee) {
        double price;
        {
            IData::Lock recordLock(fee);
            price = fee->m_dPreSettlementPrice;
        }
        if (validPrice(price)) {
            TT_LOG_STD_DEBUG("%s, %s from fee, %s, %d", exchangeId, instrumentId, displayId, price);
            return price;
        }
    }
    double price = TT_INVALID_DOUBLE;
    {
        StoreLock lock(m_mutex);
        std::map<std::string, double>::const_iterator it =
            m_lastSettlement.find(utils::nqStockKey(exchangeId, instrumentId));
        if (it != m_lastSettlement.end()) price = it->second;
    }
    if (validPrice(price)) {
        TT_LOG_STD_DEBUG("%s, %s from map, %s, %d", exchangeId, instrumentId, displayId, price);
        return price;
    }
    TT_LOG_STD_DEBUG("%s, %s %s get invalid price", exchangeId, instrumentId, displayId);
    return TT_INVALID_DOUBLE;
}

// ---------------------------------------------------------------------------------------------
// Initialisation, quotes and the price refresh

void CAccountData::setUpdateInterval(int interval) {
    StoreLock lock(m_mutex);
    m_nUpdateInterval = interval;
}

int CAccountData::getPriceUpdateInterval() const {
    StoreLock lock(m_mutex);
    return m_nUpdateInterval;
}

bool CAccountData::initialized() const {
    StoreLock lock(m_mutex);
    return m_bInitialized;
}

void CAccountData::setInitialized(bool initialized) {
    TT_LOG_STD_DEBUG("%1% : account = %2%, inited = %3%", "ttservice::CAccountData::setInitialized",
                     getAccountKey(), initialized);
    struct Quoted {
        IDataPtr record;
        std::string exchangeId;
        std::string instrumentId;
    };
    std::vector<Quoted> positions, compacts, storages;
    std::vector<IDataPtr> statics;
    std::string displayId;
    const auto quoted = [](const IDataPtr& record) {
        Quoted q;
        q.record = record;
        instrumentOf(*record, q.exchangeId, q.instrumentId);
        return q;
    };
    {
        StoreLock lock(m_mutex);
        m_bInitialized = initialized;
        if (!initialized) return;
        displayId = m_identity->displayId;

        // Rebuild the order and deal indexes (and the margin sum) from the records.
        m_ordersByTag.clear();
        m_ordersBySysId.clear();
        m_dealsByOrder.clear();
        m_removedOrderIds.clear();
        m_removedDealIds.clear();
        m_removedTagKeys.clear();
        m_bIndexesDetached = false;
        m_marginSum.clear();
        const bool recomputeCommission = m_identity->info && (m_identity->info->m_nAccountType == 1001 ||
                                                              m_identity->info->m_nAccountType == 1002);
        const DataMap& orders = m_datas[KIND_ORDER];
        for (DataMap::const_iterator it = orders.begin(); it != orders.end(); ++it) {
            COrderDetailPtr order = boost::dynamic_pointer_cast<COrderDetail>(it->second);
            if (!order) continue;
            IData::Lock recordLock(order);
            if (recomputeCommission && !COrderDetailHelper::completed(*order)) {
                const double commission = CInstrumentFeeHelper::calcCommission(
                    getInstrumentFee(order->m_strExchangeID, order->m_strInstrumentID), *order);
                if (commission != TT_INVALID_DOUBLE) order->m_dCommission = commission;
            }
            indexOrderLocked(it->second, *order);
            m_marginSum.updateOrder(it->first, *order);
        }
        const DataMap& deals = m_datas[KIND_DEAL];
        for (DataMap::const_iterator it = deals.begin(); it != deals.end(); ++it)
            if (const CDealDetail* deal = recordAs<CDealDetail>(it->second))
                indexDealLocked(it->first, it->second, *deal);

        const DataMap& pos = m_datas[KIND_POSITION];
        for (DataMap::const_iterator it = pos.begin(); it != pos.end(); ++it) {
            const CPositionDetail* position = recordAs<CPositionDetail>(it->second);
            if (position && positionWantsQuoteLocked(*position)) positions.push_back(quoted(it->second));
        }
        const DataMap& comp = m_datas[KIND_COMPACT];
        for (DataMap::const_iterator it = comp.begin(); it != comp.end(); ++it)
            if (recordAs<CStkCompacts>(it->second)) compacts.push_back(quoted(it->second));
        const DataMap& gold = m_datas[KIND_GOLD_STORAGE];
        for (DataMap::const_iterator it = gold.begin(); it != gold.end(); ++it)
            if (recordAs<GoldQueryStorageResp>(it->second)) storages.push_back(quoted(it->second));
        const DataMap& stat = m_datas[KIND_POSITION_STATICS];
        for (DataMap::const_iterator it = stat.begin(); it != stat.end(); ++it)
            if (it->second) statics.push_back(it->second);
    }

    // Quotes: each (exchange, instrument) once; every record's valuation price is queued.
    for (size_t i = 0; i < positions.size(); ++i) {
        const Quoted& q = positions[i];
        subscribeQuote(q.exchangeId, q.instrumentId);
        updatePrice(q.record);
        TT_LOG_STD_DEBUG("setInitialized sub quoter %s %s account %s", q.exchangeId, q.instrumentId,
                         displayId);
    }
    for (size_t i = 0; i < compacts.size(); ++i) {
        const Quoted& q = compacts[i];
        subscribeQuote(q.exchangeId, q.instrumentId);
        updatePrice(q.record);
        TT_LOG_STD_DEBUG("setInitialized sub quoter %s %s account %s NQ_CStkCompacts", q.exchangeId,
                         q.instrumentId, displayId);
    }
    for (size_t i = 0; i < storages.size(); ++i) {
        const Quoted& q = storages[i];
        subscribeQuote(q.exchangeId, q.instrumentId);
        updatePrice(q.record);
        TT_LOG_STD_DEBUG("setInitialized sub quoter %s %s account %s GoldStorage", q.exchangeId,
                         q.instrumentId, displayId);
    }
    // Position statistics are revalued like the positions they summarise.
    for (size_t i = 0; i < statics.size(); ++i) updatePrice(statics[i]);

    armTimer();
    TT_LOG_STD_DEBUG("CAccountData::restart onTimer %1%: %2%", displayId, getPriceUpdateInterval());
}

bool CAccountData::instrumentOf(const IData& data, std::string& exchangeId, std::string& instrumentId) {
    if (const CPositionDetail* p = dynamic_cast<const CPositionDetail*>(&data)) {
        exchangeId = p->m_strExchangeID;
        instrumentId = p->m_strInstrumentID;
        return true;
    }
    if (const CPositionStatics* s = dynamic_cast<const CPositionStatics*>(&data)) {
        exchangeId = s->m_strExchangeID;
        instrumentId = s->m_strInstrumentID;
        return true;
    }
    if (const CStkCompacts* c = dynamic_cast<const CStkCompacts*>(&data)) {
        exchangeId = c->m_strExchangeID;
        instrumentId = c->m_strInstrumentID;
        return true;
    }
    if (const GoldQueryStorageResp* g = dynamic_cast<const GoldQueryStorageResp*>(&data)) {
        exchangeId = kGoldExchange;
        instrumentId = g->code;
        return true;
    }
    return false;
}

bool CAccountData::subscribeQuote(const std::string& exchangeId, const std::string& instrumentId) {
    if (instrumentId.empty()) return false;
    {
        StoreLock lock(m_mutex);
        std::map<std::string, boost::shared_ptr<void> >& byInstrument = m_quoteSubs[exchangeId];
        if (byInstrument.find(instrumentId) != byInstrument.end()) return false;
        byInstrument[instrumentId];  // reserved: a racing caller sees it and leaves it to us
    }
    IPrimitivePtr primitive = TraderCenter::instance()->getPrimitive();
    boost::shared_ptr<void> handle;
    if (primitive) {
        boost::weak_ptr<CAccountData> self = weak_from_this();
        handle = primitive->subQuote(exchangeId, instrumentId, [self](const CPriceDataPtr& quote) {
            CAccountData::onQuote(self, quote);
        });
    }
    StoreLock lock(m_mutex);
    if (handle)
        m_quoteSubs[exchangeId][instrumentId] = handle;
    else
        m_quoteSubs[exchangeId].erase(instrumentId);  // nothing subscribed: a later call may try again
    return static_cast<bool>(handle);
}

void CAccountData::onQuote(const boost::weak_ptr<CAccountData>& store, const CPriceDataPtr& quote) {
    CAccountDataPtr self = store.lock();
    if (!self || !quote) return;
    std::string exchangeId, instrumentId;
    {
        IData::Lock recordLock(quote);
        exchangeId = quote->m_strExchangeID;
        instrumentId = quote->m_strInstrumentID;
    }
    self->notePrice(exchangeId, instrumentId, quote);
}

void CAccountData::updatePrice(const IDataPtr& data) {
    if (!data) return;
    std::string exchangeId, instrumentId;
    {
        StoreLock lock(m_mutex);
        if (!instrumentOf(*data, exchangeId, instrumentId)) return;
    }
    IPrimitivePtr primitive = TraderCenter::instance()->getPrimitive();
    notePrice(exchangeId, instrumentId,
              primitive ? primitive->getPrice(0, exchangeId, instrumentId) : CPriceDataPtr());
}

void CAccountData::notePrice(const std::string& exchangeId, const std::string& instrumentId,
                             const CPriceDataPtr& quote) {
    const std::string instrumentKey = utils::nqStockKey(exchangeId, instrumentId);
    double price = TT_INVALID_DOUBLE;
    if (quote) {
        IData::Lock recordLock(quote);
        price = valuationPrice(*quote);
    }
    if (price == TT_INVALID_DOUBLE) {
        TT_LOG_STD_DEBUG("on updatePrice %1%", instrumentKey);
        return;
    }
    {
        StoreLock lock(m_mutex);
        m_priceChanges[instrumentKey] = price;
    }
    TT_LOG_STD_DEBUG("on updatePrice : %1%, %2%", instrumentKey, price);
}

PriceChangeMap CAccountData::getPendingPriceChanges() const {
    StoreLock lock(m_mutex);
    return m_priceChanges;
}

// The first expiry: the interval, except that a refresh that is off (2147483647) or runs once
// (below 1) expires at once, so the cycle ends (or makes its one refresh) without holding the
// store for an interval that will never refresh.
void CAccountData::armTimer() {
    CAccountDataPtr self = weak_from_this().lock();
    if (!self) return;  // not owned by a shared_ptr: no timed refresh
    StoreLock lock(m_mutex);
    const int interval = m_nUpdateInterval;
    const int delay = (interval < 1 || interval == UPDATE_INTERVAL_DISABLED) ? 0 : interval;
    m_timer->arm(delay, [self](const boost::system::error_code& error) { self->onTimer(error); });
}

void CAccountData::onTimer(const boost::system::error_code& error) {
    if (error) return;  // cancelled (clear, a re-arm, the store's end): the cycle ends
    const int interval = getPriceUpdateInterval();
    if (interval == UPDATE_INTERVAL_DISABLED) return;
    updatePrice();
    if (interval < 1) return;
    CAccountDataPtr self = shared_from_this();
    StoreLock lock(m_mutex);
    m_timer->arm(interval, [self](const boost::system::error_code& e) { self->onTimer(e); });
}

void CAccountData::updatePrice() {
    PriceChangeMap changes;
    std::string displayId;
    {
        StoreLock lock(m_mutex);
        if (m_priceChanges.empty()) return;
        changes.swap(m_priceChanges);
        displayId = m_identity->displayId;
    }
    utils::CLogCenter& logCenter = utils::CLogCenter::instance();
    if (logCenter.fileLogEnabled(kPriceDebugId)) {
        std::ostringstream list;
        list.precision(15);
        for (PriceChangeMap::const_iterator it = changes.begin(); it != changes.end(); ++it)
            list << it->first << "=" << it->second << ",";
        logCenter.write(
            utils::LOGGER_DBG, utils::TT_LOG_DEBUG,
            utils::formatLog("[dbg_id=%1%] %2%", kPriceDebugId,
                             utils::formatLog("CAccountData::updatePrice %1%: %2%", displayId, list.str())),
            BOOST_CURRENT_FUNCTION, __FILE__, __LINE__);
    }
    ICalculatorPtr calculator = TraderCenter::instance()->getCalculator();
    CAccountDataPtr self = weak_from_this().lock();
    if (calculator && self) calculator->updatePrice(self, changes);
    TT_LOG_STD_DEBUG("CAccountData::updatePrice : %1%", changes.size());
}

void CAccountData::startCacheDatas() {
    StoreLock lock(m_mutex);
    m_bCaching = true;
}

void CAccountData::flushDatas() {
    boost::shared_ptr<const Identity> identity;
    {
        StoreLock lock(m_mutex);
        m_bCaching = false;
        identity = m_identity;
    }
    IDataCenterPtr dataCenter = registeredDataCenter(*identity);
    if (!dataCenter) return;  // not registered: the cache is kept for a later flush
    // The cache is taken out whole under the mutex and the batch is built from it outside,
    // moving the records; the cache's arena goes with it after delivery.
    std::unique_ptr<PushCache> cache;
    {
        StoreLock lock(m_mutex);
        if (!m_bInitialized) return;
        cache.swap(m_cache);
        identity = m_identity;
    }
    if (!cache) return;
    const size_t total = cache->size;
    std::vector<IDataPtr> batch(total);
    size_t front = 0;
    // Ascending kind, then key; the account detail (kind 543, whatever its class) takes the last
    // slot, so it arrives after the orders, deals and positions it summarises (a second one of
    // another key overwrites it there and leaves one slot of the batch empty, deliberately).
    for (PushCache::KindMap::iterator k = cache->records.begin(); k != cache->records.end(); ++k) {
        if (k->first == KIND_ACCOUNT_DETAIL) {
            for (PushCache::KeyMap::iterator it = k->second.begin(); it != k->second.end(); ++it)
                batch[total - 1] = std::move(it->second);
        } else {
            for (PushCache::KeyMap::iterator it = k->second.begin(); it != k->second.end(); ++it)
                batch[front++] = std::move(it->second);
        }
    }
    if (batch.empty()) return;
    dataCenter->onAccountDatas(identity->info, batch);
    m_nReplays.fetch_add(1, std::memory_order_relaxed);
    m_nReplayedRecords.fetch_add(batch.size(), std::memory_order_relaxed);
}

EExchangeStatus CAccountData::getExchangeStatus(const std::string& exchangeId,
                                                const std::string& instrumentId) const {
    CInstrumentDetailPtr instrument = getInstrumentDetail(exchangeId, instrumentId);
    std::string productId;
    if (instrument) {
        IData::Lock recordLock(instrument);
        productId = instrument->m_strProductID;
    }
    IDataPtr status;
    {
        StoreLock lock(m_mutex);
        std::map<std::string, IDataPtr>::const_iterator it = m_exchangeStatus.end();
        if (!productId.empty()) it = m_exchangeStatus.find(exchangeId + "_" + productId);
        if (it == m_exchangeStatus.end()) it = m_exchangeStatus.find(exchangeId);
        if (it == m_exchangeStatus.end()) return EXCHANGE_STATUS_UNKNOWN;
        status = it->second;
    }
    if (!status) return EXCHANGE_STATUS_UNKNOWN;
    IData::Lock recordLock(status);
    if (const CExchangeStatus* s = recordAs<CExchangeStatus>(status)) return s->m_nStatus;
    // Another class of kind 570: its field of the same name.
    const int field = status->recordType().fieldIndex("m_nStatus");
    return field < 0 ? EXCHANGE_STATUS_UNKNOWN : static_cast<EExchangeStatus>(status->getInt(field));
}

// ---------------------------------------------------------------------------------------------
// Tradable volume

double CAccountData::getCanOrderVolume(const std::string& exchangeId, const std::string& instrumentId,
                                       int direction, int offset, double price) {
    ICalculatorPtr calculator = TraderCenter::instance()->getCalculator();
    CAccountDataPtr self = weak_from_this().lock();
    if (!calculator || !self) return 0.0;
    return calculator->getCanOrderVolume(self, exchangeId, instrumentId, direction, offset, price);
}

CStructVolumePtr CAccountData::getCanOrderVolumeWithReason(const std::string& exchangeId,
                                                           const std::string& instrumentId, int direction,
                                                           int offset, double price) {
    CStructVolumePtr volume = boost::make_shared<CStructVolume>();
    ICalculatorPtr calculator = TraderCenter::instance()->getCalculator();
    CAccountDataPtr self = weak_from_this().lock();
    if (calculator && self)
        calculator->getCanOrderVolumeWithReason(self, exchangeId, instrumentId, direction, offset, price,
                                                volume);
    return volume;
}

double CAccountData::getSingleOpVolume(const std::string& exchangeId, const std::string& instrumentId,
                                       int direction, int offset, double price, double amount) {
    ICalculatorPtr calculator = TraderCenter::instance()->getCalculator();
    CAccountDataPtr self = weak_from_this().lock();
    if (!calculator || !self) return 0.0;
    return calculator->getSingleOpVolume(self, exchangeId, instrumentId, direction, offset, price, amount);
}

// The remainder is taken as it is: an order that reports more traded than ordered (bad input)
// lowers its side by the excess rather than being dropped, so the figure stays the plain sum.
void CAccountData::getUnDealVolume(const std::string& instrumentId, int& buyVolume, int& sellVolume) {
    buyVolume = 0;
    sellVolume = 0;
    StoreLock lock(m_mutex);
    KindDataMap::const_iterator k = m_datas.find(KIND_ORDER);
    if (k == m_datas.end()) return;
    for (DataMap::const_iterator it = k->second.begin(); it != k->second.end(); ++it) {
        const COrderDetail* order = recordAs<COrderDetail>(it->second);
        if (!order || order->m_strInstrumentID != instrumentId) continue;
        if (order->m_nVolumeTraded == 0 && COrderDetailHelper::completed(*order)) continue;
        (order->m_nDirection == '0' ? buyVolume : sellVolume) +=
            order->m_nVolumeTotalOriginal - order->m_nVolumeTraded;
    }
}

int CAccountData::getUnRevDealVolume(const COrderDetailPtr& order) {
    std::vector<CDealDetailPtr> deals;
    getDeals(order, deals);
    int volume = 0;
    for (size_t i = 0; i < deals.size(); ++i) {
        IData::Lock recordLock(deals[i]);
        volume += deals[i]->m_nVolume;
    }
    return volume;
}

CPositionTradeTablePtr CAccountData::getPositionTradeTable(const std::string& key) const {
    StoreLock lock(m_mutex);
    std::map<std::string, CPositionTradeTablePtr>::const_iterator it = m_positionTradeTable.find(key);
    return it == m_positionTradeTable.end() ? CPositionTradeTablePtr() : it->second;
}

std::map<std::string, CPositionTradeTablePtr> CAccountData::getPositionTradeTable() const {
    StoreLock lock(m_mutex);
    return m_positionTradeTable;
}

void CAccountData::resetPositionTradeTable(const std::map<std::string, CPositionTradeTablePtr>& table) {
    StoreLock lock(m_mutex);
    m_positionTradeTable = table;
}

CStructeFundPositiondetailPtr CAccountData::getFundPosTable(const std::string& key) const {
    StoreLock lock(m_mutex);
    std::map<std::string, CStructeFundPositiondetailPtr>::const_iterator it = m_fundPosTable.find(key);
    return it == m_fundPosTable.end() ? CStructeFundPositiondetailPtr() : it->second;
}

void CAccountData::resetFundPosTable(const std::map<std::string, CStructeFundPositiondetailPtr>& table) {
    StoreLock lock(m_mutex);
    m_fundPosTable = table;
}

double CAccountData::getProductLongMargin(const std::string& productId) const {
    StoreLock lock(m_mutex);
    return m_marginSum.getProductLong(productId);
}

double CAccountData::getProductShortMargin(const std::string& productId) const {
    StoreLock lock(m_mutex);
    return m_marginSum.getProductShort(productId);
}

// ---------------------------------------------------------------------------------------------
// Lifecycle and monitoring

// Four side tables are emptied with the records: the pending price changes, the exchange status,
// the last settlement prices and the fund position table. The position trade table is kept (see
// the header for why).
void CAccountData::clear() {
    m_subTable.reset();
    StoreLock lock(m_mutex);
    m_bInitialized = false;
    m_datas.clear();
    ++m_nDataVersion;
    m_priceChanges.clear();
    m_exchangeStatus.clear();
    m_lastSettlement.clear();
    m_fundPosTable.clear();
    m_timer->cancel();
    m_marginSum.clear();
    m_bIndexesDetached = true;
}

CAccountDataStats CAccountData::getStatistics() const {
    CAccountDataStats stats;
    for (int i = 0; i < CAccountDataStats::SLOT_COUNT; ++i)
        stats.m_nFiled[i] = m_nFiled[i].load(std::memory_order_relaxed);
    stats.m_nNotifications = m_nNotifications.load(std::memory_order_relaxed);
    stats.m_nForwarded = m_nForwarded.load(std::memory_order_relaxed);
    stats.m_nCached = m_nCached.load(std::memory_order_relaxed);
    stats.m_nReplays = m_nReplays.load(std::memory_order_relaxed);
    stats.m_nReplayedRecords = m_nReplayedRecords.load(std::memory_order_relaxed);
    return stats;
}

// Rules. Always (the shape of every entry):
//   S1 an order-system-id entry has a non-empty key and holds a COrderDetail of that id;
//   S2 a tag entry holds a COrderDetail whose tag has that key (the empty key included);
//   S3 a deal-group entry holds a CDealDetail of the group's order-system id ("" included), under
//      the deal's own key.
// While the indexes are attached (since construction or the last rebuild by setInitialized(true),
// and no clear, setData, setDatas or removeData of an order or deal since):
//   A1 every filed order with an order-system id has an entry under it, unless reomveDeals took
//      that id out (the order records stay behind, deliberately);
//   A2 every filed order with a tag has a tag entry under the tag's key, unless removeOrder took
//      that key out with another order that carried it;
//   A3 every filed deal is in the group of its order-system id under its key, unless removeOrder
//      dropped that group (the deal records stay behind, deliberately);
//   A4 every order-system-id entry holds the very order filed under that order's key, unless
//      removeOrder took the order out (its entry stays, so getOrderById still finds it);
//   A5 every tag entry holds the very order filed under that order's key;
//   A6 every deal-group entry holds the very deal filed under its key, unless reomveDeals took the
//      deal records out (the group stays, so getDeals still finds them).
bool CAccountData::checkIndexes(std::string* report) const {
    std::ostringstream out;
    size_t problems = 0;
    const auto fail = [&](const std::string& what) {
        ++problems;
        out << what << "\n";
    };
    StoreLock lock(m_mutex);
    static const DataMap kNone;
    KindDataMap::const_iterator k = m_datas.find(KIND_ORDER);
    const DataMap& orders = k == m_datas.end() ? kNone : k->second;
    k = m_datas.find(KIND_DEAL);
    const DataMap& deals = k == m_datas.end() ? kNone : k->second;
    const bool attached = !m_bIndexesDetached;

    const auto filedAs = [](const DataMap& records, const IDataPtr& data) {
        DataMap::const_iterator it = records.find(data->getKey());
        return it != records.end() && it->second == data;
    };

    for (std::map<std::string, IDataPtr>::const_iterator it = m_ordersBySysId.begin();
         it != m_ordersBySysId.end(); ++it) {
        const COrderDetail* order = recordAs<COrderDetail>(it->second);
        if (it->first.empty() || !order || order->m_strOrderSysID != it->first) {
            fail("S1 order-system-id entry '" + it->first + "' does not hold an order of that id");
            continue;
        }
        if (attached && !filedAs(orders, it->second) && m_removedOrderIds.count(it->first) == 0)
            fail("A4 order-system-id entry '" + it->first + "' holds an order that is not filed");
    }
    for (std::map<std::string, IDataPtr>::const_iterator it = m_ordersByTag.begin();
         it != m_ordersByTag.end(); ++it) {
        const COrderDetail* order = recordAs<COrderDetail>(it->second);
        if (!order || !order->m_tag || order->m_tag->getKey() != it->first) {
            fail("S2 tag entry '" + it->first + "' does not hold an order with that tag");
            continue;
        }
        if (attached && !filedAs(orders, it->second))
            fail("A5 tag entry '" + it->first + "' holds an order that is not filed");
    }
    for (std::map<std::string, DataMap>::const_iterator group = m_dealsByOrder.begin();
         group != m_dealsByOrder.end(); ++group) {
        for (DataMap::const_iterator it = group->second.begin(); it != group->second.end(); ++it) {
            const CDealDetail* deal = recordAs<CDealDetail>(it->second);
            if (!deal || deal->m_strOrderSysID != group->first ||
                it->second->getKey() != it->first) {
                fail("S3 deal entry '" + group->first + "'/'" + it->first +
                     "' does not hold a deal of that order and key");
                continue;
            }
            if (attached && m_removedDealIds.count(group->first) == 0) {
                DataMap::const_iterator filed = deals.find(it->first);
                if (filed == deals.end() || filed->second != it->second)
                    fail("A6 deal entry '" + group->first + "'/'" + it->first +
                         "' holds a deal that is not filed");
            }
        }
    }
    if (attached) {
        for (DataMap::const_iterator it = orders.begin(); it != orders.end(); ++it) {
            const COrderDetail* order = recordAs<COrderDetail>(it->second);
            if (!order) continue;
            if (!order->m_strOrderSysID.empty() && m_ordersBySysId.count(order->m_strOrderSysID) == 0 &&
                m_removedDealIds.count(order->m_strOrderSysID) == 0)
                fail("A1 order '" + it->first + "' of id '" + order->m_strOrderSysID +
                     "' has no order-system-id entry");
            if (order->m_tag) {
                const std::string tagKey = order->m_tag->getKey();
                if (m_ordersByTag.count(tagKey) == 0 && m_removedTagKeys.count(tagKey) == 0)
                    fail("A2 order '" + it->first + "' with tag '" + tagKey + "' has no tag entry");
            }
        }
        for (DataMap::const_iterator it = deals.begin(); it != deals.end(); ++it) {
            const CDealDetail* deal = recordAs<CDealDetail>(it->second);
            if (!deal || m_removedOrderIds.count(deal->m_strOrderSysID) != 0) continue;
            std::map<std::string, DataMap>::const_iterator group = m_dealsByOrder.find(deal->m_strOrderSysID);
            DataMap::const_iterator entry;
            if (group == m_dealsByOrder.end() ||
                (entry = group->second.find(it->first)) == group->second.end() || entry->second != it->second)
                fail("A3 deal '" + it->first + "' of order '" + deal->m_strOrderSysID +
                     "' is not in its group");
        }
    }
    if (report) *report = out.str();
    return problems == 0;
}

}  // namespace ttservice
