// ttservice::IPrimitive: the base library's primitive services: quote subscription, the latest
// quote of an instrument, and the current time.
//
// Thread safety: every member may be called from any thread. Quote callbacks run on the thread
// that publishes the quote, with no lock of the primitive service held.
#pragma once

#include "records/Records.h"

#include <boost/function.hpp>

#include <cstdint>
#include <string>

namespace ttservice {

class IPrimitive {
public:
    typedef boost::function<void(const CPriceDataPtr&)> QuoteCallback;

    virtual ~IPrimitive() {}

    // Subscribes the quotes of one instrument; `cb` is called for every new quote. The
    // subscription lasts while the returned handle is held.
    virtual boost::shared_ptr<void> subQuote(const std::string& exchange, const std::string& instrument,
                                             const QuoteCallback& cb) = 0;
    // The latest quote of an instrument, or an empty pointer. `type` is the platform id of the
    // quote source (0 for any).
    virtual CPriceDataPtr getPrice(int type, const std::string& market, const std::string& code) = 0;
    // Seconds since the epoch by the terminal's clock.
    virtual int64_t getCurrentTime() = 0;
};
typedef boost::shared_ptr<IPrimitive> IPrimitivePtr;

}  // namespace ttservice
