#include "QuoteBoard.h"

#include "net/RPCEngine.h"

namespace ttservice {

namespace {
// Keeps the board's per-instrument count in step with the subscription's lifetime.
struct QuoteSubscription {
    boost::shared_ptr<void> request;
    boost::function<void()> onRelease;
    ~QuoteSubscription() {
        request.reset();
        if (onRelease) onRelease();
    }
};
}  // namespace

boost::shared_ptr<void> CQuoteBoard::subQuote(const std::string& exchange, const std::string& instrument,
                                              const QuoteCallback& cb) {
    const std::string key = exchange + instrument;
    boost::shared_ptr<QuoteSubscription> sub = boost::make_shared<QuoteSubscription>();
    sub->request = m_subs.subscribe(key, cb);
    {
        boost::mutex::scoped_lock lock(m_mutex);
        ++m_counts[key];
    }
    sub->onRelease = [this, key] {
        boost::mutex::scoped_lock lock(m_mutex);
        std::map<std::string, size_t>::iterator it = m_counts.find(key);
        if (it != m_counts.end() && --it->second == 0) m_counts.erase(it);
    };
    return sub;
}

CPriceDataPtr CQuoteBoard::getPrice(int, const std::string& market, const std::string& code) {
    boost::mutex::scoped_lock lock(m_mutex);
    std::map<std::string, CPriceDataPtr>::const_iterator it = m_latest.find(market + code);
    return it == m_latest.end() ? CPriceDataPtr() : it->second;
}

int64_t CQuoteBoard::getCurrentTime() {
    static const boost::posix_time::ptime epoch(boost::gregorian::date(1970, 1, 1));
    return (net::RPCEngine::instance()->now() - epoch).total_seconds();
}

void CQuoteBoard::publishQuote(const CPriceDataPtr& quote) {
    if (!quote) return;
    const std::string key = quote->m_strExchangeID + quote->m_strInstrumentID;
    {
        boost::mutex::scoped_lock lock(m_mutex);
        m_latest[key] = quote;
    }
    m_subs.notify(key, quote);
}

size_t CQuoteBoard::subscriberCount(const std::string& exchange, const std::string& instrument) const {
    boost::mutex::scoped_lock lock(m_mutex);
    std::map<std::string, size_t>::const_iterator it = m_counts.find(exchange + instrument);
    return it == m_counts.end() ? 0 : it->second;
}

void CQuoteBoard::clear() {
    boost::mutex::scoped_lock lock(m_mutex);
    m_latest.clear();
}

}  // namespace ttservice
