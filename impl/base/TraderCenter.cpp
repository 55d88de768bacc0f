#include "base/TraderCenter.h"

#include "QuoteBoard.h"

namespace ttservice {

TraderCenter* TraderCenter::instance() {
    static TraderCenter center;
    return &center;
}

TraderCenter::TraderCenter() : m_primitive(boost::make_shared<CQuoteBoard>()) {}

IDataCenterPtr TraderCenter::getDataCenter() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_dataCenter;
}
ICalculatorPtr TraderCenter::getCalculator() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_calculator;
}
IPrimitivePtr TraderCenter::getPrimitive() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_primitive;
}
void TraderCenter::setDataCenter(const IDataCenterPtr& dataCenter) {
    IDataCenterPtr old;
    boost::mutex::scoped_lock lock(m_mutex);
    old.swap(m_dataCenter);  // released after the lock, outside any callback of the old one
    m_dataCenter = dataCenter;
}
void TraderCenter::setCalculator(const ICalculatorPtr& calculator) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_calculator = calculator;
}
void TraderCenter::setPrimitive(const IPrimitivePtr& primitive) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_primitive = primitive;
}
std::set<std::string> TraderCenter::getFullAuthenticatedMarketSet() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_markets;
}
void TraderCenter::setFullAuthenticatedMarketSet(const std::set<std::string>& markets) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_markets = markets;
}
void TraderCenter::reset() {
    IDataCenterPtr dc;
    ICalculatorPtr calc;
    IPrimitivePtr prim;
    {
        boost::mutex::scoped_lock lock(m_mutex);
        dc.swap(m_dataCenter);
        calc.swap(m_calculator);
        prim.swap(m_primitive);
        m_primitive = boost::make_shared<CQuoteBoard>();
        m_markets.clear();
    }
}

std::set<std::string> getFullAuthenticatedMarketSet() {
    return TraderCenter::instance()->getFullAuthenticatedMarketSet();
}

}  // namespace ttservice
