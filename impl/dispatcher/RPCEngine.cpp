#include "net/RPCEngine.h"

#include "utils/LogCenter.h"

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/deadline_timer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/system/system_error.hpp>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace net {

typedef boost::asio::io_context::strand Strand;
using boost::posix_time::ptime;
using boost::posix_time::time_duration;

namespace detail {

const ptime kEpoch(boost::gregorian::date(1970, 1, 1));

// The clock and the bookkeeping of armed timers, shared by an engine and its timers (a timer on a
// foreign strand has one of its own, always on the system clock). Shared ownership lets a handler
// still queued in asio settle its wait after its timer is gone.
//
// `mutex` guards every member except the two atomics, which mirror `manual` and the manual time so
// that now() takes no lock; they are written only with `mutex` held. It also guards the state of
// every DeadlineTimer::Impl using this clock.
struct ClockCore {
    typedef std::pair<ptime, uint64_t> Key;  // expiry, then the order in which waits were started
    struct ManualWait {
        DeadlineTimer::Impl* timer;
        Strand* strand;
        DeadlineTimer::WaitHandler handler;
    };
    struct SystemWait {
        bool settled = false;  // the handler ran or the wait was cancelled
    };

    std::mutex mutex;
    bool manual = false;
    uint64_t nextSeq = 0;
    std::map<Key, ManualWait> queue;  // armed waits on the manual clock
    size_t systemArmed = 0;           // unsettled waits on the system clock

    std::atomic<bool> manualFlag{false};
    std::atomic<int64_t> manualMicros{0};  // manual time, microseconds since the epoch

    ptime now() const {
        if (manualFlag.load(std::memory_order_acquire))
            return kEpoch + boost::posix_time::microseconds(manualMicros.load(std::memory_order_acquire));
        return boost::posix_time::microsec_clock::universal_time();
    }
    ptime manualNow() const { return kEpoch + boost::posix_time::microseconds(manualMicros.load()); }
    void setManualNow(const ptime& t) {
        manualMicros.store((t - kEpoch).total_microseconds(), std::memory_order_release);
    }
    size_t armed() const { return queue.size() + systemArmed; }

    void settle(SystemWait& wait) {
        if (wait.settled) return;
        wait.settled = true;
        --systemArmed;
    }
};

void postAborted(Strand& strand, const DeadlineTimer::WaitHandler& handler) {
    boost::asio::post(strand, [handler]() {
        const boost::system::error_code aborted = boost::asio::error::operation_aborted;
        handler(aborted);
    });
}

}  // namespace detail

using detail::ClockCore;

// ---------------------------------------------------------------------------------------------
// RPCEngine::Impl

struct RPCEngine::Impl {
    typedef boost::asio::executor_work_guard<boost::asio::io_context::executor_type> WorkGuard;

    boost::asio::io_context io;
    Strand strand{io};
    std::shared_ptr<ClockCore> core = std::make_shared<ClockCore>();

    // lifeMutex guards workers and guard: the running state.
    mutable std::mutex lifeMutex;
    std::vector<std::thread> workers;
    std::unique_ptr<WorkGuard> guard;

    void startLocked(int threads) {
        if (!workers.empty()) return;
        if (io.stopped()) io.restart();
        guard.reset(new WorkGuard(io.get_executor()));
        for (int i = 0; i < std::max(threads, 1); ++i) workers.emplace_back([this] { runWorker(); });
    }

    void stopLocked() {
        guard.reset();
        io.stop();
        for (std::thread& w : workers) {
            if (w.get_id() == std::this_thread::get_id())
                w.detach();  // stop() from a handler: this worker ends when its handler returns
            else
                w.join();
        }
        workers.clear();
    }

    // A handler that throws is logged and the worker carries on, so one bad handler cannot take
    // the dispatcher down.
    void runWorker() {
        for (;;) {
            try {
                io.run();
                return;
            } catch (const std::exception& e) {
                TT_LOG_STD_ERROR("net::RPCEngine worker: a handler threw: %1%", e.what());
            } catch (...) {
                TT_LOG_STD_ERROR("net::RPCEngine worker: a handler threw an unknown exception");
            }
        }
    }

    size_t pollHandlers() {
        {
            std::lock_guard<std::mutex> lock(lifeMutex);
            // With no worker the io_context may have stopped for want of work; polling restarts it.
            if (workers.empty() && io.stopped()) io.restart();
        }
        return io.poll();
    }
};

// ---------------------------------------------------------------------------------------------
// DeadlineTimer

struct DeadlineTimer::Impl {
    Impl(Strand& s, const std::shared_ptr<ClockCore>& c) : strand(s), core(c), timer(s.context()) {}

    // Every member below is guarded by core->mutex.
    Strand& strand;
    std::shared_ptr<ClockCore> core;
    boost::asio::deadline_timer timer;  // the waits on the system clock
    ptime expiry;
    std::vector<ClockCore::Key> manualKeys;  // this timer's entries in core->queue
    std::vector<std::shared_ptr<ClockCore::SystemWait> > systemWaits;

    // Cancels every pending wait. core->mutex held.
    size_t cancelLocked() {
        size_t cancelled = 0;
        for (const ClockCore::Key& key : manualKeys) {
            std::map<ClockCore::Key, ClockCore::ManualWait>::iterator it = core->queue.find(key);
            if (it == core->queue.end()) continue;
            detail::postAborted(strand, it->second.handler);
            core->queue.erase(it);
            ++cancelled;
        }
        manualKeys.clear();
        for (const std::shared_ptr<ClockCore::SystemWait>& w : systemWaits) core->settle(*w);
        systemWaits.clear();
        boost::system::error_code ignored;
        // asio posts the handlers of the cancelled waits to the strand with operation_aborted.
        cancelled += timer.cancel(ignored);
        return cancelled;
    }
};

DeadlineTimer::DeadlineTimer(Strand& strand) {
    RPCEngine& engine = *RPCEngine::instance();
    std::shared_ptr<ClockCore> core =
        &strand.context() == &engine.getIoContext() ? engine.m_impl->core : std::make_shared<ClockCore>();
    m_impl = std::make_shared<Impl>(strand, core);
    std::lock_guard<std::mutex> lock(core->mutex);
    m_impl->expiry = core->now();
    boost::system::error_code ignored;
    m_impl->timer.expires_at(m_impl->expiry, ignored);
}

DeadlineTimer::~DeadlineTimer() {
    std::lock_guard<std::mutex> lock(m_impl->core->mutex);
    m_impl->cancelLocked();
}

size_t DeadlineTimer::expires_from_now(const time_duration& d) {
    boost::system::error_code ec;
    const size_t cancelled = expires_from_now(d, ec);
    if (ec) throw boost::system::system_error(ec, "expires_from_now");
    return cancelled;
}

size_t DeadlineTimer::expires_from_now(const time_duration& d, boost::system::error_code& ec) {
    ec = boost::system::error_code();
    if (d.is_special()) {
        ec = boost::asio::error::invalid_argument;
        return 0;
    }
    Impl& t = *m_impl;
    std::lock_guard<std::mutex> lock(t.core->mutex);
    const size_t cancelled = t.cancelLocked();
    t.expiry = t.core->now() + d;
    // No wait is pending now, so moving the asio timer cancels nothing more.
    t.timer.expires_at(t.expiry, ec);
    return cancelled;
}

ptime DeadlineTimer::expires_at() const {
    std::lock_guard<std::mutex> lock(m_impl->core->mutex);
    return m_impl->expiry;
}

void DeadlineTimer::async_wait(const WaitHandler& handler) {
    Impl& t = *m_impl;
    std::lock_guard<std::mutex> lock(t.core->mutex);
    ClockCore& core = *t.core;
    if (core.manual) {
        const ClockCore::Key key(t.expiry, core.nextSeq++);
        core.queue.insert(std::make_pair(key, ClockCore::ManualWait{&t, &t.strand, handler}));
        t.manualKeys.push_back(key);
        return;
    }
    t.systemWaits.erase(
        std::remove_if(t.systemWaits.begin(), t.systemWaits.end(),
                       [](const std::shared_ptr<ClockCore::SystemWait>& w) { return w->settled; }),
        t.systemWaits.end());
    std::shared_ptr<ClockCore::SystemWait> wait = std::make_shared<ClockCore::SystemWait>();
    t.systemWaits.push_back(wait);
    ++core.systemArmed;
    std::shared_ptr<ClockCore> shared = t.core;
    t.timer.async_wait(
        boost::asio::bind_executor(t.strand, [shared, wait, handler](const boost::system::error_code& ec) {
            {
                std::lock_guard<std::mutex> settleLock(shared->mutex);
                shared->settle(*wait);
            }
            handler(ec);
        }));
}

size_t DeadlineTimer::cancel() {
    std::lock_guard<std::mutex> lock(m_impl->core->mutex);
    return m_impl->cancelLocked();
}

// ---------------------------------------------------------------------------------------------
// RPCEngine

RPCEngine* RPCEngine::instance() {
    static RPCEngine engine;
    return &engine;
}

RPCEngine::RPCEngine() : m_impl(new Impl()) {}

RPCEngine::~RPCEngine() {
    stop();
}

boost::asio::io_context& RPCEngine::getIoContext() {
    return m_impl->io;
}

Strand& RPCEngine::getDisPatcherStrand() {
    return m_impl->strand;
}

void RPCEngine::start(int threads) {
    std::lock_guard<std::mutex> life(m_impl->lifeMutex);
    {
        std::lock_guard<std::mutex> lock(m_impl->core->mutex);
        if (m_impl->core->manual) return;
    }
    m_impl->startLocked(threads);
}

void RPCEngine::stop() {
    std::lock_guard<std::mutex> life(m_impl->lifeMutex);
    m_impl->stopLocked();
}

bool RPCEngine::running() const {
    std::lock_guard<std::mutex> life(m_impl->lifeMutex);
    return !m_impl->workers.empty();
}

ptime RPCEngine::now() const {
    return m_impl->core->now();
}

bool RPCEngine::useManualClock(const ptime& start) {
    if (start.is_special()) return false;
    std::lock_guard<std::mutex> life(m_impl->lifeMutex);
    ClockCore& core = *m_impl->core;
    {
        std::lock_guard<std::mutex> lock(core.mutex);
        if (core.armed() != 0) return false;
    }
    const size_t workers = m_impl->workers.size();
    m_impl->stopLocked();
    std::lock_guard<std::mutex> lock(core.mutex);
    // A wait started while the workers were stopping keeps the system clock and its workers.
    if (core.armed() != 0) {
        if (workers != 0) m_impl->startLocked(static_cast<int>(workers));
        return false;
    }
    core.manual = true;
    core.setManualNow(start);
    core.manualFlag.store(true, std::memory_order_release);
    return true;
}

bool RPCEngine::useSystemClock() {
    ClockCore& core = *m_impl->core;
    std::lock_guard<std::mutex> lock(core.mutex);
    if (!core.manual) return true;
    if (!core.queue.empty()) return false;
    core.manual = false;
    core.manualFlag.store(false, std::memory_order_release);
    return true;
}

bool RPCEngine::manualClock() const {
    return m_impl->core->manualFlag.load(std::memory_order_acquire);
}

size_t RPCEngine::advanceClock(const time_duration& d) {
    ClockCore& core = *m_impl->core;
    ptime target;
    {
        std::lock_guard<std::mutex> lock(core.mutex);
        if (!core.manual || d.is_special()) return 0;
        target = core.manualNow() + (d.is_negative() ? time_duration() : d);
    }
    m_impl->pollHandlers();
    size_t fired = 0;
    for (;;) {
        ClockCore::ManualWait due{nullptr, nullptr, DeadlineTimer::WaitHandler()};
        {
            std::lock_guard<std::mutex> lock(core.mutex);
            if (!core.manual || core.queue.empty() || core.queue.begin()->first.first > target) break;
            std::map<ClockCore::Key, ClockCore::ManualWait>::iterator first = core.queue.begin();
            const ClockCore::Key key = first->first;
            due = first->second;
            core.queue.erase(first);
            // The timer is alive: its destructor would have removed this entry under the lock.
            std::vector<ClockCore::Key>& keys = due.timer->manualKeys;
            keys.erase(std::remove(keys.begin(), keys.end(), key), keys.end());
            if (key.first > core.manualNow()) core.setManualNow(key.first);
        }
        const DeadlineTimer::WaitHandler handler = due.handler;
        boost::asio::post(*due.strand, [handler]() { handler(boost::system::error_code()); });
        ++fired;
        // Runs the handler on the strand, and whatever it posts, before the next timer is due.
        m_impl->pollHandlers();
    }
    {
        std::lock_guard<std::mutex> lock(core.mutex);
        if (core.manual && target > core.manualNow()) core.setManualNow(target);
    }
    m_impl->pollHandlers();
    return fired;
}

size_t RPCEngine::poll() {
    return m_impl->pollHandlers();
}

}  // namespace net
