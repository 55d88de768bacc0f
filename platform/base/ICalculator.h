// ttservice::ICalculator: the calculator service of the base library. It recomputes an account's
// positions and funds from its orders and deals, revalues an account when prices change, and
// answers tradable volumes. The data layer hands it the account store; it never computes these
// figures itself.
//
// Thread safety: implementations may be called from any thread, concurrently for different
// accounts; an implementation takes the account's CAccountData::Lock while it reads or writes
// several of the store's records.
#pragma once

#include "records/Records.h"

#include <map>
#include <string>

namespace ttservice {

class CAccountData;
typedef boost::shared_ptr<CAccountData> CAccountDataPtr;

// Pending price changes of an account: instrument key to the new valuation price.
typedef std::map<std::string, double> PriceChangeMap;

class ICalculator {
public:
    virtual ~ICalculator() {}

    // An order of the account arrived or changed; recompute what depends on it. Returns 0 when
    // nothing changed, 1 otherwise.
    virtual int updateOrder(const COrderDetailPtr& order, const CAccountDataPtr& account) = 0;
    // A deal of the account arrived; `isNew` is false when it was seen before. Returns 0 when
    // nothing was applied, 1 otherwise.
    virtual int updateDeal(const CDealDetailPtr& deal, const CAccountDataPtr& account, bool isNew) = 0;
    // Revalue the account with the prices that changed since the last refresh.
    virtual void updatePrice(const CAccountDataPtr& account, const PriceChangeMap& changes) = 0;

    // Tradable volumes. `direction` and `offset` are passed through from the caller unchanged.
    virtual double getCanOrderVolume(const CAccountDataPtr& account, const std::string& exchange,
                                     const std::string& instrument, int direction, int offset, double price) = 0;
    virtual void getCanOrderVolumeWithReason(const CAccountDataPtr& account, const std::string& exchange,
                                             const std::string& instrument, int direction, int offset,
                                             double price, const CStructVolumePtr& out) = 0;
    virtual double getSingleOpVolume(const CAccountDataPtr& account, const std::string& exchange,
                                     const std::string& instrument, int direction, int offset, double price,
                                     double amount) = 0;
};
typedef boost::shared_ptr<ICalculator> ICalculatorPtr;

}  // namespace ttservice
