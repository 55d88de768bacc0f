// ttservice::CQuoteBoard: the default primitive service. A program (or a replay, or a test)
// publishes quotes into it; subscribers of an instrument are called for every quote published for
// it; getPrice answers the latest quote; the clock is the dispatcher's clock (system time, or the
// manual clock of a replay).
//
// Thread safety: every member may be called from any thread. Subscriber callbacks run on the
// publishing thread with no lock of the board held.
#pragma once

#include "base/IPrimitive.h"
#include "utils/SubTable.h"

#include <boost/thread/mutex.hpp>

#include <map>

namespace ttservice {

class CQuoteBoard : public IPrimitive {
public:
    boost::shared_ptr<void> subQuote(const std::string& exchange, const std::string& instrument,
                                     const QuoteCallback& cb) override;
    CPriceDataPtr getPrice(int type, const std::string& market, const std::string& code) override;
    int64_t getCurrentTime() override;

    // Stores `quote` as the latest of its instrument and calls the instrument's subscribers.
    void publishQuote(const CPriceDataPtr& quote);
    // Number of live quote subscriptions of an instrument (exchange + code).
    size_t subscriberCount(const std::string& exchange, const std::string& instrument) const;
    void clear();

private:
    mutable boost::mutex m_mutex;
    std::map<std::string, CPriceDataPtr> m_latest;  // by instrument key
    utils::SubTable<std::string, CPriceDataPtr> m_subs;
    std::map<std::string, size_t> m_counts;
};

}  // namespace ttservice
