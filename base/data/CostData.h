// ttservice::CostData: the position cost ledger of one account for one trade date.
//
// Per instrument key (exchange followed by instrument) and side, the ledger keeps the held volume
// and what it cost. It is seeded from the account's positions when the store builds it
// (CAccountData::initCostData) and moved on by deals:
// - a position adds its volume and its opening cost (m_dOpenCost; when that is not given, open
//   price times volume times the volume multiple 1) to its direction's side;
// - an opening deal (offset '0') adds its volume and its amount (m_dAmount, or price times volume
//   when the amount is not given) plus its commission to its direction's side;
// - any other deal closes the opposite side (a selling close reduces the long side): the closed
//   volume leaves at the side's average cost, so the average cost of what remains is unchanged; a
//   close larger than the side empties it.
// Average cost is cost divided by volume, 0 for an empty side. Money is kept in integer units of
// 1e-4 so that adding and taking out leaves no rounding residue.
//
// Thread safety: every member may be called from any thread (an internal mutex guards the ledger).
#pragma once

#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <map>
#include <string>

#include "records/Records.h"

namespace ttservice {

class CostData {
public:
    explicit CostData(const std::string& tradeDate);

    const std::string& getTradeDate() const { return m_strTradeDate; }

    void addPosition(const CPositionDetail& position);
    void addDeal(const CDealDetail& deal);

    // Held volume, total cost and average cost of a side ('0' long, anything else short).
    int getVolume(const std::string& instrumentKey, int direction) const;
    double getCost(const std::string& instrumentKey, int direction) const;
    double getAverageCost(const std::string& instrumentKey, int direction) const;

private:
    struct Side {
        int64_t volume = 0;
        int64_t costUnits = 0;
    };
    typedef std::pair<std::string, bool> SideKey;  // (instrument key, long side)
    void add(const SideKey& key, int64_t volume, double cost);
    void close(const SideKey& key, int64_t volume);

    const std::string m_strTradeDate;
    mutable boost::mutex m_mutex;
    std::map<SideKey, Side> m_sides;
};

}  // namespace ttservice
