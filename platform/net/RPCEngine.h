// net::RPCEngine: the network dispatcher. It owns a Boost.Asio io_context, the worker threads that
// run it, and the dispatcher strand on which timers of the data layer run
// (getDisPatcherStrand()).
//
// Time: timers of the data layer are net::DeadlineTimer, whose clock is the engine's clock (UTC,
// as boost::posix_time::microsec_clock::universal_time() reports it). By default that is the system
// clock and timers are real asio timers run by the worker threads. A replay or a test may switch to
// a manual clock (useManualClock): no worker thread runs then, time moves only when advanceClock()
// is called, and advanceClock() runs every timer that falls due on the calling thread, in expiry
// order, so timers fire deterministically. The mode can change only while no timer is armed (a
// timer is armed from async_wait() until its handler has been called or the wait was cancelled).
//
// Thread safety: every member may be called from any thread, except that stop() must not be called
// from a handler (it joins the workers) and only one thread at a time should drive the manual clock
// (advanceClock, poll). start() and stop() are idempotent; stop() is orderly: it stops the
// io_context and joins the workers before returning.
//
// Lifetime: instance() is created on first use and is not started: a program (or a test) calls
// start(). It is destroyed at exit, after every static object that first used it during its own
// construction; every DeadlineTimer on its strand must be destroyed before it.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/io_context_strand.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/function.hpp>
#include <boost/system/error_code.hpp>

#include <cstddef>
#include <memory>

namespace net {

// A deadline timer on a strand, with the asio deadline_timer's operations, whose clock is the
// RPCEngine's (system or manual).
//
// Every handler runs on the strand given to the constructor: a handler bound with bind_executor
// is not needed. A handler is called exactly once: with success when the timer expires, or with
// boost::asio::error::operation_aborted when the wait is cancelled (by cancel(), by
// expires_from_now() or by the destructor); a cancelled handler is posted to the strand, never
// called from inside the cancelling call.
//
// A timer on a strand of another io_context than the engine's always uses the system clock.
//
// Thread safety: every member may be called from any thread, also concurrently (the timer's state
// is guarded by a lock of the engine). Destroy the timer before the io_context of its strand.
class DeadlineTimer {
public:
    typedef boost::function<void(const boost::system::error_code&)> WaitHandler;

    // The timer starts with an expiry of now: a wait without expires_from_now() fires at once.
    explicit DeadlineTimer(boost::asio::io_context::strand& strand);
    // Cancels a pending wait (its handler is posted with operation_aborted).
    ~DeadlineTimer();
    DeadlineTimer(const DeadlineTimer&) = delete;
    DeadlineTimer& operator=(const DeadlineTimer&) = delete;

    // Sets the expiry to the engine's now() + `d` and cancels pending waits. Returns how many were
    // cancelled. A special duration (not_a_date_time, infinity) is refused with
    // boost::asio::error::invalid_argument: thrown as boost::system::system_error whose what()
    // contains "expires_from_now", or stored in `ec` by the second form.
    size_t expires_from_now(const boost::posix_time::time_duration& d);
    size_t expires_from_now(const boost::posix_time::time_duration& d, boost::system::error_code& ec);
    // The current expiry, on the engine's clock.
    boost::posix_time::ptime expires_at() const;

    // Starts a wait for the current expiry. Several waits may be pending at once.
    void async_wait(const WaitHandler& handler);
    // Cancels every pending wait; returns how many.
    size_t cancel();

    struct Impl;  // defined in RPCEngine.cpp

private:
    std::shared_ptr<Impl> m_impl;
};

class RPCEngine {
public:
    static RPCEngine* instance();

    boost::asio::io_context& getIoContext();
    boost::asio::io_context::strand& getDisPatcherStrand();

    // Starts `threads` workers running the io_context (default 2; at least 1). No effect when
    // running, or while the manual clock is in use (handlers then run only in advanceClock/poll).
    void start(int threads = 2);
    // Stops the io_context and joins the workers. Handlers not yet run stay queued: they run if the
    // engine is started again or polled, and are destroyed uncalled with the engine.
    void stop();
    bool running() const;

    // The engine's clock (UTC).
    boost::posix_time::ptime now() const;
    // Switches to a manual clock set at `start`; it moves only by advanceClock. Stops the workers.
    // Refused (false, nothing changed) while a timer is armed.
    bool useManualClock(const boost::posix_time::ptime& start);
    // Back to the system clock; call start() to run workers again. Refused (false) while a timer
    // is armed on the manual clock.
    bool useSystemClock();
    bool manualClock() const;
    // Manual clock only: runs the ready handlers, then every timer that falls due up to now() + d,
    // in expiry order (ties in the order the waits were started). The clock is set to each timer's
    // expiry before its handler runs, and the handlers that one posts run before the next timer,
    // so a handler that re-arms its timer within the window fires again in the same call. Ends
    // with the clock at now() + d (a negative `d` counts as zero). Runs on the calling thread; must
    // not be called from a handler. Returns how many timer handlers fired with success.
    size_t advanceClock(const boost::posix_time::time_duration& d);
    // Runs every ready handler on the calling thread without waiting. Returns io_context::poll()'s
    // count (a batch of strand handlers counts once).
    size_t poll();

    ~RPCEngine();

    struct Impl;  // defined in RPCEngine.cpp

private:
    friend class DeadlineTimer;  // a timer on the dispatcher strand shares the engine's clock
    RPCEngine();
    std::unique_ptr<Impl> m_impl;
};

}  // namespace net
