// ttservice::CSingleMarginSum: the margin that an account's open orders freeze, summed per product
// and side. Exchanges that charge margin on one side only (the larger of a product's long and short
// side) need both sums; the calculator takes the larger.
//
// Which orders count: an opening order (offset '0') that is not complete
// (COrderDetailHelper::completed) contributes its frozen margin (m_dFrozenMargin, as the back end
// states it for the untraded remainder) to the long side when it buys (direction '0') and to the
// short side otherwise. Any other order contributes nothing. The product is the order's
// m_strProductID, or its instrument id when the product is not given.
//
// Each order is counted once: updateOrder replaces the order's earlier contribution (by order
// key), so a sequence of pushes of one order leaves only the latest. Sums are kept in integer units
// of 1e-4 (margins are stated to the cent), so adding and withdrawing contributions leaves no
// rounding residue: a product whose orders all finished reads exactly 0.
//
// Thread safety: none of its own. The account store calls it under its store mutex.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>

#include "records/Records.h"

namespace ttservice {

class CSingleMarginSum {
public:
    // Counts the order's current contribution in place of its earlier one. Empty pointer: ignored.
    void updateOrder(const COrderDetailPtr& order);
    // The same, with the order's key already at hand.
    void updateOrder(const std::string& orderKey, const COrderDetail& order);
    // Withdraws the contribution of the order filed under `orderKey` (a removed order freezes
    // nothing).
    void removeOrder(const std::string& orderKey);
    void clear();

    // Frozen margin of the product's open buying / selling orders; 0 for an unknown product.
    double getProductLong(const std::string& productId) const;
    double getProductShort(const std::string& productId) const;
    // The larger of the two: what a single-side margin exchange freezes.
    double getProductSingleSide(const std::string& productId) const;
    // Number of orders currently contributing.
    size_t contributingOrders() const { return m_byOrder.size(); }

private:
    struct Contribution {
        std::string product;
        bool isLong = true;
        int64_t units = 0;
    };
    struct Sides {
        int64_t longUnits = 0;
        int64_t shortUnits = 0;
        size_t orders = 0;
    };
    void withdraw(const Contribution& c);

    std::unordered_map<std::string, Contribution> m_byOrder;  // order key -> its contribution
    std::map<std::string, Sides> m_byProduct;
};

}  // namespace ttservice
