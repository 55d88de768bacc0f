// The session file of ttreplay: JSON Lines, one event per line (docs/session-format.md).
//
// CSessionParser turns one line into a CSessionEvent: it checks the JSON, the event name, every
// member's name and JSON type, and decodes the records the event carries (through the record
// library's JSON form), but it looks at no state: whether the account named exists, or whether the
// event comes in an order the data layer accepts, is the replayer's check (SessionReplayer.h). A
// line that fails here has changed nothing anywhere.
//
// Thread safety: a parser keeps a JSON reader; use one parser per thread. Events are plain values.
#pragma once

#include <json/json.h>

#include <boost/date_time/posix_time/ptime.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "records/Records.h"

namespace ttservice {
namespace replay {

// The questions a session may ask (event "query", member "what").
enum EQuery {
    QUERY_CAN_ORDER_VOLUME,  // "can_order_volume": account, exchange, instrument, direction, offset, price
    QUERY_UNDEALT_VOLUME,    // "undealt_volume": account, instrument
    QUERY_ORDER_PRICE,       // "order_price": exchange, instrument, price_type, operation [, for, fix_price]
    QUERY_INSTRUMENT,        // "instrument": market, code
    QUERY_TICK_SIZE,         // "tick_size": key, price
    QUERY_EXCHANGE_RATE,     // "exchange_rate": currency
    QUERY_FEES,              // "fees": account, exchange, instrument [, market]
    QUERY_TRADE_DAY          // "trade_day": [market]
};
const char* queryName(EQuery query);

// The fee families of custom fee tables and fee merges (member "market").
enum EFeeFamily { FEE_STOCK, FEE_FUTURE, FEE_HGT, FEE_SGT, FEE_FOREIGN };
const char* feeFamilyName(EFeeFamily family);

struct CSessionEvent {
    enum EKind {
        RECORD,          // a record of an account: updateData(record, cache_only)
        QUOTE,           // a quote published on the quote board
        ADVANCE,         // the dispatcher's manual clock moves on; due timers fire
        CLOCK,           // sets the manual clock (before any timer is armed)
        EXCHANGES,       // DataCenter::setExchanges
        INSTRUMENTS,     // DataCenter::setInstrumentDetail
        TICK_TABLE,      // DataCenter::setPriceDiff, one call per bound
        EXCHANGE_RATE,   // DataCenter::setExchangeRate
        CUSTOM_FEES,     // DataCenter::setAccounts*InstrumentFee for one account
        CREATE_ACCOUNT,  // a new CAccountData with its account info
        REGISTER,        // DataCenter::addAccount
        START_CACHE,     // CAccountData::startCacheDatas
        INITIALIZE,      // CAccountData::setInitialized
        FLUSH,           // CAccountData::flushDatas
        CLEAR,           // CAccountData::clear
        REMOVE,          // DataCenter::removeAccount
        QUERY            // a question; its answer goes to the output
    };

    EKind m_eKind = RECORD;
    std::string m_strAccount;                         // the account key named by "account"
    IDataPtr m_record;                                // record, quote, rate, fee table, account info
    std::vector<IDataPtr> m_records;                  // exchanges, instruments
    std::vector<std::string> m_markets;               // instruments: the markets they replace
    std::vector<std::pair<double, double> > m_ticks;  // tick table: (price bound, tick)
    std::string m_strKey;                             // tick table key; query: tick key
    bool m_bFlag = false;                             // record: cache_only; initialize: value
    int64_t m_nMillis = 0;             // advance: milliseconds; create_account: update interval
    boost::posix_time::ptime m_clock;  // clock: the new time
    EFeeFamily m_eFamily = FEE_STOCK;  // custom_fees, fees
    bool m_bHasFamily = false;         // fees: "market" given

    // ---- queries ----
    EQuery m_eQuery = QUERY_UNDEALT_VOLUME;
    std::string m_strId;          // "id", echoed with the answer
    std::string m_strExchange;    // exchange / market
    std::string m_strInstrument;  // instrument / code
    std::string m_strCurrency;
    int m_nDirection = 0;
    int m_nOffset = 0;
    int m_nPriceType = 0;
    int m_nOperation = 0;
    double m_dPrice = 0.0;
    double m_dFixPrice = 0.0;
    bool m_bHasFixPrice = false;
    bool m_bForCalc = false;  // order_price: "for": "calc"
};

// The update interval of an account created without "interval", in milliseconds.
const int DEFAULT_UPDATE_INTERVAL_MS = 3000;
// The manual clock's start when a session sets none: 2024-01-02 00:00:00 UTC.
boost::posix_time::ptime defaultClockStart();

class CSessionParser {
public:
    CSessionParser();
    ~CSessionParser();
    CSessionParser(const CSessionParser&) = delete;
    CSessionParser& operator=(const CSessionParser&) = delete;

    // True for a line that holds no event: empty, blanks only, or a comment (first non-blank
    // character '#').
    static bool isBlank(const std::string& line);

    // Decodes one line. False with *error set (one line of text, no line number) when the line is
    // not a valid event; `event` is then unspecified.
    bool parse(const std::string& line, CSessionEvent& event, std::string* error);

    // Only the JSON step of parse(): the line as a JSON value (the baseline of the benchmarks).
    bool parseJson(const std::string& line, Json::Value& value, std::string* error);

private:
    bool decode(const Json::Value& v, CSessionEvent& event, std::string* error);
    std::unique_ptr<Json::CharReader> m_reader;
};

}  // namespace replay
}  // namespace ttservice
