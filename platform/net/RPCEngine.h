// net::RPCEngine: the network dispatcher. It owns a Boost.Asio io_context, the worker threads that
// run it, and the dispatcher strand on which timers of the data layer run
// (getDisPatcherStrand()).
//
// Time: timers of the data layer are net::DeadlineTimer, whose clock is the engine's clock. By
// default that is the system clock. A replay or a test may switch to a manual clock
// (useManualClock): time then moves only when advanceClock() is called, which runs every handler
// that has fallen due on the calling thread, so timers fire deterministically. Worker threads must
// not run while the manual clock is in use.
//
// Thread safety: every member may be called from any thread; start() and stop() are idempotent.
// stop() is orderly: it stops the io_context and joins the workers before returning.
#pragma once

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/deadline_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/io_context_strand.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <memory>

namespace net {

// Time traits of DeadlineTimer: now() is the engine's clock.
struct EngineTimeTraits {
    typedef boost::posix_time::ptime time_type;
    typedef boost::posix_time::time_duration duration_type;
    static time_type now();
    static time_type add(const time_type& t, const duration_type& d) { return t + d; }
    static duration_type subtract(const time_type& t1, const time_type& t2) { return t1 - t2; }
    static bool less_than(const time_type& t1, const time_type& t2) { return t1 < t2; }
    static boost::posix_time::time_duration to_posix_duration(const duration_type& d);
};

typedef boost::asio::basic_deadline_timer<boost::posix_time::ptime, EngineTimeTraits> DeadlineTimer;

class RPCEngine {
public:
    static RPCEngine* instance();

    boost::asio::io_context& getIoContext();
    boost::asio::io_context::strand& getDisPatcherStrand();

    // Starts `threads` workers running the io_context (default 2). No effect when running.
    void start(int threads = 2);
    // Stops the io_context and joins the workers. Handlers not yet run are dropped.
    void stop();
    bool running() const;

    // The engine's clock.
    boost::posix_time::ptime now() const;
    // Switches to a manual clock set at `start`; it moves only by advanceClock.
    void useManualClock(const boost::posix_time::ptime& start);
    // Back to the system clock.
    void useSystemClock();
    bool manualClock() const;
    // Moves the manual clock forward by `d` and runs every handler that is due (timers that
    // expire on the way fire in expiry order), on the calling thread. Returns handlers run.
    size_t advanceClock(const boost::posix_time::time_duration& d);
    // Runs every ready handler on the calling thread without waiting. Returns handlers run.
    size_t poll();

    ~RPCEngine();

private:
    RPCEngine();
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace net
