#include "base/data/CInstrumentFeeHelper.h"

#include <algorithm>
#include <cmath>

namespace ttservice {

namespace {

bool validPrice(double p) {
    return std::isfinite(p) && std::fabs(p) > 1e-5 && p != TT_INVALID_DOUBLE;
}

double roundToCent(double v) {
    return std::round(v * 100.0) / 100.0;
}

}  // namespace

double CInstrumentFeeHelper::commissionPrice(const COrderDetail& order) {
    if (validPrice(order.m_dLimitPrice)) return order.m_dLimitPrice;
    if (validPrice(order.m_dTradedPrice)) return order.m_dTradedPrice;
    return TT_INVALID_DOUBLE;
}

double CInstrumentFeeHelper::calcCommission(const CInstrumentFeePtr& fee, const COrderDetail& order) {
    if (!fee) return TT_INVALID_DOUBLE;
    const double price = commissionPrice(order);
    const int volume = order.m_nVolumeTotalOriginal;
    if (price == TT_INVALID_DOUBLE || volume <= 0) return TT_INVALID_DOUBLE;
    const int multiple = fee->m_instrument && fee->m_instrument->m_nVolumeMultiple > 0
                             ? fee->m_instrument->m_nVolumeMultiple
                             : 1;
    const double amount = price * volume * multiple;

    if (const CStkExchangePtr& stk = fee->m_stkExchange) {
        const bool buys = order.m_nDirection == '0';
        const double brokerage = std::max(
            amount * (buys ? stk->m_dBuyCommissionRate : stk->m_dSellCommissionRate), stk->m_dMinCommission);
        double total = brokerage + amount * stk->m_dTransferFeeRate + amount * stk->m_dTradeFeeRate;
        if (!buys) total += amount * stk->m_dStampTaxRate;
        return roundToCent(total);
    }

    double byMoney = fee->m_dCloseRatioByMoney;
    double byVolume = fee->m_dCloseRatioByVolume;
    if (order.m_nOffsetFlag == '0') {
        byMoney = fee->m_dOpenRatioByMoney;
        byVolume = fee->m_dOpenRatioByVolume;
    } else if (order.m_nOffsetFlag == '3') {
        byMoney = fee->m_dCloseTodayRatioByMoney;
        byVolume = fee->m_dCloseTodayRatioByVolume;
    }
    return roundToCent(amount * byMoney + volume * byVolume);
}

}  // namespace ttservice
