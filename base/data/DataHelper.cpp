#include "base/data/DataHelper.h"

#include "base/data/CAccountData.h"
#include "config/ConfigCollector.h"
#include "utils/StockTypeCenter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace ttservice {

namespace {

const double kEpsilon = 1e-5;
const double kMaxDouble = std::numeric_limits<double>::max();

// Asks the process-wide configuration whether `platformId` is in the named family. The family name
// is a function-local static of the caller, so no string is built per call; the configuration is
// held by shared ownership for this call only.
bool inFamily(const std::string& family, int platformId) {
    const boost::shared_ptr<ConfigCollector> config = ConfigCollector::instance();
    return config && config->isSomePt(family, platformId);
}

bool agree(double a, double b) { return std::fabs(a - b) <= kEpsilon; }

}  // namespace

// ---- Market families --------------------------------------------------------------------------

bool DataHelper::isStockPlatform(const int& platformId) { return platformId / 10000 == 1; }

bool DataHelper::isFuturePlatform(const int& platformId) { return platformId > 19999 && platformId < 29999; }

bool DataHelper::isGoldlatform(const int& platformId) { return platformId >= 30000 && platformId <= 39998; }

bool DataHelper::isGoldPlatform(const int& platformId) { return platformId >= 30000 && platformId <= 39999; }

bool DataHelper::isYswpPlatform(const int& platformId) { return platformId == 40002 || platformId == 41002; }

bool DataHelper::isForeignPlatform(const int& platformId) { return platformId >= 41001 && platformId <= 49998; }

bool DataHelper::isHGTPlatform(const int& platformId) { return platformId >= 51001 && platformId <= 59998; }

bool DataHelper::isStockOptionPlatform(const int& platformId) { return platformId / 10000 == 6; }

bool DataHelper::isFutureOptionPlatform(const int& platformId) { return platformId >= 70001 && platformId <= 79998; }

bool DataHelper::isNew3BoardPlatform(const int& platformId) { return platformId / 10000 == 10; }

bool DataHelper::isSGTPlatform(const int& platformId) { return platformId >= 110001 && platformId <= 119998; }

bool DataHelper::isInterbankPlatform(const int& platformId) { return platformId == 1110003; }

// ---- Single-id flags -----------------------------------------------------------------------------

bool DataHelper::isExistBizNo(int platformId) { return platformId != 10001; }

bool DataHelper::isHistoryAllowNega(int platformId) {
    return platformId == 10004 || platformId == 10007 || platformId == 11007;
}

bool DataHelper::isNeedCalcAssetGuosen(int platformId) { return platformId == 10008 || platformId == 11008; }

// ---- Counter systems -----------------------------------------------------------------------------

bool DataHelper::isCTPStock(int platformId) {
    static const std::string family("ctp");
    return inFamily(family, platformId);
}

bool DataHelper::isGoldOrder(int platformId) {
    static const std::string family("gold");
    return inFamily(family, platformId);
}

bool DataHelper::isKcxpPts(int platformId) {
    static const std::string family("kcxp");
    return inFamily(family, platformId);
}

bool DataHelper::isKdmidPts(int platformId) {
    static const std::string family("kdmid");
    return inFamily(family, platformId);
}

bool DataHelper::isGuosenIpwanPos(int platformId) {
    static const std::string family("guosen");
    return inFamily(family, platformId);
}

bool DataHelper::isHundsunIpwanPos(int platformId) {
    static const std::string family("hundsun");
    return inFamily(family, platformId);
}

bool DataHelper::isSPXIpwanPos(int platformId) {
    static const std::string family("spx");
    return inFamily(family, platformId);
}

bool DataHelper::isAPEXIpwanPos(int platformId) {
    static const std::string family("apex");
    return inFamily(family, platformId);
}

bool DataHelper::isFusdkPts(int platformId) {
    static const std::string family("fusdk");
    return inFamily(family, platformId);
}

bool DataHelper::isV8TPts(int platformId) {
    static const std::string family("v8t");
    return inFamily(family, platformId);
}

bool DataHelper::isKingDomIpwanPos(int platformId) { return isKdmidPts(platformId) || isKcxpPts(platformId); }

bool DataHelper::isNeedIpwanPos(int platformId) {
    return isHundsunIpwanPos(platformId) || isSPXIpwanPos(platformId);
}

bool DataHelper::isNeedCheckRepurchasePos(int platformId) {
    // The SPX test appears twice on purpose: the rule is published in this form and the order of
    // the questions (each one a configuration look-up) is part of it.
    return (isHundsunIpwanPos(platformId) || isSPXIpwanPos(platformId)) && !isSPXIpwanPos(platformId) &&
           !isKdmidPts(platformId) && !isKcxpPts(platformId) && !isGuosenIpwanPos(platformId);
}

bool DataHelper::isPlatformSupportLocalOrderId(int platformId, int kind) {
    static const std::string family("support_local_order_id");
    if ((kind == 2 || kind == 3) && inFamily(family, platformId)) return true;
    return isCTPStock(platformId);
}

bool DataHelper::isIpwanPos(const std::string& code, const std::string& market, int /*platformId*/) {
    const utils::StockTypeCenter& types = utils::StockTypeCenter::instance();
    return types.isTypedStock(100021, code, market) || types.isTypedStock(100018, code, market);
}

int DataHelper::getPlatFormId(int platformId) {
    switch (platformId) {
        case 32000:
        case 41001:
        case 41002:
        case 40002:
        case 41003:
        case 40003:
            return platformId;
        default:
            break;
    }
    if (platformId / 10000 == 1) return 10000;
    if (platformId / 10000 == 6) return 24001;
    // Unsigned difference: ids below 30000 wrap to large values, so one compare tests the block.
    if (static_cast<unsigned>(platformId) - 30000u <= 9999u) return 31003;
    return 10000;
}

// ---- Operations ----------------------------------------------------------------------------------

bool DataHelper::isBuy(int operation) {
    switch (operation) {
        case 0: case 4: case 5: case 8: case 9: case 12: case 13: case 18: case 20: case 22: case 26:
        case 28: case 32: case 35: case 37: case 38: case 48: case 1006: case 1011: case 1013: case 1020:
            return true;
        default:
            return false;
    }
}

bool DataHelper::isLong(int operation) {
    switch (operation) {
        case 0: case 1: case 2: case 6: case 7: case 10: case 11: case 14:
            return true;
        default:
            return false;
    }
}

bool DataHelper::isOpen(const int& operation) {
    return getOffsetFlagByOperation(operation) == EOFF_THOST_FTDC_OF_Open;
}

EOffset_Flag_Type DataHelper::getOffsetFlagByOperation(int operation) {
    switch (operation) {
        case 0: case 3: case 18: case 20: case 22: case 26: case 28: case 32: case 34: case 36: case 38:
        case 42: case 44: case 46: case 48: case 55: case 1004: case 1006: case 1007: case 1011:
        case 1013: case 1020:
            return EOFF_THOST_FTDC_OF_Open;
        case 1: case 4: case 14: case 15: case 19: case 21: case 23: case 24: case 25: case 27: case 29:
        case 33: case 35: case 37: case 39: case 43: case 45: case 47: case 49: case 51: case 52:
        case 56: case 1005: case 1010: case 1012: case 1014: case 1019: case 1021: case 1022:
            return EOFF_THOST_FTDC_OF_Close;
        case 2: case 5:
            return EOFF_THOST_FTDC_OF_CloseToday;
        case 30:
            return EOFF_THOST_FTDC_OF_PledgeIn;
        case 31:
            return EOFF_THOST_FTDC_OF_PledgeOut;
        case 50:
            return EOFF_THOST_FTDC_OF_Exercise;
        default:
            return EOFF_THOST_FTDC_OF_INVALID;
    }
}

// ---- Order types and trade platforms -------------------------------------------------------------

bool DataHelper::isAlgoOrderType(int orderType) {
    switch (orderType) {
        case 4: case 8: case 9: case 10: case 13:
            return true;
        default:
            return false;
    }
}

int DataHelper::getPlatformTypeByOrderType(int orderType) {
    switch (orderType) {
        case 5: return 5;
        case 8: return 7;
        case 9: return 8;
        case 10: return 9;
        case 11:
        case 12: return 10;
        case 13: return 11;
        default: return 3;  // 4, 6, 7 and every unknown type
    }
}

const std::string& DataHelper::getAuthorityByOrderType(int orderType) {
    static const std::string none;
    static const std::string zxjt("mdl_alg_zxjt1");
    static const std::string zsgs("mdl_alg_zsgs1");
    static const std::string zxzq("mdl_alg_zxzq1");
    static const std::string genus("mdl_alg_genus1");
    static const std::string jazz("mdl_alg_jazz1");
    static const std::string twap("mdl_alg_twap1");
    static const std::string nqalg("mdl_alg_nqalg1");
    switch (orderType) {
        case 4: return zxjt;
        case 5: return zsgs;
        case 8: return zxzq;
        case 9: return genus;
        case 10: return jazz;
        case 11:
        case 12: return twap;
        case 13: return nqalg;
        default: return none;
    }
}

bool DataHelper::isAlgoTradePlatform(int tradePlatform) {
    switch (tradePlatform) {
        case 3: case 7: case 8: case 9: case 11:
            return true;
        default:
            return false;
    }
}

// ---- Status predicates ---------------------------------------------------------------------------

bool DataHelper::isCommandCompleted(int commandStatus) {
    switch (commandStatus) {
        case 1: case 4: case 5: case 7: case 202:
            return true;
        default:
            return false;
    }
}

bool DataHelper::isSystemStopLoss(int stopLossType) { return stopLossType >= 3 && stopLossType <= 6; }

bool DataHelper::canFutureOrder(int exchangeStatus) {
    return exchangeStatus != EXCHANGE_STATUS_BEFORE_TRADING && exchangeStatus != EXCHANGE_STATUS_NO_TRADING &&
           exchangeStatus != EXCHANGE_STATUS_CLOSED;
}

bool DataHelper::isInvalidNetValue(double value) { return std::fabs(value) - 1e300 > kEpsilon; }

// ---- Instrument codes ----------------------------------------------------------------------------

bool DataHelper::isArbitrage(const std::string& code) { return code.find('&') != std::string::npos; }

bool DataHelper::isArbitrage(const std::string& code, std::string& leg1, std::string& leg2, std::string& kind) {
    const std::string::size_type blank = code.find(' ');
    const std::string::size_type amp = code.find('&');
    // Both separators must exist and stand after position 0 (npos means "not found").
    if (blank != std::string::npos && amp != std::string::npos && blank >= 1 && amp >= 1) {
        kind.assign(code, 0, blank);
        // A '&' before the blank leaves no first leg between them: leg1 is then empty rather than
        // a run of characters that crosses the separator.
        if (amp > blank)
            leg1.assign(code, blank + 1, amp - blank - 1);
        else
            leg1.clear();
        leg2.assign(code, amp + 1, std::string::npos);
        return true;
    }
    kind.clear();
    leg1 = code;
    leg2 = code;
    return false;
}

bool DataHelper::isPeriodArbitrage(const std::string& leg1, const std::string& leg2) {
    const std::string::size_type n1 = leg1.size();
    const std::string::size_type n2 = leg2.size();
    for (std::string::size_type i = 0; i < n1; ++i) {
        if (i >= n2) return false;
        const char c = leg1[i];
        if (c >= '0' && c <= '9') return leg2[i] >= '0' && leg2[i] <= '9';
        if (c != leg2[i]) return false;
    }
    return true;
}

bool DataHelper::isGoldCash(const std::string& instrumentName) {
    return instrumentName.find("(T+") == std::string::npos;
}

// ---- Value ranges --------------------------------------------------------------------------------

bool DataHelper::isValueInRange(double value, const CValueRange& range) {
    if (range.m_nLowerBoundType == 4) return std::fabs(value - range.m_dLowerBound) <= kEpsilon;

    const double lo = range.m_nLowerBoundType == -1 ? -kMaxDouble : range.m_dLowerBound;
    const double hi = range.m_nUpperBoundType == -1 ? kMaxDouble : range.m_dUpperBound;

    const bool lowerOk = range.m_nLowerBoundType == 3 ? !(value - lo < -kEpsilon) : value - lo > kEpsilon;
    const bool upperOk = range.m_nUpperBoundType == 3 ? !(value - hi > kEpsilon) : value - hi < -kEpsilon;
    return lowerOk && upperOk;
}

bool DataHelper::isSameRange(const CValueRange& a, const CValueRange& b) {
    if (a.m_nUpperBoundType != b.m_nUpperBoundType) return false;
    const bool uppersAgree = agree(a.m_dUpperBound, b.m_dUpperBound);
    const bool lowersAgree = agree(a.m_dLowerBound, b.m_dLowerBound);
    const bool lowersInvalid = isInvalidNetValue(a.m_dLowerBound) && isInvalidNetValue(b.m_dLowerBound);
    const bool uppersInvalid = isInvalidNetValue(a.m_dUpperBound) && isInvalidNetValue(b.m_dUpperBound);
    if (uppersAgree && lowersAgree) return true;
    if (uppersAgree && lowersInvalid) return true;
    if (lowersAgree && uppersInvalid) return true;
    return lowersInvalid && uppersInvalid;
}

// ---- Foreign-stock estimates ---------------------------------------------------------------------

double DataHelper::getOutterStockMargin(double volume, double price) { return volume * price; }

double DataHelper::getOutterStockComssion(double volume, double price) {
    return std::max(1.0, std::min(volume * 0.005, volume * price * 0.005));
}

double DataHelper::isGreaterThanhgtFee(double fee) { return fee > 100.0 ? fee : 100.0; }

// ---- Positions -----------------------------------------------------------------------------------

bool DataHelper::compPos(const IDataPtr& a, const IDataPtr& b) {
    const CPositionDetail* pa = dynamic_cast<const CPositionDetail*>(a.get());
    const CPositionDetail* pb = dynamic_cast<const CPositionDetail*>(b.get());
    if (!pa || !pb) return false;
    const int byExchange = pa->m_strExchangeID.compare(pb->m_strExchangeID);
    if (byExchange != 0) return byExchange < 0;
    return pa->m_strInstrumentID.compare(pb->m_strInstrumentID) < 0;
}

// ---- Accounts ------------------------------------------------------------------------------------

bool DataHelper::isSuperAccount(const CAccountInfoPtr& info) {
    return info && info->m_strSubAccount == CAccountInfo::SUPER_ACCOUNT_TAG;
}

// Futures trading is under way for an account when all of these hold:
//  - the store exists and has been initialised (before that its records are a partial picture);
//  - its account is on a futures or a futures-option platform;
//  - at least one China futures exchange is in a status that accepts orders (canFutureOrder). A
//    store that has been told no exchange status at all counts as accepting orders, since an
//    unknown status does not forbid them; an exchange marked before-trading, no-trading or closed
//    does not count.
bool DataHelper::isFutureTrading(const boost::shared_ptr<CAccountData>& accountData) {
    if (!accountData || !accountData->initialized()) return false;
    const CAccountInfoPtr info = accountData->getAccountInfo();
    if (!info) return false;
    if (!isFuturePlatform(info->m_nPlatformID) && !isFutureOptionPlatform(info->m_nPlatformID)) return false;

    static const std::string exchanges[] = {"CFFEX", "SHFE", "DCE", "CZCE", "INE"};
    static const std::string anyInstrument;
    for (const std::string& exchange : exchanges) {
        if (canFutureOrder(accountData->getExchangeStatus(exchange, anyInstrument))) return true;
    }
    return false;
}

}  // namespace ttservice
