#include "base/data/ProductNSData.h"

#include <cmath>

namespace ttservice {

CProductNSData::CProductNSData(int productId) : m_nProductId(productId) {}

bool CProductNSData::setNetValue(int date, double netValue) {
    if (date <= 0 || !std::isfinite(netValue)) return false;
    boost::mutex::scoped_lock lock(m_mutex);
    m_mapNetValues[date] = netValue;
    return true;
}

bool CProductNSData::getNetValue(int date, double& netValue) const {
    boost::mutex::scoped_lock lock(m_mutex);
    const std::map<int, double>::const_iterator it = m_mapNetValues.find(date);
    if (it == m_mapNetValues.end()) return false;
    netValue = it->second;
    return true;
}

bool CProductNSData::getLatestNetValue(int& date, double& netValue) const {
    boost::mutex::scoped_lock lock(m_mutex);
    if (m_mapNetValues.empty()) return false;
    date = m_mapNetValues.rbegin()->first;
    netValue = m_mapNetValues.rbegin()->second;
    return true;
}

std::map<int, double> CProductNSData::getNetValues() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_mapNetValues;
}

size_t CProductNSData::size() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_mapNetValues.size();
}

}  // namespace ttservice
