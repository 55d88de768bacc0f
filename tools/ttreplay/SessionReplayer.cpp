#include "SessionReplayer.h"

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/make_shared.hpp>
#include <boost/thread/mutex.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <ostream>
#include <set>
#include <sstream>
#include <unordered_map>
#include <vector>

#include "base/TraderCenter.h"
#include "base/data/CAccountData.h"
#include "base/data/COrderDetailHelper.h"
#include "base/data/CPriceDataHelper.h"
#include "base/data/DataCenter.h"
#include "base/data/DataHelper.h"
#include "impl/base/QuoteBoard.h"
#include "net/RPCEngine.h"
#include "records/RecordJson.h"

namespace ttservice {
namespace replay {

// ---------------------------------------------------------------------------------------------
// Output helpers

std::string formatNumber(double value) {
    if (value == TT_INVALID_DOUBLE) return "none";
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.15g", value);
    return buf;
}

void writableNumbers(Json::Value& v) {
    if (v.type() == Json::realValue) {
        const double d = v.asDouble();
        if (!std::isfinite(d) || std::fabs(d) >= 1e300) v = Json::Value(Json::nullValue);
    } else if (v.isArray() || v.isObject()) {
        for (Json::Value& child : v) writableNumbers(child);
    }
}

namespace {

Json::StreamWriterBuilder writerBuilder(const char* indentation) {
    Json::StreamWriterBuilder b;
    b["indentation"] = indentation;
    b["emitUTF8"] = true;
    b["precision"] = 15;
    b["commentStyle"] = "None";
    return b;
}

// The default record of each class as JSON, made once per class.
Json::Value defaultJson(const std::string& className) {
    static boost::mutex mutex;
    static std::map<std::string, Json::Value> cache;
    boost::mutex::scoped_lock lock(mutex);
    std::map<std::string, Json::Value>::iterator it = cache.find(className);
    if (it != cache.end()) return it->second;
    Json::Value v(Json::nullValue);
    if (IDataPtr rec = TypeManager::instance().create(className)) {
        records::toJsonValue(*rec, v);
        writableNumbers(v);
    }
    return cache.emplace(className, v).first->second;
}

}  // namespace

Json::Value nonDefaultFields(const Json::Value& recordJson) {
    if (recordJson.isArray()) {
        Json::Value out(Json::arrayValue);
        for (const Json::Value& item : recordJson) out.append(nonDefaultFields(item));
        return out;
    }
    if (!recordJson.isObject() || !recordJson.isMember("class")) return recordJson;
    const Json::Value def = defaultJson(recordJson["class"].asString());
    Json::Value out(Json::objectValue);
    for (Json::Value::const_iterator it = recordJson.begin(); it != recordJson.end(); ++it) {
        const std::string name = it.name();
        if (name == "class" || name == "m_accountInfo") continue;
        if (def.isObject() && def.isMember(name) && def[name] == *it) continue;
        out[name] = (it->isObject() || it->isArray()) ? nonDefaultFields(*it) : *it;
    }
    return out;
}

namespace {

void appendQuoted(const std::string& text, std::string& out) {
    out += '"';
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", static_cast<unsigned>(c));
            out += buf;
        } else {
            out += c;
        }
    }
    out += '"';
}

void appendCompact(const Json::Value& v, std::string& out) {
    switch (v.type()) {
        case Json::nullValue:
            out += "null";
            break;
        case Json::intValue:
            out += std::to_string(v.asLargestInt());
            break;
        case Json::uintValue:
            out += std::to_string(v.asLargestUInt());
            break;
        case Json::realValue:
            out += formatNumber(v.asDouble());
            break;
        case Json::stringValue:
            appendQuoted(v.asString(), out);
            break;
        case Json::booleanValue:
            out += v.asBool() ? "true" : "false";
            break;
        case Json::arrayValue: {
            out += '[';
            bool first = true;
            for (const Json::Value& item : v) {
                if (!first) out += ',';
                first = false;
                appendCompact(item, out);
            }
            out += ']';
            break;
        }
        case Json::objectValue: {
            out += '{';
            bool first = true;
            for (Json::Value::const_iterator it = v.begin(); it != v.end(); ++it) {
                if (!first) out += ',';
                first = false;
                appendQuoted(it.name(), out);
                out += ':';
                appendCompact(*it, out);
            }
            out += '}';
            break;
        }
    }
}

}  // namespace

std::string compactJson(const Json::Value& value) {
    std::string out;
    appendCompact(value, out);
    return out;
}

namespace {

std::string platformFamily(int platformId) {
    if (DataHelper::isStockPlatform(platformId)) return "stock";
    if (DataHelper::isFuturePlatform(platformId)) return "futures";
    if (DataHelper::isGoldPlatform(platformId)) return "gold";
    if (DataHelper::isForeignPlatform(platformId)) return "foreign futures";
    if (DataHelper::isHGTPlatform(platformId)) return "HGT";
    if (DataHelper::isStockOptionPlatform(platformId)) return "stock option";
    if (DataHelper::isFutureOptionPlatform(platformId)) return "futures option";
    if (DataHelper::isNew3BoardPlatform(platformId)) return "new third board";
    if (DataHelper::isSGTPlatform(platformId)) return "SGT";
    if (DataHelper::isInterbankPlatform(platformId)) return "interbank";
    return "unknown";
}

// The fee merge that fits a platform; false for a platform with none.
bool feeFamilyOf(int platformId, EFeeFamily& family) {
    if (DataHelper::isStockPlatform(platformId) || DataHelper::isStockOptionPlatform(platformId))
        family = FEE_STOCK;
    else if (DataHelper::isFuturePlatform(platformId) || DataHelper::isFutureOptionPlatform(platformId))
        family = FEE_FUTURE;
    else if (DataHelper::isHGTPlatform(platformId))
        family = FEE_HGT;
    else if (DataHelper::isSGTPlatform(platformId))
        family = FEE_SGT;
    else if (DataHelper::isForeignPlatform(platformId))
        family = FEE_FOREIGN;
    else
        return false;
    return true;
}

Json::Value recordJson(const IData& rec) {
    Json::Value v;
    records::toJsonValue(rec, v);
    v.removeMember("m_accountInfo");
    writableNumbers(v);
    return v;
}

// The calculator service of a replay: records every revaluation the refresh timers hand over and
// passes everything on to a real calculator when one was given.
class CReplayCalculator : public ICalculator {
public:
    struct CRevaluation {
        std::string m_strAccount;
        PriceChangeMap m_changes;
    };

    explicit CReplayCalculator(const ICalculatorPtr& inner) : m_inner(inner) {}

    int updateOrder(const COrderDetailPtr& order, const CAccountDataPtr& account) override {
        return m_inner ? m_inner->updateOrder(order, account) : 0;
    }
    int updateDeal(const CDealDetailPtr& deal, const CAccountDataPtr& account, bool isNew) override {
        return m_inner ? m_inner->updateDeal(deal, account, isNew) : 0;
    }
    void updatePrice(const CAccountDataPtr& account, const PriceChangeMap& changes) override {
        CRevaluation r;
        CAccountInfoPtr info = account ? account->getAccountInfo() : CAccountInfoPtr();
        if (info) r.m_strAccount = info->getKey();
        r.m_changes = changes;
        {
            boost::mutex::scoped_lock lock(m_mutex);
            m_revaluations.push_back(r);
        }
        if (m_inner) m_inner->updatePrice(account, changes);
    }
    double getCanOrderVolume(const CAccountDataPtr& account, const std::string& exchange,
                             const std::string& instrument, int direction, int offset,
                             double price) override {
        return m_inner ? m_inner->getCanOrderVolume(account, exchange, instrument, direction, offset, price)
                       : 0.0;
    }
    void getCanOrderVolumeWithReason(const CAccountDataPtr& account, const std::string& exchange,
                                     const std::string& instrument, int direction, int offset, double price,
                                     const CStructVolumePtr& out) override {
        if (m_inner)
            m_inner->getCanOrderVolumeWithReason(account, exchange, instrument, direction, offset, price,
                                                 out);
    }
    double getSingleOpVolume(const CAccountDataPtr& account, const std::string& exchange,
                             const std::string& instrument, int direction, int offset, double price,
                             double amount) override {
        return m_inner ? m_inner->getSingleOpVolume(account, exchange, instrument, direction, offset, price,
                                                    amount)
                       : 0.0;
    }

    bool hasVolumeCalculator() const { return static_cast<bool>(m_inner); }
    std::vector<CRevaluation> take() {
        boost::mutex::scoped_lock lock(m_mutex);
        std::vector<CRevaluation> out;
        out.swap(m_revaluations);
        return out;
    }

private:
    ICalculatorPtr m_inner;
    boost::mutex m_mutex;
    std::vector<CRevaluation> m_revaluations;
};

// What a flush delivered to the data center's listeners.
struct CBatchLog {
    int64_t m_nLine = 0;
    size_t m_nSlots = 0;
    size_t m_nEmpty = 0;
    std::vector<std::pair<int, std::string> > m_order;  // (kind, key) of the first slots; kind -1: empty
};

struct CAccountEntry {
    std::string m_strKey;
    CAccountInfoPtr m_info;
    CAccountDataPtr m_store;
    int64_t m_nCreatedLine = 0;
    bool m_bRegistered = false;
    bool m_bRemoved = false;        // removed from the data center after being registered
    bool m_bCaching = false;        // start_cache seen since the last flush
    bool m_bCacheOnlySent = false;  // a cache_only record seen since the last flush
    bool m_bCacheKept = false;      // the last flush replayed nothing: not registered or initialised
    std::vector<SubRequestPtr> m_subs;
    std::map<int, uint64_t> m_received;   // subscriber callbacks by kind
    std::map<int, uint64_t> m_forwarded;  // data center, one by one, by kind
    std::map<int, uint64_t> m_replayed;   // data center, in flush batches, by kind
    std::vector<CBatchLog> m_batches;
    uint64_t m_nRevaluations = 0;
    PriceChangeMap m_lastChanges;
};

Json::Value countsJson(const std::map<int, uint64_t>& counts) {
    Json::Value v(Json::objectValue);
    for (const auto& kv : counts)
        if (kv.second) v[std::to_string(kv.first)] = Json::UInt64(kv.second);
    return v;
}

Json::Value changesJson(const PriceChangeMap& changes) {
    Json::Value v(Json::objectValue);
    for (const auto& kv : changes) v[kv.first] = kv.second;
    return v;
}

}  // namespace

// ---------------------------------------------------------------------------------------------

class CSessionReplayer::CImpl {
public:
    CImpl(const CReplayOptions& options, std::ostream& out, std::ostream& err,
          const ICalculatorPtr& calculator);
    ~CImpl();

    bool replayLine(const std::string& line, int64_t lineNo);
    Json::Value summary() const;
    Json::Value accountSummary(const CAccountEntry& a) const;
    void finish();

    CReplayOptions m_options;
    std::ostream& m_out;
    std::ostream& m_err;
    CReplayCounters m_counters;

private:
    bool apply(CSessionEvent& e, std::string* why);
    bool applyQuery(const CSessionEvent& e, std::string* why);
    bool fail(int64_t lineNo, const std::string& reason);
    void emit(Json::Value result, const std::string& text);
    CAccountEntry* find(const std::string& key, std::string* why);
    CAccountEntry* entryOf(const CAccountInfoPtr& info);
    void subscribeAll(CAccountEntry& a);
    void onBatch(const CAccountInfoPtr& info, const std::vector<IDataPtr>& datas);
    std::string prefix() const;
    void renderText(const Json::Value& summary) const;

    CSessionParser m_parser;
    boost::shared_ptr<DataCenter> m_dc;
    boost::shared_ptr<CQuoteBoard> m_board;
    boost::shared_ptr<CReplayCalculator> m_calc;
    boost::shared_ptr<void> m_listener;
    std::map<std::string, std::unique_ptr<CAccountEntry> > m_accounts;
    std::unordered_map<const CAccountInfo*, CAccountEntry*> m_byInfo;
    std::unordered_map<const RecordType*, int>
        m_accountInfoField;    // per class: index of m_accountInfo, or -1
    std::vector<int> m_kinds;  // every kind of the record library, ascending
    int64_t m_nLine = 0;
    bool m_bFinished = false;
    bool m_bAnswered = false;  // text mode: the heading of the answers is written
    Json::Value m_results{Json::arrayValue};
    Json::Value m_errors{Json::arrayValue};
};

CSessionReplayer::CImpl::CImpl(const CReplayOptions& options, std::ostream& out, std::ostream& err,
                               const ICalculatorPtr& calculator)
    : m_options(options), m_out(out), m_err(err) {
    std::set<int> kinds;
    for (const RecordType* t : TypeManager::instance().types()) kinds.insert(t->kind());
    m_kinds.assign(kinds.begin(), kinds.end());

    net::RPCEngine* engine = net::RPCEngine::instance();
    engine->poll();  // handlers of timers cancelled before us, so that none counts as armed
    if (!engine->useManualClock(defaultClockStart())) {
        m_err << m_options.m_strSessionName
              << ": cannot take the dispatcher's clock (a timer is armed elsewhere in the process); "
                 "refresh timers will run on the system clock\n";
        ++m_counters.m_nErrors;
    }

    m_dc = boost::make_shared<DataCenter>();
    m_board = boost::make_shared<CQuoteBoard>();
    m_calc = boost::make_shared<CReplayCalculator>(calculator);
    TraderCenter* center = TraderCenter::instance();
    center->setPrimitive(m_board);
    center->setCalculator(m_calc);
    center->setDataCenter(m_dc);
    m_listener = m_dc->addAccountDataListener(
        [this](const CAccountInfoPtr& info, const IDataPtr& data, const TTError&) {
            if (CAccountEntry* a = entryOf(info))
                if (data) ++a->m_forwarded[data->getKind()];
        },
        [this](const CAccountInfoPtr& info, const std::vector<IDataPtr>& datas) { onBatch(info, datas); });
}

CSessionReplayer::CImpl::~CImpl() {
    // Cancel every timer and end every subscription, let the cancelled handlers run (they hold
    // their stores), then drop the stores before the services they subscribed through.
    for (auto& kv : m_accounts) {
        kv.second->m_subs.clear();
        kv.second->m_store->clear();
    }
    if (m_dc) m_dc->getGlobalData()->clear();
    net::RPCEngine* engine = net::RPCEngine::instance();
    engine->poll();
    m_listener.reset();
    for (auto& kv : m_accounts) m_dc->removeAccount(kv.first);
    m_byInfo.clear();
    m_accounts.clear();
    TraderCenter::instance()->reset();
    m_dc.reset();
    engine->poll();
    m_calc.reset();
    m_board.reset();
    engine->useSystemClock();
}

std::string CSessionReplayer::CImpl::prefix() const {
    return "line " + std::to_string(m_nLine) + " ";
}

bool CSessionReplayer::CImpl::fail(int64_t lineNo, const std::string& reason) {
    ++m_counters.m_nErrors;
    m_err << m_options.m_strSessionName << ":" << lineNo << ": " << reason << " (line skipped)\n";
    if (m_options.m_bJson) {
        Json::Value e(Json::objectValue);
        e["line"] = Json::Int64(lineNo);
        e["reason"] = reason;
        m_errors.append(e);
    }
    return false;
}

void CSessionReplayer::CImpl::emit(Json::Value result, const std::string& text) {
    if (m_options.m_bJson) {
        result["line"] = Json::Int64(m_nLine);
        m_results.append(std::move(result));
    } else {
        if (!m_bAnswered) m_out << "== answers, by line of the session\n";
        m_bAnswered = true;
        m_out << prefix() << text << '\n';
    }
}

CAccountEntry* CSessionReplayer::CImpl::find(const std::string& key, std::string* why) {
    std::map<std::string, std::unique_ptr<CAccountEntry> >::iterator it = m_accounts.find(key);
    if (it != m_accounts.end()) return it->second.get();
    *why = "unknown account '" + key + "' (no create_account for it before this line)";
    return nullptr;
}

CAccountEntry* CSessionReplayer::CImpl::entryOf(const CAccountInfoPtr& info) {
    if (!info) return nullptr;
    std::unordered_map<const CAccountInfo*, CAccountEntry*>::const_iterator it = m_byInfo.find(info.get());
    if (it != m_byInfo.end()) return it->second;
    std::map<std::string, std::unique_ptr<CAccountEntry> >::iterator a = m_accounts.find(info->getKey());
    return a == m_accounts.end() ? nullptr : a->second.get();
}

void CSessionReplayer::CImpl::subscribeAll(CAccountEntry& a) {
    a.m_subs.clear();
    a.m_subs.reserve(m_kinds.size());
    for (int kind : m_kinds) {
        uint64_t* counter = &a.m_received[kind];
        a.m_subs.push_back(
            a.m_store->subscribe(kind, std::string(), [counter](const IDataPtr&) { ++*counter; }));
    }
}

void CSessionReplayer::CImpl::onBatch(const CAccountInfoPtr& info, const std::vector<IDataPtr>& datas) {
    CAccountEntry* a = entryOf(info);
    if (!a) return;
    CBatchLog log;
    log.m_nLine = m_nLine;
    log.m_nSlots = datas.size();
    const size_t limit = m_options.m_nListLimit;
    for (const IDataPtr& d : datas) {
        if (!d)
            ++log.m_nEmpty;
        else
            ++a->m_replayed[d->getKind()];
        if (limit == 0 || log.m_order.size() < limit)
            log.m_order.emplace_back(d ? d->getKind() : -1, d ? d->getKey() : std::string());
    }
    a->m_batches.push_back(std::move(log));
}

bool CSessionReplayer::CImpl::replayLine(const std::string& line, int64_t lineNo) {
    ++m_counters.m_nLines;
    if (CSessionParser::isBlank(line)) return true;
    CSessionEvent e;
    std::string why;
    if (!m_parser.parse(line, e, &why)) return fail(lineNo, why);
    m_nLine = lineNo;
    if (!apply(e, &why)) return fail(lineNo, why);
    ++m_counters.m_nEvents;
    return true;
}

bool CSessionReplayer::CImpl::apply(CSessionEvent& e, std::string* why) {
    switch (e.m_eKind) {
        case CSessionEvent::RECORD: {
            CAccountEntry* a = find(e.m_strAccount, why);
            if (!a) return false;
            // A record of the account with no account info gets the account's.
            const RecordType* type = &e.m_record->recordType();
            std::unordered_map<const RecordType*, int>::iterator f = m_accountInfoField.find(type);
            if (f == m_accountInfoField.end())
                f = m_accountInfoField.emplace(type, type->fieldIndex("m_accountInfo")).first;
            if (f->second >= 0 && !e.m_record->getRecord(f->second))
                e.m_record->setData(f->second, a->m_info);
            if (e.m_bFlag) a->m_bCacheOnlySent = true;
            a->m_store->updateData(e.m_record, e.m_bFlag);
            ++m_counters.m_nRecords;
            return true;
        }
        case CSessionEvent::QUOTE:
            m_board->publishQuote(boost::static_pointer_cast<CPriceData>(e.m_record));
            return true;
        case CSessionEvent::ADVANCE: {
            const size_t fired =
                net::RPCEngine::instance()->advanceClock(boost::posix_time::milliseconds(e.m_nMillis));
            std::vector<CReplayCalculator::CRevaluation> revaluations = m_calc->take();
            // Only the form the output needs is built: a long session advances the clock often.
            Json::Value result(Json::objectValue);
            std::ostringstream text;
            if (m_options.m_bJson) {
                result["event"] = "advance";
                result["ms"] = Json::Int64(e.m_nMillis);
                result["timersFired"] = Json::UInt64(fired);
                result["revaluations"] = Json::Value(Json::arrayValue);
            } else {
                text << "advance " << e.m_nMillis << " ms: " << fired << " timer(s) fired, "
                     << revaluations.size() << " revaluation(s)";
            }
            for (CReplayCalculator::CRevaluation& r : revaluations) {
                if (m_options.m_bJson) {
                    Json::Value rv(Json::objectValue);
                    rv["account"] = r.m_strAccount;
                    rv["changes"] = changesJson(r.m_changes);
                    result["revaluations"].append(rv);
                } else {
                    text << "\n  revalue " << r.m_strAccount << ":";
                    for (const auto& kv : r.m_changes)
                        text << " " << kv.first << "=" << formatNumber(kv.second);
                }
                std::map<std::string, std::unique_ptr<CAccountEntry> >::iterator a =
                    m_accounts.find(r.m_strAccount);
                if (a != m_accounts.end()) {
                    ++a->second->m_nRevaluations;
                    a->second->m_lastChanges.swap(r.m_changes);
                }
            }
            emit(result, text.str());
            return true;
        }
        case CSessionEvent::CLOCK:
            if (!net::RPCEngine::instance()->useManualClock(e.m_clock)) {
                *why =
                    "the clock can be set only while no refresh timer is armed (before any account is "
                    "initialised)";
                return false;
            }
            return true;
        case CSessionEvent::EXCHANGES: {
            std::vector<CExchangeDetailPtr> exchanges;
            for (const IDataPtr& r : e.m_records)
                exchanges.push_back(boost::static_pointer_cast<CExchangeDetail>(r));
            m_dc->setExchanges(exchanges);
            return true;
        }
        case CSessionEvent::INSTRUMENTS: {
            std::vector<CInstrumentDetailPtr> details;
            details.reserve(e.m_records.size());
            for (const IDataPtr& r : e.m_records)
                details.push_back(boost::static_pointer_cast<CInstrumentDetail>(r));
            m_dc->setInstrumentDetail(e.m_markets, details);
            return true;
        }
        case CSessionEvent::TICK_TABLE:
            for (const auto& t : e.m_ticks) m_dc->setPriceDiff(e.m_strKey, t.first, t.second);
            return true;
        case CSessionEvent::EXCHANGE_RATE:
            m_dc->setExchangeRate(boost::static_pointer_cast<CExchangeRate>(e.m_record));
            return true;
        case CSessionEvent::CUSTOM_FEES: {
            CAccountEntry* a = find(e.m_strAccount, why);
            if (!a) return false;
            // A table without an account key is the account's.
            const int keyField = e.m_record->recordType().fieldIndex("m_strAccountKey");
            if (keyField >= 0 && e.m_record->getString(keyField).empty())
                e.m_record->setString(keyField, a->m_strKey);
            switch (e.m_eFamily) {
                case FEE_STOCK:
                    m_dc->setAccountsStockInstrumentFee(
                        {{a->m_info, boost::static_pointer_cast<CCustomStockInstrumentFee>(e.m_record)}});
                    break;
                case FEE_FUTURE:
                    m_dc->setAccountFutureInstruemntFee(
                        {{a->m_info, boost::static_pointer_cast<CCustomFutureInstrumentFee>(e.m_record)}});
                    break;
                case FEE_HGT:
                    m_dc->setAccountsHGTInstrumentFee(
                        {{a->m_info, boost::static_pointer_cast<CCustomHGTInstrumentFee>(e.m_record)}});
                    break;
                case FEE_SGT:
                    m_dc->setAccountsSgtInstrumentFee(
                        {{a->m_info, boost::static_pointer_cast<CCustomSgtInstrumentFee>(e.m_record)}});
                    break;
                case FEE_FOREIGN:
                    m_dc->setAccountForeignInstruemntFee(
                        {{a->m_info, boost::static_pointer_cast<CCustomSPInstrumentFee>(e.m_record)}});
                    break;
            }
            return true;
        }
        case CSessionEvent::CREATE_ACCOUNT: {
            std::map<std::string, std::unique_ptr<CAccountEntry> >::iterator it =
                m_accounts.find(e.m_strAccount);
            if (it != m_accounts.end()) {
                *why = "account '" + e.m_strAccount + "' was already created at line " +
                       std::to_string(it->second->m_nCreatedLine);
                return false;
            }
            std::unique_ptr<CAccountEntry> a(new CAccountEntry);
            a->m_strKey = e.m_strAccount;
            a->m_info = boost::static_pointer_cast<CAccountInfo>(e.m_record);
            a->m_nCreatedLine = m_nLine;
            a->m_store = boost::make_shared<CAccountData>(static_cast<int>(e.m_nMillis));
            a->m_store->setAccountInfo(a->m_info);
            subscribeAll(*a);
            m_byInfo[a->m_info.get()] = a.get();
            m_accounts.emplace(e.m_strAccount, std::move(a));
            return true;
        }
        case CSessionEvent::REGISTER: {
            CAccountEntry* a = find(e.m_strAccount, why);
            if (!a) return false;
            if (a->m_bRegistered) {
                *why = "account '" + a->m_strKey + "' is already registered";
                return false;
            }
            m_dc->addAccount(a->m_strKey, a->m_store);
            a->m_bRegistered = true;
            a->m_bRemoved = false;
            return true;
        }
        case CSessionEvent::START_CACHE: {
            CAccountEntry* a = find(e.m_strAccount, why);
            if (!a) return false;
            a->m_store->startCacheDatas();
            a->m_bCaching = true;
            return true;
        }
        case CSessionEvent::INITIALIZE: {
            CAccountEntry* a = find(e.m_strAccount, why);
            if (!a) return false;
            a->m_store->setInitialized(e.m_bFlag);
            return true;
        }
        case CSessionEvent::FLUSH: {
            CAccountEntry* a = find(e.m_strAccount, why);
            if (!a) return false;
            // A flush that found the account unregistered or not initialised kept the push cache:
            // the next flush may replay it, with or without a new start_cache.
            if (!a->m_bCaching && !a->m_bCacheOnlySent && !a->m_bCacheKept) {
                *why = "flush of account '" + a->m_strKey +
                       "' without start_cache (or a cache_only record) since its last flush: nothing is "
                       "being cached";
                return false;
            }
            const size_t before = a->m_batches.size();
            const bool initialized = a->m_store->initialized();
            a->m_store->flushDatas();
            a->m_bCaching = false;
            a->m_bCacheOnlySent = false;
            Json::Value result(Json::objectValue);
            result["event"] = "flush";
            result["account"] = a->m_strKey;
            std::string text = "flush " + a->m_strKey + ": ";
            a->m_bCacheKept = false;
            if (a->m_batches.size() > before) {
                const CBatchLog& b = a->m_batches.back();
                result["replayed"] = Json::UInt64(b.m_nSlots);
                text += std::to_string(b.m_nSlots) + " slot(s) replayed to the data center";
            } else {
                result["replayed"] = 0;
                a->m_bCacheKept = !a->m_bRegistered || !initialized;
                const char* reason = !a->m_bRegistered ? "not registered: the cache is kept"
                                     : !initialized    ? "not initialised: the cache is kept"
                                                       : "the cache was empty";
                result["note"] = reason;
                text += std::string("nothing replayed (") + reason + ")";
            }
            emit(result, text);
            return true;
        }
        case CSessionEvent::CLEAR: {
            CAccountEntry* a = find(e.m_strAccount, why);
            if (!a) return false;
            a->m_store->clear();
            // clear() ends every subscription of the store; the replay's view subscribes again, as a
            // terminal's view does when the account is reloaded.
            subscribeAll(*a);
            return true;
        }
        case CSessionEvent::REMOVE: {
            CAccountEntry* a = find(e.m_strAccount, why);
            if (!a) return false;
            if (!a->m_bRegistered) {
                *why = "account '" + a->m_strKey + "' is not registered";
                return false;
            }
            m_dc->removeAccount(a->m_strKey);
            a->m_bRegistered = false;
            a->m_bRemoved = true;
            return true;
        }
        case CSessionEvent::QUERY:
            if (!applyQuery(e, why)) return false;
            ++m_counters.m_nQueries;
            return true;
    }
    *why = "unhandled event";
    return false;
}

bool CSessionReplayer::CImpl::applyQuery(const CSessionEvent& e, std::string* why) {
    Json::Value result(Json::objectValue);
    result["event"] = "query";
    result["query"] = queryName(e.m_eQuery);
    if (!e.m_strId.empty()) result["id"] = e.m_strId;
    std::ostringstream text;
    text << queryName(e.m_eQuery);
    if (!e.m_strId.empty()) text << " [" << e.m_strId << "]";

    switch (e.m_eQuery) {
        case QUERY_CAN_ORDER_VOLUME: {
            CAccountEntry* a = find(e.m_strAccount, why);
            if (!a) return false;
            result["account"] = a->m_strKey;
            result["exchange"] = e.m_strExchange;
            result["instrument"] = e.m_strInstrument;
            result["direction"] = e.m_nDirection;
            result["offset"] = e.m_nOffset;
            result["price"] = e.m_dPrice;
            text << " " << a->m_strKey << " " << e.m_strExchange << " " << e.m_strInstrument << " direction "
                 << e.m_nDirection << " offset " << e.m_nOffset << " price " << formatNumber(e.m_dPrice)
                 << ": ";
            if (!m_calc->hasVolumeCalculator()) {
                result["answer"] = Json::Value(Json::nullValue);
                result["note"] = "no calculator installed";
                text << "no calculator installed";
                break;
            }
            CStructVolumePtr v = a->m_store->getCanOrderVolumeWithReason(
                e.m_strExchange, e.m_strInstrument, e.m_nDirection, e.m_nOffset, e.m_dPrice);
            result["answer"] = v->m_dVolume;
            result["reasonCode"] = v->m_nReasonCode;
            result["reason"] = v->m_strReason;
            text << formatNumber(v->m_dVolume);
            if (v->m_nReasonCode || !v->m_strReason.empty())
                text << " (reason " << v->m_nReasonCode << ": " << v->m_strReason << ")";
            break;
        }
        case QUERY_UNDEALT_VOLUME: {
            CAccountEntry* a = find(e.m_strAccount, why);
            if (!a) return false;
            int buy = 0, sell = 0;
            a->m_store->getUnDealVolume(e.m_strInstrument, buy, sell);
            result["account"] = a->m_strKey;
            result["instrument"] = e.m_strInstrument;
            result["buy"] = buy;
            result["sell"] = sell;
            text << " " << a->m_strKey << " " << e.m_strInstrument << ": buy " << buy << ", sell " << sell;
            break;
        }
        case QUERY_ORDER_PRICE: {
            CPriceDataPtr quote = m_board->getPrice(0, e.m_strExchange, e.m_strInstrument);
            double price;
            if (e.m_bHasFixPrice)
                price = e.m_bForCalc ? CPriceDataHelper::getPriceAndFixForCalc(quote, e.m_nPriceType,
                                                                               e.m_nOperation, e.m_dFixPrice)
                                     : CPriceDataHelper::getPriceAndFixForOrder(
                                           quote, e.m_nPriceType, e.m_nOperation, e.m_dFixPrice);
            else
                price = e.m_bForCalc
                            ? CPriceDataHelper::getPriceForCalc(quote, e.m_nPriceType, e.m_nOperation)
                            : CPriceDataHelper::getPriceForOrder(quote, e.m_nPriceType, e.m_nOperation);
            result["exchange"] = e.m_strExchange;
            result["instrument"] = e.m_strInstrument;
            result["priceType"] = e.m_nPriceType;
            result["operation"] = e.m_nOperation;
            result["for"] = e.m_bForCalc ? "calc" : "order";
            if (e.m_bHasFixPrice) result["fixPrice"] = e.m_dFixPrice;
            result["answer"] = price == TT_INVALID_DOUBLE ? Json::Value(Json::nullValue) : Json::Value(price);
            result["quote"] = static_cast<bool>(quote);
            text << " " << e.m_strExchange << " " << e.m_strInstrument << " type " << e.m_nPriceType
                 << " operation " << e.m_nOperation << " for " << (e.m_bForCalc ? "calc" : "order");
            if (e.m_bHasFixPrice) text << " fix " << formatNumber(e.m_dFixPrice);
            text << ": " << (price == TT_INVALID_DOUBLE ? std::string("no price") : formatNumber(price));
            if (!quote) text << " (no quote published)";
            break;
        }
        case QUERY_INSTRUMENT: {
            CInstrumentDetailPtr inst = m_dc->getInstrument(e.m_strExchange, e.m_strInstrument);
            result["market"] = e.m_strExchange;
            result["code"] = e.m_strInstrument;
            text << " " << e.m_strExchange << " " << e.m_strInstrument << ": ";
            if (!inst) {
                result["answer"] = Json::Value(Json::nullValue);
                text << "unknown";
                break;
            }
            Json::Value v = recordJson(*inst);
            result["answer"] = v;
            result["realMarket"] = m_dc->getRealMarket(e.m_strExchange, e.m_strInstrument);
            text << inst->getKey() << " (real market " << result["realMarket"].asString() << ") "
                 << compactJson(nonDefaultFields(v));
            break;
        }
        case QUERY_TICK_SIZE: {
            const double tick = m_dc->getPriceDiff(e.m_strKey, e.m_dPrice);
            result["key"] = e.m_strKey;
            result["price"] = e.m_dPrice;
            result["answer"] = tick;
            text << " " << e.m_strKey << " price " << formatNumber(e.m_dPrice) << ": " << formatNumber(tick);
            break;
        }
        case QUERY_EXCHANGE_RATE: {
            const double rate = m_dc->getExchangeRate(e.m_strCurrency);
            result["currency"] = e.m_strCurrency;
            result["answer"] = rate;
            text << " " << e.m_strCurrency << ": " << formatNumber(rate);
            break;
        }
        case QUERY_FEES: {
            CAccountEntry* a = find(e.m_strAccount, why);
            if (!a) return false;
            EFeeFamily family = e.m_eFamily;
            if (!e.m_bHasFamily && !feeFamilyOf(a->m_info->m_nPlatformID, family)) {
                *why = "no fee merge for platform " + std::to_string(a->m_info->m_nPlatformID) +
                       " of account '" + a->m_strKey + "'; name one with \"market\"";
                return false;
            }
            CInstrumentDetailPtr inst = m_dc->getInstrument(e.m_strExchange, e.m_strInstrument);
            CInstrumentFeePtr held = a->m_store->getInstrumentFee(e.m_strExchange, e.m_strInstrument);
            if (!inst && !(held && held->m_instrument)) {
                *why = "unknown instrument " + e.m_strExchange + " " + e.m_strInstrument +
                       " (neither in the instruments nor in a fee record of the account)";
                return false;
            }
            // The account's own fee record when one is filed (a copy: the merge writes into it), else
            // a fresh one of the instrument.
            CInstrumentFeePtr fee = held ? boost::static_pointer_cast<CInstrumentFee>(held->clone())
                                         : boost::make_shared<CInstrumentFee>();
            if (!fee->m_instrument) fee->m_instrument = inst;
            if (fee->m_strAccountKey.empty()) fee->m_strAccountKey = a->m_strKey;
            switch (family) {
                case FEE_STOCK:
                    m_dc->testMergeStockInstrumentFee(a->m_info, fee);
                    break;
                case FEE_FUTURE:
                    m_dc->testMergeFutureInstrumentFee(a->m_info, fee);
                    break;
                case FEE_HGT:
                    m_dc->testMergeHGTInstrumentFee(a->m_info, fee);
                    break;
                case FEE_SGT:
                    m_dc->testMergeSgtInstrumentFee(a->m_info, fee);
                    break;
                case FEE_FOREIGN:
                    m_dc->testMergeForeignInstrumentFee(a->m_info, fee);
                    break;
            }
            Json::Value v = recordJson(*fee);
            const std::string instrumentKey = fee->m_instrument ? fee->m_instrument->getKey() : std::string();
            v["m_instrument"] = instrumentKey;  // the instrument by its key; its fields are not fees
            result["account"] = a->m_strKey;
            result["exchange"] = e.m_strExchange;
            result["instrument"] = e.m_strInstrument;
            result["market"] = feeFamilyName(family);
            result["fromAccountRecord"] = static_cast<bool>(held);
            result["answer"] = v;
            Json::Value shown = nonDefaultFields(v);
            shown.removeMember("m_instrument");
            shown.removeMember("m_strAccountKey");
            text << " " << a->m_strKey << " " << e.m_strExchange << " " << e.m_strInstrument << " ("
                 << feeFamilyName(family) << (held ? ", from the account's fee record" : "") << "): ";
            if (!shown.empty())
                text << compactJson(shown);
            else if (held)
                text << "no rates";
            else
                text << "no rates (no custom rate matches and the account holds no fee record of it)";
            break;
        }
        case QUERY_TRADE_DAY: {
            const std::string day =
                e.m_strExchange.empty() ? m_dc->getStockTradeDay() : m_dc->getMarketTradeDay(e.m_strExchange);
            if (!e.m_strExchange.empty()) result["market"] = e.m_strExchange;
            result["answer"] = day;
            text << " " << (e.m_strExchange.empty() ? std::string("(stock)") : e.m_strExchange) << ": "
                 << (day.empty() ? std::string("unknown") : day);
            break;
        }
    }
    emit(result, text.str());
    return true;
}

Json::Value CSessionReplayer::CImpl::accountSummary(const CAccountEntry& a) const {
    Json::Value s(Json::objectValue);
    s["account"] = a.m_strKey;
    s["platform"] = a.m_info->m_nPlatformID;
    s["family"] = platformFamily(a.m_info->m_nPlatformID);
    s["accountType"] = a.m_info->m_nAccountType;
    s["registered"] = a.m_bRegistered;
    s["removed"] = a.m_bRemoved;
    s["initialized"] = a.m_store->initialized();

    std::vector<IDataPtr> positions, orders;
    Json::Value held(Json::objectValue);
    {
        CAccountData::Lock lock(a.m_store);
        const CAccountData::KindDataMap& all = a.m_store->getDatas();
        for (const auto& kv : all) {
            if (!kv.second.empty()) held[std::to_string(kv.first)] = Json::UInt64(kv.second.size());
            if (kv.first == CAccountData::KIND_POSITION)
                for (const auto& r : kv.second) positions.push_back(r.second);
            if (kv.first == CAccountData::KIND_ORDER)
                for (const auto& r : kv.second) orders.push_back(r.second);
        }
    }
    s["held"] = held;
    CAccountDetailPtr detail = a.m_store->getAccountDetail();
    s["funds"] = detail ? recordJson(*detail) : Json::Value(Json::nullValue);

    const size_t limit = m_options.m_nListLimit;
    auto listed = [limit](const std::vector<IDataPtr>& recs, Json::Value& out) {
        out = Json::Value(Json::arrayValue);
        for (const IDataPtr& r : recs) {
            if (limit && out.size() >= limit) break;
            Json::Value item(Json::objectValue);
            item["key"] = r->getKey();
            item["record"] = recordJson(*r);
            out.append(item);
        }
    };
    listed(positions, s["positions"]);
    s["positionCount"] = Json::UInt64(positions.size());

    std::vector<IDataPtr> open;
    // The store is asked for the undealt volumes of every instrument with an order that has an
    // untraded remainder: only such an order can count, whatever the rule of which ones do.
    std::set<std::string> instruments;
    for (const IDataPtr& r : orders) {
        const COrderDetail* o = dynamic_cast<const COrderDetail*>(r.get());
        if (!o) continue;
        if (o->m_nVolumeTotalOriginal > o->m_nVolumeTraded) instruments.insert(o->m_strInstrumentID);
        if (!COrderDetailHelper::completed(*o)) open.push_back(r);
    }
    listed(open, s["openOrders"]);
    s["openOrderCount"] = Json::UInt64(open.size());

    Json::Value undealt(Json::arrayValue);
    for (const std::string& inst : instruments) {
        int buy = 0, sell = 0;
        a.m_store->getUnDealVolume(inst, buy, sell);
        if (buy == 0 && sell == 0) continue;
        Json::Value u(Json::objectValue);
        u["instrument"] = inst;
        u["buy"] = buy;
        u["sell"] = sell;
        undealt.append(u);
    }
    s["undealt"] = undealt;

    s["subscribers"] = countsJson(a.m_received);
    Json::Value dc(Json::objectValue);
    dc["forwarded"] = countsJson(a.m_forwarded);
    dc["replayed"] = countsJson(a.m_replayed);
    Json::Value flushes(Json::arrayValue);
    for (const CBatchLog& b : a.m_batches) {
        Json::Value f(Json::objectValue);
        f["line"] = Json::Int64(b.m_nLine);
        f["slots"] = Json::UInt64(b.m_nSlots);
        f["empty"] = Json::UInt64(b.m_nEmpty);
        Json::Value order(Json::arrayValue);
        for (const auto& k : b.m_order) {
            Json::Value item(Json::objectValue);
            if (k.first < 0) {
                item["kind"] = Json::Value(Json::nullValue);
            } else {
                item["kind"] = k.first;
                item["key"] = k.second;
            }
            order.append(item);
        }
        f["order"] = order;
        f["more"] = Json::UInt64(b.m_nSlots - b.m_order.size());
        flushes.append(f);
    }
    dc["flushes"] = flushes;
    s["dataCenter"] = dc;

    Json::Value rv(Json::objectValue);
    rv["count"] = Json::UInt64(a.m_nRevaluations);
    rv["last"] = changesJson(a.m_lastChanges);
    s["revaluations"] = rv;

    const CAccountDataStats st = a.m_store->getStatistics();
    Json::Value c(Json::objectValue);
    c["filed"] = Json::UInt64(st.filedTotal());
    c["notifications"] = Json::UInt64(st.m_nNotifications);
    c["forwarded"] = Json::UInt64(st.m_nForwarded);
    c["cached"] = Json::UInt64(st.m_nCached);
    c["replays"] = Json::UInt64(st.m_nReplays);
    c["replayedRecords"] = Json::UInt64(st.m_nReplayedRecords);
    s["counters"] = c;
    return s;
}

Json::Value CSessionReplayer::CImpl::summary() const {
    Json::Value s(Json::objectValue);
    Json::Value ref(Json::objectValue);
    Json::Value exchanges(Json::objectValue);
    for (const auto& kv : m_dc->getMapExchange())
        exchanges[kv.first] = kv.second ? kv.second->m_strTradeDay : std::string();
    ref["exchanges"] = exchanges;
    std::map<std::string, uint64_t> perMarket;
    const InstrumentMap instruments = m_dc->getInstruments();
    for (const auto& kv : instruments)
        if (kv.second) ++perMarket[kv.second->m_strExchangeID];
    Json::Value markets(Json::objectValue);
    for (const auto& kv : perMarket) markets[kv.first] = Json::UInt64(kv.second);
    ref["instruments"] = markets;
    ref["instrumentCount"] = Json::UInt64(instruments.size());
    s["reference"] = ref;
    Json::Value accounts(Json::arrayValue);
    for (const auto& kv : m_accounts) accounts.append(accountSummary(*kv.second));
    s["accounts"] = accounts;
    return s;
}

namespace {

// A kind as the text output names it: its number and the class whose type id it is
// ("542 COrderDetail"); the number alone for a kind no class of the record library has.
std::string kindText(const std::string& kind) {
    const RecordType* type = TypeManager::instance().findType(std::atoi(kind.c_str()));
    return type ? kind + " " + type->name : kind;
}

std::string countsText(const Json::Value& counts) {
    if (counts.empty()) return "none";
    std::string out;
    uint64_t total = 0;
    for (Json::Value::const_iterator it = counts.begin(); it != counts.end(); ++it) {
        if (!out.empty()) out += ", ";
        out += kindText(it.name()) + " x" + std::to_string(it->asUInt64());
        total += it->asUInt64();
    }
    return out + " (" + std::to_string(total) + ")";
}

void listText(std::ostream& out, const char* title, const Json::Value& items, uint64_t total) {
    out << title << ": " << total << "\n";
    for (const Json::Value& item : items)
        out << "  " << item["key"].asString() << " " << compactJson(nonDefaultFields(item["record"])) << "\n";
    if (total > items.size()) out << "  ... and " << (total - items.size()) << " more\n";
}

}  // namespace

void CSessionReplayer::CImpl::renderText(const Json::Value& s) const {
    std::ostream& out = m_out;
    const Json::Value& ref = s["reference"];
    out << "\n== reference data\n";
    out << "exchanges:";
    if (ref["exchanges"].empty()) out << " none";
    for (Json::Value::const_iterator it = ref["exchanges"].begin(); it != ref["exchanges"].end(); ++it)
        out << " " << it.name() << " " << (it->asString().empty() ? std::string("-") : it->asString());
    out << "\ninstruments: " << ref["instrumentCount"].asUInt64();
    for (Json::Value::const_iterator it = ref["instruments"].begin(); it != ref["instruments"].end(); ++it)
        out << (it == ref["instruments"].begin() ? " (" : ", ") << it.name() << " " << it->asUInt64();
    if (!ref["instruments"].empty()) out << ")";
    out << "\n";

    for (const Json::Value& a : s["accounts"]) {
        out << "\n== account " << a["account"].asString() << ": " << a["family"].asString() << ", platform "
            << a["platform"].asInt() << ", account type " << a["accountType"].asInt() << "; "
            << (a["registered"].asBool() ? "registered"
                : a["removed"].asBool()  ? "removed"
                                         : "not registered")
            << ", " << (a["initialized"].asBool() ? "initialised" : "not initialised") << "\n";
        out << "held: " << countsText(a["held"]) << "\n";
        out << "funds: ";
        if (a["funds"].isNull())
            out << "none\n";
        else
            out << a["funds"]["class"].asString() << " " << compactJson(nonDefaultFields(a["funds"])) << "\n";
        listText(out, "positions", a["positions"], a["positionCount"].asUInt64());
        listText(out, "open orders", a["openOrders"], a["openOrderCount"].asUInt64());
        out << "undealt volumes:";
        if (a["undealt"].empty()) out << " none";
        for (const Json::Value& u : a["undealt"])
            out << " " << u["instrument"].asString() << " buy " << u["buy"].asInt() << " sell "
                << u["sell"].asInt() << ";";
        out << "\n";
        out << "subscribers received: " << countsText(a["subscribers"]) << "\n";
        const Json::Value& dc = a["dataCenter"];
        out << "data center received: one by one " << countsText(dc["forwarded"]) << "; in flushes "
            << countsText(dc["replayed"]) << "\n";
        for (const Json::Value& f : dc["flushes"]) {
            out << "  flush at line " << f["line"].asInt64() << ", " << f["slots"].asUInt64() << " slot(s):";
            for (const Json::Value& k : f["order"]) {
                if (k["kind"].isNull())
                    out << " (empty)";
                else
                    out << " " << k["kind"].asInt() << ":" << k["key"].asString();
            }
            if (f["more"].asUInt64()) out << " ... and " << f["more"].asUInt64() << " more";
            out << "\n";
        }
        out << "revaluations: " << a["revaluations"]["count"].asUInt64();
        if (!a["revaluations"]["last"].empty()) {
            out << ", last:";
            const Json::Value& last = a["revaluations"]["last"];
            for (Json::Value::const_iterator it = last.begin(); it != last.end(); ++it)
                out << " " << it.name() << "=" << formatNumber(it->asDouble());
        }
        out << "\n";
        const Json::Value& c = a["counters"];
        out << "store counters: filed " << c["filed"].asUInt64() << ", notifications "
            << c["notifications"].asUInt64() << ", forwarded " << c["forwarded"].asUInt64() << ", cached "
            << c["cached"].asUInt64() << ", replays " << c["replays"].asUInt64() << " ("
            << c["replayedRecords"].asUInt64() << " slots)\n";
    }
}

void CSessionReplayer::CImpl::finish() {
    if (m_bFinished) return;
    m_bFinished = true;
    const Json::Value s = summary();
    if (!m_options.m_bJson) {
        renderText(s);
        m_out << "\nreplayed: " << m_counters.m_nEvents << " events, " << m_counters.m_nRecords
              << " records, " << m_counters.m_nQueries << " queries; " << m_counters.m_nErrors
              << " lines skipped\n";
        m_out.flush();
        return;
    }
    Json::Value doc(Json::objectValue);
    doc["session"] = m_options.m_strSessionName;
    doc["results"] = m_results;
    doc["errors"] = m_errors;
    doc["reference"] = s["reference"];
    doc["accounts"] = s["accounts"];
    Json::Value counts(Json::objectValue);
    counts["lines"] = Json::UInt64(m_counters.m_nLines);
    counts["events"] = Json::UInt64(m_counters.m_nEvents);
    counts["records"] = Json::UInt64(m_counters.m_nRecords);
    counts["queries"] = Json::UInt64(m_counters.m_nQueries);
    counts["errors"] = Json::UInt64(m_counters.m_nErrors);
    doc["counts"] = counts;
    static const Json::StreamWriterBuilder pretty = writerBuilder(" ");
    m_out << Json::writeString(pretty, doc) << "\n";
    m_out.flush();
}

// ---------------------------------------------------------------------------------------------

CSessionReplayer::CSessionReplayer(const CReplayOptions& options, std::ostream& out, std::ostream& err,
                                   const ICalculatorPtr& calculator)
    : m_pImpl(new CImpl(options, out, err, calculator)) {}

CSessionReplayer::~CSessionReplayer() {}

bool CSessionReplayer::replayLine(const std::string& line, int64_t lineNo) {
    return m_pImpl->replayLine(line, lineNo);
}

Json::Value CSessionReplayer::summary() const {
    return m_pImpl->summary();
}

Json::Value CSessionReplayer::accountSummary(const std::string& accountKey) const {
    const Json::Value s = m_pImpl->summary();
    for (const Json::Value& a : s["accounts"])
        if (a["account"].asString() == accountKey) return a;
    return Json::Value(Json::nullValue);
}

void CSessionReplayer::finish() {
    m_pImpl->finish();
}

const CReplayCounters& CSessionReplayer::counters() const {
    return m_pImpl->m_counters;
}

}  // namespace replay
}  // namespace ttservice
