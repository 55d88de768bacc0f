#include "testing/FakeDataCenter.h"

#include <algorithm>
#include <atomic>
#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

namespace ttservice {
namespace test {

struct FakeDataCenter::Listener {
    AccountDataCallback onData;
    AccountDatasCallback onDatas;
    std::atomic<bool> active{true};
};

// The listener list, copied on write so that delivery walks an immutable snapshot.
struct FakeDataCenter::Listeners {
    boost::mutex mutex;
    boost::shared_ptr<const ListenerList> list = boost::make_shared<const ListenerList>();

    boost::shared_ptr<const ListenerList> snapshot() {
        boost::mutex::scoped_lock lock(mutex);
        return list;
    }
};

namespace {

// Ends a listener's registration when the last copy of its handle goes.
struct ListenerHandle {
    boost::function<void()> release;
    ~ListenerHandle() {
        if (release) release();
    }
};

}  // namespace

FakeDataCenter::FakeDataCenter()
    : m_bRecording(true), m_nOnAccountDataCalls(0), m_listeners(boost::make_shared<Listeners>()) {}

FakeDataCenter::~FakeDataCenter() {}

std::vector<FakeDataCenter::Received> FakeDataCenter::received() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_received;
}

std::vector<FakeDataCenter::Batch> FakeDataCenter::batches() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_batches;
}

size_t FakeDataCenter::receivedCount() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_received.size();
}

void FakeDataCenter::clearReceived() {
    boost::mutex::scoped_lock lock(m_mutex);
    m_received.clear();
    m_batches.clear();
}

void FakeDataCenter::setRecording(bool recording) {
    m_bRecording.store(recording);
}

size_t FakeDataCenter::onAccountDataCalls() const {
    return m_nOnAccountDataCalls.load();
}

void FakeDataCenter::clearAccounts() {
    std::map<std::string, boost::shared_ptr<CAccountData> > removed;  // released outside the lock
    boost::mutex::scoped_lock lock(m_mutex);
    removed.swap(m_accounts);
}

void FakeDataCenter::addAccount(const std::string& accountKey, const boost::shared_ptr<CAccountData>& data) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_accounts[accountKey] = data;
}

boost::shared_ptr<CAccountData> FakeDataCenter::getAccount(const std::string& accountKey) {
    boost::mutex::scoped_lock lock(m_mutex);
    std::map<std::string, boost::shared_ptr<CAccountData> >::const_iterator it = m_accounts.find(accountKey);
    return it == m_accounts.end() ? boost::shared_ptr<CAccountData>() : it->second;
}

void FakeDataCenter::removeAccount(const std::string& accountKey) {
    boost::shared_ptr<CAccountData> removed;  // released outside the lock
    boost::mutex::scoped_lock lock(m_mutex);
    std::map<std::string, boost::shared_ptr<CAccountData> >::iterator it = m_accounts.find(accountKey);
    if (it == m_accounts.end()) return;
    removed.swap(it->second);
    m_accounts.erase(it);
}

std::vector<boost::shared_ptr<CAccountData> > FakeDataCenter::getAccounts() {
    std::vector<boost::shared_ptr<CAccountData> > out;
    boost::mutex::scoped_lock lock(m_mutex);
    for (std::map<std::string, boost::shared_ptr<CAccountData> >::const_iterator it = m_accounts.begin();
         it != m_accounts.end(); ++it)
        out.push_back(it->second);
    return out;
}

void FakeDataCenter::onAccountData(const CAccountInfoPtr& account, const IDataPtr& data,
                                   const TTError& error) {
    m_nOnAccountDataCalls.fetch_add(1);
    if (m_bRecording.load()) {
        boost::mutex::scoped_lock lock(m_mutex);
        m_received.push_back(Received{account, data, error});
    }
    boost::shared_ptr<const ListenerList> list = m_listeners->snapshot();
    for (size_t i = 0; i < list->size(); ++i) {
        const Listener& l = *(*list)[i];
        if (l.active.load(std::memory_order_acquire) && l.onData) l.onData(account, data, error);
    }
}

void FakeDataCenter::onAccountDatas(const CAccountInfoPtr& account, const std::vector<IDataPtr>& datas) {
    if (m_bRecording.load()) {
        boost::mutex::scoped_lock lock(m_mutex);
        m_batches.push_back(Batch{account, datas});
    }
    boost::shared_ptr<const ListenerList> list = m_listeners->snapshot();
    for (size_t i = 0; i < list->size(); ++i) {
        const Listener& l = *(*list)[i];
        if (l.active.load(std::memory_order_acquire) && l.onDatas) l.onDatas(account, datas);
    }
}

boost::shared_ptr<void> FakeDataCenter::addAccountDataListener(const AccountDataCallback& onData,
                                                               const AccountDatasCallback& onDatas) {
    boost::shared_ptr<Listener> listener = boost::make_shared<Listener>();
    listener->onData = onData;
    listener->onDatas = onDatas;
    {
        boost::mutex::scoped_lock lock(m_listeners->mutex);
        boost::shared_ptr<ListenerList> next = boost::make_shared<ListenerList>(*m_listeners->list);
        next->push_back(listener);
        m_listeners->list = next;
    }
    boost::weak_ptr<Listeners> weakListeners = m_listeners;
    boost::shared_ptr<ListenerHandle> handle = boost::make_shared<ListenerHandle>();
    handle->release = [weakListeners, listener]() {
        listener->active.store(false, std::memory_order_release);
        boost::shared_ptr<Listeners> listeners = weakListeners.lock();
        if (!listeners) return;
        boost::mutex::scoped_lock lock(listeners->mutex);
        boost::shared_ptr<ListenerList> next = boost::make_shared<ListenerList>();
        for (size_t i = 0; i < listeners->list->size(); ++i)
            if ((*listeners->list)[i] != listener) next->push_back((*listeners->list)[i]);
        listeners->list = next;
    };
    return handle;
}

void FakeDataCenter::setInstrumentDetail(const std::vector<std::string>&,
                                         const std::vector<CInstrumentDetailPtr>& details) {
    boost::mutex::scoped_lock lock(m_mutex);
    for (size_t i = 0; i < details.size(); ++i)
        if (details[i]) m_instruments[details[i]->getKey()] = details[i];
}

InstrumentMap FakeDataCenter::getInstruments() {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_instruments;
}

CInstrumentDetailPtr FakeDataCenter::getInstrument(const std::string& market, const std::string& code) {
    return getInstrumentByKey(market + code);
}

CInstrumentDetailPtr FakeDataCenter::getInstrumentByKey(const std::string& key) {
    boost::mutex::scoped_lock lock(m_mutex);
    std::map<std::string, CInstrumentDetailPtr>::const_iterator it = m_instruments.find(key);
    return it == m_instruments.end() ? CInstrumentDetailPtr() : it->second;
}

// ---- defaults ----

void FakeDataCenter::updateData(const std::string&, const IDataPtr&) {}
SubRequestPtr FakeDataCenter::subscribe(const std::string&, int, const DataCallback&) {
    return SubRequestPtr();
}
CPriceDataPtr FakeDataCenter::getPrice(int, const std::string&, const std::string&) {
    return CPriceDataPtr();
}
void FakeDataCenter::setPriceDiff(const std::string&, double, double) {}
CCustomStockInstrumentFeePtr FakeDataCenter::getAccountStockInstrumentFee(const std::string&) {
    return CCustomStockInstrumentFeePtr();
}
CCustomFutureInstrumentFeePtr FakeDataCenter::getAccountFutureInstrumentFee(const std::string&) {
    return CCustomFutureInstrumentFeePtr();
}
CCustomHGTInstrumentFeePtr FakeDataCenter::getAccountHGTInstrumentFee(const std::string&) {
    return CCustomHGTInstrumentFeePtr();
}
CCustomSgtInstrumentFeePtr FakeDataCenter::getAccountSgtInstrumentFee(const std::string&) {
    return CCustomSgtInstrumentFeePtr();
}
void FakeDataCenter::setAccountsStockInstrumentFee(
    const std::map<CAccountInfoPtr, CCustomStockInstrumentFeePtr>&) {}
void FakeDataCenter::setAccountFutureInstruemntFee(
    const std::map<CAccountInfoPtr, CCustomFutureInstrumentFeePtr>&) {}
void FakeDataCenter::setAccountsHGTInstrumentFee(
    const std::map<CAccountInfoPtr, CCustomHGTInstrumentFeePtr>&) {}
void FakeDataCenter::setAccountsSgtInstrumentFee(
    const std::map<CAccountInfoPtr, CCustomSgtInstrumentFeePtr>&) {}
void FakeDataCenter::testMergeStockInstrumentFee(const CAccountInfoPtr&, const CInstrumentFeePtr&) {}
void FakeDataCenter::testMergeFutureInstrumentFee(const CAccountInfoPtr&, const CInstrumentFeePtr&) {}
void FakeDataCenter::testMergeHGTInstrumentFee(const CAccountInfoPtr&, const CInstrumentFeePtr&) {}
void FakeDataCenter::testMergeSgtInstrumentFee(const CAccountInfoPtr&, const CInstrumentFeePtr&) {}
void FakeDataCenter::testMergeForeignInstrumentFee(const CAccountInfoPtr&, const CInstrumentFeePtr&) {}
void FakeDataCenter::MergeAccountForeignInstrumentFee(const std::string&, const CInstrumentFeePtr&) {}
double FakeDataCenter::getExchangeRate(const std::string&) {
    return 1.0;
}
void FakeDataCenter::setExchangeRate(const CExchangeRatePtr&) {}
CCustomSPInstrumentFeePtr FakeDataCenter::getAccountForeignInstruments(const std::string&) {
    return CCustomSPInstrumentFeePtr();
}
void FakeDataCenter::setAccountForeignInstruemntFee(
    const std::map<CAccountInfoPtr, CCustomSPInstrumentFeePtr>&) {}
void FakeDataCenter::updateForeignInstruemntFeeByBroker(const CInstrumentFeePtr&, double, double) {}
std::string FakeDataCenter::getForeignTradeDay() {
    return std::string();
}
StringPairList FakeDataCenter::getDceCrossProduct() {
    return StringPairList();
}
StringPairList FakeDataCenter::getDceCrossPeriod() {
    return StringPairList();
}
std::string FakeDataCenter::getIpoCode() {
    return std::string();
}
bool FakeDataCenter::isCustomCommission(const CAccountInfoPtr&, const CInstrumentFeePtr&) {
    return false;
}
bool FakeDataCenter::isCustomMargin(const CAccountInfoPtr&, const CInstrumentFeePtr&) {
    return false;
}
void FakeDataCenter::setExchanges(const std::vector<CExchangeDetailPtr>&) {}
void FakeDataCenter::setUpToDate(bool) {}
bool FakeDataCenter::isUpToDate() {
    return false;
}
CInstrumentDetailPtr FakeDataCenter::getInstrumentByCode(const std::string&) {
    return CInstrumentDetailPtr();
}
CExchangeDetailPtr FakeDataCenter::getExchange(const std::string&) {
    return CExchangeDetailPtr();
}
std::string FakeDataCenter::getProduct(const std::string&, const std::string&) {
    return std::string();
}
std::string FakeDataCenter::getProductNameByID(const std::string&) {
    return std::string();
}
std::string FakeDataCenter::getRealMarket(const std::string& market, const std::string&) {
    return market;
}
void FakeDataCenter::addProductNSData(const boost::shared_ptr<CProductNSData>&) {}
boost::shared_ptr<CProductNSData> FakeDataCenter::getProductNSData(int) {
    return boost::shared_ptr<CProductNSData>();
}
void FakeDataCenter::setMarketTime(const std::map<std::string, int64_t>&) {}
int64_t FakeDataCenter::getMarketTime(const std::string&) {
    return 0;
}
void FakeDataCenter::setMarketStatus(const std::string&, int) {}
int FakeDataCenter::getMarketStatus(const std::string&) const {
    return 0;
}
std::string FakeDataCenter::getStockTradeDay() {
    return std::string();
}
std::string FakeDataCenter::getMaxTradeDay() {
    return std::string();
}
std::string FakeDataCenter::getMarketTradeDay(const std::string&) {
    return std::string();
}
ExchangeMap FakeDataCenter::getMapExchange() {
    return ExchangeMap();
}
void FakeDataCenter::getMarketAndTradeDay(std::vector<std::string>&, std::vector<std::string>&) {}
boost::shared_ptr<ETFDataCenter> FakeDataCenter::getETFDataCenter() {
    return boost::shared_ptr<ETFDataCenter>();
}
InstrumentMap FakeDataCenter::getExchangeInstruments(const std::string&) {
    return InstrumentMap();
}
InstrumentMap FakeDataCenter::getProductInstruments(const std::string&) {
    return InstrumentMap();
}
InstrumentIndex FakeDataCenter::getAllProductInstruments() {
    return InstrumentIndex();
}
boost::shared_ptr<CAccountData> FakeDataCenter::getGlobalData() {
    return getAccount(std::string());
}
boost::shared_ptr<PortfolioManager> FakeDataCenter::getPortfolioManager() {
    return boost::shared_ptr<PortfolioManager>();
}
double FakeDataCenter::getPriceDiff(const std::string&, double) {
    return 0.01;
}
void FakeDataCenter::updateHGTAccountSettlementRate(const SettlementRateMap&) {}
SettlementRateMap FakeDataCenter::getHGTAccountSettlementRate() {
    return SettlementRateMap();
}
void FakeDataCenter::updateSgtAccountSettlementRate(const SettlementRateMap&) {}
SettlementRateMap FakeDataCenter::getSgtAccountSettlementRate() {
    return SettlementRateMap();
}
void FakeDataCenter::updateExchangeStatus(const CExchangeStatusPtr&) {}
bool FakeDataCenter::isAnyMarketTrading() const {
    return false;
}
void FakeDataCenter::setKLineDatas(const KLineDataMap&) {}
KLineDataMap FakeDataCenter::getKLineDatas() {
    return KLineDataMap();
}
void FakeDataCenter::setKLineDatasStatus(ENqKlineDataStatus) {}
ENqKlineDataStatus FakeDataCenter::getKLineDatasStatus() {
    return NQ_KLINE_STATUS_NONE;
}

}  // namespace test
}  // namespace ttservice
