// ttservice::test::FakeDataCenter: a minimal IDataCenter for tests and benchmarks of the account
// store, standing in for the data layer's DataCenter.
//
// Real behaviour: the account registry (addAccount, getAccount, removeAccount, getAccounts), the
// account-data notifications (onAccountData, onAccountDatas record what they receive, unless
// recording is switched off, and deliver it to the listeners of addAccountDataListener), and a
// small instrument table (setInstrumentDetail, getInstrument, getInstrumentByKey, getInstruments).
// Every other operation does nothing and returns the documented default: an empty pointer, "", 0,
// false, an empty container, 1.0 for an exchange rate and 0.01 for a tick size.
//
// Thread safety: every member may be called from any thread. Listeners are called on the
// delivering thread with no lock of the fake held; a listener may register or release listeners.
#pragma once

#include <boost/thread/mutex.hpp>
#include <atomic>
#include <map>
#include <string>
#include <vector>

#include "base/IDataCenter.h"

namespace ttservice {
namespace test {

class FakeDataCenter : public IDataCenter {
public:
    struct Received {
        CAccountInfoPtr account;
        IDataPtr data;
        TTError error;
    };
    struct Batch {
        CAccountInfoPtr account;
        std::vector<IDataPtr> datas;
    };

    FakeDataCenter();
    ~FakeDataCenter() override;

    // ---- what the fake received ----
    std::vector<Received> received() const;
    std::vector<Batch> batches() const;
    size_t receivedCount() const;
    void clearReceived();
    // Default: on. Off stores nothing (benchmarks); listeners are still called.
    void setRecording(bool recording);
    size_t onAccountDataCalls() const;
    // Unregisters every account.
    void clearAccounts();

    // ---- IDataCenter: the parts used for real ----
    void addAccount(const std::string& accountKey, const boost::shared_ptr<CAccountData>& data) override;
    boost::shared_ptr<CAccountData> getAccount(const std::string& accountKey) override;
    void removeAccount(const std::string& accountKey) override;
    std::vector<boost::shared_ptr<CAccountData> > getAccounts() override;
    void onAccountData(const CAccountInfoPtr& account, const IDataPtr& data, const TTError& error) override;
    void onAccountDatas(const CAccountInfoPtr& account, const std::vector<IDataPtr>& datas) override;
    boost::shared_ptr<void> addAccountDataListener(const AccountDataCallback& onData,
                                                   const AccountDatasCallback& onDatas) override;
    void setInstrumentDetail(const std::vector<std::string>& markets,
                             const std::vector<CInstrumentDetailPtr>& details) override;
    InstrumentMap getInstruments() override;
    CInstrumentDetailPtr getInstrument(const std::string& market, const std::string& code) override;
    CInstrumentDetailPtr getInstrumentByKey(const std::string& key) override;

    // ---- IDataCenter: defaults ----
    void updateData(const std::string& accountKey, const IDataPtr& data) override;
    SubRequestPtr subscribe(const std::string& recordKey, int kind, const DataCallback& cb) override;
    CPriceDataPtr getPrice(int type, const std::string& market, const std::string& code) override;
    void setPriceDiff(const std::string& key, double priceBound, double diff) override;
    CCustomStockInstrumentFeePtr getAccountStockInstrumentFee(const std::string& accountKey) override;
    CCustomFutureInstrumentFeePtr getAccountFutureInstrumentFee(const std::string& accountKey) override;
    CCustomHGTInstrumentFeePtr getAccountHGTInstrumentFee(const std::string& accountKey) override;
    CCustomSgtInstrumentFeePtr getAccountSgtInstrumentFee(const std::string& accountKey) override;
    void setAccountsStockInstrumentFee(
        const std::map<CAccountInfoPtr, CCustomStockInstrumentFeePtr>& fees) override;
    void setAccountFutureInstruemntFee(
        const std::map<CAccountInfoPtr, CCustomFutureInstrumentFeePtr>& fees) override;
    void setAccountsHGTInstrumentFee(
        const std::map<CAccountInfoPtr, CCustomHGTInstrumentFeePtr>& fees) override;
    void setAccountsSgtInstrumentFee(
        const std::map<CAccountInfoPtr, CCustomSgtInstrumentFeePtr>& fees) override;
    void testMergeStockInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;
    void testMergeFutureInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;
    void testMergeHGTInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;
    void testMergeSgtInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;
    void testMergeForeignInstrumentFee(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;
    double getExchangeRate(const std::string& currency) override;
    void setExchangeRate(const CExchangeRatePtr& rate) override;
    CCustomSPInstrumentFeePtr getAccountForeignInstruments(const std::string& accountKey) override;
    void setAccountForeignInstruemntFee(
        const std::map<CAccountInfoPtr, CCustomSPInstrumentFeePtr>& fees) override;
    void updateForeignInstruemntFeeByBroker(const CInstrumentFeePtr& fee, double deposit,
                                            double dfee) override;
    std::string getForeignTradeDay() override;
    StringPairList getDceCrossProduct() override;
    StringPairList getDceCrossPeriod() override;
    std::string getIpoCode() override;
    bool isCustomCommission(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;
    bool isCustomMargin(const CAccountInfoPtr& account, const CInstrumentFeePtr& fee) override;
    void setExchanges(const std::vector<CExchangeDetailPtr>& exchanges) override;
    void setUpToDate(bool upToDate) override;
    bool isUpToDate() override;
    CInstrumentDetailPtr getInstrumentByCode(const std::string& code) override;
    CExchangeDetailPtr getExchange(const std::string& code) override;
    std::string getProduct(const std::string& market, const std::string& code) override;
    std::string getProductNameByID(const std::string& productId) override;
    std::string getRealMarket(const std::string& market, const std::string& code) override;
    void addProductNSData(const boost::shared_ptr<CProductNSData>& data) override;
    boost::shared_ptr<CProductNSData> getProductNSData(int productId) override;
    void setMarketTime(const std::map<std::string, int64_t>& times) override;
    int64_t getMarketTime(const std::string& market) override;
    void setMarketStatus(const std::string& market, int status) override;
    int getMarketStatus(const std::string& market) const override;
    std::string getStockTradeDay() override;
    std::string getMaxTradeDay() override;
    std::string getMarketTradeDay(const std::string& market) override;
    ExchangeMap getMapExchange() override;
    void getMarketAndTradeDay(std::vector<std::string>& markets,
                              std::vector<std::string>& tradeDays) override;
    boost::shared_ptr<ETFDataCenter> getETFDataCenter() override;
    InstrumentMap getExchangeInstruments(const std::string& market) override;
    InstrumentMap getProductInstruments(const std::string& productId) override;
    InstrumentIndex getAllProductInstruments() override;
    boost::shared_ptr<CAccountData> getGlobalData() override;
    boost::shared_ptr<PortfolioManager> getPortfolioManager() override;
    double getPriceDiff(const std::string& key, double price) override;
    void updateHGTAccountSettlementRate(const SettlementRateMap& rates) override;
    SettlementRateMap getHGTAccountSettlementRate() override;
    void updateSgtAccountSettlementRate(const SettlementRateMap& rates) override;
    SettlementRateMap getSgtAccountSettlementRate() override;
    void updateExchangeStatus(const CExchangeStatusPtr& status) override;
    bool isAnyMarketTrading() const override;
    void setKLineDatas(const KLineDataMap& datas) override;
    KLineDataMap getKLineDatas() override;
    void setKLineDatasStatus(ENqKlineDataStatus status) override;
    ENqKlineDataStatus getKLineDatasStatus() override;

private:
    void MergeAccountForeignInstrumentFee(const std::string& accountKey,
                                          const CInstrumentFeePtr& fee) override;

    struct Listener;
    struct Listeners;
    typedef std::vector<boost::shared_ptr<Listener> > ListenerList;

    mutable boost::mutex m_mutex;
    std::map<std::string, boost::shared_ptr<CAccountData> > m_accounts;
    std::map<std::string, CInstrumentDetailPtr> m_instruments;  // by instrument key
    std::vector<Received> m_received;
    std::vector<Batch> m_batches;
    // Atomics, so that a benchmark's delivery path takes no lock of the fake while not recording.
    std::atomic<bool> m_bRecording;
    std::atomic<size_t> m_nOnAccountDataCalls;
    boost::shared_ptr<Listeners> m_listeners;
};

}  // namespace test
}  // namespace ttservice
