// quoter::KLineData: K-line (candlestick) bars of one instrument and period, as the quote library
// delivers them. A plain value held by shared pointer.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quoter {

struct KLineBar {
    int64_t m_nTime = 0;  // bar start, seconds since the epoch
    double m_dOpen = 0.0;
    double m_dHigh = 0.0;
    double m_dLow = 0.0;
    double m_dClose = 0.0;
    int64_t m_nVolume = 0;
    double m_dAmount = 0.0;
};

struct KLineData {
    std::string m_strExchangeID;
    std::string m_strInstrumentID;
    std::string m_strPeriod;  // "1m", "5m", "1d", ...
    std::vector<KLineBar> m_vBars;
};

}  // namespace quoter
