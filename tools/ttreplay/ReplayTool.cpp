#include "ReplayTool.h"

#include <bson/bson.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "SessionGenerator.h"
#include "SessionReplayer.h"
#include "persist/CPersistService.h"
#include "utils/LogCenter.h"

namespace ttservice {
namespace replay {

namespace {

const char* const kUsage =
    "usage: ttreplay SESSION [--store URL | --no-store] [--json] [--limit N] [--log PROPERTIES]\n"
    "       ttreplay generate [--accounts N] [--records M] [--seed S] [--instruments K] [--output FILE]\n"
    "SESSION is a session file (JSON Lines, see docs/session-format.md); \"-\" reads standard input.\n";

int usage(std::ostream& err, const std::string& problem) {
    err << "ttreplay: " << problem << "\n" << kUsage;
    return EXIT_USAGE;
}

// A whole decimal number in [min, max].
bool parseCount(const std::string& text, unsigned long long min, unsigned long long max,
                unsigned long long& out) {
    if (text.empty() || text.size() > 19) return false;
    for (char c : text)
        if (c < '0' || c > '9') return false;
    out = std::strtoull(text.c_str(), nullptr, 10);
    return out >= min && out <= max;
}

// ---- the summaries as BSON documents ----

void appendJson(bson_t* doc, const char* key, const Json::Value& v);

void appendMembers(bson_t* doc, const Json::Value& v) {
    if (v.isArray()) {
        for (Json::ArrayIndex i = 0; i < v.size(); ++i) appendJson(doc, std::to_string(i).c_str(), v[i]);
    } else {
        for (Json::Value::const_iterator it = v.begin(); it != v.end(); ++it)
            appendJson(doc, it.name().c_str(), *it);
    }
}

void appendJson(bson_t* doc, const char* key, const Json::Value& v) {
    switch (v.type()) {
        case Json::nullValue:
            bson_append_null(doc, key, -1);
            break;
        case Json::intValue:
            bson_append_int64(doc, key, -1, v.asInt64());
            break;
        case Json::uintValue:
            if (v.isInt64())
                bson_append_int64(doc, key, -1, v.asInt64());
            else
                bson_append_double(doc, key, -1, v.asDouble());
            break;
        case Json::realValue:
            bson_append_double(doc, key, -1, v.asDouble());
            break;
        case Json::stringValue: {
            const std::string s = v.asString();
            bson_append_utf8(doc, key, -1, s.data(), static_cast<int>(s.size()));
            break;
        }
        case Json::booleanValue:
            bson_append_bool(doc, key, -1, v.asBool());
            break;
        case Json::arrayValue: {
            bson_t child;
            bson_append_array_begin(doc, key, -1, &child);
            appendMembers(&child, v);
            bson_append_array_end(doc, &child);
            break;
        }
        case Json::objectValue: {
            bson_t child;
            bson_append_document_begin(doc, key, -1, &child);
            appendMembers(&child, v);
            bson_append_document_end(doc, &child);
            break;
        }
    }
}

bson::BSONObj toBson(const Json::Value& v) {
    bson_t doc;
    bson_init(&doc);
    appendMembers(&doc, v);
    bson::BSONObj obj = bson::BSONObj::fromBson(&doc);
    bson_destroy(&doc);
    return obj;
}

// ---- progress on a terminal ----

class CProgress {
public:
    CProgress(std::ostream& err, long long total) : m_err(err), m_total(total) {}
    void update(long long done, uint64_t lines) {
        const int pct = static_cast<int>(done * 100 / (m_total > 0 ? m_total : 1));
        if (pct == m_pct) return;
        m_pct = pct;
        const int width = 40, filled = pct * width / 100;
        m_err << "\rreplaying [" << std::string(filled, '#') << std::string(width - filled, ' ') << "] "
              << pct << "% " << lines << " lines" << std::flush;
    }
    // Wipes the bar; the next update() draws it again.
    void clear() {
        if (m_pct >= 0) m_err << "\r" << std::string(80, ' ') << "\r" << std::flush;
        m_pct = -1;
    }

private:
    std::ostream& m_err;
    long long m_total;
    int m_pct = -1;
};

std::string isoNow() {
    const std::time_t t = std::time(nullptr);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", std::localtime(&t));
    return buf;
}

int runGenerate(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    CGeneratorOptions options;
    std::string output;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size();
        unsigned long long n = 0;
        if (a == "--accounts" && hasValue) {
            if (!parseCount(args[++i], 1, 100000, n))
                return usage(err, "--accounts wants a number from 1 to 100000");
            options.m_nAccounts = static_cast<int>(n);
        } else if (a == "--records" && hasValue) {
            if (!parseCount(args[++i], 0, 1000000000ULL, n))
                return usage(err, "--records wants a number from 0 to 1000000000");
            options.m_nRecords = n;
        } else if (a == "--seed" && hasValue) {
            if (!parseCount(args[++i], 0, ~0ULL, n)) return usage(err, "--seed wants a whole number");
            options.m_nSeed = n;
        } else if (a == "--instruments" && hasValue) {
            if (!parseCount(args[++i], 100, 20000, n))
                return usage(err, "--instruments wants a number from 100 to 20000");
            options.m_nInstruments = static_cast<int>(n);
        } else if ((a == "--output" || a == "-o") && hasValue) {
            output = args[++i];
        } else {
            return usage(err, "unknown or incomplete option '" + a + "'");
        }
    }
    if (output.empty()) {
        const CGeneratorCounts c = generateSession(options, out);
        out.flush();
        err << "ttreplay: generated " << c.m_nLines << " lines, " << c.m_nRecords << " records\n";
        return out ? EXIT_OK : EXIT_ERRORS;
    }
    std::ofstream file(output, std::ios::binary | std::ios::trunc);
    if (!file) {
        err << "ttreplay: cannot write " << output << "\n";
        return EXIT_ERRORS;
    }
    const CGeneratorCounts c = generateSession(options, file);
    file.close();
    if (!file) {
        err << "ttreplay: writing " << output << " failed\n";
        return EXIT_ERRORS;
    }
    err << "ttreplay: generated " << c.m_nLines << " lines, " << c.m_nRecords << " records into " << output
        << "\n";
    return EXIT_OK;
}

}  // namespace

int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err, bool errIsTerminal) {
    if (args.empty()) return usage(err, "no session given");
    if (args[0] == "generate") return runGenerate(args, out, err);

    CReplayOptions options;
    std::string session, storeUrl, logConfig;
    bool noStore = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size();
        unsigned long long n = 0;
        if (a == "--json") {
            options.m_bJson = true;
        } else if (a == "--no-store") {
            noStore = true;
        } else if (a == "--store" && hasValue) {
            storeUrl = args[++i];
        } else if (a == "--limit" && hasValue) {
            if (!parseCount(args[++i], 0, 1000000000ULL, n))
                return usage(err, "--limit wants a whole number");
            options.m_nListLimit = static_cast<size_t>(n);
        } else if (a == "--log" && hasValue) {
            logConfig = args[++i];
        } else if (a == "-h" || a == "--help") {
            out << kUsage;
            return EXIT_OK;
        } else if (a.size() > 1 && a[0] == '-' && a != "-") {
            return usage(err, "unknown or incomplete option '" + a + "'");
        } else if (session.empty()) {
            session = a;
        } else {
            return usage(err, "more than one session given ('" + session + "', '" + a + "')");
        }
    }
    if (session.empty()) return usage(err, "no session given");
    if (noStore && !storeUrl.empty()) return usage(err, "--store and --no-store exclude each other");

    std::ifstream file;
    std::istream* in = &std::cin;
    long long size = -1;
    if (session != "-") {
        file.open(session, std::ios::binary);
        if (!file) {
            err << "ttreplay: cannot read " << session << "\n";
            return EXIT_ERRORS;
        }
        file.seekg(0, std::ios::end);
        size = static_cast<long long>(file.tellg());
        file.seekg(0, std::ios::beg);
        in = &file;
    }
    if (!logConfig.empty() && !utils::CLogCenter::instance().configure(logConfig)) {
        err << "ttreplay: cannot read the logging configuration " << logConfig << "\n";
        return EXIT_ERRORS;
    }

    options.m_strSessionName = session == "-" ? "<stdin>" : session;
    const std::string started = isoNow();
    const std::chrono::steady_clock::time_point t0 = std::chrono::steady_clock::now();
    int status = EXIT_OK;
    uint64_t lines = 0, records = 0, errors = 0, events = 0, queries = 0;
    Json::Value summary;
    {
        std::unique_ptr<CProgress> progress;
        if (errIsTerminal && size >= PROGRESS_MIN_BYTES) progress.reset(new CProgress(err, size));
        // While the bar is drawn, the replayer's messages wait here and go out on lines of their own.
        std::ostringstream held;
        const auto passOn = [&]() {
            if (!progress || held.tellp() <= 0) return;
            progress->clear();
            err << held.str() << std::flush;
            held.str(std::string());
        };
        CSessionReplayer replayer(options, out, progress ? static_cast<std::ostream&>(held) : err);
        passOn();
        std::string line;
        long long done = 0;
        int64_t lineNo = 0;
        while (std::getline(*in, line)) {
            ++lineNo;
            done += static_cast<long long>(line.size()) + 1;
            replayer.replayLine(line, lineNo);
            passOn();
            if (progress && (lineNo & 1023) == 0) progress->update(done, static_cast<uint64_t>(lineNo));
        }
        if (progress) progress->clear();
        if (in->bad()) {
            err << "ttreplay: reading " << options.m_strSessionName << " failed after line " << lineNo
                << "\n";
            status = EXIT_ERRORS;
        }
        replayer.finish();
        passOn();
        summary = replayer.summary();
        const CReplayCounters& c = replayer.counters();
        lines = c.m_nLines;
        records = c.m_nRecords;
        errors = c.m_nErrors;
        events = c.m_nEvents;
        queries = c.m_nQueries;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (errors) status = EXIT_ERRORS;

    // The per-account summaries go to the store.
    std::string stored = "not stored (--no-store)";
    if (!noStore) {
        std::string error;
        boost::shared_ptr<persist::CPersistService> service =
            storeUrl.empty() ? persist::CPersistService::instance()
                             : persist::CPersistService::open(storeUrl, &error);
        if (!service) {
            err << "ttreplay: cannot open the store " << storeUrl << ": " << error << "\n";
            status = EXIT_ERRORS;
            stored = "not stored";
        } else {
            const std::string url = service->backend() ? service->backend()->url() : storeUrl;
            size_t written = 0;
            for (const Json::Value& a : summary["accounts"]) {
                if (service->asyncWriteData("TTReplay", a["account"].asString(), toBson(a))) ++written;
            }
            service->flush();
            if (written != summary["accounts"].size() || service->counters().m_nFailed) {
                err << "ttreplay: the store " << url << " did not take every summary\n";
                status = EXIT_ERRORS;
            }
            stored = std::to_string(written) + " account summar" + (written == 1 ? "y" : "ies") +
                     " stored in " + url + " (hash TTReplay)";
        }
    }
    if (!logConfig.empty()) utils::CLogCenter::instance().shutdown();

    std::ostringstream trailer;
    trailer.setf(std::ios::fixed);
    trailer.precision(3);
    trailer << "ttreplay: " << options.m_strSessionName << ": " << lines << " lines, " << events
            << " events, " << records << " records, " << queries << " queries, " << errors
            << " skipped; started " << started << ", " << seconds << " s";
    trailer.precision(0);
    if (seconds > 0) trailer << ", " << (static_cast<double>(records) / seconds) << " records/s";
    trailer << "; " << stored << "\n";
    err << trailer.str();
    return status;
}

}  // namespace replay
}  // namespace ttservice
