// ttservice::replay::CSessionReplayer: feeds a session (docs/session-format.md) to the data layer,
// line by line, and reports what the layer answers and holds.
//
// A replayer runs the real data layer: a DataCenter, one CAccountData per account of the session,
// the default quote board for quotes, and the dispatcher's manual clock, so the price-refresh
// timers fire only when the session advances the clock, on the calling thread, in a fixed order.
// It watches the layer from outside as a terminal's views would: it subscribes every kind of every
// account store, listens to the data center's account-data notification, and stands in as the
// calculator service, recording the revaluations the refresh timers hand over (it computes no
// volumes: a tradable-volume query is answered "no calculator installed" unless a calculator is
// given to the constructor).
//
// Every line is checked in full (JSON, event, members, records, and then the session state: the
// account exists, the event comes in an order the layer accepts) before anything is applied, so a
// bad line is reported ("<session>:<line>: <reason>") and skipped with no effect on the state.
//
// Output is deterministic: the same session gives the same bytes on `out`. Text mode writes each
// answer as it comes and the per-account summary at finish(); JSON mode writes one document at
// finish(). Problems go to `err`. Nothing time-dependent is written by the replayer.
//
// Process-wide state: for its lifetime a replayer installs its own services in
// TraderCenter::instance() (data center, quote board, calculator) and drives
// net::RPCEngine::instance() on the manual clock; the destructor tears its accounts down and
// returns both to their defaults (TraderCenter::reset(), the system clock). One replayer at a time
// per process; all calls on one thread.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>

#include "SessionEvent.h"
#include "base/ICalculator.h"

namespace ttservice {
namespace replay {

struct CReplayOptions {
    // How messages name the session ("<name>:<line>: ..."). Default: "session".
    std::string m_strSessionName = "session";
    // JSON main output instead of text. Default: false.
    bool m_bJson = false;
    // Most entries of each list of the summary (positions, open orders, replay order of a flush);
    // 0 lists everything. Default: 50.
    size_t m_nListLimit = 50;
};

// Counts since the replayer was made.
struct CReplayCounters {
    uint64_t m_nLines = 0;    // lines given to replayLine (blank and comment lines included)
    uint64_t m_nEvents = 0;   // events applied
    uint64_t m_nRecords = 0;  // record events applied
    uint64_t m_nQueries = 0;  // queries answered
    uint64_t m_nErrors = 0;   // lines reported and skipped, and set-up problems
};

class CSessionReplayer {
public:
    // `calculator`: a calculator service to answer tradable volumes (and receive revaluations);
    // empty for none.
    CSessionReplayer(const CReplayOptions& options, std::ostream& out, std::ostream& err,
                     const ICalculatorPtr& calculator = ICalculatorPtr());
    ~CSessionReplayer();
    CSessionReplayer(const CSessionReplayer&) = delete;
    CSessionReplayer& operator=(const CSessionReplayer&) = delete;

    // Replays one line; `lineNo` counts from 1. Blank and comment lines are skipped silently.
    // Returns false when the line was reported on `err` and skipped.
    bool replayLine(const std::string& line, int64_t lineNo);

    // What the layer holds now: {"reference": {...}, "accounts": [ one object per account, in key
    // order ]}. The same object twice for the same state.
    Json::Value summary() const;
    // One account's summary (as in summary()["accounts"]); null for an unknown account key.
    Json::Value accountSummary(const std::string& accountKey) const;

    // Ends the main output: text mode writes the summary; JSON mode writes the whole document
    // (answers, errors, summary, counts). Call once, after the last line.
    void finish();

    const CReplayCounters& counters() const;

private:
    class CImpl;
    std::unique_ptr<CImpl> m_pImpl;
};

// Helpers shared by the text output, the tool and the tests.
// A number as the output writes it: up to 15 significant digits ("10.53", "1000000").
std::string formatNumber(double value);
// A record's JSON with the members equal to a new record's of the same class left out, and
// without "class" and "m_accountInfo": what the record holds beyond its defaults. Nested records
// (objects with a "class") are treated the same way.
Json::Value nonDefaultFields(const Json::Value& recordJson);
// Replaces every number that JSON cannot carry back (not finite, or at least 1e300 in magnitude,
// such as TT_INVALID_DOUBLE, "no value") by null, in place.
void writableNumbers(Json::Value& value);
// Compact one-line JSON for the text output: UTF-8 kept, numbers as formatNumber writes them.
std::string compactJson(const Json::Value& value);

}  // namespace replay
}  // namespace ttservice
