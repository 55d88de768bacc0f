#include "base/data/CSingleMarginSum.h"

#include <cmath>

#include "base/data/COrderDetailHelper.h"

namespace ttservice {

namespace {

const double kUnitsPerYuan = 10000.0;

int64_t toUnits(double money) {
    if (!std::isfinite(money) || money <= 0.0 || money >= 1e14) return 0;  // no or invalid margin
    return static_cast<int64_t>(std::llround(money * kUnitsPerYuan));
}

}  // namespace

void CSingleMarginSum::updateOrder(const COrderDetailPtr& order) {
    if (order) updateOrder(order->getKey(), *order);
}

void CSingleMarginSum::updateOrder(const std::string& orderKey, const COrderDetail& order) {
    int64_t units = 0;
    if (order.m_nOffsetFlag == '0' && !COrderDetailHelper::completed(order))
        units = toUnits(order.m_dFrozenMargin);
    const std::string& product =
        order.m_strProductID.empty() ? order.m_strInstrumentID : order.m_strProductID;
    const bool isLong = order.m_nDirection == '0';

    std::unordered_map<std::string, Contribution>::iterator it = m_byOrder.find(orderKey);
    if (it != m_byOrder.end()) {
        if (units != 0 && it->second.units == units && it->second.isLong == isLong &&
            it->second.product == product)
            return;  // unchanged
        withdraw(it->second);
        if (units == 0) {
            m_byOrder.erase(it);
            return;
        }
    } else {
        if (units == 0) return;
        it = m_byOrder.emplace(orderKey, Contribution()).first;
    }
    Contribution& c = it->second;
    c.product = product;
    c.isLong = isLong;
    c.units = units;
    Sides& s = m_byProduct[product];
    (isLong ? s.longUnits : s.shortUnits) += units;
    ++s.orders;
}

void CSingleMarginSum::withdraw(const Contribution& c) {
    std::map<std::string, Sides>::iterator p = m_byProduct.find(c.product);
    if (p == m_byProduct.end()) return;
    (c.isLong ? p->second.longUnits : p->second.shortUnits) -= c.units;
    if (--p->second.orders == 0) m_byProduct.erase(p);
}

void CSingleMarginSum::removeOrder(const std::string& orderKey) {
    std::unordered_map<std::string, Contribution>::iterator it = m_byOrder.find(orderKey);
    if (it == m_byOrder.end()) return;
    withdraw(it->second);
    m_byOrder.erase(it);
}

void CSingleMarginSum::clear() {
    m_byOrder.clear();
    m_byProduct.clear();
}

double CSingleMarginSum::getProductLong(const std::string& productId) const {
    std::map<std::string, Sides>::const_iterator p = m_byProduct.find(productId);
    return p == m_byProduct.end() ? 0.0 : static_cast<double>(p->second.longUnits) / kUnitsPerYuan;
}

double CSingleMarginSum::getProductShort(const std::string& productId) const {
    std::map<std::string, Sides>::const_iterator p = m_byProduct.find(productId);
    return p == m_byProduct.end() ? 0.0 : static_cast<double>(p->second.shortUnits) / kUnitsPerYuan;
}

double CSingleMarginSum::getProductSingleSide(const std::string& productId) const {
    const double l = getProductLong(productId);
    const double s = getProductShort(productId);
    return l > s ? l : s;
}

}  // namespace ttservice
