#include "base/data/CPriceDataHelper.h"

#include "base/TraderCenter.h"
#include "base/data/CAccountData.h"
#include "base/data/DataHelper.h"
#include "utils/LogCenter.h"
#include "utils/TimeUtils.h"

#include <cmath>
#include <limits>

namespace ttservice {

namespace {

const double kEpsilon = 1e-5;
// An upper limit this close to 100000.0 is the back end's placeholder for "no limit".
const double kNoUpperLimit = 100000.0;
const double kNoUpperLimitTolerance = 0.0001;

using price_detail::isEmptyPrice;

// A price a fallback may hand out: finite, positive beyond the tolerance, not the "no price" value.
inline bool isUsablePrice(double p) { return p > kEpsilon && p < TT_INVALID_DOUBLE; }

inline bool isHKConnectExchange(const std::string& exchange) { return exchange == "HGT" || exchange == "SGT"; }

}  // namespace

bool CPriceDataHelper::selectLimitOrMarket(const CPriceData& q, int operation, bool forOrder, double& price) {
    const std::string& exchange = q.m_strExchangeID;
    if (forOrder) {
        if ((isFutureExchange(exchange) && isSupportMarketPrice(exchange, q.m_strInstrumentID)) ||
            isHKConnectExchange(exchange)) {
            price = 0.0;  // a market order carries no price
            return true;
        }
    } else {
        if (isFutureExchange(exchange)) {
            price = DataHelper::isBuy(operation) ? q.m_dUpperLimitPrice : q.m_dLowerLimitPrice;
            return true;
        }
        if (isHKConnectExchange(exchange)) {
            price = q.m_dLastPrice;
            return true;
        }
    }
    if (getDirectionByOperation(operation) == DIRECTION_FLAG_BUY) {
        price = q.m_dUpperLimitPrice;
        if (isEmptyPrice(price) || std::fabs(price - kNoUpperLimit) <= kNoUpperLimitTolerance)
            price = price_detail::walkBook(q, PRTP_SALE5);
    } else {
        // No placeholder test on the sell side: a lower limit is never the 100000.0 placeholder.
        price = q.m_dLowerLimitPrice;
        if (isEmptyPrice(price)) price = price_detail::walkBook(q, PRTP_BUY5);
    }
    return false;
}

// Called only for a price that breaks a limit; the arguments are doubles, so nothing is built
// unless the logger is enabled.
void CPriceDataHelper::logLimitBreach(const char* function, double price, double upperLimit, double lowerLimit) {
    utils::CLogCenter& log = utils::CLogCenter::instance();
    if (!log.logEnabled(utils::LOGGER_STD, utils::TT_LOG_ERROR)) return;
    log.write(utils::LOGGER_STD, utils::TT_LOG_ERROR,
              utils::formatLog("Price:%1% greater than upperLimitPrice:%2% or less than lowerLimitPrice:%3%", price,
                               upperLimit, lowerLimit),
              function, __FILE__, __LINE__);
}

double CPriceDataHelper::getPriceAndFixForOrder(const CPriceDataPtr& price, int priceType, int operation,
                                                double fixPrice) {
    return priceType == PRTP_FIX ? fixPrice : getPriceForOrder(price, priceType, operation);
}

double CPriceDataHelper::getPriceAndFixForCalc(const CPriceDataPtr& price, int priceType, int operation,
                                               double fixPrice) {
    return priceType == PRTP_FIX ? fixPrice : getPriceForCalc(price, priceType, operation);
}

double CPriceDataHelper::getOriginPrice(const CPriceDataPtr& price, int priceType, int operation) {
    if (!price) return TT_INVALID_DOUBLE;
    const CPriceData& q = *price;
    if (priceType == PRTP_HANG || priceType == PRTP_COMPETE) {
        const bool buy = getDirectionByOperation(operation) == DIRECTION_FLAG_BUY;
        priceType = (priceType == PRTP_HANG) == buy ? PRTP_BUY1 : PRTP_SALE1;
    }
    switch (priceType) {
        case PRTP_SALE5: return q.m_dAskPrice5;
        case PRTP_SALE4: return q.m_dAskPrice4;
        case PRTP_SALE3: return q.m_dAskPrice3;
        case PRTP_SALE2: return q.m_dAskPrice2;
        case PRTP_SALE1: return q.m_dAskPrice1;
        case PRTP_LATEST: return q.m_dLastPrice;
        case PRTP_BUY1: return q.m_dBidPrice1;
        case PRTP_BUY2: return q.m_dBidPrice2;
        case PRTP_BUY3: return q.m_dBidPrice3;
        case PRTP_BUY4: return q.m_dBidPrice4;
        case PRTP_BUY5: return q.m_dBidPrice5;
        default: return TT_INVALID_DOUBLE;  // 11, 12 and every value outside 0..14
    }
}

bool CPriceDataHelper::isFutureExchange(const std::string& exchange) {
    switch (exchange.size()) {
        case 2: return exchange == "DF" || exchange == "ZF" || exchange == "SF" || exchange == "IF";
        case 3: return exchange == "DCE" || exchange == "INE";
        case 4: return exchange == "CZCE" || exchange == "SHFE";
        case 5: return exchange == "CFFEX";
        default: return false;
    }
}

bool CPriceDataHelper::isSupportMarketPrice(const std::string& exchange, const std::string& instrument) {
    const bool dceOrCzce = exchange == "DCE" || exchange == "DF" || exchange == "CZCE" || exchange == "ZF";
    const bool cffex = exchange == "CFFEX" || exchange == "IF";
    if (!dceOrCzce && !cffex) return false;  // SHFE, INE and every non-futures exchange

    CInstrumentDetailPtr detail;
    if (const IDataCenterPtr dataCenter = TraderCenter::instance()->getDataCenter())
        detail = dataCenter->getInstrument(exchange, instrument);
    if (detail) return detail->m_nMaxMarketOrderVolume > 0;
    return dceOrCzce;
}

// The order of the questions:
//  1. No quote (or no data center): the instrument's previous close from the data center's
//     instrument record, else 0.0; "getLastPrice failure" is logged.
//  2. A valid last price (finite, above 1e-5, not the "no price" value) is the answer; nothing is
//     logged.
//  3. A zero last price (at or below 1e-5) while the exchange is not in continuous trading (its
//     market status, as the data center holds it, is not '2'; an unknown status counts as not
//     trading): before the first trade of the day the previous close is the price, and
//     "lastPrice is zero, not exchanging status" is logged.
//  4. Otherwise the last price is unusable: not a number, the "no price" value, or zero during
//     continuous trading. The previous close when it is usable ("lastPrice is Invalid, assign
//     lastCosePrice"), else 0.0 ("lastPrice is Invalid, assign 0.0").
// Each fallback writes exactly one info line on "TTStdFile", and the line names the value returned:
// a zero last price outside trading whose previous close is unusable too gets the "assign 0.0" line.
double CPriceDataHelper::getLastPrice(int platformId, const std::string& exchangeId, const std::string& instrumentId) {
    const IDataCenterPtr dataCenter = TraderCenter::instance()->getDataCenter();
    CPriceDataPtr quote;
    if (dataCenter) quote = dataCenter->getPrice(platformId, exchangeId, instrumentId);

    if (!quote) {
        double preClose = 0.0;
        if (dataCenter) {
            const CInstrumentDetailPtr detail = dataCenter->getInstrument(exchangeId, instrumentId);
            if (detail && isUsablePrice(detail->m_dPreClosePrice)) preClose = detail->m_dPreClosePrice;
        }
        TT_LOG_STD_INFO(
            "getLastPrice failure, use lastCosePrice, platformID:%1%, exchangeID:%2%, instrumentID:%3%, preClose:%4%",
            platformId, exchangeId, instrumentId, preClose);
        return preClose;
    }

    const double last = quote->m_dLastPrice;
    const double preClose = quote->m_dPreClosePrice;
    if (isUsablePrice(last)) return last;

    const bool lastIsZero = last <= kEpsilon;  // false for NaN: a NaN is invalid, not zero
    if (lastIsZero && isUsablePrice(preClose) &&
        dataCenter->getMarketStatus(exchangeId) != EXCHANGE_STATUS_CONTINOUS) {
        TT_LOG_STD_INFO(
            "lastPrice is zero, not exchanging status, use lastCosePrice, platformID:%1%, exchangeID:%2%, "
            "instrumentID:%3%, preClose:%4%",
            platformId, exchangeId, instrumentId, preClose);
        return preClose;
    }
    if (isUsablePrice(preClose)) {
        TT_LOG_STD_INFO(
            "lastPrice is Invalid, assign lastCosePrice, platformID:%1%, exchangeID:%2%, instrumentID:%3%, "
            "preClose:%4%",
            platformId, exchangeId, instrumentId, preClose);
        return preClose;
    }
    TT_LOG_STD_INFO("lastPrice is Invalid, assign 0.0, platformID:%1%, exchangeID:%2%, instrumentID:%3%", platformId,
                    exchangeId, instrumentId);
    return 0.0;
}

// The underlying is the fee record's instrument's m_strUnderlyingInstrID, else that of the account's
// instrument record of the option; it trades on the option's exchange. Its previous settlement
// price is the account store's (getLastSettlement: the underlying's fee record, else the last
// settlement table), else the underlying's instrument record's m_dPreSettlementPrice.
double CPriceDataHelper::getSettlementPrice(const boost::shared_ptr<CAccountData>& accountData,
                                            const std::string& exchangeId, const std::string& instrumentId,
                                            CInstrumentFeePtr& fee) {
    if (!fee && accountData) fee = accountData->getInstrumentFee(exchangeId, instrumentId);
    if (!fee) {
        TT_LOG_STD_ERROR("getSettlementPrice getInstrumentFee for %s is not found", instrumentId);
        return TT_INVALID_DOUBLE;
    }

    std::string underlying;
    if (fee->m_instrument) underlying = fee->m_instrument->m_strUnderlyingInstrID;
    if (underlying.empty() && accountData) {
        const CInstrumentDetailPtr option = accountData->getInstrumentDetail(exchangeId, instrumentId);
        if (option) underlying = option->m_strUnderlyingInstrID;
    }

    double settlement = TT_INVALID_DOUBLE;
    if (!underlying.empty() && accountData) {
        settlement = accountData->getLastSettlement(exchangeId, underlying);
        if (!isUsablePrice(settlement)) {
            const CInstrumentDetailPtr detail = accountData->getInstrumentDetail(exchangeId, underlying);
            if (detail) settlement = detail->m_dPreSettlementPrice;
        }
    }
    if (!isUsablePrice(settlement)) {
        TT_LOG_STD_ERROR("calcExchFtOptionMargin PreSettlementPrice for %s is not found", instrumentId);
        return TT_INVALID_DOUBLE;
    }
    return settlement;
}

bool CPriceDataHelper::isNewPriceSecond(int64_t first, int64_t second) {
    const auto tradingSecond = [](int64_t seconds) {
        int date = 0;
        int time = 0;
        utils::d8_secondToDateTime(seconds, date, time);
        return time >= 180000 ? seconds - 86400 : seconds;
    };
    return tradingSecond(second) > tradingSecond(first);
}

std::string CPriceDataHelper::getLogString(const CPriceDataPtr& price) {
    if (!price) return std::string();
    return utils::formatLog(
        "[ m_nPlatformId: %1%, m_strExchangeID: %2%, m_strInstrumentID: %3%, m_strUpdateTime: %4%, "
        "m_strTradingDay: %5%, m_dLastPrice: %6%, m_dPreClosePrice: %7% ]",
        price->m_nPlatformId, price->m_strExchangeID, price->m_strInstrumentID, price->m_strUpdateTime,
        price->m_strTradingDay, price->m_dLastPrice, price->m_dPreClosePrice);
}

int CPriceDataHelper::toRealVolume(const CPriceDataPtr& price) {
    if (!price) return 0;
    int64_t lots = price->m_nVolume;
    if (price->m_nVolumeUnit > 0) lots /= price->m_nVolumeUnit;
    if (lots > std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
    if (lots < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
    return static_cast<int>(lots);
}

}  // namespace ttservice
