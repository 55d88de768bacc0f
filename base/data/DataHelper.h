// ttservice::DataHelper: the single place where the platform numbering scheme, the operation and
// order-type codes, instrument-code conventions and value ranges are interpreted. Every other part
// of the data layer asks these predicates instead of comparing platform ids with literals of its own.
//
// Thread safety: every member is static and keeps no state; any thread may call any of them at any
// time. The counter-system predicates (isCTPStock ... isV8TPts, isPlatformSupportLocalOrderId) hold
// the process-wide ConfigCollector by shared ownership for the duration of the call only, so a
// concurrent ConfigCollector::setInstance is safe: a call answers from the old or the new one.
//
// Cost: the market-family, single-id, operation, order-type and range predicates are pure integer or
// floating comparisons (range tests and switches, which the compiler turns into jump or bit tables)
// and never allocate.
// The counter-system predicates pass their family name as a function-local static std::string, so
// they allocate nothing either; their cost is one map look-up inside the configuration service.
//
// Nothing here throws or reports an error: unknown codes fall to the "other" answer of each rule
// (false, -1, 3, the empty string, or 10000).
#pragma once

#include "records/Enums.h"
#include "records/Records.h"

#include <boost/shared_ptr.hpp>

#include <string>

namespace ttservice {

class CAccountData;

class DataHelper {
public:
    DataHelper() = delete;

    // ---- Market families of a platform id. Blocks deliberately leave out their last number where
    // stated (29999 is no futures platform, 39999 is gold for isGoldPlatform but not isGoldlatform,
    // 49999, 59999, 79999 and 119999 belong to no family). Negative ids belong to no family.
    static bool isStockPlatform(const int& platformId);        // 10000..19999
    static bool isFuturePlatform(const int& platformId);       // 20000..29998
    static bool isGoldlatform(const int& platformId);          // 30000..39998
    static bool isGoldPlatform(const int& platformId);         // 30000..39999
    static bool isYswpPlatform(const int& platformId);         // 40002 or 41002
    static bool isForeignPlatform(const int& platformId);      // 41001..49998
    static bool isHGTPlatform(const int& platformId);          // 51001..59998
    static bool isStockOptionPlatform(const int& platformId);  // 60000..69999
    static bool isFutureOptionPlatform(const int& platformId); // 70001..79998
    static bool isNew3BoardPlatform(const int& platformId);    // 100000..109999
    static bool isSGTPlatform(const int& platformId);          // 110001..119998
    static bool isInterbankPlatform(const int& platformId);    // exactly 1110003

    // ---- Single-id flags.
    static bool isExistBizNo(int platformId);           // every id but 10001
    static bool isHistoryAllowNega(int platformId);     // 10004, 10007, 11007
    static bool isNeedCalcAssetGuosen(int platformId);  // 10008, 11008

    // ---- Counter systems: membership in a named family of the configuration service
    // (ConfigCollector::isSomePt). The sets are configuration, not code.
    static bool isCTPStock(int platformId);         // "ctp"
    static bool isGoldOrder(int platformId);        // "gold"
    static bool isKcxpPts(int platformId);          // "kcxp"
    static bool isKdmidPts(int platformId);         // "kdmid"
    static bool isGuosenIpwanPos(int platformId);   // "guosen"
    static bool isHundsunIpwanPos(int platformId);  // "hundsun"
    static bool isSPXIpwanPos(int platformId);      // "spx"
    static bool isAPEXIpwanPos(int platformId);     // "apex"
    static bool isFusdkPts(int platformId);         // "fusdk"
    static bool isV8TPts(int platformId);           // "v8t"

    // Kdmid or Kcxp.
    static bool isKingDomIpwanPos(int platformId);
    // Hundsun or SPX.
    static bool isNeedIpwanPos(int platformId);
    // (Hundsun or SPX) and not SPX, not Kdmid, not Kcxp, not Guosen, asked in exactly that order
    // with short-circuit: in effect a Hundsun counter that is none of the others.
    static bool isNeedCheckRepurchasePos(int platformId);
    // For kinds 2 and 3, membership in "support_local_order_id" answers true; otherwise (and for
    // every other kind) the answer is isCTPStock(platformId).
    static bool isPlatformSupportLocalOrderId(int platformId, int kind);
    // True when the code is a pledge-repurchase stock type (StockTypeCenter types 100021 or 100018)
    // of the market. The platform id is accepted for the callers' convenience and not used.
    static bool isIpwanPos(const std::string& code, const std::string& market, int platformId);

    // The platform id whose settings stand for `platformId`: 32000, 41001, 41002, 40002, 41003 and
    // 40003 stand for themselves; stock ids map to 10000, stock-option ids to 24001, 30000..39999 to
    // 31003, everything else to 10000.
    static int getPlatFormId(int platformId);

    // ---- Operations (EOperationType codes; records carry them as int).
    static bool isBuy(int operation);
    static bool isLong(int operation);
    static bool isOpen(const int& operation);  // getOffsetFlagByOperation(operation) is '0'
    // '0' open, '1' close, '3' close today, 'Q' pledge in, 'B' pledge out, 'D' exercise, -1 none.
    static EOffset_Flag_Type getOffsetFlagByOperation(int operation);

    // ---- Order types (EOrderType) and trade platforms (ETradePlatform).
    static bool isAlgoOrderType(int orderType);
    static int getPlatformTypeByOrderType(int orderType);
    // The permission module an order type needs ("" when none). The returned reference is to a
    // static string that lives as long as the process.
    static const std::string& getAuthorityByOrderType(int orderType);
    static bool isAlgoTradePlatform(int tradePlatform);  // 3, 7, 8, 9, 11

    // ---- Status predicates.
    static bool isCommandCompleted(int commandStatus);  // 1, 4, 5, 7, 202
    static bool isSystemStopLoss(int stopLossType);     // 3..6
    static bool canFutureOrder(int exchangeStatus);     // all but '0', '1', '6'
    // |x| - 1e300 > 1e-5: the placeholder for "no value". NaN is not invalid.
    static bool isInvalidNetValue(double value);

    // ---- Instrument codes.
    // True when the code names a combination (contains '&').
    static bool isArbitrage(const std::string& code);
    // Splits "<kind> <leg1>&<leg2>" (blank and '&' both at position 1 or later). On success fills
    // the three outputs and answers true; otherwise kind = "", leg1 = leg2 = code and false.
    static bool isArbitrage(const std::string& code, std::string& leg1, std::string& leg2, std::string& kind);
    // True when the legs are one product in different months: equal up to the first digit of leg1,
    // where leg2 must have a digit too. An empty leg1 answers true.
    static bool isPeriodArbitrage(const std::string& leg1, const std::string& leg2);
    // True for a spot gold contract: the name does not contain "(T+".
    static bool isGoldCash(const std::string& instrumentName);

    // ---- Value ranges (bound kinds: -1 unbounded, 3 closed, 4 exact lower value, else open).
    static bool isValueInRange(double value, const CValueRange& range);
    // Compares upper kinds only (lower kinds are deliberately ignored), then the bound values with
    // a 1e-5 tolerance, invalid values (isInvalidNetValue) matching each other.
    static bool isSameRange(const CValueRange& a, const CValueRange& b);

    // ---- Foreign-stock estimates.
    static double getOutterStockMargin(double volume, double price);    // volume x price
    // max(1.0, min(0.005 x volume, 0.005 x volume x price)).
    static double getOutterStockComssion(double volume, double price);
    // A floor of 100.0: the fee itself when above 100.0, else 100.0.
    static double isGreaterThanhgtFee(double fee);

    // Strict-weak ordering of positions by (m_strExchangeID, m_strInstrumentID), byte-wise. False
    // when either record is not a CPositionDetail.
    static bool compPos(const IDataPtr& a, const IDataPtr& b);

    // ---- Accounts.
    // True when info is the broker-level super account: m_strSubAccount equals
    // CAccountInfo::SUPER_ACCOUNT_TAG. A null pointer is no super account.
    static bool isSuperAccount(const CAccountInfoPtr& info);
    // True when futures are being traded through the account: see the definition for the rule.
    static bool isFutureTrading(const boost::shared_ptr<CAccountData>& accountData);
};

}  // namespace ttservice
