// ttservice::test::RecordingCalculator: an ICalculator that records every call and answers
// configurable volumes. It computes nothing.
//
// Thread safety: every member may be called from any thread (one internal mutex). The recorded
// calls hold the account stores they were given, keeping them alive until clear() or the
// calculator's end.
#pragma once

#include <boost/thread/mutex.hpp>
#include <string>
#include <vector>

#include "base/ICalculator.h"

namespace ttservice {
namespace test {

class RecordingCalculator : public ICalculator {
public:
    struct OrderCall {
        COrderDetailPtr order;
        CAccountDataPtr account;
    };
    struct DealCall {
        CDealDetailPtr deal;
        CAccountDataPtr account;
        bool isNew;
    };
    struct PriceCall {
        CAccountDataPtr account;
        PriceChangeMap changes;
    };
    struct VolumeCall {
        std::string what;  // "getCanOrderVolume", "getCanOrderVolumeWithReason", "getSingleOpVolume"
        CAccountDataPtr account;
        std::string exchange;
        std::string instrument;
        int direction;
        int offset;
        double price;
        double amount;  // getSingleOpVolume only
    };

    // ---- answers ----
    void setCanOrderVolume(double volume);
    void setSingleOpVolume(double volume);
    void setReason(int code, const std::string& text);
    void setUpdateResult(int result);  // what updateOrder/updateDeal return (default 1)

    // ---- what was called ----
    std::vector<OrderCall> orderCalls() const;
    std::vector<DealCall> dealCalls() const;
    std::vector<PriceCall> priceCalls() const;
    std::vector<VolumeCall> volumeCalls() const;
    void clear();

    // ---- ICalculator ----
    int updateOrder(const COrderDetailPtr& order, const CAccountDataPtr& account) override;
    int updateDeal(const CDealDetailPtr& deal, const CAccountDataPtr& account, bool isNew) override;
    void updatePrice(const CAccountDataPtr& account, const PriceChangeMap& changes) override;
    double getCanOrderVolume(const CAccountDataPtr& account, const std::string& exchange,
                             const std::string& instrument, int direction, int offset, double price) override;
    void getCanOrderVolumeWithReason(const CAccountDataPtr& account, const std::string& exchange,
                                     const std::string& instrument, int direction, int offset, double price,
                                     const CStructVolumePtr& out) override;
    double getSingleOpVolume(const CAccountDataPtr& account, const std::string& exchange,
                             const std::string& instrument, int direction, int offset, double price,
                             double amount) override;

private:
    mutable boost::mutex m_mutex;
    double m_dCanOrderVolume = 0.0;
    double m_dSingleOpVolume = 0.0;
    int m_nReasonCode = 0;
    std::string m_strReason;
    int m_nUpdateResult = 1;
    std::vector<OrderCall> m_orderCalls;
    std::vector<DealCall> m_dealCalls;
    std::vector<PriceCall> m_priceCalls;
    std::vector<VolumeCall> m_volumeCalls;
};

}  // namespace test
}  // namespace ttservice
