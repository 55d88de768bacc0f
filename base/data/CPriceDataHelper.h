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
// unchanged: the helper reports, it never corrects a price.
//
// Thread safety: every member is static and stateless; any thread may call any of them. The quote
// is shared and read without its lock, so a concurrent update may give a torn read between fields,
// which every reader of quotes in the data layer accepts.
//
// Cost: the selectors and getOriginPrice only read fields of the quote and allocate nothing, with
// two exceptions: the limit-check line when the error logger is enabled, and, for type 12 on a
// futures exchange in the order flavour, the data center's instrument look-up behind
// isSupportMarketPrice.
#pragma once

#include "records/Records.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>

namespace ttservice {

class CAccountData;

// The order direction of an operation: DIRECTION_FLAG_BUY (48, '0') or DIRECTION_FLAG_SELL
// (49, '1'). Sell for operations 1, 2, 3, 6, 7, 10, 11, 14, 19, 21, 24, 27, 29, 33, 34, 36, 39, 43,
// 45, 47, 49, 50, 52, 1005, 1007, 1010, 1014, 1021 and 1022; buy for every other value, negative
// and unknown values included.
int getDirectionByOperation(int operation);

class CPriceDataHelper {
public:
    CPriceDataHelper() = delete;

    static double getPriceForOrder(const CPriceDataPtr& price, int priceType, int operation);
    static double getPriceForCalc(const CPriceDataPtr& price, int priceType, int operation);
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
};

}  // namespace ttservice
