// Trading records of one account: orders, deals, positions, compacts, commands and the tables the
// account store keeps beside them. Thread safety and ownership as for every record (IData.h).
#pragma once

#include "records/AccountRecords.h"

namespace ttservice {

// CNqOrderTag (type 9010): the tag that an order placed by a command or portfolio carries.
// Key: m_strOrderTag (the terminal's tag of the order; "" for an empty tag).
#define TT_FIELDS_CNqOrderTag(F)               \
    F(std::string, m_strOrderTag, )            \
    F(int, m_nCommandID, 0)                    \
    F(int, m_nPortfolioID, 0)                  \
    F(std::string, m_strPortfolioName, )       \
    F(std::string, m_strRemark, )
class CNqOrderTag : public IData {
    TT_RECORD(CNqOrderTag, IData, 9010, -1, TT_FIELDS_CNqOrderTag)
    std::string getKey() const override { return m_strOrderTag; }
};
typedef boost::shared_ptr<CNqOrderTag> CNqOrderTagPtr;

// COrderDetail (kind 542): one order.
// Key: m_strOrderRef (the terminal's local reference, stable through the order's life) when set,
// else "<m_strExchangeID>_<m_strOrderSysID>".
// Roles: m_nVolumeTotalOriginal is the ordered volume, m_nVolumeTraded the traded volume,
// m_eOrderStatus the entrust status, m_eOrderSubmitStatus the submit status, m_nOffsetFlag the
// offset flag, m_nDirection the direction character ('0' buy), m_eOperationType the operation code
// (2147483647 or 0 when none), m_strAccountKey the account (or sub-account tag) it belongs to.
#define TT_FIELDS_COrderDetail(F)                         \
    F(CAccountInfoPtr, m_accountInfo, )                   \
    F(std::string, m_strAccountKey, )                     \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(std::string, m_strInstrumentName, )                 \
    F(std::string, m_strProductID, )                      \
    F(std::string, m_strOrderSysID, )                     \
    F(std::string, m_strOrderRef, )                       \
    F(int, m_nOrderID, 0)                                 \
    F(int, m_nDirection, DIRECTION_FLAG_BUY)              \
    F(int, m_nOffsetFlag, EOFF_THOST_FTDC_OF_Open)        \
    F(int, m_nHedgeFlag, HEDGE_FLAG_SPECULATION)          \
    F(int, m_eOperationType, 0)                           \
    F(EPriceType, m_nOrderPriceType, PRTP_FIX)            \
    F(EEntrustStatus, m_eOrderStatus, ENTRUST_STATUS_UNREPORTED) \
    F(EEntrustSubmitStatus, m_eOrderSubmitStatus, ENTRUST_SUBMIT_INSERT_SUBMITTED) \
    F(int, m_nVolumeTotalOriginal, 0)                     \
    F(int, m_nVolumeTraded, 0)                            \
    F(double, m_dLimitPrice, 0.0)                         \
    F(double, m_dTradedPrice, 0.0)                        \
    F(double, m_dTradeAmount, 0.0)                        \
    F(double, m_dFrozenMargin, 0.0)                       \
    F(double, m_dFrozenCommission, 0.0)                   \
    F(double, m_dCommission, 0.0)                         \
    F(std::string, m_strInsertDate, )                     \
    F(std::string, m_strInsertTime, )                     \
    F(std::string, m_strCancelTime, )                     \
    F(int, m_nErrorID, 0)                                 \
    F(std::string, m_strErrorMsg, )                       \
    F(CNqOrderTagPtr, m_tag, )
class COrderDetail : public IData {
    TT_RECORD(COrderDetail, IData, 542, -1, TT_FIELDS_COrderDetail)
    std::string getKey() const override;
};
typedef boost::shared_ptr<COrderDetail> COrderDetailPtr;

// CDealDetail (kind 544): one deal (trade). Key: "<m_strExchangeID>_<m_strTradeID>_<direction char>".
// m_strOrderSysID names the order it belongs to; m_nDealKind is the one-character kind of the deal
// ('1' marks a repurchase deal on pledge repurchase codes).
#define TT_FIELDS_CDealDetail(F)                          \
    F(CAccountInfoPtr, m_accountInfo, )                   \
    F(std::string, m_strAccountKey, )                     \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(std::string, m_strInstrumentName, )                 \
    F(std::string, m_strTradeID, )                        \
    F(std::string, m_strOrderSysID, )                     \
    F(std::string, m_strOrderRef, )                       \
    F(int, m_nDirection, DIRECTION_FLAG_BUY)              \
    F(int, m_nOffsetFlag, EOFF_THOST_FTDC_OF_Open)        \
    F(int, m_nHedgeFlag, HEDGE_FLAG_SPECULATION)          \
    F(int, m_eOperationType, 0)                           \
    F(int, m_nDealKind, 48)                               \
    F(int, m_nVolume, 0)                                  \
    F(double, m_dPrice, 0.0)                              \
    F(double, m_dAmount, 0.0)                             \
    F(double, m_dCommission, 0.0)                         \
    F(double, m_dCloseProfit, 0.0)                        \
    F(std::string, m_strTradeDate, )                      \
    F(std::string, m_strTradeTime, )                      \
    F(CNqOrderTagPtr, m_tag, )
class CDealDetail : public IData {
    TT_RECORD(CDealDetail, IData, 544, -1, TT_FIELDS_CDealDetail)
    std::string getKey() const override;
};
typedef boost::shared_ptr<CDealDetail> CDealDetailPtr;

// CPositionDetail (kind 545): one position (or position detail line).
// Key: "<m_strExchangeID>_<m_strInstrumentID>_<direction char>_<hedge char>", followed by
// "_<m_strOpenDate>_<m_strTradeID>" when m_strTradeID is set (a detail line of one opening deal).
// Its first and second identifying strings, in field order, are m_strExchangeID and m_strInstrumentID.
#define TT_FIELDS_CPositionDetail(F)                      \
    F(CAccountInfoPtr, m_accountInfo, )                   \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(std::string, m_strInstrumentName, )                 \
    F(std::string, m_strAccountKey, )                     \
    F(std::string, m_strOpenDate, )                       \
    F(std::string, m_strTradeID, )                        \
    F(int, m_nDirection, DIRECTION_FLAG_BUY)              \
    F(int, m_nHedgeFlag, HEDGE_FLAG_SPECULATION)          \
    F(bool, m_bIsToday, false)                            \
    F(EFutureTradeType, m_eFutureTradeType, FUTRADE_TRADE_TYPE_COMMON) \
    F(int, m_nVolume, 0)                                  \
    F(int, m_nYesterdayVolume, 0)                         \
    F(int, m_nCanUseVolume, 0)                            \
    F(int, m_nFrozenVolume, 0)                            \
    F(double, m_dOpenPrice, 0.0)                          \
    F(double, m_dOpenCost, 0.0)                           \
    F(double, m_dPositionCost, 0.0)                       \
    F(double, m_dLastPrice, 0.0)                          \
    F(double, m_dSettlementPrice, 0.0)                    \
    F(double, m_dMarketValue, 0.0)                        \
    F(double, m_dFloatProfit, 0.0)                        \
    F(double, m_dPositionProfit, 0.0)                     \
    F(double, m_dCloseProfit, 0.0)                        \
    F(double, m_dMargin, 0.0)
class CPositionDetail : public IData {
    TT_RECORD(CPositionDetail, IData, 545, -1, TT_FIELDS_CPositionDetail)
    std::string getKey() const override;
};
typedef boost::shared_ptr<CPositionDetail> CPositionDetailPtr;

// CPositionStatics (kind 547): position statistics per instrument, direction and hedge flag.
// Key: "<m_strExchangeID>_<m_strInstrumentID>_<direction char>_<hedge char>".
#define TT_FIELDS_CPositionStatics(F)                     \
    F(CAccountInfoPtr, m_accountInfo, )                   \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(std::string, m_strInstrumentName, )                 \
    F(std::string, m_strAccountKey, )                     \
    F(int, m_nDirection, DIRECTION_FLAG_BUY)              \
    F(int, m_nHedgeFlag, HEDGE_FLAG_SPECULATION)          \
    F(int, m_nPosition, 0)                                \
    F(int, m_nYesterdayPosition, 0)                       \
    F(int, m_nTodayPosition, 0)                           \
    F(int, m_nCanCloseVol, 0)                             \
    F(double, m_dOpenCost, 0.0)                           \
    F(double, m_dPositionCost, 0.0)                       \
    F(double, m_dLastPrice, 0.0)                          \
    F(double, m_dMarketValue, 0.0)                        \
    F(double, m_dFloatProfit, 0.0)                        \
    F(double, m_dPositionProfit, 0.0)                     \
    F(double, m_dMargin, 0.0)
class CPositionStatics : public IData {
    TT_RECORD(CPositionStatics, IData, 547, -1, TT_FIELDS_CPositionStatics)
    std::string getKey() const override;
};
typedef boost::shared_ptr<CPositionStatics> CPositionStaticsPtr;

// CCombinePositionDetail (kind 602): a combined (spread or option strategy) position.
// Key: "<m_strExchangeID>_<m_strCombID>".
#define TT_FIELDS_CCombinePositionDetail(F)               \
    F(CAccountInfoPtr, m_accountInfo, )                   \
    F(std::string, m_strAccountKey, )                     \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strCombID, )                         \
    F(std::string, m_strCombCode, )                       \
    F(std::string, m_strFirstCode, )                      \
    F(std::string, m_strSecondCode, )                     \
    F(int, m_nVolume, 0)                                  \
    F(double, m_dMargin, 0.0)
class CCombinePositionDetail : public IData {
    TT_RECORD(CCombinePositionDetail, IData, 602, -1, TT_FIELDS_CCombinePositionDetail)
    std::string getKey() const override { return m_strExchangeID + "_" + m_strCombID; }
};

// COrderCommand (kind 535): an order command (algorithm, basket or portfolio order).
// Key: the decimal m_nID. m_strDate is the trade date the command belongs to.
#define TT_FIELDS_COrderCommand(F)                        \
    F(int, m_nID, 0)                                      \
    F(std::string, m_strDate, )                           \
    F(std::string, m_strAccountKey, )                     \
    F(EOrderCommandStatus, m_eStatus, OCS_CREATED)        \
    F(int, m_eOperationType, 0)                           \
    F(int, m_nOrderType, 0)                               \
    F(int, m_nPortfolioID, 0)                             \
    F(std::string, m_strPortfolioName, )                  \
    F(std::string, m_strCustomName, )                     \
    F(int, m_nProductID, 0)                               \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(int, m_nVolume, 0)                                  \
    F(double, m_dPrice, 0.0)                              \
    F(std::string, m_strRemark, )
class COrderCommand : public IData {
    TT_RECORD(COrderCommand, IData, 535, -1, TT_FIELDS_COrderCommand)
    std::string getKey() const override { return std::to_string(m_nID); }
};
typedef boost::shared_ptr<COrderCommand> COrderCommandPtr;

// CTaskDetail (kind 541): the running state of a command. Key: the decimal m_nTaskID.
#define TT_FIELDS_CTaskDetail(F)                          \
    F(int, m_nTaskID, 0)                                  \
    F(COrderCommandPtr, m_command, )                      \
    F(EOrderCommandStatus, m_eStatus, OCS_CREATED)        \
    F(int, m_nTradedVolume, 0)                            \
    F(double, m_dTradedAmount, 0.0)                       \
    F(std::string, m_strMsg, )
class CTaskDetail : public IData {
    TT_RECORD(CTaskDetail, IData, 541, -1, TT_FIELDS_CTaskDetail)
    std::string getKey() const override { return std::to_string(m_nTaskID); }
};

// COrderInfo (type 9011): the terminal's summary of one (algorithmic) order.
// Key: the decimal m_nOrderID. m_dEndTime (seconds, 0 while live) is set when the order ended:
// an order info is complete when it is above 1e-5.
#define TT_FIELDS_COrderInfo(F)                           \
    F(int, m_nOrderID, 0)                                 \
    F(CAccountInfoPtr, m_accountInfo, )                   \
    F(std::string, m_strAccountKey, )                     \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(std::string, m_strOrderSysID, )                     \
    F(int, m_nCommandID, 0)                               \
    F(int, m_nDirection, DIRECTION_FLAG_BUY)              \
    F(int, m_nOffsetFlag, EOFF_THOST_FTDC_OF_Open)        \
    F(int, m_eOperationType, 0)                           \
    F(EEntrustStatus, m_eStatus, ENTRUST_STATUS_UNREPORTED) \
    F(int, m_nVolume, 0)                                  \
    F(int, m_nTradedVolume, 0)                            \
    F(double, m_dPrice, 0.0)                              \
    F(double, m_dTradedPrice, 0.0)                        \
    F(double, m_dEndTime, 0.0)                            \
    F(CNqOrderTagPtr, m_tag, )
class COrderInfo : public IData {
    TT_RECORD(COrderInfo, IData, 9011, -1, TT_FIELDS_COrderInfo)
    std::string getKey() const override { return std::to_string(m_nOrderID); }
};
typedef boost::shared_ptr<COrderInfo> COrderInfoPtr;

// COrderError (type 9012): an order rejected before it reached the exchange.
// Key: m_strOrderRef when set, else the decimal m_nRequestID.
#define TT_FIELDS_COrderError(F)                          \
    F(CAccountInfoPtr, m_accountInfo, )                   \
    F(std::string, m_strAccountKey, )                     \
    F(int, m_nRequestID, 0)                               \
    F(std::string, m_strOrderRef, )                       \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(int, m_nErrorID, 0)                                 \
    F(std::string, m_strErrorMsg, )
class COrderError : public IData {
    TT_RECORD(COrderError, IData, 9012, -1, TT_FIELDS_COrderError)
    std::string getKey() const override;
};

// CCancelError (type 9013): a cancel request the back end refused.
// Key: m_strOrderRef when set, else "<m_strExchangeID>_<m_strOrderSysID>".
#define TT_FIELDS_CCancelError(F)                         \
    F(CAccountInfoPtr, m_accountInfo, )                   \
    F(std::string, m_strAccountKey, )                     \
    F(std::string, m_strOrderRef, )                       \
    F(std::string, m_strOrderSysID, )                     \
    F(std::string, m_strExchangeID, )                     \
    F(int, m_nErrorID, 0)                                 \
    F(std::string, m_strErrorMsg, )
class CCancelError : public IData {
    TT_RECORD(CCancelError, IData, 9013, -1, TT_FIELDS_CCancelError)
    std::string getKey() const override;
};

// CStkCompacts (kind 13902): a margin-trading compact (financing or securities lending contract).
// Key: "<m_strExchangeID>_<m_strCompactId>".
#define TT_FIELDS_CStkCompacts(F)                         \
    F(CAccountInfoPtr, m_accountInfo, )                   \
    F(std::string, m_strAccountKey, )                     \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(std::string, m_strInstrumentName, )                 \
    F(std::string, m_strCompactId, )                      \
    F(std::string, m_strOpenDate, )                       \
    F(std::string, m_strDateClear, )                      \
    F(int, m_eCompactType, 48)                            \
    F(int, m_nBusinessVolume, 0)                          \
    F(int, m_nRealCompactVol, 0)                          \
    F(double, m_dBusinessBalance, 0.0)                    \
    F(double, m_dRealCompactBalance, 0.0)                 \
    F(double, m_dRealCompactInterest, 0.0)                \
    F(double, m_dLastPrice, 0.0)                          \
    F(double, m_dMarketValue, 0.0)
class CStkCompacts : public IData {
    TT_RECORD(CStkCompacts, IData, 13902, -1, TT_FIELDS_CStkCompacts)
    std::string getKey() const override { return m_strExchangeID + "_" + m_strCompactId; }
};
typedef boost::shared_ptr<CStkCompacts> CStkCompactsPtr;

// CStkSubjects (kind 13901): a security eligible for margin trading with its ratios.
// Key: "<m_strExchangeID>_<m_strInstrumentID>".
#define TT_FIELDS_CStkSubjects(F)                         \
    F(std::string, m_strAccountKey, )                     \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(double, m_dFinRatio, 0.0)                           \
    F(double, m_dSloRatio, 0.0)                           \
    F(double, m_dAssureRatio, 0.0)                        \
    F(bool, m_bFinEnable, false)                          \
    F(bool, m_bSloEnable, false)
class CStkSubjects : public IData {
    TT_RECORD(CStkSubjects, IData, 13901, -1, TT_FIELDS_CStkSubjects)
    std::string getKey() const override { return m_strExchangeID + "_" + m_strInstrumentID; }
};

// CStkClosedCompacts (kind 16715): a compact closed today. Key: "<m_strExchangeID>_<m_strCompactId>".
#define TT_FIELDS_CStkClosedCompacts(F)                   \
    F(std::string, m_strAccountKey, )                     \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(std::string, m_strCompactId, )                      \
    F(std::string, m_strCloseDate, )                      \
    F(int, m_nCloseVolume, 0)                             \
    F(double, m_dCloseBalance, 0.0)                       \
    F(double, m_dCloseInterest, 0.0)
class CStkClosedCompacts : public IData {
    TT_RECORD(CStkClosedCompacts, IData, 16715, -1, TT_FIELDS_CStkClosedCompacts)
    std::string getKey() const override { return m_strExchangeID + "_" + m_strCompactId; }
};

// CPositionTradeTable (kind 661): traded volumes of one instrument today, used by volume checks.
// Key: "<m_strExchangeID>_<m_strInstrumentID>".
#define TT_FIELDS_CPositionTradeTable(F)                  \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(int, m_nBuyVolume, 0)                               \
    F(int, m_nSellVolume, 0)                              \
    F(int, m_nOpenVolume, 0)                              \
    F(int, m_nCloseVolume, 0)
class CPositionTradeTable : public IData {
    TT_RECORD(CPositionTradeTable, IData, 661, -1, TT_FIELDS_CPositionTradeTable)
    std::string getKey() const override { return m_strExchangeID + "_" + m_strInstrumentID; }
};
typedef boost::shared_ptr<CPositionTradeTable> CPositionTradeTablePtr;

// CStructeFundPositiondetail (kind 678): a fund position (on-exchange fund shares).
// Key: "<m_strExchangeID>_<m_strFundCode>".
#define TT_FIELDS_CStructeFundPositiondetail(F)           \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strFundCode, )                       \
    F(std::string, m_strFundName, )                       \
    F(int, m_nVolume, 0)                                  \
    F(int, m_nCanUseVolume, 0)                            \
    F(int, m_nFrozenVolume, 0)                            \
    F(double, m_dNetValue, 0.0)
class CStructeFundPositiondetail : public IData {
    TT_RECORD(CStructeFundPositiondetail, IData, 678, -1, TT_FIELDS_CStructeFundPositiondetail)
    std::string getKey() const override { return m_strExchangeID + "_" + m_strFundCode; }
};
typedef boost::shared_ptr<CStructeFundPositiondetail> CStructeFundPositiondetailPtr;

// GoldQueryStorageResp (kind 7227): gold storage of one variety at the gold exchange ("SHGE").
// Key: code.
#define TT_FIELDS_GoldQueryStorageResp(F)                 \
    F(std::string, code, )                                \
    F(std::string, accountKey, )                          \
    F(double, totalStorage, 0.0)                          \
    F(double, availableStorage, 0.0)                      \
    F(double, frozenStorage, 0.0)                         \
    F(double, lastPrice, 0.0)                             \
    F(double, marketValue, 0.0)
class GoldQueryStorageResp : public IData {
    TT_RECORD(GoldQueryStorageResp, IData, 7227, -1, TT_FIELDS_GoldQueryStorageResp)
    std::string getKey() const override { return code; }
};
typedef boost::shared_ptr<GoldQueryStorageResp> GoldQueryStorageRespPtr;

// CPortfolio (type 9014): a named group of positions traded by order commands.
// Key: "<m_strName>_<m_nPortfolioID>". m_mapPositions holds volumes by position key.
#define TT_FIELDS_CPortfolio(F)                           \
    F(int, m_nPortfolioID, 0)                             \
    F(std::string, m_strName, )                           \
    F(std::string, m_strCustomName, )                     \
    F(std::string, m_strTradeDate, )                      \
    F(std::string, m_strAccountKey, )                     \
    F(int, m_nProductID, 0)                               \
    F(StringDoubleMap, m_mapPositions, )                  \
    F(double, m_dCloseProfit, 0.0)
class CPortfolio : public IData {
    TT_RECORD(CPortfolio, IData, 9014, -1, TT_FIELDS_CPortfolio)
    std::string getKey() const override { return m_strName + "_" + std::to_string(m_nPortfolioID); }
};

}  // namespace ttservice
