// A synthetic session of a given size for ttreplay (docs/session-format.md): realistic enough to
// exercise every path of the data layer a trading day exercises, and the same bytes for the same
// options on every machine (its own random generator, integer arithmetic for every price and
// amount, no clock, no locale).
//
// What it writes, in order:
//   - reference data: exchanges SH, SZ, SHFE, DCE, CZCE, CFFEX and HGT with trade day 20240315;
//     instruments with real-looking codes (SH 600xxx/601xxx/688xxx and 1000xxxx ETF options, SZ
//     000xxx/300xxx, SHFE cu/al/rb, DCE m/i/a, CZCE SR/CF/TA and CFFEX IF/IC contracts by month,
//     HGT 0xxxx); their tick tables (the Hong Kong spread table for HGT); exchange rates; custom
//     fee tables of the stock and futures accounts;
//   - accounts by platform family in turn: stock (platform 10001-10003), futures (20001-20003),
//     stock options (60001-60002), HGT (51001); each is created, registered, loaded (positions
//     held from yesterday and its funds) while caching, initialised, given a few pushes that the
//     cache holds, and flushed;
//   - a trading day over all accounts: orders (some rejected for want of funds), partial and full
//     fills with the deals and updated positions and funds they imply, cancels (some after a
//     partial fill), quotes of the instruments traded, clock advances that fire the refresh
//     timers, a reload (start_cache ... flush) of some accounts half-way, and queries.
// "--records" counts record events only; quotes, clock advances, lifecycle events and queries come
// on top (roughly one line in ten).
//
// Thread safety: stateless between calls; any thread.
#pragma once

#include <cstdint>
#include <iosfwd>

namespace ttservice {
namespace replay {

struct CGeneratorOptions {
    int m_nAccounts = 4;          // accounts, families in turn. Default: 4.
    uint64_t m_nRecords = 10000;  // record events. Default: 10000.
    uint64_t m_nSeed = 1;         // the random generator's seed. Default: 1.
    int m_nInstruments = 3000;    // stock, option and HGT instruments (futures come on top). Default: 3000.
};

struct CGeneratorCounts {
    uint64_t m_nLines = 0;
    uint64_t m_nRecords = 0;
};

CGeneratorCounts generateSession(const CGeneratorOptions& options, std::ostream& out);

}  // namespace replay
}  // namespace ttservice
