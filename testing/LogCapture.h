// ttservice::test::LogCapture: collects the lines written through utils::CLogCenter while it lives.
//
// While at least one capture is alive, the log centre has a sink that hands every line to each
// live capture whose level it reaches, and both loggers are enabled from the lowest of their levels
// (whether or not log4cxx is configured). Captures may nest: a fixture's and a test's each see what
// was written during their own lifetimes. The sink is removed with the last capture. Lines may
// arrive from any thread; every accessor returns a snapshot taken under the capture's own lock.
#pragma once

#include "utils/LogCenter.h"

#include <memory>
#include <string>
#include <vector>

namespace ttservice {
namespace test {

class LogCapture {
public:
    struct Line {
        utils::ELogger logger;
        int level;
        std::string text;  // the message as formatted, without location
    };

    explicit LogCapture(int level = utils::TT_LOG_TRACE);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<Line> lines() const;
    // The texts only, optionally of one logger.
    std::vector<std::string> texts() const;
    std::vector<std::string> texts(utils::ELogger logger) const;
    // True when some line contains `substring`.
    bool contains(const std::string& substring) const;
    // How many lines contain `substring`.
    size_t count(const std::string& substring) const;
    size_t size() const;
    void clear();

    struct State;  // defined in LogCapture.cpp

private:
    // Shared with the sink, so a line written on another thread while the capture is being
    // destroyed still lands in live memory.
    std::shared_ptr<State> m_state;
};

}  // namespace test
}  // namespace ttservice
