// ttservice::CProductNSData: the net values of one asset-management product by date, registered in
// the data center under the product id (DataCenter::addProductNSData / getProductNSData).
//
// Dates are YYYYMMDD integers. A net value is stored only when the date is positive and the value
// finite; anything else is refused (false) and leaves the store as it was.
//
// Thread safety: every member may be called from any thread; one mutex guards the net values, and
// reads return copies.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <map>

namespace ttservice {

class CProductNSData {
public:
    explicit CProductNSData(int productId);
    CProductNSData(const CProductNSData&) = delete;
    CProductNSData& operator=(const CProductNSData&) = delete;

    int getProductId() const { return m_nProductId; }

    // Sets (or replaces) the net value of `date`. False for a date <= 0 or a non-finite value.
    bool setNetValue(int date, double netValue);
    // The net value of `date`; false (and `netValue` untouched) when there is none.
    bool getNetValue(int date, double& netValue) const;
    // The net value of the latest date; false when there is none.
    bool getLatestNetValue(int& date, double& netValue) const;
    // Every net value by date, as a copy.
    std::map<int, double> getNetValues() const;
    size_t size() const;

private:
    const int m_nProductId;
    mutable boost::mutex m_mutex;
    std::map<int, double> m_mapNetValues;  // guarded by m_mutex
};
typedef boost::shared_ptr<CProductNSData> CProductNSDataPtr;

}  // namespace ttservice
