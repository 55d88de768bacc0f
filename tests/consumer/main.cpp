// Builds against the installed headers and libraries only: the data layer, the record library and
// the platform services an outside module calls (configuration, logging, dispatcher, utilities).
#include "base/data/DataHelper.h"
#include "bson/BSONObj.h"
#include "config/ConfigCollector.h"
#include "net/RPCEngine.h"
#include "records/Records.h"
#include "utils/LogCenter.h"
#include "utils/StringUtils.h"

#include <iostream>
#include <string>

int main() {
    ttservice::COrderDetail order;
    order.m_strOrderSysID = "42";
    order.m_nVolumeTotalOriginal = 100;
    ttservice::IDataPtr back = ttservice::TypeManager::instance().parse(order.toBson());
    ttservice::COrderDetailPtr o = boost::dynamic_pointer_cast<ttservice::COrderDetail>(back);
    if (!o || o->m_strOrderSysID != "42" || o->m_nVolumeTotalOriginal != 100) return 1;
    if (!ttservice::DataHelper::isStockPlatform(10001)) return 2;

    std::string error;
    boost::shared_ptr<ttservice::ConfigCollector> config =
        ttservice::ConfigCollector::loadText(R"({"platformFamilies": {"ctp": [20001]}})", "consumer", &error);
    if (!config || !config->isSomePt("ctp", 20001)) return 3;
    if (utils::split("a____b", "____").size() != 2) return 4;

    // Logging is off until the program configures it: the line is not even formatted.
    TT_LOG_STD_INFO("consumer %1%", o->getKey());
    if (utils::CLogCenter::instance().logEnabled(utils::LOGGER_STD, utils::TT_LOG_INFO)) return 5;

    net::RPCEngine::instance()->start(1);
    if (!net::RPCEngine::instance()->running()) return 6;
    net::RPCEngine::instance()->stop();

    std::cout << "ok " << o->getKey() << std::endl;
    return 0;
}
