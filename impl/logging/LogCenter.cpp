#include "utils/LogCenter.h"

#include <log4cxx/level.h>
#include <log4cxx/logger.h>
#include <log4cxx/logmanager.h>
#include <log4cxx/propertyconfigurator.h>
#include <log4cxx/spi/location/locationinfo.h>
#include <log4cxx/spi/loggerrepository.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <locale>

namespace utils {

namespace {
const char* const kLoggerNames[LOGGER_COUNT] = {"TTStdFile", "TTDbgFile"};

// log4cxx keeps the location's pointers, not copies, and an asynchronous appender formats the
// event later: every pointer handed to it must have static storage. __FILE__ and
// BOOST_CURRENT_FUNCTION do; the short file name points into __FILE__.
log4cxx::spi::LocationInfo makeLocation(const char* func, const char* file, int line) {
    if (!file) file = "";
    if (!func) func = "";
    const char* slash = std::strrchr(file, '/');
    return log4cxx::spi::LocationInfo(file, slash ? slash + 1 : file, func, line);
}
}  // namespace

namespace detail {
std::atomic<int> g_logThresholds[LOGGER_COUNT] = {{TT_LOG_OFF}, {TT_LOG_OFF}};
}  // namespace detail

const char* loggerName(ELogger logger) {
    return logger >= 0 && logger < LOGGER_COUNT ? kLoggerNames[logger] : "";
}

// The log4cxx side, created the first time the program hands logging to log4cxx.
struct CLogCenter::Log4cxx {
    log4cxx::LoggerPtr loggers[LOGGER_COUNT];
};

CLogCenter& CLogCenter::instance() {
    // Never destroyed: objects with static storage may still log from their destructors.
    static CLogCenter* const center = new CLogCenter();
    return *center;
}

CLogCenter::CLogCenter() : m_sinkLevel(TT_LOG_OFF), m_hasSink(false) {
    for (int i = 0; i < LOGGER_COUNT; ++i) m_log4cxxLevels[i].store(TT_LOG_OFF, std::memory_order_relaxed);
    // Boost.Format parses through std::ctype<char>::narrow, which in libstdc++ fills a shared
    // per-character cache on first use. Threads formatting their first lines at once write equal
    // values into it: harmless, but a data race to ThreadSanitizer. Filling it here first avoids it.
    const std::ctype<char>& ctype = std::use_facet<std::ctype<char> >(std::locale());
    for (int c = 1; c < 256; ++c) ctype.narrow(static_cast<char>(c), '\0');
}

CLogCenter::~CLogCenter() = default;

bool CLogCenter::logEnabled(const std::string& logger, int level) const {
    for (int i = 0; i < LOGGER_COUNT; ++i)
        if (logger == kLoggerNames[i]) return logEnabled(static_cast<ELogger>(i), level);
    return false;
}

bool CLogCenter::fileLogEnabled(int /*dbgId*/) const {
    // Every debug id goes to the debug file log; its level alone decides.
    return logEnabled(LOGGER_DBG, TT_LOG_DEBUG);
}

void CLogCenter::write(ELogger logger, int level, const std::string& msg, const char* func, const char* file,
                       int line) {
    if (logger < 0 || logger >= LOGGER_COUNT) return;
    // Acquire pairs with the release store in refreshLevels(): a level below OFF means m_log4cxx
    // and its loggers are in place.
    if (level >= m_log4cxxLevels[logger].load(std::memory_order_acquire)) {
        const log4cxx::LoggerPtr& target = m_log4cxx->loggers[logger];
        target->log(log4cxx::Level::toLevel(level, log4cxx::Level::getDebug()), msg,
                    makeLocation(func, file, line));
    }
    if (m_hasSink.load(std::memory_order_acquire) && level >= m_sinkLevel.load(std::memory_order_relaxed)) {
        Sink sink;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            sink = m_sink;
        }
        // Called without the lock, so a sink may log or clear itself.
        if (sink) sink(logger, level, msg);
    }
}

bool CLogCenter::configure(const std::string& propertiesFile) {
    struct stat st;
    if (::stat(propertiesFile.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
        std::fprintf(stderr, "CLogCenter::configure: log configuration file %s not found\n",
                     propertiesFile.c_str());
        return false;
    }
    log4cxx::PropertyConfigurator::configure(log4cxx::File(propertiesFile));
    refreshLevels();
    return true;
}

void CLogCenter::refreshLevels() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_log4cxx) {
        std::unique_ptr<Log4cxx> created(new Log4cxx());
        for (int i = 0; i < LOGGER_COUNT; ++i)
            created->loggers[i] = log4cxx::Logger::getLogger(kLoggerNames[i]);
        m_log4cxx = std::move(created);
    }
    // An unconfigured log4cxx reports DEBUG for every logger; until some configuration has been
    // loaded (by configure() or by the program itself) the loggers stay off.
    const bool configured = log4cxx::LogManager::getLoggerRepository()->isConfigured();
    for (int i = 0; i < LOGGER_COUNT; ++i) {
        int level = TT_LOG_OFF;
        if (configured) {
            log4cxx::LevelPtr effective = m_log4cxx->loggers[i]->getEffectiveLevel();
            if (effective) level = effective->toInt();
        }
        m_log4cxxLevels[i].store(level, std::memory_order_release);
    }
    recompute();
}

void CLogCenter::shutdown() {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (int i = 0; i < LOGGER_COUNT; ++i) m_log4cxxLevels[i].store(TT_LOG_OFF, std::memory_order_release);
    recompute();
    // Only a program that handed logging to log4cxx has appenders to flush; touching log4cxx
    // otherwise would initialise it just to shut it down.
    if (m_log4cxx) log4cxx::LogManager::shutdown();
}

void CLogCenter::setSink(const Sink& sink, int level) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sink = sink;
    m_sinkLevel.store(sink ? level : static_cast<int>(TT_LOG_OFF), std::memory_order_relaxed);
    m_hasSink.store(static_cast<bool>(sink), std::memory_order_release);
    recompute();
}

void CLogCenter::clearSink() {
    setSink(Sink());
}

void CLogCenter::recompute() {
    const int sinkLevel = m_sinkLevel.load(std::memory_order_relaxed);
    for (int i = 0; i < LOGGER_COUNT; ++i)
        detail::g_logThresholds[i].store(
            std::min(m_log4cxxLevels[i].load(std::memory_order_relaxed), sinkLevel),
            std::memory_order_relaxed);
}

}  // namespace utils
