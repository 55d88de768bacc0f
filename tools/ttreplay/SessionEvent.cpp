#include "SessionEvent.h"

#include <boost/date_time/gregorian/gregorian.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "records/RecordJson.h"

namespace ttservice {
namespace replay {

const char* queryName(EQuery query) {
    switch (query) {
        case QUERY_CAN_ORDER_VOLUME:
            return "can_order_volume";
        case QUERY_UNDEALT_VOLUME:
            return "undealt_volume";
        case QUERY_ORDER_PRICE:
            return "order_price";
        case QUERY_INSTRUMENT:
            return "instrument";
        case QUERY_TICK_SIZE:
            return "tick_size";
        case QUERY_EXCHANGE_RATE:
            return "exchange_rate";
        case QUERY_FEES:
            return "fees";
        case QUERY_TRADE_DAY:
            return "trade_day";
    }
    return "?";
}

const char* feeFamilyName(EFeeFamily family) {
    switch (family) {
        case FEE_STOCK:
            return "stock";
        case FEE_FUTURE:
            return "future";
        case FEE_HGT:
            return "hgt";
        case FEE_SGT:
            return "sgt";
        case FEE_FOREIGN:
            return "foreign";
    }
    return "?";
}

boost::posix_time::ptime defaultClockStart() {
    return boost::posix_time::ptime(boost::gregorian::date(2024, 1, 2));
}

namespace {

// Typed access to the members of one event object, each failure named with the event.
class CMembers {
public:
    CMembers(const Json::Value& v, const std::string& event, std::string* error)
        : m_v(v), m_event(event), m_error(error) {}

    // Fails on any member not in `names` ("event" is always allowed).
    bool only(std::initializer_list<const char*> names) const {
        for (Json::Value::const_iterator it = m_v.begin(); it != m_v.end(); ++it) {
            const char* end = nullptr;
            const char* name = it.memberName(&end);
            const size_t len = static_cast<size_t>(end - name);
            if (len == 5 && std::memcmp(name, "event", 5) == 0) continue;
            bool known = false;
            for (const char* n : names) {
                if (std::strlen(n) == len && std::memcmp(n, name, len) == 0) {
                    known = true;
                    break;
                }
            }
            if (!known) return fail("unknown member '" + std::string(name, len) + "'");
        }
        return true;
    }

    bool has(const char* name) const { return m_v.isMember(name); }

    bool str(const char* name, std::string& out, bool required = true) const {
        const Json::Value* v = find(name, required);
        if (!v) return !required;
        if (!v->isString()) return typeError(name, "a string");
        out = v->asString();
        return true;
    }
    bool integer(const char* name, int& out, bool required = true) const {
        const Json::Value* v = find(name, required);
        if (!v) return !required;
        if (!v->isInt() || v->isBool()) return typeError(name, "a 32-bit integer");
        out = v->asInt();
        return true;
    }
    bool integer64(const char* name, int64_t& out, bool required = true) const {
        const Json::Value* v = find(name, required);
        if (!v) return !required;
        if (!v->isInt64() || v->isBool()) return typeError(name, "an integer");
        out = v->asInt64();
        return true;
    }
    bool number(const char* name, double& out, bool required = true) const {
        const Json::Value* v = find(name, required);
        if (!v) return !required;
        if (!v->isNumeric() || v->isBool()) return typeError(name, "a number");
        out = v->asDouble();
        return true;
    }
    bool boolean(const char* name, bool& out, bool required = true) const {
        const Json::Value* v = find(name, required);
        if (!v) return !required;
        if (!v->isBool()) return typeError(name, "true or false");
        out = v->asBool();
        return true;
    }
    bool strings(const char* name, std::vector<std::string>& out, bool required = true) const {
        const Json::Value* v = find(name, required);
        if (!v) return !required;
        if (!v->isArray()) return typeError(name, "an array of strings");
        out.clear();
        for (Json::ArrayIndex i = 0; i < v->size(); ++i) {
            if (!(*v)[i].isString()) return typeError(name, "an array of strings");
            out.push_back((*v)[i].asString());
        }
        return true;
    }
    // A record object of class `defaultClass` unless it names another; `base`, when given, is a
    // class the record must be (or derive from), checked by `isA`.
    bool record(const char* name, IDataPtr& out, const char* defaultClass, bool required = true) const {
        const Json::Value* v = find(name, required);
        if (!v) return !required;
        return decodeRecord(*v, name, out, defaultClass);
    }
    bool records(const char* name, std::vector<IDataPtr>& out, const char* defaultClass) const {
        const Json::Value* v = find(name, true);
        if (!v) return false;
        if (!v->isArray()) return typeError(name, "an array of records");
        out.clear();
        out.reserve(v->size());
        for (Json::ArrayIndex i = 0; i < v->size(); ++i) {
            IDataPtr rec;
            if (!decodeRecord((*v)[i], (std::string(name) + "[" + std::to_string(i) + "]").c_str(), rec,
                              defaultClass))
                return false;
            out.push_back(rec);
        }
        return true;
    }

    bool fail(const std::string& why) const {
        if (m_error) *m_error = "event '" + m_event + "': " + why;
        return false;
    }

private:
    const Json::Value* find(const char* name, bool required) const {
        const Json::Value* v = m_v.find(name, name + std::strlen(name));
        if (!v && required) fail(std::string("missing member '") + name + "'");
        return v;
    }
    bool typeError(const char* name, const char* expected) const {
        return fail(std::string("member '") + name + "' must be " + expected);
    }
    bool decodeRecord(const Json::Value& v, const char* name, IDataPtr& out, const char* defaultClass) const {
        if (!v.isObject()) return typeError(name, "a record object");
        std::string why;
        out = records::parseJsonValue(v, &why, defaultClass);
        if (!out) return fail(std::string(name) + ": " + why);
        return true;
    }

    const Json::Value& m_v;
    const std::string& m_event;
    std::string* m_error;
};

// The record must be of class `cls` or derive from it.
template <class T>
bool recordIs(const CMembers& m, const IDataPtr& rec, const char* name) {
    if (boost::dynamic_pointer_cast<T>(rec)) return true;
    return m.fail(std::string("member '") + name + "' must be a " + T::staticType().name + ", not a " +
                  rec->getClassName());
}

bool parseFamily(const CMembers& m, const std::string& text, EFeeFamily& out) {
    static const EFeeFamily all[] = {FEE_STOCK, FEE_FUTURE, FEE_HGT, FEE_SGT, FEE_FOREIGN};
    for (EFeeFamily f : all) {
        if (text == feeFamilyName(f)) {
            out = f;
            return true;
        }
    }
    return m.fail("member 'market' must be one of stock, future, hgt, sgt, foreign (not '" + text + "')");
}

// "YYYY-MM-DD HH:MM:SS", UTC.
bool parseClock(const std::string& text, boost::posix_time::ptime& out) {
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, used = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d%n", &y, &mo, &d, &h, &mi, &s, &used) != 6 ||
        used != static_cast<int>(text.size()) || h > 23 || mi > 59 || s > 59 || h < 0 || mi < 0 || s < 0)
        return false;
    try {
        out = boost::posix_time::ptime(
            boost::gregorian::date(y, mo, d),
            boost::posix_time::hours(h) + boost::posix_time::minutes(mi) + boost::posix_time::seconds(s));
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

// jsoncpp's messages are several lines ("* Line 1, Column 5\n  Missing ..."); one line of text here.
// A session line is one line of text, so jsoncpp's "Line 1" would only be confused with the
// session's line number: "Line 1, Column 5" becomes "column 5:".
std::string flattenJsonError(const std::string& text) {
    std::string flat;
    bool space = false;
    for (char c : text) {
        if (c == '\n' || c == '\r' || c == '\t' || c == ' ') {
            space = !flat.empty();
            continue;
        }
        if (space) flat += ' ';
        space = false;
        flat += c;
    }
    if (flat.compare(0, 2, "* ") == 0) flat.erase(0, 2);
    static const std::string kWhere = "Line 1, Column ";
    std::string out;
    size_t from = 0;
    for (size_t at = flat.find(kWhere); at != std::string::npos; at = flat.find(kWhere, from)) {
        size_t end = at + kWhere.size();
        while (end < flat.size() && flat[end] >= '0' && flat[end] <= '9') ++end;
        out.append(flat, from, at - from);
        out += "column " + flat.substr(at + kWhere.size(), end - at - kWhere.size()) + ":";
        from = end;
    }
    out.append(flat, from, std::string::npos);
    return out;
}

bool decodeQuery(const CMembers& m, CSessionEvent& e) {
    std::string what;
    if (!m.str("what", what)) return false;
    if (!m.str("id", e.m_strId, false)) return false;
    if (what == "can_order_volume") {
        e.m_eQuery = QUERY_CAN_ORDER_VOLUME;
        return m.only({"what", "id", "account", "exchange", "instrument", "direction", "offset", "price"}) &&
               m.str("account", e.m_strAccount) && m.str("exchange", e.m_strExchange) &&
               m.str("instrument", e.m_strInstrument) && m.integer("direction", e.m_nDirection) &&
               m.integer("offset", e.m_nOffset) && m.number("price", e.m_dPrice);
    }
    if (what == "undealt_volume") {
        e.m_eQuery = QUERY_UNDEALT_VOLUME;
        return m.only({"what", "id", "account", "instrument"}) && m.str("account", e.m_strAccount) &&
               m.str("instrument", e.m_strInstrument);
    }
    if (what == "order_price") {
        e.m_eQuery = QUERY_ORDER_PRICE;
        std::string flavour = "order";
        if (!(m.only(
                  {"what", "id", "exchange", "instrument", "price_type", "operation", "for", "fix_price"}) &&
              m.str("exchange", e.m_strExchange) && m.str("instrument", e.m_strInstrument) &&
              m.integer("price_type", e.m_nPriceType) && m.integer("operation", e.m_nOperation) &&
              m.str("for", flavour, false) && m.number("fix_price", e.m_dFixPrice, false)))
            return false;
        if (flavour != "order" && flavour != "calc")
            return m.fail("member 'for' must be \"order\" or \"calc\" (not '" + flavour + "')");
        e.m_bForCalc = flavour == "calc";
        e.m_bHasFixPrice = m.has("fix_price");
        return true;
    }
    if (what == "instrument") {
        e.m_eQuery = QUERY_INSTRUMENT;
        return m.only({"what", "id", "market", "code"}) && m.str("market", e.m_strExchange) &&
               m.str("code", e.m_strInstrument);
    }
    if (what == "tick_size") {
        e.m_eQuery = QUERY_TICK_SIZE;
        return m.only({"what", "id", "key", "price"}) && m.str("key", e.m_strKey) &&
               m.number("price", e.m_dPrice);
    }
    if (what == "exchange_rate") {
        e.m_eQuery = QUERY_EXCHANGE_RATE;
        return m.only({"what", "id", "currency"}) && m.str("currency", e.m_strCurrency);
    }
    if (what == "fees") {
        e.m_eQuery = QUERY_FEES;
        std::string family;
        if (!(m.only({"what", "id", "account", "exchange", "instrument", "market"}) &&
              m.str("account", e.m_strAccount) && m.str("exchange", e.m_strExchange) &&
              m.str("instrument", e.m_strInstrument) && m.str("market", family, false)))
            return false;
        e.m_bHasFamily = m.has("market");
        return !e.m_bHasFamily || parseFamily(m, family, e.m_eFamily);
    }
    if (what == "trade_day") {
        e.m_eQuery = QUERY_TRADE_DAY;
        return m.only({"what", "id", "market"}) && m.str("market", e.m_strExchange, false);
    }
    return m.fail("unknown query '" + what +
                  "' (known: can_order_volume, undealt_volume, order_price, instrument, tick_size, "
                  "exchange_rate, fees, trade_day)");
}

}  // namespace

CSessionParser::CSessionParser() {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    builder["allowComments"] = false;
    builder["failIfExtra"] = true;
    builder["rejectDupKeys"] = true;
    m_reader.reset(builder.newCharReader());
}

CSessionParser::~CSessionParser() {}

bool CSessionParser::isBlank(const std::string& line) {
    for (char c : line) {
        if (c == ' ' || c == '\t' || c == '\r') continue;
        return c == '#';
    }
    return true;
}

bool CSessionParser::parseJson(const std::string& line, Json::Value& value, std::string* error) {
    std::string why;
    if (!m_reader->parse(line.data(), line.data() + line.size(), &value, &why)) {
        if (error) *error = "bad JSON: " + flattenJsonError(why);
        return false;
    }
    return true;
}

bool CSessionParser::parse(const std::string& line, CSessionEvent& event, std::string* error) {
    Json::Value v;
    if (!parseJson(line, v, error)) return false;
    return decode(v, event, error);
}

bool CSessionParser::decode(const Json::Value& v, CSessionEvent& e, std::string* error) {
    if (!v.isObject()) {
        if (error) *error = "an event must be a JSON object";
        return false;
    }
    const Json::Value* name = v.find("event", "event" + 5);
    if (!name || !name->isString()) {
        if (error) *error = "an event needs a string member \"event\"";
        return false;
    }
    const std::string event = name->asString();
    CMembers m(v, event, error);
    e = CSessionEvent();

    // The hot event first.
    if (event == "record") {
        e.m_eKind = CSessionEvent::RECORD;
        return m.only({"account", "record", "cache_only"}) && m.str("account", e.m_strAccount) &&
               m.record("record", e.m_record, nullptr) && m.boolean("cache_only", e.m_bFlag, false);
    }
    if (event == "quote") {
        e.m_eKind = CSessionEvent::QUOTE;
        if (!(m.only({"quote"}) && m.record("quote", e.m_record, "CPriceData") &&
              recordIs<CPriceData>(m, e.m_record, "quote")))
            return false;
        const CPriceData& q = static_cast<const CPriceData&>(*e.m_record);
        if (q.m_strExchangeID.empty() || q.m_strInstrumentID.empty())
            return m.fail("a quote needs m_strExchangeID and m_strInstrumentID");
        return true;
    }
    if (event == "advance") {
        e.m_eKind = CSessionEvent::ADVANCE;
        if (!(m.only({"ms"}) && m.integer64("ms", e.m_nMillis))) return false;
        if (e.m_nMillis < 0) return m.fail("member 'ms' must not be negative");
        return true;
    }
    if (event == "clock") {
        e.m_eKind = CSessionEvent::CLOCK;
        std::string start;
        if (!(m.only({"start"}) && m.str("start", start))) return false;
        if (!parseClock(start, e.m_clock))
            return m.fail("member 'start' must be a time \"YYYY-MM-DD HH:MM:SS\" (not '" + start + "')");
        return true;
    }
    if (event == "exchanges") {
        e.m_eKind = CSessionEvent::EXCHANGES;
        if (!(m.only({"exchanges"}) && m.records("exchanges", e.m_records, "CExchangeDetail"))) return false;
        for (const IDataPtr& r : e.m_records)
            if (!recordIs<CExchangeDetail>(m, r, "exchanges")) return false;
        return true;
    }
    if (event == "instruments") {
        e.m_eKind = CSessionEvent::INSTRUMENTS;
        if (!(m.only({"markets", "instruments"}) &&
              m.records("instruments", e.m_records, "CInstrumentDetail") &&
              m.strings("markets", e.m_markets, false)))
            return false;
        for (const IDataPtr& r : e.m_records)
            if (!recordIs<CInstrumentDetail>(m, r, "instruments")) return false;
        if (!m.has("markets")) {
            // The markets of the instruments given, each once, in order of first appearance.
            for (const IDataPtr& r : e.m_records) {
                const std::string& ex = static_cast<const CInstrumentDetail&>(*r).m_strExchangeID;
                bool seen = false;
                for (const std::string& s : e.m_markets) seen = seen || s == ex;
                if (!seen) e.m_markets.push_back(ex);
            }
        }
        return true;
    }
    if (event == "tick_table") {
        e.m_eKind = CSessionEvent::TICK_TABLE;
        if (!(m.only({"key", "ticks"}) && m.str("key", e.m_strKey))) return false;
        if (!m.has("ticks")) return m.fail("missing member 'ticks'");
        const Json::Value& ticks = v["ticks"];
        if (!ticks.isArray()) return m.fail("member 'ticks' must be an array of [bound, tick] pairs");
        for (Json::ArrayIndex i = 0; i < ticks.size(); ++i) {
            const Json::Value& p = ticks[i];
            if (!p.isArray() || p.size() != 2 || !p[0].isNumeric() || !p[1].isNumeric() || p[0].isBool() ||
                p[1].isBool())
                return m.fail("ticks[" + std::to_string(i) + "] must be a [bound, tick] pair of numbers");
            if (!(p[1].asDouble() > 0.0))
                return m.fail("ticks[" + std::to_string(i) + "]: the tick must be positive");
            e.m_ticks.emplace_back(p[0].asDouble(), p[1].asDouble());
        }
        return true;
    }
    if (event == "exchange_rate") {
        e.m_eKind = CSessionEvent::EXCHANGE_RATE;
        return m.only({"rate"}) && m.record("rate", e.m_record, "CExchangeRate") &&
               recordIs<CExchangeRate>(m, e.m_record, "rate");
    }
    if (event == "custom_fees") {
        e.m_eKind = CSessionEvent::CUSTOM_FEES;
        std::string family;
        if (!(m.only({"account", "market", "table"}) && m.str("account", e.m_strAccount) &&
              m.str("market", family) && parseFamily(m, family, e.m_eFamily)))
            return false;
        switch (e.m_eFamily) {
            case FEE_STOCK:
                return m.record("table", e.m_record, "CCustomStockInstrumentFee") &&
                       recordIs<CCustomStockInstrumentFee>(m, e.m_record, "table");
            case FEE_FUTURE:
                return m.record("table", e.m_record, "CCustomFutureInstrumentFee") &&
                       recordIs<CCustomFutureInstrumentFee>(m, e.m_record, "table");
            case FEE_HGT:
                return m.record("table", e.m_record, "CCustomHGTInstrumentFee") &&
                       recordIs<CCustomHGTInstrumentFee>(m, e.m_record, "table");
            case FEE_SGT:
                return m.record("table", e.m_record, "CCustomSgtInstrumentFee") &&
                       recordIs<CCustomSgtInstrumentFee>(m, e.m_record, "table");
            case FEE_FOREIGN:
                return m.record("table", e.m_record, "CCustomSPInstrumentFee") &&
                       recordIs<CCustomSPInstrumentFee>(m, e.m_record, "table");
        }
        return false;
    }
    if (event == "create_account") {
        e.m_eKind = CSessionEvent::CREATE_ACCOUNT;
        e.m_nMillis = DEFAULT_UPDATE_INTERVAL_MS;
        int interval = DEFAULT_UPDATE_INTERVAL_MS;
        if (!(m.only({"info", "interval"}) && m.record("info", e.m_record, "CAccountInfo") &&
              recordIs<CAccountInfo>(m, e.m_record, "info") && m.integer("interval", interval, false)))
            return false;
        e.m_nMillis = interval;
        const CAccountInfo& info = static_cast<const CAccountInfo&>(*e.m_record);
        if (info.m_strAccountID.empty()) return m.fail("the account info needs m_strAccountID");
        e.m_strAccount = info.getKey();
        return true;
    }
    struct Lifecycle {
        const char* name;
        CSessionEvent::EKind kind;
    };
    static const Lifecycle lifecycle[] = {
        {"register", CSessionEvent::REGISTER},     {"start_cache", CSessionEvent::START_CACHE},
        {"initialize", CSessionEvent::INITIALIZE}, {"flush", CSessionEvent::FLUSH},
        {"clear", CSessionEvent::CLEAR},           {"remove", CSessionEvent::REMOVE}};
    for (const Lifecycle& l : lifecycle) {
        if (event != l.name) continue;
        e.m_eKind = l.kind;
        if (l.kind == CSessionEvent::INITIALIZE) {
            e.m_bFlag = true;
            return m.only({"account", "value"}) && m.str("account", e.m_strAccount) &&
                   m.boolean("value", e.m_bFlag, false);
        }
        return m.only({"account"}) && m.str("account", e.m_strAccount);
    }
    if (event == "query") {
        e.m_eKind = CSessionEvent::QUERY;
        return decodeQuery(m, e);
    }
    if (error)
        *error =
            "unknown event '" + event +
            "' (known: record, quote, advance, clock, exchanges, instruments, tick_table, exchange_rate, "
            "custom_fees, create_account, register, start_cache, initialize, flush, clear, remove, query)";
    return false;
}

}  // namespace replay
}  // namespace ttservice
