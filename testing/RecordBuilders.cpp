#include "testing/RecordBuilders.h"

namespace ttservice {
namespace test {

CAccountInfoPtr makeAccountInfo(const std::string& accountId, int accountType, int platformId) {
    CAccountInfoPtr info = boost::make_shared<CAccountInfo>();
    info->m_strAccountID = accountId;
    info->m_nAccountType = accountType;
    info->m_nPlatformID = platformId;
    info->m_strAccountName = "test " + accountId;
    return info;
}

COrderDetailPtr OrderBuilder::build() const {
    COrderDetailPtr o = boost::make_shared<COrderDetail>();
    o->m_accountInfo = m_account;
    if (m_account) o->m_strAccountKey = m_account->getKey();
    o->m_strOrderSysID = m_sysId;
    o->m_strOrderRef = m_ref;
    o->m_strExchangeID = m_exchange;
    o->m_strInstrumentID = m_instrument;
    o->m_strProductID = m_product;
    o->m_nDirection = m_direction;
    o->m_nOffsetFlag = m_offset;
    o->m_eOperationType = m_operation;
    o->m_eOrderStatus = static_cast<EEntrustStatus>(m_status);
    o->m_eOrderSubmitStatus = static_cast<EEntrustSubmitStatus>(m_submitStatus);
    o->m_nVolumeTotalOriginal = m_volume;
    o->m_nVolumeTraded = m_traded;
    o->m_dLimitPrice = m_price;
    o->m_dFrozenMargin = m_frozenMargin;
    o->m_dCommission = m_commission;
    if (m_hasTag) {
        o->m_tag = boost::make_shared<CNqOrderTag>();
        o->m_tag->m_strOrderTag = m_tag;
    }
    return o;
}

CDealDetailPtr DealBuilder::build() const {
    CDealDetailPtr d = boost::make_shared<CDealDetail>();
    d->m_accountInfo = m_account;
    if (m_account) d->m_strAccountKey = m_account->getKey();
    d->m_strTradeID = m_tradeId;
    d->m_strOrderSysID = m_orderSysId;
    d->m_strExchangeID = m_exchange;
    d->m_strInstrumentID = m_instrument;
    d->m_nDirection = m_direction;
    d->m_nOffsetFlag = m_offset;
    d->m_nVolume = m_volume;
    d->m_dPrice = m_price;
    d->m_dAmount = m_price * m_volume;
    d->m_dCommission = m_commission;
    d->m_strTradeDate = m_tradeDate;
    return d;
}

CPositionDetailPtr PositionBuilder::build() const {
    CPositionDetailPtr p = boost::make_shared<CPositionDetail>();
    p->m_accountInfo = m_account;
    if (m_account) p->m_strAccountKey = m_account->getKey();
    p->m_strExchangeID = m_exchange;
    p->m_strInstrumentID = m_instrument;
    p->m_nDirection = m_direction;
    p->m_nHedgeFlag = m_hedge;
    p->m_nVolume = m_volume;
    p->m_nYesterdayVolume = m_yesterday;
    p->m_dOpenPrice = m_openPrice;
    p->m_dOpenCost = m_openCost;
    p->m_strOpenDate = m_openDate;
    p->m_strTradeID = m_tradeId;
    return p;
}

CAccountDetailPtr makeAccountDetail(const CAccountInfoPtr& account, double balance) {
    CAccountDetailPtr d = boost::make_shared<CAccountDetail>();
    d->m_accountInfo = account;
    if (account) d->m_strAccountKey = account->getKey();
    d->m_dBalance = balance;
    d->m_dPreBalance = balance;
    d->m_dAvailable = balance;
    return d;
}

CPriceDataPtr makeQuote(const std::string& exchange, const std::string& instrument, double lastPrice,
                        double preClose) {
    CPriceDataPtr q = boost::make_shared<CPriceData>();
    q->m_strExchangeID = exchange;
    q->m_strInstrumentID = instrument;
    q->m_dLastPrice = lastPrice;
    q->m_dPreClosePrice = preClose;
    return q;
}

CStkCompactsPtr makeCompact(const CAccountInfoPtr& account, const std::string& exchange,
                            const std::string& instrument, const std::string& compactId) {
    CStkCompactsPtr c = boost::make_shared<CStkCompacts>();
    c->m_accountInfo = account;
    if (account) c->m_strAccountKey = account->getKey();
    c->m_strExchangeID = exchange;
    c->m_strInstrumentID = instrument;
    c->m_strCompactId = compactId;
    c->m_nBusinessVolume = 100;
    return c;
}

GoldQueryStorageRespPtr makeGoldStorage(const std::string& code, double totalStorage) {
    GoldQueryStorageRespPtr g = boost::make_shared<GoldQueryStorageResp>();
    g->code = code;
    g->totalStorage = totalStorage;
    g->availableStorage = totalStorage;
    return g;
}

CExchangeStatusPtr makeExchangeStatus(const std::string& exchange, int status, const std::string& product) {
    CExchangeStatusPtr s = boost::make_shared<CExchangeStatus>();
    s->m_strExchangeID = exchange;
    s->m_strProductID = product;
    s->m_nStatus = static_cast<EExchangeStatus>(status);
    return s;
}

CInstrumentDetailPtr makeInstrument(const std::string& exchange, const std::string& instrument,
                                    const std::string& product, int volumeMultiple) {
    CInstrumentDetailPtr i = boost::make_shared<CInstrumentDetail>();
    i->m_strExchangeID = exchange;
    i->m_strInstrumentID = instrument;
    i->m_strProductID = product;
    i->m_nVolumeMultiple = volumeMultiple;
    return i;
}

CInstrumentDetailPtr makeNamedInstrument(const std::string& exchange, const std::string& instrument,
                                         const std::string& name, const std::string& product) {
    CInstrumentDetailPtr i = makeInstrument(exchange, instrument, product);
    i->m_strInstrumentName = name;
    return i;
}

CInstrumentFeePtr makeInstrumentFee(const CAccountInfoPtr& account, const CInstrumentDetailPtr& instrument) {
    CInstrumentFeePtr f = boost::make_shared<CInstrumentFee>();
    f->m_instrument = instrument;
    if (account) f->m_strAccountKey = account->getKey();
    return f;
}

}  // namespace test
}  // namespace ttservice
