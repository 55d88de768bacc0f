#include "base/data/CostData.h"

#include <cmath>

namespace ttservice {

namespace {

const double kUnitsPerYuan = 10000.0;

int64_t toUnits(double money) {
    if (!std::isfinite(money) || std::fabs(money) >= 1e14) return 0;
    return static_cast<int64_t>(std::llround(money * kUnitsPerYuan));
}

bool validAmount(double v) {
    return std::isfinite(v) && std::fabs(v) > 1e-5 && v != TT_INVALID_DOUBLE;
}

}  // namespace

CostData::CostData(const std::string& tradeDate) : m_strTradeDate(tradeDate) {}

void CostData::add(const SideKey& key, int64_t volume, double cost) {
    if (volume <= 0) return;
    boost::mutex::scoped_lock lock(m_mutex);
    Side& s = m_sides[key];
    s.volume += volume;
    s.costUnits += toUnits(cost);
}

void CostData::close(const SideKey& key, int64_t volume) {
    if (volume <= 0) return;
    boost::mutex::scoped_lock lock(m_mutex);
    std::map<SideKey, Side>::iterator it = m_sides.find(key);
    if (it == m_sides.end()) return;
    Side& s = it->second;
    if (volume >= s.volume) {
        m_sides.erase(it);
        return;
    }
    // The closed part leaves at the average cost; rounding stays with the remainder.
    const int64_t leaving = static_cast<int64_t>(
        std::llround(static_cast<long double>(s.costUnits) * volume / static_cast<long double>(s.volume)));
    s.costUnits -= leaving;
    s.volume -= volume;
}

void CostData::addPosition(const CPositionDetail& position) {
    const double cost =
        validAmount(position.m_dOpenCost) ? position.m_dOpenCost : position.m_dOpenPrice * position.m_nVolume;
    add(SideKey(position.m_strExchangeID + position.m_strInstrumentID, position.m_nDirection == '0'),
        position.m_nVolume, cost);
}

void CostData::addDeal(const CDealDetail& deal) {
    const std::string key = deal.m_strExchangeID + deal.m_strInstrumentID;
    const bool buys = deal.m_nDirection == '0';
    if (deal.m_nOffsetFlag == '0') {
        const double amount = validAmount(deal.m_dAmount) ? deal.m_dAmount : deal.m_dPrice * deal.m_nVolume;
        add(SideKey(key, buys), deal.m_nVolume, amount + deal.m_dCommission);
    } else {
        close(SideKey(key, !buys), deal.m_nVolume);
    }
}

int CostData::getVolume(const std::string& instrumentKey, int direction) const {
    boost::mutex::scoped_lock lock(m_mutex);
    std::map<SideKey, Side>::const_iterator it = m_sides.find(SideKey(instrumentKey, direction == '0'));
    return it == m_sides.end() ? 0 : static_cast<int>(it->second.volume);
}

double CostData::getCost(const std::string& instrumentKey, int direction) const {
    boost::mutex::scoped_lock lock(m_mutex);
    std::map<SideKey, Side>::const_iterator it = m_sides.find(SideKey(instrumentKey, direction == '0'));
    return it == m_sides.end() ? 0.0 : static_cast<double>(it->second.costUnits) / kUnitsPerYuan;
}

double CostData::getAverageCost(const std::string& instrumentKey, int direction) const {
    boost::mutex::scoped_lock lock(m_mutex);
    std::map<SideKey, Side>::const_iterator it = m_sides.find(SideKey(instrumentKey, direction == '0'));
    if (it == m_sides.end() || it->second.volume == 0) return 0.0;
    return static_cast<double>(it->second.costUnits) / kUnitsPerYuan / static_cast<double>(it->second.volume);
}

}  // namespace ttservice
