// Reference and market records shared by all accounts: instruments, quotes, exchanges, exchange
// status, exchange rates, value ranges, settlement rates. Thread safety as for every record.
#pragma once

#include "records/Enums.h"
#include "records/IData.h"

namespace ttservice {

// CInstrumentDetail (type 9020): one tradable instrument.
// Key: m_strExchangeID immediately followed by m_strInstrumentID (the instrument key).
// m_bIsCombination marks arbitrage combinations; m_bIsIPO marks new-share subscription codes;
// m_nMaxMarketOrderVolume > 0 says the exchange accepts market orders for it.
#define TT_FIELDS_CInstrumentDetail(F)                    \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(std::string, m_strInstrumentName, )                 \
    F(std::string, m_strProductID, )                      \
    F(std::string, m_strProductName, )                    \
    F(std::string, m_strUnderlyingInstrID, )              \
    F(std::string, m_strCurrency, )                       \
    F(std::string, m_strExpireDate, )                     \
    F(int, m_nPlatformID, 0)                              \
    F(int, m_nProductClass, 0)                            \
    F(int, m_nVolumeMultiple, 1)                          \
    F(int, m_nMaxMarketOrderVolume, 0)                    \
    F(int, m_nMinLimitOrderVolume, 1)                     \
    F(int, m_nOptionType, 0)                              \
    F(double, m_dPriceTick, 0.01)                         \
    F(double, m_dStrikePrice, 0.0)                        \
    F(double, m_dPreSettlementPrice, 0.0)                 \
    F(double, m_dPreClosePrice, 0.0)                      \
    F(double, m_dUpperLimitPrice, 0.0)                    \
    F(double, m_dLowerLimitPrice, 0.0)                    \
    F(bool, m_bIsCombination, false)                      \
    F(bool, m_bIsIPO, false)
class CInstrumentDetail : public IData {
    TT_RECORD(CInstrumentDetail, IData, 9020, -1, TT_FIELDS_CInstrumentDetail)
    std::string getKey() const override { return m_strExchangeID + m_strInstrumentID; }
};
typedef boost::shared_ptr<CInstrumentDetail> CInstrumentDetailPtr;

// CPriceData (type 9021): a quote. Key: "<m_strExchangeID><m_strInstrumentID>".
// Prices at or below 1e-5, or equal to the largest double, are empty.
#define TT_FIELDS_CPriceData(F)                           \
    F(int, m_nPlatformId, 0)                              \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strInstrumentID, )                   \
    F(std::string, m_strUpdateTime, )                     \
    F(std::string, m_strTradingDay, )                     \
    F(int64_t, m_nUpdateSecond, 0)                        \
    F(double, m_dLastPrice, 0.0)                          \
    F(double, m_dPreClosePrice, 0.0)                      \
    F(double, m_dPreSettlementPrice, 0.0)                 \
    F(double, m_dSettlementPrice, 0.0)                    \
    F(double, m_dOpenPrice, 0.0)                          \
    F(double, m_dHighestPrice, 0.0)                       \
    F(double, m_dLowestPrice, 0.0)                        \
    F(double, m_dUpperLimitPrice, 0.0)                    \
    F(double, m_dLowerLimitPrice, 0.0)                    \
    F(double, m_dBidPrice1, 0.0)                          \
    F(double, m_dBidPrice2, 0.0)                          \
    F(double, m_dBidPrice3, 0.0)                          \
    F(double, m_dBidPrice4, 0.0)                          \
    F(double, m_dBidPrice5, 0.0)                          \
    F(double, m_dAskPrice1, 0.0)                          \
    F(double, m_dAskPrice2, 0.0)                          \
    F(double, m_dAskPrice3, 0.0)                          \
    F(double, m_dAskPrice4, 0.0)                          \
    F(double, m_dAskPrice5, 0.0)                          \
    F(int, m_nBidVolume1, 0)                              \
    F(int, m_nAskVolume1, 0)                              \
    F(int64_t, m_nVolume, 0)                              \
    F(double, m_dTurnover, 0.0)                           \
    F(int, m_nVolumeUnit, 1)
class CPriceData : public IData {
    TT_RECORD(CPriceData, IData, 9021, -1, TT_FIELDS_CPriceData)
    std::string getKey() const override { return m_strExchangeID + m_strInstrumentID; }
};
typedef boost::shared_ptr<CPriceData> CPriceDataPtr;

// CExchangeDetail (type 9022): an exchange with its current trade day (YYYYMMDD). Key: m_strExchangeID.
#define TT_FIELDS_CExchangeDetail(F)                      \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strExchangeName, )                   \
    F(std::string, m_strTradeDay, )                       \
    F(std::string, m_strCurrency, )                       \
    F(int, m_nPlatformID, 0)
class CExchangeDetail : public IData {
    TT_RECORD(CExchangeDetail, IData, 9022, -1, TT_FIELDS_CExchangeDetail)
    std::string getKey() const override { return m_strExchangeID; }
};
typedef boost::shared_ptr<CExchangeDetail> CExchangeDetailPtr;

// CExchangeStatus (kind 570): the trading status of an exchange (or of one product of it).
// Key: m_strExchangeID, followed by "_<m_strProductID>" when a product is named.
// A market counts as trading when m_nStatus is '2' (50) and neither m_nIsAuction nor m_nIsPaused
// is set.
#define TT_FIELDS_CExchangeStatus(F)                      \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strProductID, )                      \
    F(EExchangeStatus, m_nStatus, EXCHANGE_STATUS_UNKNOWN) \
    F(int, m_nIsAuction, 0)                               \
    F(int, m_nIsPaused, 0)                                \
    F(std::string, m_strEnterTime, )
class CExchangeStatus : public IData {
    TT_RECORD(CExchangeStatus, IData, 570, -1, TT_FIELDS_CExchangeStatus)
    std::string getKey() const override;
};
typedef boost::shared_ptr<CExchangeStatus> CExchangeStatusPtr;

// CExchangeRate (type 9023): exchange rates by currency code against m_strBaseCurrency. Key: "".
#define TT_FIELDS_CExchangeRate(F)                        \
    F(std::string, m_strBaseCurrency, )                   \
    F(StringDoubleMap, m_mapRates, )
class CExchangeRate : public IData {
    TT_RECORD(CExchangeRate, IData, 9023, -1, TT_FIELDS_CExchangeRate)
};
typedef boost::shared_ptr<CExchangeRate> CExchangeRatePtr;

// CValueRange (type 9024): a range of values. Bound kinds: -1 unbounded, 3 closed, 4 exact value
// (lower bound only), anything else open. Key: "" (a value held by other records, not an entity).
#define TT_FIELDS_CValueRange(F)                          \
    F(double, m_dLowerBound, 0.0)                         \
    F(int, m_nLowerBoundType, -1)                         \
    F(double, m_dUpperBound, 0.0)                         \
    F(int, m_nUpperBoundType, -1)
class CValueRange : public IData {
    TT_RECORD(CValueRange, IData, 9024, -1, TT_FIELDS_CValueRange)
};

// CSettlementRateInfoConfig (type 9025): Hong Kong connect settlement rates of one currency.
// Key: m_strCurrency. Held by value in the data center's maps.
#define TT_FIELDS_CSettlementRateInfoConfig(F)            \
    F(std::string, m_strCurrency, )                       \
    F(std::string, m_strDate, )                           \
    F(double, m_dBuyRate, 0.0)                            \
    F(double, m_dSellRate, 0.0)                           \
    F(double, m_dMidRate, 0.0)
class CSettlementRateInfoConfig : public IData {
    TT_RECORD(CSettlementRateInfoConfig, IData, 9025, -1, TT_FIELDS_CSettlementRateInfoConfig)
    std::string getKey() const override { return m_strCurrency; }
};

}  // namespace ttservice
