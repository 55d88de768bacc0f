// ttservice::CInstrumentFeeHelper: what an order costs in fees, from the account's fee record of
// its instrument (CInstrumentFee). Static operations with no state; any thread. The fee record and
// the order are read without their IData::Lock; a caller whose records another thread may be
// updating holds one.
#pragma once

#include "records/Records.h"

namespace ttservice {

class CInstrumentFeeHelper {
public:
    // The fees of the whole order (ordered volume m_nVolumeTotalOriginal at its limit price, or at
    // its traded price when the limit price is empty), rounded half away from zero to the cent.
    //
    // Stock rule (the fee record carries m_stkExchange):
    //   amount     = price * volume * volume multiple (the instrument's, 1 when unknown)
    //   brokerage  = max(amount * buy or sell commission rate, minimum commission)
    //   fees       = brokerage + amount * transfer fee rate + amount * trade fee rate
    //                + amount * stamp tax rate (selling orders only, direction other than '0')
    // Futures rule (no m_stkExchange):
    //   by the offset flag, open ('0') uses the open ratios, close today ('3') the close-today
    //   ratios, any other offset the close ratios:
    //   fees       = amount * ratio by money + volume * ratio by volume
    //
    // Returns TT_INVALID_DOUBLE when the fees cannot be computed (no fee record, no valid price,
    // no volume); callers then keep the figure they have.
    static double calcCommission(const CInstrumentFeePtr& fee, const COrderDetail& order);
    // The price the commission is computed at, or TT_INVALID_DOUBLE.
    static double commissionPrice(const COrderDetail& order);
};

}  // namespace ttservice
