// ttservice::ETFDataCenter: the registry of ETF reference data (creation/redemption baskets and
// their components), handed out by DataCenter::getETFDataCenter().
//
// The ETF data itself is not held yet: this class is the handle that the data center owns from
// its construction, so that callers can already obtain and hold it. It has no state, so it is safe
// to use from any thread.
#pragma once

#include <boost/shared_ptr.hpp>

namespace ttservice {

class ETFDataCenter {
public:
    ETFDataCenter();
    ETFDataCenter(const ETFDataCenter&) = delete;
    ETFDataCenter& operator=(const ETFDataCenter&) = delete;
};
typedef boost::shared_ptr<ETFDataCenter> ETFDataCenterPtr;

}  // namespace ttservice
