// ttservice::CAccountData: the store of one trading account's records.
//
// A store files every record the back end sends for its account by kind and key (IData::getKind(),
// IData::getKey()), keeps the indexes behind the common look-ups (orders by order-system id and by
// order tag, deals grouped by order), tells subscribers of every change and, once the account is
// registered in the data center and initialised, forwards every change to the data center's
// account-data notification (or holds it in the push cache while caching). Beside that it runs the
// account's price refresh (quote subscriptions, pending price changes handed to the calculator on a
// timer) and answers the tradable-volume questions of order entry.
//
// Ownership: always owned by boost::shared_ptr (the store hands shared_from_this() to its timer and
// to the calculator, and compares itself with the data center's entry); never on the stack.
//
// Thread safety: every public member may be called from any thread. One recursive mutex per store
// (m_mutex below) guards every container and the flags; CAccountData::Lock holds that same mutex.
// Kind-specific steps, subscriber callbacks and forwarding to the data center run with it released:
// a callback may take a CAccountData::Lock of its own or call back into the store. Subscriber and
// data-center callbacks run on the thread that called updateData (or flushDatas); the refresh timer
// runs on the network dispatcher's strand. References returned by getMapDataRef/getDatas are live:
// hold a CAccountData::Lock while using them. Lock order: the store mutex before a record's
// IData::Lock (the store takes record locks while it holds its mutex, never the other way round).
//
// Look-ups never throw: absent means an empty pointer, "", 0 or the stated default.
#pragma once

#include <atomic>
#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/system/error_code.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/ICalculator.h"
#include "base/IDataCenter.h"
#include "base/data/CSingleMarginSum.h"
#include "records/Records.h"

namespace ttservice {

class CostData;
class CAccountData;
typedef boost::shared_ptr<CAccountData> CAccountDataPtr;

// Read-out of a store's counters (see CAccountData::getStatistics). Counters are relaxed atomics
// inside the store; a read-out is a consistent-enough picture for monitoring, not a transaction.
struct CAccountDataStats {
    // The kinds counted individually; every other kind is counted in the last slot ("other").
    static const int KNOWN_KINDS[];
    static constexpr int KNOWN_KIND_COUNT = 14;
    static constexpr int SLOT_COUNT = KNOWN_KIND_COUNT + 1;

    uint64_t m_nFiled[SLOT_COUNT] = {};  // records filed by updateData and setData, per kind slot
    uint64_t m_nNotifications = 0;       // subscriber callbacks called (snapshot deliveries included)
    uint64_t m_nForwarded = 0;           // records forwarded one by one to the data center
    uint64_t m_nCached = 0;              // records put into the push cache
    uint64_t m_nReplays = 0;             // batches replayed to the data center by flushDatas
    uint64_t m_nReplayedRecords = 0;     // slots of those batches, summed

    // The slot that counts `kind`: its index in KNOWN_KINDS, or KNOWN_KIND_COUNT for "other".
    static int slotOf(int kind);
    // Records of `kind` filed (for an unknown kind: every kind counted as "other").
    uint64_t filed(int kind) const { return m_nFiled[slotOf(kind)]; }
    uint64_t filedTotal() const;
};

class CAccountData : public boost::enable_shared_from_this<CAccountData> {
public:
    typedef std::map<std::string, IDataPtr> DataMap;  // key -> record
    typedef std::map<int, DataMap> KindDataMap;       // kind -> key -> record

    // Kinds the store knows by number.
    enum : int {
        KIND_ORDER_COMMAND = 535,
        KIND_TASK_DETAIL = 541,
        KIND_ORDER = 542,
        KIND_ACCOUNT_DETAIL = 543,
        KIND_DEAL = 544,
        KIND_POSITION = 545,
        KIND_POSITION_STATICS = 547,
        KIND_ACCOUNT_SUMMARY = 555,
        KIND_CALC_INFO = 567,
        KIND_EXCHANGE_STATUS = 570,
        KIND_POSITION_TRADE_TABLE = 661,
        KIND_FUND_POSITION = 678,
        KIND_GOLD_STORAGE = 7227,
        KIND_COMPACT = 13902
    };
    // The interval that turns the timed price refresh off.
    static constexpr int UPDATE_INTERVAL_DISABLED = 2147483647;

    // `updateInterval`: milliseconds between two price refreshes; UPDATE_INTERVAL_DISABLED turns
    // the timed refresh off; below 1 refreshes once after setInitialized(true) and stops.
    // Files an empty CCalcInfo (kind 567) and creates the refresh timer on the dispatcher strand.
    explicit CAccountData(int updateInterval);
    virtual ~CAccountData();
    CAccountData(const CAccountData&) = delete;
    CAccountData& operator=(const CAccountData&) = delete;

    // Holds the store mutex from construction to destruction and keeps the store alive. Hold one
    // while iterating a reference from getMapDataRef/getDatas or making several reads that must
    // agree. An empty pointer makes an inert lock.
    class Lock {
    public:
        explicit Lock(const CAccountDataPtr& data);
        ~Lock();
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        CAccountDataPtr m_data;
    };

    // ---- identity -------------------------------------------------------------------------------
    // The account key (CAccountInfo::getKey()) and display id (m_strAccountID) are taken when the
    // info is set; a later change of the info's fields does not re-key the store.
    void setAccountInfo(const CAccountInfoPtr& info);
    CAccountInfoPtr getAccountInfo() const;
    // The record of kind 543 filed under the account's key, or an empty pointer.
    CAccountDetailPtr getAccountDetail() const;
    CCalcInfoPtr getCalcInfo() const;
    CAccountCalcInfoPtr getAccountCalcInfo() const;
    void setAccountCalcInfo(const CAccountCalcInfoPtr& info);
    boost::shared_ptr<CostData> getCostData() const;
    // Builds a new cost ledger for `tradeDate` from the positions filed now (see CostData).
    void initCostData(const std::string& tradeDate);
    void setTradeDate(const std::string& tradeDate);
    std::string getTradeDate() const;

    // ---- records --------------------------------------------------------------------------------
    // Files a record with no further step (no index, no notification, no forwarding). A record of
    // kind 543 is first passed to onAccountDetailUpdate. An empty pointer is ignored.
    void setData(const IDataPtr& data);
    // The path of every server answer and push: file, run the kind's step, notify subscribers of
    // (kind, key) then of (kind, ""), then forward to the data center or cache (when registered
    // and initialised). `cacheOnly` puts the record into the push cache instead of forwarding it.
    void updateData(const IDataPtr& data, bool cacheOnly = false);
    IDataPtr getData(int kind, const std::string& key) const;
    // Erases the entry (kind, key) of that record; indexes and subscribers are not touched.
    void removeData(const IDataPtr& data);
    // A copy of the records of a kind in key order. An unknown kind yields an empty vector (and
    // leaves an empty map for it behind).
    std::vector<IDataPtr> getVector(int kind);
    DataMap getMapData(int kind);
    void getMapData(int kind, DataMap& out);
    // Live references: hold a CAccountData::Lock while using them.
    DataMap& getMapDataRef(int kind);
    KindDataMap& getDatas();
    // Replaces every record (no index is rebuilt until setInitialized(true)).
    void setDatas(const KindDataMap& datas);
    // Incremental fetch of one kind. `known` maps a record key to the toString() of that record as
    // the caller last saw it; returns, in key order, the records whose key is not in `known` or
    // whose toString() differs from it. Records the caller knows but the store no longer holds are
    // not reported (the caller compares keys for that).
    std::vector<IDataPtr> getVectorInc(int kind, const std::map<std::string, std::string>& known);

    // Registers `cb` for (kind, key); an empty key means every record of the kind. The
    // subscription lasts while the returned request is held. `cb` runs on the thread that called
    // updateData, with no store lock held.
    SubRequestPtr subscribe(int kind, const std::string& key, const DataCallback& cb);
    // The same, and when `withSnapshot` is true `cb` is first called, on the calling thread before
    // this returns, with every record currently filed under (kind, key) (the whole kind for an
    // empty key, in key order). Guarantee: every updateData of a matching record reaches `cb`
    // exactly once in total: either it is reflected in the snapshot (it was filed before the
    // subscription was registered) or it is delivered after the whole snapshot. Updates racing with
    // the snapshot delivery are held and delivered after it, in the order they were notified.
    // Afterwards it behaves as the plain subscription: updates of one thread arrive in the order
    // they were made; updates of several pushing threads may reach `cb` concurrently.
    SubRequestPtr subscribe(int kind, const std::string& key, const DataCallback& cb, bool withSnapshot);

    // ---- orders and deals -----------------------------------------------------------------------
    // From the order-system-id index, which holds every order whose id is not empty (the latest
    // filed of each id); an empty pointer when absent.
    COrderDetailPtr getOrderById(const std::string& orderSysId) const;
    // From the tag index under the tag's key. Every order that carries a tag is indexed under its
    // key, an empty key included, so an empty pointer (looked up as the empty key) or a tag with an
    // empty key finds the latest order filed with an empty-key tag.
    COrderDetailPtr getOrderByNqTag(const CNqOrderTagPtr& tag) const;
    // The order filed under `key` (kind 542), or an empty pointer.
    COrderDetailPtr getOrderDetail(const std::string& key) const;
    // Appends, in key order, every order of exchange `exchangeId` and instrument `instrumentId`.
    void getOrderDetail(std::vector<COrderDetailPtr>& orders, const std::string& exchangeId,
                        const std::string& instrumentId) const;
    // Appends the deals grouped under `orderSysId` whose exchange id equals `exchangeId`, in deal
    // key order. The order overloads pass the order's (m_strOrderSysID, m_strExchangeID). Every
    // deal is grouped under its order-system id, so the deals whose id is empty form the group "".
    // Empty pointers among the orders are skipped.
    void getDeals(const std::string& orderSysId, const std::string& exchangeId,
                  std::vector<CDealDetailPtr>& deals) const;
    void getDeals(const COrderDetailPtr& order, std::vector<CDealDetailPtr>& deals) const;
    void getDeals(const COrderInfoPtr& order, std::vector<CDealDetailPtr>& deals) const;
    void getDeals(const std::vector<COrderDetailPtr>& orders, std::vector<CDealDetailPtr>& deals) const;
    void getDeals(const std::vector<COrderInfoPtr>& orders, std::vector<CDealDetailPtr>& deals) const;
    // Erases the deal group of `orderSysId`, every order record with that id and the tag entry
    // under each such order's tag key; leaves the order-system-id entry, so getOrderById still
    // finds the removed order. An empty id is an id like any other: it removes the orders that
    // have none (and the deals grouped under "").
    void removeOrder(const std::string& orderSysId);
    // Erases the order-system-id entry and every deal record of `orderSysId`; leaves the deal group,
    // so getDeals still finds the removed deals. (The two removals cross over deliberately.)
    void reomveDeals(const std::string& orderSysId);
    // Drops task details (541) whose command's date and order commands (535) whose date compare
    // less than `tradeDate` (plain string comparison: a record of the trade date itself is kept).
    // Records of those kinds that are of another class, and task details without a command, are
    // kept.
    void clearExpiredDatas(const std::string& tradeDate);

    // ---- positions, fees, instruments -------------------------------------------------------------
    // The first position (545) / statistics record (547), in key order, of that exchange and
    // instrument, or an empty pointer.
    CPositionDetailPtr getPositionDetail(const std::string& exchangeId,
                                         const std::string& instrumentId) const;
    CPositionStaticsPtr getPositionStatic(const std::string& exchangeId,
                                          const std::string& instrumentId) const;
    // The account's fee record (CInstrumentFee) of an instrument: the one filed under
    // "<account key>_<exchange><instrument>", else the first filed fee record whose instrument
    // matches; an empty pointer when there is none.
    CInstrumentFeePtr getInstrumentFee(const std::string& exchangeId, const std::string& instrumentId) const;
    // The instrument of the account's fee record, else an instrument record (9020) filed in this
    // store, else the data center's instrument; an empty pointer when none has it.
    CInstrumentDetailPtr getInstrumentDetail(const std::string& exchangeId,
                                             const std::string& instrumentId) const;
    // Gold storage (7227) of a variety code: the filed record's total storage, 0 when absent.
    double getGoldStorage(const std::string& code) const;

    // Last settlement prices by instrument key (exchange followed by instrument).
    void setLastSettlement(const std::map<std::string, double>& prices);
    // The fee record's previous settlement price when valid, else the table's; TT_INVALID_DOUBLE
    // when neither is a valid price. Each answer is logged (debug, "TTStdFile").
    double getLastSettlement(const std::string& exchangeId, const std::string& instrumentId) const;

    // ---- initialisation, price refresh, push cache -------------------------------------------
    void setUpdateInterval(int interval);
    int getPriceUpdateInterval() const;
    bool initialized() const;
    // false: marks the store not initialised. true: rebuilds the order and deal indexes from the
    // records, recomputes the commission of open orders on accounts of type 1001/1002, subscribes
    // the quotes of positions, compacts and gold storage (each exchange and instrument once),
    // queues their valuation prices, revalues position statistics and arms the refresh timer.
    void setInitialized(bool initialized);
    // From now on pushes go to the push cache instead of being forwarded.
    void startCacheDatas();
    // Ends caching; when registered and initialised, replays the cache to the data center as one
    // batch: ascending kind, then key; the account detail (kind 543) in the last slot.
    void flushDatas();
    // Hands the pending price changes (and this store) to the calculator and empties them.
    void updatePrice();
    // A copy of the price changes collected since the last refresh (instrument key -> price).
    PriceChangeMap getPendingPriceChanges() const;
    // The latest status of the instrument's exchange (the product's entry when one is filed for the
    // instrument's product, else the exchange's); EXCHANGE_STATUS_UNKNOWN when none is filed.
    EExchangeStatus getExchangeStatus(const std::string& exchangeId, const std::string& instrumentId) const;

    // ---- tradable volume --------------------------------------------------------------------------
    // Calculator queries; 0 (or an untouched structure) when no calculator is installed.
    double getCanOrderVolume(const std::string& exchangeId, const std::string& instrumentId, int direction,
                             int offset, double price);
    CStructVolumePtr getCanOrderVolumeWithReason(const std::string& exchangeId,
                                                 const std::string& instrumentId, int direction, int offset,
                                                 double price);
    double getSingleOpVolume(const std::string& exchangeId, const std::string& instrumentId, int direction,
                             int offset, double price, double amount);
    // Untraded volume of the instrument's orders by side, under the store mutex: every order of
    // the instrument contributes its volume minus its traded volume, to buyVolume when its
    // direction is '0' and to sellVolume otherwise, except a completed order that traded nothing.
    // A completed order that traded part of its volume still counts its remainder, deliberately.
    void getUnDealVolume(const std::string& instrumentId, int& buyVolume, int& sellVolume);
    // The traded volume of an order as told by its deals (sum of their volumes).
    int getUnRevDealVolume(const COrderDetailPtr& order);
    CPositionTradeTablePtr getPositionTradeTable(const std::string& key) const;
    std::map<std::string, CPositionTradeTablePtr> getPositionTradeTable() const;
    void resetPositionTradeTable(const std::map<std::string, CPositionTradeTablePtr>& table);
    CStructeFundPositiondetailPtr getFundPosTable(const std::string& key) const;
    void resetFundPosTable(const std::map<std::string, CStructeFundPositiondetailPtr>& table);
    // Net frozen margin of a product's open orders by side (see CSingleMarginSum).
    double getProductLongMargin(const std::string& productId) const;
    double getProductShortMargin(const std::string& productId) const;

    // ---- lifecycle, monitoring --------------------------------------------------------------------
    // Ends every subscription, marks the store not initialised, empties the records and four side
    // tables (pending price changes, exchange status, last settlement prices, fund position
    // table), cancels the refresh timer and clears the margin sum. Kept, deliberately: the push
    // cache, the order indexes, the deal groups (new records replace their entries), the position
    // trade table (today's traded volumes: an entry kept from before errs on the strict side of a
    // volume check and the next load replaces it, while a fund holding kept from before could
    // allow a sale of shares no longer held) and the quote subscriptions.
    void clear();
    CAccountDataStats getStatistics() const;
    // Verifies the order and deal indexes against the records (rules in the source). Returns true
    // when they agree; otherwise describes each disagreement, one per line, in *report (when
    // given). Meaningful when no updateData is in flight.
    bool checkIndexes(std::string* report) const;

protected:
    std::string getAccountKey() const;
    std::string getAccountDisplayId() const;

    // Kind-specific steps of updateData; each takes the store mutex as it needs.
    void updateOrder(const std::string& key, const IDataPtr& data);
    void updateDeal(const std::string& key, const IDataPtr& data);
    void onAccountDetailUpdate(const CAccountDetailPtr& detail);
    void updatePositionDetail(const IDataPtr& data);
    void updatePositionStatics(const IDataPtr& data);
    void updateExchangeStatus(const IDataPtr& data);
    void updatePositionTradeTable(const IDataPtr& data);
    void updateFundPosTable(const IDataPtr& data);
    void updateStorage(const IDataPtr& data);
    void updateCompact(const IDataPtr& data);

    // Queues the valuation price of one record's instrument as a pending change.
    void updatePrice(const IDataPtr& data);
    // The refresh timer's handler (dispatcher strand).
    void onTimer(const boost::system::error_code& error);

private:
    struct RefreshTimer;
    struct SnapshotRelay;
    struct PushCache;
    struct Identity;
    // The data center when this very store is registered in it under its account key, else empty.
    IDataCenterPtr registeredDataCenter(const Identity& identity) const;
    // Kind-specific order and deal steps of updateData; `version` is the data version at filing:
    // while it is unchanged the record is known to be the one filed under its key.
    void updateOrder(const std::string& key, const IDataPtr& data, uint64_t version);
    void updateDeal(const std::string& key, const IDataPtr& data, uint64_t version);
    void indexOrderLocked(const IDataPtr& data, const COrderDetail& order);
    void indexDealLocked(const std::string& key, const IDataPtr& data, const CDealDetail& deal);
    void armTimer();
    // Subscribes the quote of (exchange, instrument) unless already subscribed; true when this call
    // subscribed it. Called with the store mutex released.
    bool subscribeQuote(const std::string& exchangeId, const std::string& instrumentId);
    static void onQuote(const boost::weak_ptr<CAccountData>& store, const CPriceDataPtr& quote);
    void notePrice(const std::string& exchangeId, const std::string& instrumentId,
                   const CPriceDataPtr& quote);
    // Whether a position's instrument is quoted (volume at least 1, or yesterday volume above 0 on
    // an account of type 2, 3, 7, 10 or 11). Store mutex held.
    bool positionWantsQuoteLocked(const CPositionDetail& position) const;
    // Exchange and instrument of a price-dependent record; false for any other record.
    static bool instrumentOf(const IData& data, std::string& exchangeId, std::string& instrumentId);
    // Wraps a keyed subscription's request so that its release lowers m_keyedSubs.
    SubRequestPtr trackKeyed(const SubRequestPtr& request);
    void countNotifications(size_t n) { m_nNotifications.fetch_add(n, std::memory_order_relaxed); }

    // ---- state below is protected by m_mutex ----
    mutable boost::recursive_mutex m_mutex;
    // The account info with its key and display id: immutable, replaced as a whole by
    // setAccountInfo, so the hot path copies one pointer under the lock and reads it outside.
    boost::shared_ptr<const Identity> m_identity;
    CCalcInfoPtr m_calcInfo;
    CAccountCalcInfoPtr m_accountCalcInfo;
    int m_nUpdateInterval;
    bool m_bInitialized;
    bool m_bCaching;
    DataSubTable m_subTable;  // thread-safe on its own
    KindDataMap m_datas;
    // The push cache (kind -> key -> record, ascending), created on the first cached push; empty
    // when null. Its nodes live in an arena of their own that a replay frees as a whole.
    std::unique_ptr<PushCache> m_cache;
    PriceChangeMap m_priceChanges;
    std::map<std::string, IDataPtr> m_ordersBySysId;
    std::map<std::string, IDataPtr> m_ordersByTag;
    std::map<std::string, DataMap> m_dealsByOrder;
    std::string m_strTradeDate;
    std::map<std::string, double> m_lastSettlement;
    std::map<std::string, CPositionTradeTablePtr> m_positionTradeTable;
    std::map<std::string, CStructeFundPositiondetailPtr> m_fundPosTable;
    std::map<std::string, IDataPtr> m_exchangeStatus;  // by the status record's key
    CSingleMarginSum m_marginSum;
    boost::shared_ptr<CostData> m_costData;
    std::unique_ptr<RefreshTimer> m_timer;
    // Quote subscription handles by exchange, then instrument; an empty handle marks a subscription
    // being made. Kept across clear(): a handle is released only with the store.
    std::map<std::string, std::map<std::string, boost::shared_ptr<void> > > m_quoteSubs;
    uint64_t m_nSeq;          // sequence of notifying updates, for snapshot subscriptions
    uint64_t m_nDataVersion;  // bumped by every change of the records by kind
    // Live subscriptions to one record key (at least); shared with their requests. Atomic.
    boost::shared_ptr<std::atomic<size_t> > m_keyedSubs;
    // Deliberate leftovers of the crossing removals, known to checkIndexes; emptied by a rebuild.
    std::set<std::string> m_removedOrderIds;  // removeOrder: deal groups gone, deal records kept
    std::set<std::string> m_removedDealIds;   // reomveDeals: id entries gone, order records kept
    std::set<std::string> m_removedTagKeys;   // removeOrder: tag entries gone, orders sharing the key kept
    // Set by operations that change records without the indexes (clear, setData, setDatas,
    // removeData); the indexes agree again after a rebuild.
    bool m_bIndexesDetached;

    // ---- counters (relaxed atomics; the filing counters are written under m_mutex only) ----
    std::atomic<uint64_t> m_nFiled[CAccountDataStats::SLOT_COUNT];
    std::atomic<uint64_t> m_nNotifications;
    std::atomic<uint64_t> m_nForwarded;
    std::atomic<uint64_t> m_nCached;
    std::atomic<uint64_t> m_nReplays;
    std::atomic<uint64_t> m_nReplayedRecords;
};

}  // namespace ttservice
