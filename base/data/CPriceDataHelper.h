// ttservice::CPriceDataHelper: turns a quote (CPriceData) and the trader's price-type choice
// (EPriceType) into one concrete price.
//
//   getPriceForOrder / getPriceForCalc   the price to put on an order / to estimate frozen funds and
//                                        tradable volume with. Both walk the book from the requested
//                                        level towards level 1 while a level is empty, then fall back
//                                        to the last price and finally to the previous close.
//   getPriceAndFixFor{Order,Calc}        the same, with the caller's fixed price for type 11.
//   getOriginPrice                       the requested field alone, no fallback.
//
// "No price" is TT_INVALID_DOUBLE (the largest finite double): a null quote yields it. A price is
// empty when |p| <= 1e-5, when it equals TT_INVALID_DOUBLE, or when it is not a finite number (a
// NaN or an infinity in a quote is a broken field, never a price to order at).
//
// A selected price outside the quote's day limits is logged as an error on "TTStdFile" and returned
// unchanged: the helper reports, it never corrects a price. A limit left empty in the quote (markets
// without daily limits) is absent and checks nothing, and an empty result is no price to check.
//
// Thread safety: every member is static and stateless; any thread may call any of them. The quote
// is shared and read without its lock, so a concurrent update may give a torn read between fields,
// which every reader of quotes in the data layer accepts.
//
// Cost: the selectors and getOriginPrice only read fields of the quote and allocate nothing, with
// two exceptions: the limit-check line when the error logger is enabled, and, for type 12 on a
// futures exchange in the order flavour, the data center's instrument look-up behind
// isSupportMarketPrice. The selectors' common path (book levels, last price, previous close, the
// limit test) is defined inline below so that an order entry pays no call for it; type 12 and the
// log line are out of line. On that path a level costs one load and two compares, the direction
// of an operation two bit tests, and the limit test starts with the two distances, which settle it
// for a price inside its limits.
#pragma once

#include "records/Records.h"

#include <boost/config.hpp>
#include <boost/current_function.hpp>
#include <boost/shared_ptr.hpp>

#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace ttservice {

class CAccountData;

namespace price_detail {

// A set of small non-negative integers below 64 as a bit mask, built at compile time.
constexpr uint64_t bitsOf(std::initializer_list<int> members, int origin = 0) {
    uint64_t bits = 0;
    for (int m : members) bits |= uint64_t(1) << (m - origin);
    return bits;
}

}  // namespace price_detail

// The order direction of an operation: DIRECTION_FLAG_BUY (48, '0') or DIRECTION_FLAG_SELL
// (49, '1'). Sell for operations 1, 2, 3, 6, 7, 10, 11, 14, 19, 21, 24, 27, 29, 33, 34, 36, 39, 43,
// 45, 47, 49, 50, 52, 1005, 1007, 1010, 1014, 1021 and 1022; buy for every other value, negative
// and unknown values included. Two bit tests, no table and no branch: order entry asks it for
// every own-side and opposite-side price.
BOOST_FORCEINLINE int getDirectionByOperation(int operation) {
    constexpr uint64_t kSells = price_detail::bitsOf(
        {1, 2, 3, 6, 7, 10, 11, 14, 19, 21, 24, 27, 29, 33, 34, 36, 39, 43, 45, 47, 49, 50, 52});
    constexpr int kHighOrigin = 1005;
    constexpr uint64_t kHighSells = price_detail::bitsOf({1005, 1007, 1010, 1014, 1021, 1022}, kHighOrigin);
    const unsigned low = static_cast<unsigned>(operation);
    const unsigned high = low - static_cast<unsigned>(kHighOrigin);
    const bool sell = (low < 64 && ((kSells >> low) & 1)) || (high < 64 && ((kHighSells >> high) & 1));
    return sell ? DIRECTION_FLAG_SELL : DIRECTION_FLAG_BUY;
}

namespace price_detail {

// Empty: at most 1e-5 in magnitude, the "no price" value, or not a finite number at all (a NaN
// fails both comparisons, an infinity the second).
BOOST_FORCEINLINE bool isEmptyPrice(double p) {
    const double a = std::fabs(p);
    return !(a > 1e-5 && a < TT_INVALID_DOUBLE);
}

// The book level named by price type `type` (0..4: ask levels 5 to 1; 6..10: bid levels 1 to 5)
// if it is not empty, else the first non-empty level of the same side towards level 1;
// TT_INVALID_DOUBLE when all of them are empty (and for any other type).
BOOST_FORCEINLINE double walkBook(const CPriceData& q, int type) {
    switch (type) {
        case PRTP_SALE5: if (!isEmptyPrice(q.m_dAskPrice5)) return q.m_dAskPrice5;
            [[fallthrough]];
        case PRTP_SALE4: if (!isEmptyPrice(q.m_dAskPrice4)) return q.m_dAskPrice4;
            [[fallthrough]];
        case PRTP_SALE3: if (!isEmptyPrice(q.m_dAskPrice3)) return q.m_dAskPrice3;
            [[fallthrough]];
        case PRTP_SALE2: if (!isEmptyPrice(q.m_dAskPrice2)) return q.m_dAskPrice2;
            [[fallthrough]];
        case PRTP_SALE1: if (!isEmptyPrice(q.m_dAskPrice1)) return q.m_dAskPrice1;
            return TT_INVALID_DOUBLE;
        case PRTP_BUY5: if (!isEmptyPrice(q.m_dBidPrice5)) return q.m_dBidPrice5;
            [[fallthrough]];
        case PRTP_BUY4: if (!isEmptyPrice(q.m_dBidPrice4)) return q.m_dBidPrice4;
            [[fallthrough]];
        case PRTP_BUY3: if (!isEmptyPrice(q.m_dBidPrice3)) return q.m_dBidPrice3;
            [[fallthrough]];
        case PRTP_BUY2: if (!isEmptyPrice(q.m_dBidPrice2)) return q.m_dBidPrice2;
            [[fallthrough]];
        case PRTP_BUY1: if (!isEmptyPrice(q.m_dBidPrice1)) return q.m_dBidPrice1;
            return TT_INVALID_DOUBLE;
        default:
            return TT_INVALID_DOUBLE;
    }
}

// True when a selected price lies outside the quote's day limits by more than 1e-5. A limit that
// is empty is absent (quotes of markets without daily limits leave them at 0) and an empty result
// is no price: neither can break a limit. The distances are tested first, since a price inside its
// limits (the usual case) is then decided by two subtractions.
BOOST_FORCEINLINE bool breaksLimits(const CPriceData& q, double p) {
    const double upper = q.m_dUpperLimitPrice;
    const double lower = q.m_dLowerLimitPrice;
    return ((p - upper > 1e-5 && !isEmptyPrice(upper)) || (lower - p > 1e-5 && !isEmptyPrice(lower))) &&
           !isEmptyPrice(p);
}

}  // namespace price_detail

class CPriceDataHelper {
public:
    CPriceDataHelper() = delete;

    static BOOST_FORCEINLINE double getPriceForOrder(const CPriceDataPtr& price, int priceType, int operation) {
        return price ? select(*price, priceType, operation, true, BOOST_CURRENT_FUNCTION) : TT_INVALID_DOUBLE;
    }
    static BOOST_FORCEINLINE double getPriceForCalc(const CPriceDataPtr& price, int priceType, int operation) {
        return price ? select(*price, priceType, operation, false, BOOST_CURRENT_FUNCTION) : TT_INVALID_DOUBLE;
    }
    // fixPrice when priceType is 11 (PRTP_FIX), else the plain selector.
    static double getPriceAndFixForOrder(const CPriceDataPtr& price, int priceType, int operation, double fixPrice);
    static double getPriceAndFixForCalc(const CPriceDataPtr& price, int priceType, int operation, double fixPrice);
    // The field the price type names, empty or not; 13 and 14 by the operation's direction.
    // TT_INVALID_DOUBLE for types 11, 12, any type outside 0..14, and a null quote.
    static double getOriginPrice(const CPriceDataPtr& price, int priceType, int operation);

    // True when `exchange` is one of the futures exchanges for the type-12 rules: "DF", "DCE",
    // "ZF", "CZCE", "SF", "SHFE", "IF", "CFFEX", "INE".
    static bool isFutureExchange(const std::string& exchange);
    // Whether a limit-or-market order (type 12) on a futures exchange may go out as a market order
    // (price 0.0). The exchange rules:
    //   SHFE ("SF") and INE   never: both exchanges accept limit orders only.
    //   DCE ("DF"), CZCE ("ZF") yes, unless the data center knows the instrument and its
    //                          m_nMaxMarketOrderVolume is not positive (the exchange's own answer
    //                          for that contract wins over the exchange default).
    //   CFFEX ("IF")          only when the data center knows the instrument and its
    //                          m_nMaxMarketOrderVolume is positive. An unknown CFFEX contract is
    //                          priced at its limit instead: a limit order at the day's limit fills
    //                          like a market order, while a market order the exchange refuses
    //                          would not trade at all.
    //   any other exchange    no.
    static bool isSupportMarketPrice(const std::string& exchange, const std::string& instrument);

    // The usable last price of an instrument from the data center's quote. See the definition for
    // the order of the fallbacks (previous close, else 0.0) and the line each one logs.
    static double getLastPrice(int platformId, const std::string& exchangeId, const std::string& instrumentId);

    // The previous settlement price of a futures option's underlying, which the option's margin is
    // computed from. `fee` is the option's fee record: when the caller passes an empty pointer it is
    // looked up in the account store and handed back. TT_INVALID_DOUBLE when the fee record or the
    // underlying's previous settlement price is missing (each logged).
    static double getSettlementPrice(const boost::shared_ptr<CAccountData>& accountData, const std::string& exchangeId,
                                     const std::string& instrumentId, CInstrumentFeePtr& fee);

    // Whether quote time `second` is newer than quote time `first` (seconds since the epoch). A
    // stamp at 18:00:00 or later belongs to a night session and carries the next trading day's
    // date, so it is taken one day earlier before comparing.
    static bool isNewPriceSecond(int64_t first, int64_t second);

    // "[ m_nPlatformId: ..., m_strExchangeID: ..., ... m_dPreClosePrice: ... ]"; "" for null.
    static std::string getLogString(const CPriceDataPtr& price);

    // The quote's traded volume in lots: m_nVolume divided by m_nVolumeUnit (shares per lot) when
    // the unit is positive, else m_nVolume as it stands; truncated towards zero and limited to the
    // int range. 0 for a null quote.
    static int toRealVolume(const CPriceDataPtr& price);

private:
    // The selection shared by both flavours. `function` names the public selector in the
    // limit-check line.
    static double select(const CPriceData& q, int priceType, int operation, bool forOrder, const char* function);
    // Type 12: applies the exchange rules of the flavour; when one of them decides, stores the
    // final price in `price` and answers true (such a price is not limit-checked). Otherwise
    // stores the starting value (the day's limit on the order's side, or the far end of that side
    // of the book walked towards level 1) and answers false.
    static bool selectLimitOrMarket(const CPriceData& q, int operation, bool forOrder, double& price);
    // Writes the limit-check error line on "TTStdFile" when that logger is enabled.
    static void logLimitBreach(const char* function, double price, double upperLimit, double lowerLimit);
};

BOOST_FORCEINLINE double CPriceDataHelper::select(const CPriceData& q, int priceType, int operation, bool forOrder,
                                                  const char* function) {
    // Own side (13) is bid level 1 for a buy and ask level 1 for a sell; the opposite side (14) the
    // other way round. Both then walk like any other book level.
    if (priceType == PRTP_HANG || priceType == PRTP_COMPETE) {
        const bool buy = getDirectionByOperation(operation) == DIRECTION_FLAG_BUY;
        priceType = (priceType == PRTP_HANG) == buy ? PRTP_BUY1 : PRTP_SALE1;
    }
    double p = TT_INVALID_DOUBLE;
    if (static_cast<unsigned>(priceType) <= PRTP_BUY5) {
        p = price_detail::walkBook(q, priceType);
    } else if (priceType == PRTP_MARKET) {
        if (selectLimitOrMarket(q, operation, forOrder, p)) return p;
    }
    // Types 5 and 11 and unknown types start empty and take the last price.
    if (price_detail::isEmptyPrice(p)) p = q.m_dLastPrice;
    if (price_detail::isEmptyPrice(p)) p = q.m_dPreClosePrice;
    if (BOOST_UNLIKELY(price_detail::breaksLimits(q, p)))
        logLimitBreach(function, p, q.m_dUpperLimitPrice, q.m_dLowerLimitPrice);
    return p;
}

}  // namespace ttservice
