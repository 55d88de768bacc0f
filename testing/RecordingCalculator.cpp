#include "testing/RecordingCalculator.h"

namespace ttservice {
namespace test {

void RecordingCalculator::setCanOrderVolume(double volume) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_dCanOrderVolume = volume;
}

void RecordingCalculator::setSingleOpVolume(double volume) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_dSingleOpVolume = volume;
}

void RecordingCalculator::setReason(int code, const std::string& text) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_nReasonCode = code;
    m_strReason = text;
}

void RecordingCalculator::setUpdateResult(int result) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_nUpdateResult = result;
}

std::vector<RecordingCalculator::OrderCall> RecordingCalculator::orderCalls() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_orderCalls;
}

std::vector<RecordingCalculator::DealCall> RecordingCalculator::dealCalls() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_dealCalls;
}

std::vector<RecordingCalculator::PriceCall> RecordingCalculator::priceCalls() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_priceCalls;
}

std::vector<RecordingCalculator::VolumeCall> RecordingCalculator::volumeCalls() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_volumeCalls;
}

void RecordingCalculator::clear() {
    boost::mutex::scoped_lock lock(m_mutex);
    m_orderCalls.clear();
    m_dealCalls.clear();
    m_priceCalls.clear();
    m_volumeCalls.clear();
}

int RecordingCalculator::updateOrder(const COrderDetailPtr& order, const CAccountDataPtr& account) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_orderCalls.push_back(OrderCall{order, account});
    return m_nUpdateResult;
}

int RecordingCalculator::updateDeal(const CDealDetailPtr& deal, const CAccountDataPtr& account, bool isNew) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_dealCalls.push_back(DealCall{deal, account, isNew});
    return m_nUpdateResult;
}

void RecordingCalculator::updatePrice(const CAccountDataPtr& account, const PriceChangeMap& changes) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_priceCalls.push_back(PriceCall{account, changes});
}

double RecordingCalculator::getCanOrderVolume(const CAccountDataPtr& account, const std::string& exchange,
                                              const std::string& instrument, int direction, int offset,
                                              double price) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_volumeCalls.push_back(
        VolumeCall{"getCanOrderVolume", account, exchange, instrument, direction, offset, price, 0.0});
    return m_dCanOrderVolume;
}

void RecordingCalculator::getCanOrderVolumeWithReason(const CAccountDataPtr& account,
                                                      const std::string& exchange,
                                                      const std::string& instrument, int direction,
                                                      int offset, double price, const CStructVolumePtr& out) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_volumeCalls.push_back(VolumeCall{"getCanOrderVolumeWithReason", account, exchange, instrument,
                                       direction, offset, price, 0.0});
    if (!out) return;
    out->m_dVolume = m_dCanOrderVolume;
    out->m_nReasonCode = m_nReasonCode;
    out->m_strReason = m_strReason;
}

double RecordingCalculator::getSingleOpVolume(const CAccountDataPtr& account, const std::string& exchange,
                                              const std::string& instrument, int direction, int offset,
                                              double price, double amount) {
    boost::mutex::scoped_lock lock(m_mutex);
    m_volumeCalls.push_back(
        VolumeCall{"getSingleOpVolume", account, exchange, instrument, direction, offset, price, amount});
    return m_dSingleOpVolume;
}

}  // namespace test
}  // namespace ttservice
