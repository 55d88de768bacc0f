// Builds against the installed headers and libraries only.
#include "base/data/DataHelper.h"
#include "bson/BSONObj.h"
#include "records/Records.h"

#include <iostream>

int main() {
    ttservice::COrderDetail order;
    order.m_strOrderSysID = "42";
    order.m_nVolumeTotalOriginal = 100;
    ttservice::IDataPtr back = ttservice::TypeManager::instance().parse(order.toBson());
    ttservice::COrderDetailPtr o = boost::dynamic_pointer_cast<ttservice::COrderDetail>(back);
    if (!o || o->m_strOrderSysID != "42" || o->m_nVolumeTotalOriginal != 100) return 1;
    if (!ttservice::DataHelper::isStockPlatform(10001)) return 2;
    std::cout << "ok " << o->getKey() << std::endl;
    return 0;
}
