// ttservice::PortfolioManager: the process-wide manager of portfolios (positions traded by order
// commands, with their frozen positions and command checks), handed out by
// DataCenter::getPortfolioManager().
//
// Portfolios arrive later: for now this class is the handle that the data center owns from its
// construction, so that callers can already obtain and hold it. It has no state, so it is safe to
// use from any thread.
#pragma once

#include <boost/shared_ptr.hpp>

namespace ttservice {

class PortfolioManager {
public:
    PortfolioManager();
    PortfolioManager(const PortfolioManager&) = delete;
    PortfolioManager& operator=(const PortfolioManager&) = delete;
};
typedef boost::shared_ptr<PortfolioManager> PortfolioManagerPtr;

}  // namespace ttservice
