#include "base/data/PortfolioManager.h"

namespace ttservice {

PortfolioManager::PortfolioManager() {}

}  // namespace ttservice
