// Field tables and key rules of every record class.
#include "RecordCodec.h"
#include "records/Records.h"

namespace ttservice {

namespace {
std::string charCode(int c) { return std::string(1, static_cast<char>(c)); }
}  // namespace

TT_DEFINE_RECORD(CAccountInfo, TT_FIELDS_CAccountInfo)
TT_DEFINE_RECORD(CAccountDetail, TT_FIELDS_CAccountDetail)
TT_DEFINE_RECORD(CFtAccountDetail, TT_FIELDS_CFtAccountDetail)
TT_DEFINE_RECORD(CCreditAccountDetail, TT_FIELDS_CCreditAccountDetail)
TT_DEFINE_RECORD(CAccountSummary, TT_FIELDS_CAccountSummary)
TT_DEFINE_RECORD(CCalcInfo, TT_FIELDS_CCalcInfo)
TT_DEFINE_RECORD(CAccountCalcInfo, TT_FIELDS_CAccountCalcInfo)
TT_DEFINE_RECORD(CFtConfigAccount, TT_FIELDS_CFtConfigAccount)
TT_DEFINE_RECORD(CProduct, TT_FIELDS_CProduct)
TT_DEFINE_RECORD(CStructVolume, TT_FIELDS_CStructVolume)
TT_DEFINE_RECORD(CNqOrderTag, TT_FIELDS_CNqOrderTag)
TT_DEFINE_RECORD(COrderDetail, TT_FIELDS_COrderDetail)
TT_DEFINE_RECORD(CDealDetail, TT_FIELDS_CDealDetail)
TT_DEFINE_RECORD(CPositionDetail, TT_FIELDS_CPositionDetail)
TT_DEFINE_RECORD(CPositionStatics, TT_FIELDS_CPositionStatics)
TT_DEFINE_RECORD(CCombinePositionDetail, TT_FIELDS_CCombinePositionDetail)
TT_DEFINE_RECORD(COrderCommand, TT_FIELDS_COrderCommand)
TT_DEFINE_RECORD(CTaskDetail, TT_FIELDS_CTaskDetail)
TT_DEFINE_RECORD(COrderInfo, TT_FIELDS_COrderInfo)
TT_DEFINE_RECORD(COrderError, TT_FIELDS_COrderError)
TT_DEFINE_RECORD(CCancelError, TT_FIELDS_CCancelError)
TT_DEFINE_RECORD(CStkCompacts, TT_FIELDS_CStkCompacts)
TT_DEFINE_RECORD(CStkSubjects, TT_FIELDS_CStkSubjects)
TT_DEFINE_RECORD(CStkClosedCompacts, TT_FIELDS_CStkClosedCompacts)
TT_DEFINE_RECORD(CPositionTradeTable, TT_FIELDS_CPositionTradeTable)
TT_DEFINE_RECORD(CStructeFundPositiondetail, TT_FIELDS_CStructeFundPositiondetail)
TT_DEFINE_RECORD(GoldQueryStorageResp, TT_FIELDS_GoldQueryStorageResp)
TT_DEFINE_RECORD(CPortfolio, TT_FIELDS_CPortfolio)
TT_DEFINE_RECORD(CInstrumentDetail, TT_FIELDS_CInstrumentDetail)
TT_DEFINE_RECORD(CPriceData, TT_FIELDS_CPriceData)
TT_DEFINE_RECORD(CExchangeDetail, TT_FIELDS_CExchangeDetail)
TT_DEFINE_RECORD(CExchangeStatus, TT_FIELDS_CExchangeStatus)
TT_DEFINE_RECORD(CExchangeRate, TT_FIELDS_CExchangeRate)
TT_DEFINE_RECORD(CValueRange, TT_FIELDS_CValueRange)
TT_DEFINE_RECORD(CSettlementRateInfoConfig, TT_FIELDS_CSettlementRateInfoConfig)
TT_DEFINE_RECORD(CStkExchange, TT_FIELDS_CStkExchange)
TT_DEFINE_RECORD(CStockOptionFeeItem, TT_FIELDS_CStockOptionFeeItem)
TT_DEFINE_RECORD(CForeignFee, TT_FIELDS_CForeignFee)
TT_DEFINE_RECORD(CInstrumentFee, TT_FIELDS_CInstrumentFee)
TT_DEFINE_RECORD(CGroupCategorySubInfo, TT_FIELDS_CGroupCategorySubInfo)
TT_DEFINE_RECORD(CCustomStockFeeRate, TT_FIELDS_CCustomStockFeeRate)
TT_DEFINE_RECORD(CCustomFutureFeeRate, TT_FIELDS_CCustomFutureFeeRate)
TT_DEFINE_RECORD(CCustomHKFeeRate, TT_FIELDS_CCustomHKFeeRate)
TT_DEFINE_RECORD(CCustomSPFeeRate, TT_FIELDS_CCustomSPFeeRate)
TT_DEFINE_RECORD(CCustomStockInstrumentFee, TT_FIELDS_CCustomStockInstrumentFee)
TT_DEFINE_RECORD(CCustomFutureInstrumentFee, TT_FIELDS_CCustomFutureInstrumentFee)
TT_DEFINE_RECORD(CCustomHGTInstrumentFee, TT_FIELDS_CCustomHKInstrumentFee)
TT_DEFINE_RECORD(CCustomSgtInstrumentFee, TT_FIELDS_CCustomHKInstrumentFee)
TT_DEFINE_RECORD(CCustomSPInstrumentFee, TT_FIELDS_CCustomSPInstrumentFee)

const char* const CAccountInfo::SUPER_ACCOUNT_TAG = "__super__";

std::string CAccountInfo::getKey() const {
    std::string key = std::to_string(m_nPlatformID) + "_" + m_strAccountID;
    if (!m_strSubAccount.empty()) key += "_" + m_strSubAccount;
    return key;
}

std::string genParentAccountKey(const CAccountInfo& info) {
    return std::to_string(info.m_nPlatformID) + "_" + info.m_strAccountID;
}

std::string CAccountDetail::getKey() const {
    if (!m_strAccountKey.empty()) return m_strAccountKey;
    return m_accountInfo ? m_accountInfo->getKey() : std::string();
}

std::string COrderDetail::getKey() const {
    if (!m_strOrderRef.empty()) return m_strOrderRef;
    return m_strExchangeID + "_" + m_strOrderSysID;
}

std::string CDealDetail::getKey() const { return m_strExchangeID + "_" + m_strTradeID + "_" + charCode(m_nDirection); }

std::string CPositionDetail::getKey() const {
    std::string key = m_strExchangeID + "_" + m_strInstrumentID + "_" + charCode(m_nDirection) + "_" + charCode(m_nHedgeFlag);
    if (!m_strTradeID.empty()) key += "_" + m_strOpenDate + "_" + m_strTradeID;
    return key;
}

std::string CPositionStatics::getKey() const {
    return m_strExchangeID + "_" + m_strInstrumentID + "_" + charCode(m_nDirection) + "_" + charCode(m_nHedgeFlag);
}

std::string COrderError::getKey() const { return m_strOrderRef.empty() ? std::to_string(m_nRequestID) : m_strOrderRef; }

std::string CCancelError::getKey() const {
    return m_strOrderRef.empty() ? m_strExchangeID + "_" + m_strOrderSysID : m_strOrderRef;
}

std::string CExchangeStatus::getKey() const {
    return m_strProductID.empty() ? m_strExchangeID : m_strExchangeID + "_" + m_strProductID;
}

std::string CStockOptionFeeItem::getKey() const {
    std::string key = charCode(m_nDirection) + charCode(m_nOffsetFlag);
    if (m_nOffsetFlag != 'D') key += charCode(m_nCoveredFlag);
    return key;
}

std::string CInstrumentFee::getKey() const {
    return m_strAccountKey + "_" + (m_instrument ? m_instrument->getKey() : std::string());
}

}  // namespace ttservice
