// Fee records: the standard fee record of an instrument for an account (CInstrumentFee) with its
// sub-records, and the custom fee tables that brokers grant accounts by category of security.
// Thread safety as for every record; merges replace sub-records by fresh copies instead of writing
// into shared ones.
#pragma once

#include "records/MarketRecords.h"

namespace ttservice {

// CStkExchange (type 9030): stock commission and taxes of one instrument. Key: "".
#define TT_FIELDS_CStkExchange(F)                         \
    F(double, m_dBuyCommissionRate, 0.0)                  \
    F(double, m_dSellCommissionRate, 0.0)                 \
    F(double, m_dMinCommission, 0.0)                      \
    F(double, m_dStampTaxRate, 0.0)                       \
    F(double, m_dTransferFeeRate, 0.0)                    \
    F(double, m_dTradeFeeRate, 0.0)                       \
    F(int64_t, m_nMinVolume, 0)
class CStkExchange : public IData {
    TT_RECORD(CStkExchange, IData, 9030, -1, TT_FIELDS_CStkExchange)
};
typedef boost::shared_ptr<CStkExchange> CStkExchangePtr;

// CStockOptionFeeItem (type 9031): stock-option fees of one (direction, offset, covered) case.
// Key: the item's table key: m_nDirection as a character, m_nOffsetFlag as a character and, unless
// the offset flag is 'D' (exercise), m_nCoveredFlag as a character.
#define TT_FIELDS_CStockOptionFeeItem(F)                  \
    F(double, m_dOpenFee, 0.0)                            \
    F(double, m_dCloseFee, 0.0)                           \
    F(double, m_dExerciseFee, 0.0)                        \
    F(double, m_dMarginRatio1, 0.0)                       \
    F(double, m_dMarginRatio2, 0.0)                       \
    F(int, m_nOffsetFlag, 0)                              \
    F(int, m_nCoveredFlag, 0)                             \
    F(int, m_nDirection, 0)
class CStockOptionFeeItem : public IData {
    TT_RECORD(CStockOptionFeeItem, IData, 9031, -1, TT_FIELDS_CStockOptionFeeItem)
    std::string getKey() const override;
};
typedef boost::shared_ptr<CStockOptionFeeItem> CStockOptionFeeItemPtr;
typedef std::map<std::string, CStockOptionFeeItemPtr> CStockOptionFeeItemMap;

// CForeignFee (type 9032): foreign futures commissions and margins. Key: "".
#define TT_FIELDS_CForeignFee(F)                          \
    F(double, m_dOpenCommission, 0.0)                     \
    F(double, m_dCloseCommission, 0.0)                    \
    F(double, m_dCloseTodayCommission, 0.0)               \
    F(double, m_dOpenCommissionRatio, 0.0)                \
    F(double, m_dCloseCommissionRatio, 0.0)               \
    F(double, m_dCloseTodayCommissionRatio, 0.0)          \
    F(double, m_dLongMargin, 0.0)                         \
    F(double, m_dShortMargin, 0.0)
class CForeignFee : public IData {
    TT_RECORD(CForeignFee, IData, 9032, -1, TT_FIELDS_CForeignFee)
};
typedef boost::shared_ptr<CForeignFee> CForeignFeePtr;

// CInstrumentFee (type 9033): the fee record of one instrument for one account.
// Key: m_strAccountKey followed by "_" and the instrument key. m_instrument is the instrument it
// prices; the sub-records and fields are filled per market by the fee merges.
#define TT_FIELDS_CInstrumentFee(F)                       \
    F(CInstrumentDetailPtr, m_instrument, )               \
    F(std::string, m_strAccountKey, )                     \
    F(CStkExchangePtr, m_stkExchange, )                   \
    F(CStockOptionFeeItemMap, m_mapStockOptionFee, )      \
    F(double, m_dOpenRatioByMoney, 0.0)                   \
    F(double, m_dOpenRatioByVolume, 0.0)                  \
    F(double, m_dCloseRatioByMoney, 0.0)                  \
    F(double, m_dCloseRatioByVolume, 0.0)                 \
    F(double, m_dCloseTodayRatioByMoney, 0.0)             \
    F(double, m_dCloseTodayRatioByVolume, 0.0)            \
    F(double, m_dLongMarginRatioByMoney, 0.0)             \
    F(double, m_dLongMarginRatioByVolume, 0.0)            \
    F(double, m_dShortMarginRatioByMoney, 0.0)            \
    F(double, m_dShortMarginRatioByVolume, 0.0)           \
    F(double, m_dHGTCommissionRate, 0.0)                  \
    F(double, m_dHGTMinCommission, 0.0)                   \
    F(double, m_dHGTStampTaxRate, 0.0)                    \
    F(double, m_dHGTTradeFeeRate, 0.0)                    \
    F(double, m_dHGTTransferFeeRate, 0.0)                 \
    F(double, m_dSgtCommissionRate, 0.0)                  \
    F(double, m_dSgtMinCommission, 0.0)                   \
    F(double, m_dSgtStampTaxRate, 0.0)                    \
    F(double, m_dSgtTradeFeeRate, 0.0)                    \
    F(double, m_dSgtTransferFeeRate, 0.0)                 \
    F(CForeignFeePtr, m_foreignFee, )                     \
    F(double, m_dPreSettlementPrice, 0.0)
class CInstrumentFee : public IData {
    TT_RECORD(CInstrumentFee, IData, 9033, -1, TT_FIELDS_CInstrumentFee)
    std::string getKey() const override;
};
typedef boost::shared_ptr<CInstrumentFee> CInstrumentFeePtr;

// CGroupCategorySubInfo (type 9034): one member of a group category: the instrument must be in
// category m_strCategory (or, with m_bExclude, must not be). Key: m_strCategory.
#define TT_FIELDS_CGroupCategorySubInfo(F)                \
    F(std::string, m_strCategory, )                       \
    F(bool, m_bExclude, false)
class CGroupCategorySubInfo : public IData {
    TT_RECORD(CGroupCategorySubInfo, IData, 9034, -1, TT_FIELDS_CGroupCategorySubInfo)
    std::string getKey() const override { return m_strCategory; }
};
typedef boost::shared_ptr<CGroupCategorySubInfo> CGroupCategorySubInfoPtr;
typedef std::vector<CGroupCategorySubInfoPtr> CGroupCategorySubInfoList;

// Fields every custom rate entry starts with: its category code (a decimal string), the custom
// category map (category code to instrument codes) and the group sub-categories.
#define TT_FIELDS_CUSTOM_ENTRY_HEAD(F)                    \
    F(std::string, m_strCategory, )                       \
    F(StringListMap, m_mapCustomCategory, )               \
    F(CGroupCategorySubInfoList, m_vGroupCategory, )

// CCustomStockFeeRate (type 9035): one stock (and stock-option) custom rate entry. Key: m_strCategory.
// The first seven rates go to CStkExchange (m_dMinVolume becomes its 64-bit m_nMinVolume); the five
// option rates and the three codes go to a CStockOptionFeeItem.
#define TT_FIELDS_CCustomStockFeeRate(F)                  \
    TT_FIELDS_CUSTOM_ENTRY_HEAD(F)                        \
    F(double, m_dBuyCommissionRate, 0.0)                  \
    F(double, m_dSellCommissionRate, 0.0)                 \
    F(double, m_dMinCommission, 0.0)                      \
    F(double, m_dStampTaxRate, 0.0)                       \
    F(double, m_dTransferFeeRate, 0.0)                    \
    F(double, m_dTradeFeeRate, 0.0)                       \
    F(double, m_dMinVolume, 0.0)                          \
    F(double, m_dOptOpenFee, 0.0)                         \
    F(double, m_dOptCloseFee, 0.0)                        \
    F(double, m_dOptExerciseFee, 0.0)                     \
    F(double, m_dOptMarginRatio1, 0.0)                    \
    F(double, m_dOptMarginRatio2, 0.0)                    \
    F(int, m_nOffsetFlag, 0)                              \
    F(int, m_nCoveredFlag, 0)                             \
    F(int, m_nDirection, 0)
class CCustomStockFeeRate : public IData {
    TT_RECORD(CCustomStockFeeRate, IData, 9035, -1, TT_FIELDS_CCustomStockFeeRate)
    std::string getKey() const override { return m_strCategory; }
};
typedef boost::shared_ptr<CCustomStockFeeRate> CCustomStockFeeRatePtr;
typedef std::vector<CCustomStockFeeRatePtr> CCustomStockFeeRateList;

// CCustomFutureFeeRate (type 9036): one futures custom rate entry; a commission entry uses the six
// commission rates, a margin entry the four margin rates. Key: m_strCategory.
#define TT_FIELDS_CCustomFutureFeeRate(F)                 \
    TT_FIELDS_CUSTOM_ENTRY_HEAD(F)                        \
    F(double, m_dOpenRatioByMoney, 0.0)                   \
    F(double, m_dOpenRatioByVolume, 0.0)                  \
    F(double, m_dCloseRatioByMoney, 0.0)                  \
    F(double, m_dCloseRatioByVolume, 0.0)                 \
    F(double, m_dCloseTodayRatioByMoney, 0.0)             \
    F(double, m_dCloseTodayRatioByVolume, 0.0)            \
    F(double, m_dLongMarginRatioByMoney, 0.0)             \
    F(double, m_dLongMarginRatioByVolume, 0.0)            \
    F(double, m_dShortMarginRatioByMoney, 0.0)            \
    F(double, m_dShortMarginRatioByVolume, 0.0)
class CCustomFutureFeeRate : public IData {
    TT_RECORD(CCustomFutureFeeRate, IData, 9036, -1, TT_FIELDS_CCustomFutureFeeRate)
    std::string getKey() const override { return m_strCategory; }
};
typedef boost::shared_ptr<CCustomFutureFeeRate> CCustomFutureFeeRatePtr;
typedef std::vector<CCustomFutureFeeRatePtr> CCustomFutureFeeRateList;

// CCustomHKFeeRate (type 9037): one Hong Kong connect (HGT or SGT) custom rate entry.
// Key: m_strCategory.
#define TT_FIELDS_CCustomHKFeeRate(F)                     \
    TT_FIELDS_CUSTOM_ENTRY_HEAD(F)                        \
    F(double, m_dCommissionRate, 0.0)                     \
    F(double, m_dMinCommission, 0.0)                      \
    F(double, m_dStampTaxRate, 0.0)                       \
    F(double, m_dTradeFeeRate, 0.0)                       \
    F(double, m_dTransferFeeRate, 0.0)
class CCustomHKFeeRate : public IData {
    TT_RECORD(CCustomHKFeeRate, IData, 9037, -1, TT_FIELDS_CCustomHKFeeRate)
    std::string getKey() const override { return m_strCategory; }
};
typedef boost::shared_ptr<CCustomHKFeeRate> CCustomHKFeeRatePtr;
typedef std::vector<CCustomHKFeeRatePtr> CCustomHKFeeRateList;

// CCustomSPFeeRate (type 9038): one foreign custom rate entry, matched by market and product.
// m_strCurrency is copied into the instrument's currency when that is empty. Key:
// "<m_strExchangeID>_<m_strProductID>".
#define TT_FIELDS_CCustomSPFeeRate(F)                     \
    F(std::string, m_strExchangeID, )                     \
    F(std::string, m_strProductID, )                      \
    F(double, m_dRate, 0.0)                               \
    F(std::string, m_strCurrency, )
class CCustomSPFeeRate : public IData {
    TT_RECORD(CCustomSPFeeRate, IData, 9038, -1, TT_FIELDS_CCustomSPFeeRate)
    std::string getKey() const override { return m_strExchangeID + "_" + m_strProductID; }
};
typedef boost::shared_ptr<CCustomSPFeeRate> CCustomSPFeeRatePtr;
typedef std::vector<CCustomSPFeeRatePtr> CCustomSPFeeRateList;

// The custom fee tables of one account (types 9040-9044). Key: m_strAccountKey.
#define TT_FIELDS_CCustomStockInstrumentFee(F)            \
    F(std::string, m_strAccountKey, )                     \
    F(CCustomStockFeeRateList, m_vRates, )
class CCustomStockInstrumentFee : public IData {
    TT_RECORD(CCustomStockInstrumentFee, IData, 9040, -1, TT_FIELDS_CCustomStockInstrumentFee)
    std::string getKey() const override { return m_strAccountKey; }
};
typedef boost::shared_ptr<CCustomStockInstrumentFee> CCustomStockInstrumentFeePtr;

#define TT_FIELDS_CCustomFutureInstrumentFee(F)           \
    F(std::string, m_strAccountKey, )                     \
    F(CCustomFutureFeeRateList, m_vCommissionRates, )     \
    F(CCustomFutureFeeRateList, m_vMarginRates, )
class CCustomFutureInstrumentFee : public IData {
    TT_RECORD(CCustomFutureInstrumentFee, IData, 9041, -1, TT_FIELDS_CCustomFutureInstrumentFee)
    std::string getKey() const override { return m_strAccountKey; }
};
typedef boost::shared_ptr<CCustomFutureInstrumentFee> CCustomFutureInstrumentFeePtr;

#define TT_FIELDS_CCustomHKInstrumentFee(F)               \
    F(std::string, m_strAccountKey, )                     \
    F(CCustomHKFeeRateList, m_vRates, )
class CCustomHGTInstrumentFee : public IData {
    TT_RECORD(CCustomHGTInstrumentFee, IData, 9042, -1, TT_FIELDS_CCustomHKInstrumentFee)
    std::string getKey() const override { return m_strAccountKey; }
};
typedef boost::shared_ptr<CCustomHGTInstrumentFee> CCustomHGTInstrumentFeePtr;

// CCustomSgtInstrumentFee (type 9043): the SGT table, of the same shape. Key: m_strAccountKey.
class CCustomSgtInstrumentFee : public IData {
    TT_RECORD(CCustomSgtInstrumentFee, IData, 9043, -1, TT_FIELDS_CCustomHKInstrumentFee)
    std::string getKey() const override { return m_strAccountKey; }
};
typedef boost::shared_ptr<CCustomSgtInstrumentFee> CCustomSgtInstrumentFeePtr;

#define TT_FIELDS_CCustomSPInstrumentFee(F)               \
    F(std::string, m_strAccountKey, )                     \
    F(CCustomSPFeeRateList, m_vRates, )
class CCustomSPInstrumentFee : public IData {
    TT_RECORD(CCustomSPInstrumentFee, IData, 9044, -1, TT_FIELDS_CCustomSPInstrumentFee)
    std::string getKey() const override { return m_strAccountKey; }
};
typedef boost::shared_ptr<CCustomSPInstrumentFee> CCustomSPInstrumentFeePtr;

}  // namespace ttservice
