// ttservice::IDataCenter: the process-wide registry of account stores and reference data, as the
// base library sees it. The data layer's DataCenter implements it; everybody reaches it through
// TraderCenter::instance()->getDataCenter().
//
// The order of the virtual operations below is the binary contract with the platform and is kept
// exactly; operations added later are appended after the last one.
//
// Thread safety: every operation may be called from any thread. Look-ups never throw: absent
// means an empty pointer, "", 0 or the stated default. Listener callbacks run on the thread that
// delivered the record, with no lock of the data center or of any store held.
#pragma once

#include "base/KLineData.h"
#include "records/Records.h"
#include "utils/SubTable.h"
#include "utils/TTError.h"

#include <boost/function.hpp>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ttservice {

class CAccountData;
class CProductNSData;
class ETFDataCenter;
class PortfolioManager;

// The key of a subscription: a kind and a record key; an empty record key stands for every record
// of the kind.
struct IDataKey {
    int m_nKind = 0;
    std::string m_strKey;

    IDataKey() = default;
    IDataKey(int kind, std::string key) : m_nKind(kind), m_strKey(std::move(key)) {}
    bool operator<(const IDataKey& o) const {
        return m_nKind != o.m_nKind ? m_nKind < o.m_nKind : m_strKey < o.m_strKey;
    }
    bool operator==(const IDataKey& o) const { return m_nKind == o.m_nKind && m_strKey == o.m_strKey; }
};

typedef utils::SubTable<IDataKey, IDataPtr> DataSubTable;
typedef DataSubTable::SubRequest SubRequest;
typedef boost::shared_ptr<SubRequest> SubRequestPtr;
typedef boost::function<void(const IDataPtr&)> DataCallback;

typedef std::vector<std::pair<std::string, std::string> > StringPairList;
typedef std::map<std::string, CInstrumentDetailPtr> InstrumentMap;
typedef std::map<std::string, InstrumentMap> InstrumentIndex;
typedef std::map<std::string, CExchangeDetailPtr> ExchangeMap;
typedef std::map<std::string, CSettlementRateInfoConfig> SettlementRateMap;
typedef std::map<std::string, std::map<std::string, std::map<std::string, boost::shared_ptr<quoter::KLineData> > > >
    KLineDataMap;

// The account-data notification: one record of an initialised, registered account (with the
// back end's error, empty for pushes), and its batch form (a replay of cached pushes).
typedef boost::function<void(const CAccountInfoPtr&, const IDataPtr&, const TTError&)> AccountDataCallback;
typedef boost::function<void(const CAccountInfoPtr&, const std::vector<IDataPtr>&)> AccountDatasCallback;

class IDataCenter {
public:
    virtual ~IDataCenter() {}

    virtual void addAccount(const std::string& accountKey, const boost::shared_ptr<CAccountData>& data) = 0;
    virtual boost::shared_ptr<CAccountData> getAccount(const std::string& accountKey) = 0;
    virtual void removeAccount(const std::string& accountKey) = 0;
    virtual void updateData(const std::string& accountKey, const IDataPtr& data) = 0;
    virtual SubRequestPtr subscribe(const std::string& recordKey, int kind, const DataCallback& cb) = 0;
    virtual CPriceDataPtr getPrice(int type, const std::string& market, const std::string& code) = 0;
    virtual void setInstrumentDetail(const std::vector<std::string>& markets,
                                     const std::vector<CInstrumentDetailPtr>& details) = 0;
    virtual void setPriceDiff(const std::string& key, double priceBound, double diff) = 0;
    virtual CCustomStockInstrumentFeePtr getAccountStockInstrumentFee(const std::string& accountKey) = 0;
    virtual CCustomFutureInstrumentFeePtr getAccountFutureInstrumentFee(const std::string& accountKey) = 0;
    virtual CCustomHGTInstrumentFeePtr getAccountHGTInstrumentFee(const std::string& accountKey) = 0;
    virtual CCustomSgtInstrumentFeePtr getAccountSgtInstrumentFee(const std::string& accountKey) = 0;
    virtual void setAccountsStockInstrumentFee(const std::map<CAccountInfoPtr, CCustomStockInstrumentFeePtr>& fees) = 0;
    virtual void setAccountFutureInstruemntFee(const std::map<CAccountInfoPtr, CCustomFutureInstrumentFeePtr>& fees) = 0;
    virtual void setAccountsHGTInstrumentFee(const std::map<CAccountInfoPtr, CCustomHGTInstrumentFeePtr>& fees) = 0;
    virtual void setAccountsSgtInstrumentFee(const std::map<CAccountInfoPtr, CCustomSgtInstrumentFeePtr>& fees) = 0;
    virtual void testMergeStockInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) = 0;
    virtual void testMergeFutureInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) = 0;
    virtual void testMergeHGTInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) = 0;
    virtual void testMergeSgtInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) = 0;
    virtual void testMergeForeignInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) = 0;

private:
    virtual void MergeAccountForeignInstrumentFee(const std::string& accountKey, const CInstrumentFeePtr& fee) = 0;

public:
    virtual double getExchangeRate(const std::string& currency) = 0;
    virtual void setExchangeRate(const CExchangeRatePtr& rate) = 0;
    virtual CCustomSPInstrumentFeePtr getAccountForeignInstruments(const std::string& accountKey) = 0;
    virtual void setAccountForeignInstruemntFee(const std::map<CAccountInfoPtr, CCustomSPInstrumentFeePtr>& fees) = 0;
    virtual void updateForeignInstruemntFeeByBroker(const CInstrumentFeePtr& fee, double deposit, double dfee) = 0;
    virtual std::string getForeignTradeDay() = 0;
    virtual StringPairList getDceCrossProduct() = 0;
    virtual StringPairList getDceCrossPeriod() = 0;
    virtual std::string getIpoCode() = 0;
    virtual bool isCustomCommission(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) = 0;
    virtual bool isCustomMargin(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) = 0;
    virtual void setExchanges(const std::vector<CExchangeDetailPtr>& exchanges) = 0;
    virtual void setUpToDate(bool upToDate) = 0;
    virtual bool isUpToDate() = 0;
    virtual InstrumentMap getInstruments() = 0;
    virtual CInstrumentDetailPtr getInstrument(const std::string& market, const std::string& code) = 0;
    virtual CInstrumentDetailPtr getInstrumentByKey(const std::string& key) = 0;
    virtual CInstrumentDetailPtr getInstrumentByCode(const std::string& code) = 0;
    virtual CExchangeDetailPtr getExchange(const std::string& code) = 0;
    virtual std::string getProduct(const std::string& market, const std::string& code) = 0;
    virtual std::string getProductNameByID(const std::string& productId) = 0;
    virtual std::string getRealMarket(const std::string& market, const std::string& code) = 0;
    virtual void addProductNSData(const boost::shared_ptr<CProductNSData>& data) = 0;
    virtual boost::shared_ptr<CProductNSData> getProductNSData(int productId) = 0;
    virtual void setMarketTime(const std::map<std::string, int64_t>& times) = 0;
    virtual int64_t getMarketTime(const std::string& market) = 0;
    virtual void setMarketStatus(const std::string& market, int status) = 0;
    virtual int getMarketStatus(const std::string& market) const = 0;
    virtual std::string getStockTradeDay() = 0;
    virtual std::string getMaxTradeDay() = 0;
    virtual std::string getMarketTradeDay(const std::string& market) = 0;
    virtual ExchangeMap getMapExchange() = 0;
    virtual void getMarketAndTradeDay(std::vector<std::string>& markets, std::vector<std::string>& tradeDays) = 0;
    virtual boost::shared_ptr<ETFDataCenter> getETFDataCenter() = 0;
    virtual std::vector<boost::shared_ptr<CAccountData> > getAccounts() = 0;
    virtual InstrumentMap getExchangeInstruments(const std::string& market) = 0;
    virtual InstrumentMap getProductInstruments(const std::string& productId) = 0;
    virtual InstrumentIndex getAllProductInstruments() = 0;
    virtual boost::shared_ptr<CAccountData> getGlobalData() = 0;
    virtual boost::shared_ptr<PortfolioManager> getPortfolioManager() = 0;
    virtual double getPriceDiff(const std::string& key, double price) = 0;
    virtual void updateHGTAccountSettlementRate(const SettlementRateMap& rates) = 0;
    virtual SettlementRateMap getHGTAccountSettlementRate() = 0;
    virtual void updateSgtAccountSettlementRate(const SettlementRateMap& rates) = 0;
    virtual SettlementRateMap getSgtAccountSettlementRate() = 0;
    virtual void updateExchangeStatus(const CExchangeStatusPtr& status) = 0;
    virtual bool isAnyMarketTrading() const = 0;
    virtual void setKLineDatas(const KLineDataMap& datas) = 0;
    virtual KLineDataMap getKLineDatas() = 0;
    virtual void setKLineDatasStatus(ENqKlineDataStatus status) = 0;
    virtual ENqKlineDataStatus getKLineDatasStatus() = 0;

    // The account-data notification that stores forward to, and its batch form.
    virtual void onAccountData(const CAccountInfoPtr& account, const IDataPtr& data, const TTError& error) = 0;
    virtual void onAccountDatas(const CAccountInfoPtr& account, const std::vector<IDataPtr>& datas) = 0;
    // Registers a listener of both forms (either may be empty). It stays registered while the
    // returned handle is held; registering and releasing are safe from any thread, also from
    // inside a listener.
    virtual boost::shared_ptr<void> addAccountDataListener(const AccountDataCallback& onData,
                                                           const AccountDatasCallback& onDatas) = 0;
};
typedef boost::shared_ptr<IDataCenter> IDataCenterPtr;

}  // namespace ttservice
