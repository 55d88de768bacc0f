// ttservice::DataCenter: the process-wide registry of reference data and account stores, the data
// layer's implementation of IDataCenter. The terminal creates one and installs it with
// TraderCenter::instance()->setDataCenter(); everybody reaches it through
// TraderCenter::instance()->getDataCenter().
//
// It holds: the account stores by account key, plus one global store under "" (made with an update
// interval of 3000 ms in the constructor); the instrument table with its four indexes (by
// instrument key, by code, by exchange, by product), the tick tables, the DCE spread leg lists and
// the IPO code; exchanges with their trade days; exchange status, market times and market status;
// exchange and settlement rates; product net-value stores; K-line data; the custom fee tables of
// every account and the merges that overlay them onto standard fee records; the account-data
// notification that registered, initialised stores forward their records to.
//
// Thread safety: a DataCenter is safe for concurrent access from any number of threads without
// external synchronisation. Look-ups never throw: absent means an empty pointer, "", 0, 1.0 (an
// exchange rate) or 0.01 (a tick size). Locks, each guarding the members listed with it below:
//   - recursive locks (account, exchange, status, market time, market status, product, K-line):
//     boost::recursive_mutex, which is an owner thread, a recursion count and a kernel object that
//     other threads wait on; the owning thread may re-enter.
//   - the instrument lock: a boost::shared_mutex, shared for look-ups, exclusive for
//     setInstrumentDetail, setPriceDiff and setIpoCode; no timeout.
//   - one boost::shared_mutex per custom fee map (stock, futures, HGT, Sgt, foreign): shared for
//     look-ups and merges, exclusive for the setters.
// No operation holds two of these at once, and none is held while a store, a listener, a
// subscriber, the category service or the primitive service is called, or while a fee record is
// written: a merge copies the account's table pointer under the map's lock and reads the table
// from that snapshot (tables are filed whole by the setters and never changed in place here).
//
// Listener and subscriber callbacks run on the thread that delivered the record (the one that
// called onAccountData/onAccountDatas, normally inside CAccountData::updateData or flushDatas),
// with no lock of the data center or of any store held; a callback may register or release
// listeners and subscriptions and call back into the data center.
//
// Ownership: records handed in are shared, not copied, with three exceptions: setInstrumentDetail
// takes the details over and writes each one's product name into it; setExchangeRate keeps a copy
// of the rate record; merges replace a fee's sub-records (and, for a foreign fee, its instrument)
// by fresh copies instead of writing into records that others may hold.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <boost/thread/shared_mutex.hpp>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/IDataCenter.h"
#include "base/data/ETFDataCenter.h"
#include "base/data/PortfolioManager.h"
#include "base/data/ProductNSData.h"

namespace ttservice {

class CAccountData;

class DataCenter : public IDataCenter {
public:
    // Every map empty, not up to date, K-line status 0, IPO code "". Makes the global store (update
    // interval 3000) and files it under "", the ETF data center and the portfolio manager.
    DataCenter();
    ~DataCenter() override;
    DataCenter(const DataCenter&) = delete;
    DataCenter& operator=(const DataCenter&) = delete;

    // ---- accounts (account lock) --------------------------------------------------------------
    // Files `data` under `accountKey` (logged, info). A different store filed there before is
    // cleared (CAccountData::clear) after the lock is released. An empty `data` is ignored: use
    // removeAccount to drop an entry.
    void addAccount(const std::string& accountKey, const boost::shared_ptr<CAccountData>& data) override;
    boost::shared_ptr<CAccountData> getAccount(const std::string& accountKey) override;
    void removeAccount(const std::string& accountKey) override;
    // Passes `data` to the store of `accountKey` (CAccountData::updateData(data, false)). With no
    // such store, the key of a default-constructed CAccountInfo stands for the global store "";
    // any other unknown key drops the record silently.
    void updateData(const std::string& accountKey, const IDataPtr& data) override;
    // Subscribes to the records delivered by onAccountData/onAccountDatas: (kind, recordKey), an
    // empty recordKey meaning every record of the kind. Lasts while the request is held.
    SubRequestPtr subscribe(const std::string& recordKey, int kind, const DataCallback& cb) override;
    // The primitive service's latest quote, unchanged; empty without a primitive service.
    CPriceDataPtr getPrice(int type, const std::string& market, const std::string& code) override;

    // ---- instruments (instrument lock) ----------------------------------------------------------
    // Replaces the instruments of `markets` by `details` (exclusive lock):
    //  1. every instrument of a listed market leaves all four indexes (instruments of other
    //     markets stay); when "DCE" is listed, both DCE spread lists are emptied too;
    //  2. each detail, in order, gets its product name (see productNameOf), enters the DCE spread
    //     lists when it is a DCE combination, and is filed in the four indexes; a later detail with
    //     the same instrument key replaces an earlier one in every index;
    //  3. the IPO code is rebuilt.
    // An empty detail, or one with an empty instrument code, is skipped with a debug line.
    // The instruments-by-code index holds, per code, the instrument filed last under that code.
    void setInstrumentDetail(const std::vector<std::string>& markets,
                             const std::vector<CInstrumentDetailPtr>& details) override;
    // Enters (or overwrites) `priceBound` -> `diff` in the tick table `key` (exclusive lock). A
    // bound that is not finite, or a tick that is not finite and positive, is refused (logged).
    void setPriceDiff(const std::string& key, double priceBound, double diff) override;

    // ---- custom fee tables (one reader/writer lock per map) ------------------------------------
    CCustomStockInstrumentFeePtr getAccountStockInstrumentFee(const std::string& accountKey) override;
    CCustomFutureInstrumentFeePtr getAccountFutureInstrumentFee(const std::string& accountKey) override;
    CCustomHGTInstrumentFeePtr getAccountHGTInstrumentFee(const std::string& accountKey) override;
    CCustomSgtInstrumentFeePtr getAccountSgtInstrumentFee(const std::string& accountKey) override;
    // Setters: each table is filed under its account's key (CAccountInfo::getKey()), replacing the
    // account's previous table; other accounts' tables stay. An entry with an empty account or an
    // empty table is logged and skipped.
    void setAccountsStockInstrumentFee(
        const std::map<CAccountInfoPtr, CCustomStockInstrumentFeePtr>& fees) override;
    void setAccountFutureInstruemntFee(
        const std::map<CAccountInfoPtr, CCustomFutureInstrumentFeePtr>& fees) override;
    void setAccountsHGTInstrumentFee(
        const std::map<CAccountInfoPtr, CCustomHGTInstrumentFeePtr>& fees) override;
    void setAccountsSgtInstrumentFee(
        const std::map<CAccountInfoPtr, CCustomSgtInstrumentFeePtr>& fees) override;
    // Merges: overlay the account's custom rates onto `fee`. Which tables apply, in order (a later
    // table's matching entry overrides an earlier one's):
    //   stock    super account of type 6 (stock option): loadCustomFeeRate_StockOption;
    //            other super accounts: own table; any other account: parent's, then own table;
    //   futures, HGT, Sgt: super account: own table; any other account: parent's, then own;
    //   foreign  own table.
    // The parent's key is genParentAccountKey(account); when it equals the account's own key the
    // table is applied once. Empty account, fee or instrument: the fee is left unchanged.
    void testMergeStockInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;
    void testMergeFutureInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;
    void testMergeHGTInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;
    void testMergeSgtInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;
    void testMergeForeignInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;

private:
    void MergeAccountForeignInstrumentFee(const std::string& accountKey,
                                          const CInstrumentFeePtr& fee) override;

public:
    // ---- exchange rate (no lock: the record is swapped atomically) -----------------------------
    // 1.0 for "" and "USD", without a rate record, for a currency the record does not hold, and
    // for a held rate that is not finite and positive; else the record's rate.
    double getExchangeRate(const std::string& currency) override;
    // Keeps a copy of `rate` (so later changes to the caller's record do not race with readers).
    void setExchangeRate(const CExchangeRatePtr& rate) override;

    CCustomSPInstrumentFeePtr getAccountForeignInstruments(const std::string& accountKey) override;
    void setAccountForeignInstruemntFee(
        const std::map<CAccountInfoPtr, CCustomSPInstrumentFeePtr>& fees) override;
    // Applies the per-lot figures a foreign broker reports for one instrument to `fee`'s foreign
    // fee sub-record (a fresh copy replaces it): a `deposit` that is finite and positive becomes
    // both the long and the short margin per lot; a `dfee` that is finite and not negative becomes
    // the per-lot open, close and close-today commission, and the three commission ratios become
    // 0 so the per-lot figure is the whole commission. A figure outside those bounds means the
    // broker has none, and that part of the fee stays as it was. Logged (info) with the figures
    // in force before.
    void updateForeignInstruemntFeeByBroker(const CInstrumentFeePtr& fee, double deposit,
                                            double dfee) override;
    // The greatest trade day of "SGX-A", "SGX" and "GLOBEX"; the clock's date when that is not a
    // number (see getStockTradeDay).
    std::string getForeignTradeDay() override;
    // Copies of the DCE spread leg lists: (first leg, second leg) of every DCE combination whose
    // code begins with "SPC" (cross product) or else with "SP" (cross period); a "SPC" spread is a
    // cross-product spread only and never enters the cross-period list.
    StringPairList getDceCrossProduct() override;
    StringPairList getDceCrossPeriod() override;
    // The instrument keys of every instrument flagged m_bIsIPO, in key order, joined by ","
    // ("" when there is none). Kept under the instrument lock so it always agrees with the table.
    std::string getIpoCode() override;
    // True when the account's own futures table (never the parent's) has a commission (margin)
    // entry matching the fee's instrument; logged (debug) on a match.
    bool isCustomCommission(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;
    bool isCustomMargin(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;

    // ---- exchanges (exchange lock) -------------------------------------------------------------
    // Files each exchange by its code, replacing an exchange of the same code; exchanges not in
    // `exchanges` stay (each back end delivers the exchanges of its own platform). Empty records
    // and records with an empty code are skipped.
    void setExchanges(const std::vector<CExchangeDetailPtr>& exchanges) override;
    // The reference-data loader raises the flag once instruments and exchanges are loaded; the
    // data center never changes it by itself.
    void setUpToDate(bool upToDate) override;
    bool isUpToDate() override;

    InstrumentMap getInstruments() override;
    // The instrument of market + code. A miss under one of the China futures exchanges is retried
    // under each of the others, in the order "CFFEX", "CZCE", "DCE", "INE", "SHFE", with the lock
    // released between attempts; the first hit is returned.
    CInstrumentDetailPtr getInstrument(const std::string& market, const std::string& code) override;
    CInstrumentDetailPtr getInstrumentByKey(const std::string& key) override;
    CInstrumentDetailPtr getInstrumentByCode(const std::string& code) override;
    CExchangeDetailPtr getExchange(const std::string& code) override;
    std::string getProduct(const std::string& market, const std::string& code) override;
    std::string getProductNameByID(const std::string& productId) override;
    // The exchange of getInstrument(market, code): a futures code asked under the wrong futures
    // exchange yields its true exchange; "" when unknown.
    std::string getRealMarket(const std::string& market, const std::string& code) override;
    // Files a store under its product id, replacing an earlier one; an empty pointer is ignored.
    void addProductNSData(const boost::shared_ptr<CProductNSData>& data) override;
    boost::shared_ptr<CProductNSData> getProductNSData(int productId) override;
    // Sets the time of each market given (seconds since the epoch); other markets keep theirs.
    void setMarketTime(const std::map<std::string, int64_t>& times) override;
    int64_t getMarketTime(const std::string& market) override;
    void setMarketStatus(const std::string& market, int status) override;
    int getMarketStatus(const std::string& market) const override;
    // The greater of the trade days of "SH" and "SZ", asked through the registered data center
    // (this one when none is registered). When atoi of it is 0 (unknown or not a number), the date
    // of the primitive service's clock (YYYYMMDD; the system clock without a primitive service).
    std::string getStockTradeDay() override;
    std::string getMaxTradeDay() override;
    std::string getMarketTradeDay(const std::string& market) override;
    ExchangeMap getMapExchange() override;
    void getMarketAndTradeDay(std::vector<std::string>& markets,
                              std::vector<std::string>& tradeDays) override;
    boost::shared_ptr<ETFDataCenter> getETFDataCenter() override;
    std::vector<boost::shared_ptr<CAccountData> > getAccounts() override;
    InstrumentMap getExchangeInstruments(const std::string& market) override;
    InstrumentMap getProductInstruments(const std::string& productId) override;
    InstrumentIndex getAllProductInstruments() override;
    boost::shared_ptr<CAccountData> getGlobalData() override;
    boost::shared_ptr<PortfolioManager> getPortfolioManager() override;
    // The tick of the smallest bound of table `key` that is not below `price` by more than 1e-5;
    // 0.01 for an unknown or empty table, a price above every bound, or a price that is NaN.
    double getPriceDiff(const std::string& key, double price) override;
    // Settlement rates: replaced whole, read as copies.
    void updateHGTAccountSettlementRate(const SettlementRateMap& rates) override;
    SettlementRateMap getHGTAccountSettlementRate() override;
    void updateSgtAccountSettlementRate(const SettlementRateMap& rates) override;
    SettlementRateMap getSgtAccountSettlementRate() override;
    // Files the status under its record key, replacing the earlier one; an empty one is ignored.
    void updateExchangeStatus(const CExchangeStatusPtr& status) override;
    // True when some exchange status (walked in key order) is of an authenticated market, in
    // continuous trading (50), and neither in auction nor paused; the first such is logged (debug).
    bool isAnyMarketTrading() const override;
    void setKLineDatas(const KLineDataMap& datas) override;
    KLineDataMap getKLineDatas() override;
    void setKLineDatasStatus(ENqKlineDataStatus status) override;
    ENqKlineDataStatus getKLineDatasStatus() override;

    // ---- account-data notification -------------------------------------------------------------
    // Delivers one record to every listener (the batch form of a listener without a per-record
    // callback gets a batch of one) and then to the subscribers of (kind, key) and, when the key
    // is not empty, of (kind, ""). An empty record reaches the listeners only.
    void onAccountData(const CAccountInfoPtr& account, const IDataPtr& data, const TTError& error) override;
    // Delivers a batch to every listener (a listener without a batch callback gets each record
    // with an empty error) and each record, in order, to its subscribers as above.
    void onAccountDatas(const CAccountInfoPtr& account, const std::vector<IDataPtr>& datas) override;
    // Registers a listener; it stays while the returned handle is held. With both callbacks empty
    // nothing is registered and the handle is empty.
    boost::shared_ptr<void> addAccountDataListener(const AccountDataCallback& onData,
                                                   const AccountDatasCallback& onDatas) override;

    // ---- beyond the interface ------------------------------------------------------------------
    // Rebuilds the IPO code from the instrument table (exclusive lock). setInstrumentDetail does
    // this itself; call it after changing m_bIsIPO of filed instruments.
    void setIpoCode();
    // Verifies that the four instrument indexes agree: every instrument by key is filed by
    // exchange and by product under the same key, those two indexes hold nothing else, every entry
    // by code is an instrument filed by key, and the IPO code matches. Returns true when they
    // agree; else describes each disagreement, one per line, in *report (when given).
    bool checkInstrumentIndexes(std::string* report) const;
    // The product name that setInstrumentDetail gives an instrument: its name without the
    // trailing run of ASCII digits ("螺纹钢2410" -> "螺纹钢"); a name without trailing digits is
    // its own product name; when nothing is left (an empty or all-digit name), the product name
    // the record already carries, else its product id.
    static std::string productNameOf(const CInstrumentDetail& detail);

private:
    typedef std::map<std::string, CInstrumentDetailPtr, std::less<> > KeyInstrumentMap;
    typedef std::map<std::string, std::map<double, double> > PriceDiffMap;

    // "CFFEX", "CZCE", "DCE", "INE", "SHFE" (sorted, built once).
    static const std::set<std::string>& getChinaFutureMarkets();

    // Fee merges of one account's table (rules in the source).
    void loadCustomFeeRate_StockOption(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee);
    void testMergeAccountStockInstrumentFee(const std::string& accountKey, const CInstrumentFeePtr& fee);
    void testMergeAccountFutureInstrumentFee(const std::string& accountKey, const CInstrumentFeePtr& fee);
    void testMergeAccountHGTInstrumentFee(const std::string& accountKey, const CInstrumentFeePtr& fee);
    void testMergeAccountSgtInstrumentFee(const std::string& accountKey, const CInstrumentFeePtr& fee);

    // Instrument table helpers; callers hold the instrument lock (shared for finds, exclusive for
    // the others).
    CInstrumentDetailPtr findInstrumentLocked(const std::string& market, const std::string& code) const;
    void eraseMarketLocked(const std::string& market);
    void unindexLocked(const std::string& key, const CInstrumentDetailPtr& detail);
    void rebuildIpoCodeLocked();
    CInstrumentDetailPtr findInstrumentShared(const std::string& market, const std::string& code) const;

    // What a listener is handed: one record (datas empty) or a batch; pointers to the caller's
    // arguments, valid for the duration of the call.
    struct AccountDataEvent {
        const CAccountInfoPtr* account;
        const IDataPtr* data;
        const TTError* error;
        const std::vector<IDataPtr>* datas;
    };
    void notifySubscribers(const IDataPtr& data) const;

    // ---- accounts: guarded by m_accountMutex ----
    mutable boost::recursive_mutex m_accountMutex;
    std::map<std::string, boost::shared_ptr<CAccountData> > m_mapAccounts;

    // ---- set once in the constructor, unguarded ----
    const boost::shared_ptr<CAccountData> m_globalData;
    const boost::shared_ptr<PortfolioManager> m_portfolioManager;
    const boost::shared_ptr<ETFDataCenter> m_etfDataCenter;

    // ---- exchanges: guarded by m_exchangeMutex ----
    mutable boost::recursive_mutex m_exchangeMutex;
    ExchangeMap m_mapExchanges;

    // ---- exchange status: guarded by m_statusMutex ----
    mutable boost::recursive_mutex m_statusMutex;
    std::map<std::string, CExchangeStatusPtr> m_mapExchangeStatus;

    // ---- instruments: guarded by m_instrumentMutex ----
    mutable boost::shared_mutex m_instrumentMutex;
    KeyInstrumentMap m_mapInstrumentsByKey;
    InstrumentMap m_mapInstrumentsByCode;
    InstrumentIndex m_mapExchangeInstruments;
    InstrumentIndex m_mapProductInstruments;
    PriceDiffMap m_mapPriceDiff;
    StringPairList m_vDceCrossProduct;
    StringPairList m_vDceCrossPeriod;
    std::string m_strIpoCode;

    // ---- market times / market status: each guarded by its own lock ----
    mutable boost::recursive_mutex m_marketTimeMutex;
    std::map<std::string, int64_t> m_mapMarketTime;
    mutable boost::recursive_mutex m_marketStatusMutex;
    std::map<std::string, int> m_mapMarketStatus;

    // ---- product net-value stores: guarded by m_productMutex ----
    mutable boost::recursive_mutex m_productMutex;
    std::map<int, boost::shared_ptr<CProductNSData> > m_mapProductNSData;

    // ---- custom fee tables: each map guarded by its own reader/writer lock ----
    mutable boost::shared_mutex m_stockFeeMutex;
    std::map<std::string, CCustomStockInstrumentFeePtr> m_mapStockFees;
    mutable boost::shared_mutex m_futureFeeMutex;
    std::map<std::string, CCustomFutureInstrumentFeePtr> m_mapFutureFees;
    mutable boost::shared_mutex m_hgtFeeMutex;
    std::map<std::string, CCustomHGTInstrumentFeePtr> m_mapHGTFees;
    mutable boost::shared_mutex m_sgtFeeMutex;
    std::map<std::string, CCustomSgtInstrumentFeePtr> m_mapSgtFees;
    mutable boost::shared_mutex m_foreignFeeMutex;
    std::map<std::string, CCustomSPInstrumentFeePtr> m_mapForeignFees;

    // ---- replaced whole through boost::atomic_load/atomic_store, no lock ----
    boost::shared_ptr<const SettlementRateMap> m_hgtSettlementRates;
    boost::shared_ptr<const SettlementRateMap> m_sgtSettlementRates;
    CExchangeRatePtr m_exchangeRate;
    std::atomic<bool> m_bUpToDate;

    // ---- K-line data and status: guarded by m_klineMutex ----
    mutable boost::recursive_mutex m_klineMutex;
    KLineDataMap m_mapKLineDatas;
    ENqKlineDataStatus m_nKLineStatus;

    // ---- notification tables: thread-safe on their own ----
    DataSubTable m_subTable;
    utils::SubTable<int, AccountDataEvent> m_listeners;
};
typedef boost::shared_ptr<DataCenter> DataCenterPtr;

}  // namespace ttservice
