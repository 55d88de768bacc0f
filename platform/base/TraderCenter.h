// ttservice::TraderCenter: the base library's entry point. It hands out the process's data center,
// calculator and primitive services; each may be replaced at start-up (and by tests).
//
// Defaults: the primitive service is the quote board of the default platform (quotes published
// by the program, clock from the system or the dispatcher's manual clock); the data center and the
// calculator are empty until the program installs them (the data layer's DataCenter, a
// calculator). Callers treat an empty service as absent.
//
// Thread safety: every member may be called from any thread; getters return a shared pointer that
// the caller holds for the duration of its call, so a replacement never pulls a service from
// under a running call.
#pragma once

#include "base/ICalculator.h"
#include "base/IDataCenter.h"
#include "base/IPrimitive.h"

#include <boost/thread/mutex.hpp>

#include <set>
#include <string>

namespace ttservice {

class TraderCenter {
public:
    static TraderCenter* instance();

    IDataCenterPtr getDataCenter() const;
    ICalculatorPtr getCalculator() const;
    IPrimitivePtr getPrimitive() const;

    void setDataCenter(const IDataCenterPtr& dataCenter);
    void setCalculator(const ICalculatorPtr& calculator);
    void setPrimitive(const IPrimitivePtr& primitive);

    // The markets the logged-in user is authenticated for (exchange codes).
    std::set<std::string> getFullAuthenticatedMarketSet() const;
    void setFullAuthenticatedMarketSet(const std::set<std::string>& markets);

    // Back to the defaults: no data center, no calculator, the default quote board, no markets.
    void reset();

private:
    TraderCenter();
    mutable boost::mutex m_mutex;
    IDataCenterPtr m_dataCenter;
    ICalculatorPtr m_calculator;
    IPrimitivePtr m_primitive;
    std::set<std::string> m_markets;
};

// The markets the logged-in user is authenticated for (the base library's free function).
std::set<std::string> getFullAuthenticatedMarketSet();

}  // namespace ttservice
