// utils::CLogCenter: the logging centre of the terminal, over log4cxx.
//
// Two named loggers carry every line of the data layer: "TTStdFile" (standard; info 20000, errors)
// and "TTDbgFile" (debug 10000). The enabled test is one relaxed atomic load and a compare, so a
// line whose logger is off costs one branch: use the TT_LOG_* macros, which format nothing unless
// the logger is enabled. Formatting uses Boost.Format, which accepts both positional placeholders
// (%1%) and printf directives (%s, %d); a wrong argument count never throws, it prints what it has.
//
// The library never configures logging itself: a program (or a test main) calls configure() with a
// log4cxx properties file. Until then every logger is off.
//
// Thread safety: every member may be called from any thread.
#pragma once

#include <boost/current_function.hpp>
#include <boost/format.hpp>
#include <boost/function.hpp>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

namespace utils {

// log4cxx level numbers.
enum ELogLevel {
    TT_LOG_TRACE = 5000,
    TT_LOG_DEBUG = 10000,
    TT_LOG_INFO = 20000,
    TT_LOG_WARN = 30000,
    TT_LOG_ERROR = 40000,
    TT_LOG_FATAL = 50000,
    TT_LOG_OFF = 2147483647
};

enum ELogger {
    LOGGER_STD = 0,  // "TTStdFile"
    LOGGER_DBG = 1,  // "TTDbgFile"
    LOGGER_COUNT = 2
};

const char* loggerName(ELogger logger);

namespace detail {
// The lowest level each logger writes (TT_LOG_OFF when off), kept by CLogCenter. A plain global
// so that the enabled test of a log line is one load and one compare, with no call: it is
// constant-initialised (off) before any code runs, so a line logged during static initialisation
// is simply off.
extern std::atomic<int> g_logThresholds[LOGGER_COUNT];
}  // namespace detail

// The enabled test of TT_LOG: one relaxed load and a compare. `logger` must be a valid ELogger.
inline bool logOn(ELogger logger, int level) {
    return level >= detail::g_logThresholds[logger].load(std::memory_order_relaxed);
}

class CLogCenter {
public:
    static CLogCenter& instance();

    // True when `logger` writes lines of `level`. One atomic load (the same test as logOn).
    bool logEnabled(ELogger logger, int level) const { return logOn(logger, level); }
    // The same by logger name ("TTStdFile", "TTDbgFile"); false for any other name.
    bool logEnabled(const std::string& logger, int level) const;
    // True when the debug file log "TTDbgFile" writes debug lines of debug id `dbgId`.
    bool fileLogEnabled(int dbgId) const;

    // Writes one line. `func` (the qualified function name that prefixes the line), `file` and
    // `line` travel to log4cxx as the event's location, printed by the layout (%C::%M, %F, %L);
    // log4cxx keeps the pointers, so they must have static storage, as BOOST_CURRENT_FUNCTION and
    // __FILE__ do. The sink receives `msg` as it is.
    void write(ELogger logger, int level, const std::string& msg, const char* func, const char* file,
               int line);

    // Loads a log4cxx properties file and refreshes the enabled levels. Returns false (with a
    // message on stderr) when the file is missing; logging then stays as it was.
    bool configure(const std::string& propertiesFile);
    // Re-reads the effective levels of the two loggers from log4cxx (they stay off while log4cxx
    // has no configuration), for a program that configures log4cxx by other means.
    void refreshLevels();
    // Flushes and closes every appender; call once at exit.
    void shutdown();

    // A second destination for lines, for tests and tools that need to see what was logged.
    // While a sink is set, both loggers are enabled from `level` up (in addition to log4cxx). The
    // sink is called on the writing thread with no lock held; there is one sink at a time.
    typedef boost::function<void(ELogger, int level, const std::string& line)> Sink;
    void setSink(const Sink& sink, int level = TT_LOG_TRACE);
    void clearSink();

private:
    CLogCenter();
    ~CLogCenter();
    CLogCenter(const CLogCenter&) = delete;
    CLogCenter& operator=(const CLogCenter&) = delete;
    // Recomputes detail::g_logThresholds, the enabled thresholds read by logOn and logEnabled:
    // per logger the lower of the log4cxx level and the sink level. Caller holds m_mutex.
    void recompute();
    struct Log4cxx;

    // Effective log4cxx levels (TT_LOG_OFF until configured), read by write() without the lock.
    std::atomic<int> m_log4cxxLevels[LOGGER_COUNT];
    std::atomic<int> m_sinkLevel;  // TT_LOG_OFF while no sink is set
    std::atomic<bool> m_hasSink;
    // m_mutex guards m_sink, the log4cxx loggers in m_log4cxx and every write of the levels above.
    mutable std::mutex m_mutex;
    Sink m_sink;
    std::unique_ptr<Log4cxx> m_log4cxx;  // created on first configure() or refreshLevels()
};

// Formats a log line. Never throws.
inline void formatArgs(boost::format&) {}
template <class T, class... Rest>
inline void formatArgs(boost::format& f, const T& first, const Rest&... rest) {
    f % first;
    formatArgs(f, rest...);
}
template <class... Args>
std::string formatLog(const char* fmt, const Args&... args) {
    try {
        boost::format f(fmt);
        f.exceptions(boost::io::all_error_bits ^
                     (boost::io::too_many_args_bit | boost::io::too_few_args_bit));
        formatArgs(f, args...);
        return f.str();
    } catch (const std::exception&) {
        return fmt;
    }
}

}  // namespace utils

// TT_LOG(logger, level, fmt, args...): one guarded line, prefixed by the calling function's name.
// While the logger is off the line costs the test of logOn: one load and one branch; neither the
// arguments nor the format are evaluated.
#define TT_LOG(logger, level, ...)                                                                    \
    do {                                                                                              \
        if (::utils::logOn((logger), (level)))                                                        \
            ::utils::CLogCenter::instance().write((logger), (level), ::utils::formatLog(__VA_ARGS__), \
                                                  BOOST_CURRENT_FUNCTION, __FILE__, __LINE__);        \
    } while (0)

#define TT_LOG_STD_DEBUG(...) TT_LOG(::utils::LOGGER_STD, ::utils::TT_LOG_DEBUG, __VA_ARGS__)
#define TT_LOG_STD_INFO(...) TT_LOG(::utils::LOGGER_STD, ::utils::TT_LOG_INFO, __VA_ARGS__)
#define TT_LOG_STD_WARN(...) TT_LOG(::utils::LOGGER_STD, ::utils::TT_LOG_WARN, __VA_ARGS__)
#define TT_LOG_STD_ERROR(...) TT_LOG(::utils::LOGGER_STD, ::utils::TT_LOG_ERROR, __VA_ARGS__)
#define TT_LOG_DBG_DEBUG(...) TT_LOG(::utils::LOGGER_DBG, ::utils::TT_LOG_DEBUG, __VA_ARGS__)
#define TT_LOG_DBG_INFO(...) TT_LOG(::utils::LOGGER_DBG, ::utils::TT_LOG_INFO, __VA_ARGS__)
