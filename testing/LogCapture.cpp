#include "testing/LogCapture.h"

#include <algorithm>
#include <climits>
#include <mutex>

namespace ttservice {
namespace test {

struct LogCapture::State {
    explicit State(int l) : level(l) {}
    const int level;
    mutable std::mutex mutex;
    std::vector<Line> lines;

    void append(utils::ELogger logger, int lineLevel, const std::string& text) {
        if (lineLevel < level) return;
        std::lock_guard<std::mutex> lock(mutex);
        lines.push_back(Line{logger, lineLevel, text});
    }
};

namespace {

typedef std::shared_ptr<LogCapture::State> StatePtr;

// The live captures. The log centre's sink holds this list by value, so a capture registered or
// removed installs a new sink; a line in flight goes to the captures of the sink it was given.
struct Registry {
    std::mutex mutex;
    std::vector<StatePtr> live;
};

Registry& registry() {
    static Registry* const r = new Registry();  // never destroyed: captures may outlive statics
    return *r;
}

// Installs the sink for the current list (or removes it). Caller holds registry().mutex, so that
// two captures changing the list at once install their sinks in the order of their changes.
void installSink(const std::vector<StatePtr>& live) {
    if (live.empty()) {
        utils::CLogCenter::instance().clearSink();
        return;
    }
    int level = INT_MAX;
    for (const StatePtr& s : live) level = std::min(level, s->level);
    const std::vector<StatePtr> targets = live;
    utils::CLogCenter::instance().setSink(
        [targets](utils::ELogger logger, int lineLevel, const std::string& text) {
            for (const StatePtr& s : targets) s->append(logger, lineLevel, text);
        },
        level);
}

}  // namespace

LogCapture::LogCapture(int level) : m_state(std::make_shared<State>(level)) {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.live.push_back(m_state);
    installSink(r.live);
}

LogCapture::~LogCapture() {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.live.erase(std::remove(r.live.begin(), r.live.end(), m_state), r.live.end());
    installSink(r.live);
}

std::vector<LogCapture::Line> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->lines;
}

std::vector<std::string> LogCapture::texts() const {
    std::vector<std::string> out;
    std::lock_guard<std::mutex> lock(m_state->mutex);
    for (const Line& l : m_state->lines) out.push_back(l.text);
    return out;
}

std::vector<std::string> LogCapture::texts(utils::ELogger logger) const {
    std::vector<std::string> out;
    std::lock_guard<std::mutex> lock(m_state->mutex);
    for (const Line& l : m_state->lines)
        if (l.logger == logger) out.push_back(l.text);
    return out;
}

bool LogCapture::contains(const std::string& substring) const {
    return count(substring) > 0;
}

size_t LogCapture::count(const std::string& substring) const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    size_t n = 0;
    for (const Line& l : m_state->lines)
        if (l.text.find(substring) != std::string::npos) ++n;
    return n;
}

size_t LogCapture::size() const {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->lines.size();
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->lines.clear();
}

}  // namespace test
}  // namespace ttservice
