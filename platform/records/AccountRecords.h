// Account-level records: identity, funds, calculation info, configuration.
// Thread safety and ownership as for every record (records/IData.h).
#pragma once

#include "records/Enums.h"
#include "records/IData.h"

namespace ttservice {

// CAccountInfo: identity of a trading account (type 9001, no kind of its own).
// Key: "<m_nPlatformID>_<m_strAccountID>", followed by "_<m_strSubAccount>" for a sub-account.
// The key is the account key under which stores, custom fee tables and persisted state are filed.
// m_nAccountType is the back end's account type (1 futures, 2 stock, 3 credit, 5 gold, 6 stock
// option, 7 HGT, 10 new third board, 11 SGT, 1001/1002 the commission-recomputed kinds, ...).
// A super account (the broker-level account that sub-accounts split) has m_strSubAccount equal to
// CAccountInfo::SUPER_ACCOUNT_TAG.
#define TT_FIELDS_CAccountInfo(F)        \
    F(int, m_nPlatformID, 0)             \
    F(int, m_nBrokerType, 0)             \
    F(int, m_nAccountType, 0)            \
    F(std::string, m_strBrokerID, )      \
    F(std::string, m_strBrokerName, )    \
    F(std::string, m_strAccountID, )     \
    F(std::string, m_strAccountName, )   \
    F(std::string, m_strSubAccount, )    \
    F(std::string, m_strParentAccountID, ) \
    F(int, m_nProductID, 0)              \
    F(int, m_nLoginStatus, 0)            \
    F(std::string, m_strStatus, )
class CAccountInfo : public IData {
    TT_RECORD(CAccountInfo, IData, 9001, -1, TT_FIELDS_CAccountInfo)
    static const char* const SUPER_ACCOUNT_TAG;  // "__super__"
    std::string getKey() const override;
};
typedef boost::shared_ptr<CAccountInfo> CAccountInfoPtr;

// The key of the parent account of `info`: the key `info` would have without its sub-account.
std::string genParentAccountKey(const CAccountInfo& info);

// CAccountDetail (kind 543): the account's funds.
// Key: m_strAccountKey when set, else the key of m_accountInfo, else "". A store files it under the
// account's key. CFtAccountDetail (futures) and CCreditAccountDetail (margin trading) share kind 543.
#define TT_FIELDS_CAccountDetail(F)                  \
    F(CAccountInfoPtr, m_accountInfo, )              \
    F(std::string, m_strAccountKey, )                \
    F(ENqAccountStatus, m_nAccountStatus, NQ_ACCOUNT_STATUS_OK) \
    F(std::string, m_strStatus, )                    \
    F(std::string, m_strTradingDay, )                \
    F(double, m_dBalance, 0.0)                       \
    F(double, m_dPreBalance, 0.0)                    \
    F(double, m_dAvailable, 0.0)                     \
    F(double, m_dAssureAsset, 0.0)                   \
    F(double, m_dEntrustAsset, 0.0)                  \
    F(double, m_dCurrMargin, 0.0)                    \
    F(double, m_dStockValue, 0.0)                    \
    F(double, m_dFrozenCash, 0.0)                    \
    F(double, m_dFrozenMargin, 0.0)                  \
    F(double, m_dFrozenCommission, 0.0)              \
    F(double, m_dCommission, 0.0)                    \
    F(double, m_dCloseProfit, 0.0)                   \
    F(double, m_dPositionProfit, 0.0)                \
    F(double, m_dFetchBalance, 0.0)                  \
    F(double, m_dInstrumentValue, 0.0)
class CAccountDetail : public IData {
    TT_RECORD(CAccountDetail, IData, 543, -1, TT_FIELDS_CAccountDetail)
    std::string getKey() const override;
};
typedef boost::shared_ptr<CAccountDetail> CAccountDetailPtr;

// CFtAccountDetail (type 5431, kind 543): futures funds. Key: as CAccountDetail.
#define TT_FIELDS_CFtAccountDetail(F)    \
    F(double, m_dPreMargin, 0.0)         \
    F(double, m_dDeposit, 0.0)           \
    F(double, m_dWithdraw, 0.0)          \
    F(double, m_dRiskRatio, 0.0)         \
    F(double, m_dPremiumNetExpense, 0.0)
class CFtAccountDetail : public CAccountDetail {
    TT_RECORD(CFtAccountDetail, CAccountDetail, 5431, 543, TT_FIELDS_CFtAccountDetail)
};

// CCreditAccountDetail (type 5432, kind 543): margin-trading funds. Key: as CAccountDetail.
#define TT_FIELDS_CCreditAccountDetail(F)  \
    F(double, m_dEnableBailBalance, 0.0)   \
    F(double, m_dFinDebt, 0.0)             \
    F(double, m_dSloDebt, 0.0)             \
    F(double, m_dAssureRatio, 0.0)         \
    F(double, m_dFinEnableQuota, 0.0)      \
    F(double, m_dSloEnableQuota, 0.0)
class CCreditAccountDetail : public CAccountDetail {
    TT_RECORD(CCreditAccountDetail, CAccountDetail, 5432, 543, TT_FIELDS_CCreditAccountDetail)
};

// CAccountSummary (kind 555): an account-level record that stores file and publish only.
// Key: m_strAccountKey.
#define TT_FIELDS_CAccountSummary(F)     \
    F(std::string, m_strAccountKey, )    \
    F(double, m_dTotalAsset, 0.0)        \
    F(double, m_dNetAsset, 0.0)          \
    F(double, m_dTotalDebt, 0.0)         \
    F(std::string, m_strUpdateTime, )
class CAccountSummary : public IData {
    TT_RECORD(CAccountSummary, IData, 555, -1, TT_FIELDS_CAccountSummary)
    std::string getKey() const override { return m_strAccountKey; }
};

// CCalcInfo (kind 567): a store's calculation info. Key: m_strAccountKey ("" when new).
#define TT_FIELDS_CCalcInfo(F)                 \
    F(std::string, m_strAccountKey, )          \
    F(double, m_dTotalFloatProfit, 0.0)        \
    F(double, m_dTotalMarketValue, 0.0)        \
    F(int64_t, m_nLastCalcTime, 0)
class CCalcInfo : public IData {
    TT_RECORD(CCalcInfo, IData, 567, -1, TT_FIELDS_CCalcInfo)
    std::string getKey() const override { return m_strAccountKey; }
};
typedef boost::shared_ptr<CCalcInfo> CCalcInfoPtr;

// CAccountCalcInfo (type 9002): account-wide calculation parameters. Key: m_strAccountKey.
#define TT_FIELDS_CAccountCalcInfo(F)          \
    F(std::string, m_strAccountKey, )          \
    F(double, m_dMarginRatioAdjust, 1.0)       \
    F(double, m_dCommissionRatioAdjust, 1.0)   \
    F(bool, m_bCalcFloatProfit, true)
class CAccountCalcInfo : public IData {
    TT_RECORD(CAccountCalcInfo, IData, 9002, -1, TT_FIELDS_CAccountCalcInfo)
    std::string getKey() const override { return m_strAccountKey; }
};
typedef boost::shared_ptr<CAccountCalcInfo> CAccountCalcInfoPtr;

// CFtConfigAccount (type 9003): configuration of a (sub-)account. Key: m_strAccountKey.
#define TT_FIELDS_CFtConfigAccount(F)          \
    F(std::string, m_strAccountKey, )          \
    F(std::string, m_strAccountID, )           \
    F(std::string, m_strAccountName, )         \
    F(int, m_nPlatformID, 0)                   \
    F(int, m_nBrokerType, 0)                   \
    F(int, m_nAccountType, 0)                  \
    F(int, m_nProductID, 0)                    \
    F(std::string, m_strParentAccountKey, )    \
    F(bool, m_bEnable, true)                   \
    F(double, m_dInitBalance, 0.0)
class CFtConfigAccount : public IData {
    TT_RECORD(CFtConfigAccount, IData, 9003, -1, TT_FIELDS_CFtConfigAccount)
    std::string getKey() const override { return m_strAccountKey; }
};

// CProduct (type 9004): an asset-management product and the accounts it holds.
// Key: the decimal m_nProductID.
#define TT_FIELDS_CProduct(F)                  \
    F(int, m_nProductID, 0)                    \
    F(std::string, m_strProductName, )         \
    F(StringVector, m_vAccountKeys, )
class CProduct : public IData {
    TT_RECORD(CProduct, IData, 9004, -1, TT_FIELDS_CProduct)
    std::string getKey() const override { return std::to_string(m_nProductID); }
};

// CStructVolume (type 9005): a tradable volume and the reason that limits it. Key: "".
#define TT_FIELDS_CStructVolume(F)             \
    F(double, m_dVolume, 0.0)                  \
    F(int, m_nReasonCode, 0)                   \
    F(std::string, m_strReason, )
class CStructVolume : public IData {
    TT_RECORD(CStructVolume, IData, 9005, -1, TT_FIELDS_CStructVolume)
};
typedef boost::shared_ptr<CStructVolume> CStructVolumePtr;

}  // namespace ttservice
