#include "base/data/ETFDataCenter.h"

namespace ttservice {

ETFDataCenter::ETFDataCenter() {}

}  // namespace ttservice
