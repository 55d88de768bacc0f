#include "net/RPCEngine.h"
#include "testing/LogCapture.h"

#include <boost/asio/post.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/system/system_error.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using boost::posix_time::milliseconds;
using boost::posix_time::ptime;
using boost::posix_time::seconds;
using net::DeadlineTimer;
using net::RPCEngine;

const ptime kStart(boost::gregorian::date(2025, 11, 23),
                   boost::posix_time::hours(1) + boost::posix_time::minutes(30));

// The value of `f`; throws (failing the test) when there is none within 30 s.
template <class T>
T await(std::future<T> f) {
    if (f.wait_for(std::chrono::seconds(30)) != std::future_status::ready)
        throw std::runtime_error("no result within 30 s");
    return f.get();
}

// What a handler saw: its error, the engine's clock and whether it ran on the strand.
struct Call {
    std::string name;
    boost::system::error_code ec;
    ptime at;
    bool onStrand;
};

class ManualClock : public ::testing::Test {
protected:
    void SetUp() override {
        m_engine = RPCEngine::instance();
        m_engine->stop();
        ASSERT_TRUE(m_engine->useManualClock(kStart));
        ASSERT_TRUE(m_engine->manualClock());
        ASSERT_EQ(kStart, m_engine->now());
    }
    void TearDown() override {
        m_engine->poll();
        EXPECT_TRUE(m_engine->useSystemClock());
    }

    DeadlineTimer::WaitHandler recorder(const std::string& name) {
        return [this, name](const boost::system::error_code& ec) {
            m_calls.push_back(
                Call{name, ec, m_engine->now(), m_engine->getDisPatcherStrand().running_in_this_thread()});
        };
    }

    // The calls so far, "name:ok" or "name:aborted" each, with ":off-strand" when not on the strand.
    std::string calls() const {
        std::string out;
        for (const Call& c : m_calls) {
            const bool aborted = c.ec == boost::asio::error::operation_aborted;
            out += (out.empty() ? "" : " ") + c.name;
            out += aborted ? ":aborted" : c.ec ? ":" + c.ec.message() : ":ok";
            if (!c.onStrand) out += ":off-strand";
        }
        return out;
    }

    RPCEngine* m_engine = nullptr;
    std::vector<Call> m_calls;
};

TEST_F(ManualClock, PeriodicTimerFiresEveryPeriodWithinOneAdvance) {
    DeadlineTimer timer(m_engine->getDisPatcherStrand());
    std::vector<ptime> fired;
    std::function<void(const boost::system::error_code&)> onTimer = [&](const boost::system::error_code& ec) {
        if (ec) return;
        fired.push_back(m_engine->now());
        timer.expires_from_now(milliseconds(100));
        timer.async_wait(onTimer);
    };
    timer.expires_from_now(milliseconds(100));
    timer.async_wait(onTimer);

    EXPECT_EQ(10u, m_engine->advanceClock(seconds(1)));
    ASSERT_EQ(10u, fired.size());
    for (size_t i = 0; i < fired.size(); ++i) EXPECT_EQ(kStart + milliseconds(100 * (i + 1)), fired[i]) << i;
    EXPECT_EQ(kStart + seconds(1), m_engine->now());

    // Half a period fires nothing; the other half fires the next one.
    EXPECT_EQ(0u, m_engine->advanceClock(milliseconds(50)));
    EXPECT_EQ(1u, m_engine->advanceClock(milliseconds(50)));
    EXPECT_EQ(11u, fired.size());

    // The mode cannot change while the timer is armed.
    EXPECT_FALSE(m_engine->useSystemClock());
    EXPECT_EQ(1u, timer.cancel());
    m_engine->poll();
    EXPECT_EQ(11u, fired.size());
}

// Timers fire in expiry order on the strand; posted handlers run in poll() and advanceClock(); the
// manual clock starts no worker.
TEST_F(ManualClock, TimersFireInExpiryOrderOnTheStrandPostedHandlersInPoll) {
    DeadlineTimer late(m_engine->getDisPatcherStrand());
    DeadlineTimer early(m_engine->getDisPatcherStrand());
    DeadlineTimer tie(m_engine->getDisPatcherStrand());
    late.expires_from_now(milliseconds(300));
    late.async_wait(recorder("late"));
    early.expires_from_now(milliseconds(100));
    early.async_wait(recorder("early"));
    tie.expires_from_now(milliseconds(100));
    tie.async_wait(recorder("tie"));  // same expiry, started later

    EXPECT_EQ(0u, m_engine->advanceClock(milliseconds(99)));
    EXPECT_TRUE(m_calls.empty());
    EXPECT_EQ(3u, m_engine->advanceClock(seconds(1)));
    EXPECT_EQ("early:ok tie:ok late:ok", calls());
    const int at[] = {100, 100, 300};
    for (size_t i = 0; i < m_calls.size() && i < 3; ++i)
        EXPECT_EQ(kStart + milliseconds(at[i]), m_calls[i].at) << i;

    int ran = 0;
    boost::asio::post(m_engine->getDisPatcherStrand(), [&] { ++ran; });
    EXPECT_EQ(0, ran);
    m_engine->poll();
    EXPECT_EQ(1, ran);
    boost::asio::post(m_engine->getIoContext(), [&] { ++ran; });
    m_engine->advanceClock(milliseconds(1));
    EXPECT_EQ(2, ran);
    m_engine->start(2);
    EXPECT_FALSE(m_engine->running());
}

TEST_F(ManualClock, CancelDeliversOperationAborted) {
    DeadlineTimer timer(m_engine->getDisPatcherStrand());
    timer.expires_from_now(seconds(1));
    timer.async_wait(recorder("cancelled"));
    EXPECT_EQ(1u, timer.cancel());
    EXPECT_EQ(0u, timer.cancel());
    EXPECT_TRUE(m_calls.empty());  // delivered through the strand, not from inside cancel()
    m_engine->poll();
    EXPECT_EQ("cancelled:aborted", calls());
    EXPECT_EQ(0u, m_engine->advanceClock(seconds(2)));
    EXPECT_EQ(1u, m_calls.size());

    // Re-arming a pending timer cancels the earlier wait; destroying one cancels its wait.
    timer.async_wait(recorder("first"));
    EXPECT_EQ(1u, timer.expires_from_now(milliseconds(10)));
    timer.async_wait(recorder("second"));
    {
        DeadlineTimer doomed(m_engine->getDisPatcherStrand());
        doomed.expires_from_now(milliseconds(5));
        doomed.async_wait(recorder("destroyed"));
    }
    EXPECT_EQ(1u, m_engine->advanceClock(milliseconds(10)));
    EXPECT_EQ("cancelled:aborted first:aborted destroyed:aborted second:ok", calls());
}

TEST_F(ManualClock, SpecialDurationIsRefused) {
    DeadlineTimer timer(m_engine->getDisPatcherStrand());
    try {
        timer.expires_from_now(boost::posix_time::time_duration(boost::posix_time::not_a_date_time));
        ADD_FAILURE() << "no exception";
    } catch (const boost::system::system_error& e) {
        EXPECT_NE(std::string::npos, std::string(e.what()).find("expires_from_now")) << e.what();
        EXPECT_EQ(boost::asio::error::invalid_argument, e.code());
    }
    boost::system::error_code ec;
    EXPECT_EQ(0u, timer.expires_from_now(boost::posix_time::time_duration(boost::posix_time::pos_infin), ec));
    EXPECT_EQ(boost::asio::error::invalid_argument, ec);
    // The expiry is unchanged: still the construction time.
    EXPECT_EQ(kStart, timer.expires_at());
    timer.expires_from_now(milliseconds(1), ec);
    EXPECT_FALSE(ec);
    EXPECT_EQ(kStart + milliseconds(1), timer.expires_at());
}

// Workers: timers fire on the strand, handlers run in parallel, a throwing handler is logged and
// its worker carries on, stop() is orderly and idempotent, handlers posted while stopped wait.
TEST(SystemClock, WorkersRunTimersAndHandlersAndStopInOrder) {
    RPCEngine* engine = RPCEngine::instance();
    ASSERT_FALSE(engine->manualClock());
    engine->start(2);
    ASSERT_TRUE(engine->running());
    boost::asio::io_context& io = engine->getIoContext();
    const ptime before = engine->now();
    {
        DeadlineTimer timer(engine->getDisPatcherStrand());
        std::promise<std::pair<boost::system::error_code, bool> > fired;
        timer.expires_from_now(milliseconds(5));
        timer.async_wait([&](const boost::system::error_code& ec) {
            fired.set_value(std::make_pair(ec, engine->getDisPatcherStrand().running_in_this_thread()));
        });
        const std::pair<boost::system::error_code, bool> result = await(fired.get_future());
        EXPECT_FALSE(result.first) << result.first.message();
        EXPECT_TRUE(result.second);
        EXPECT_GE(engine->now(), before + milliseconds(5));

        // A cancelled wait is delivered as operation_aborted; while it is armed the clock cannot
        // switch to manual.
        std::promise<boost::system::error_code> aborted;
        timer.expires_from_now(boost::posix_time::hours(1));
        timer.async_wait([&](const boost::system::error_code& ec) { aborted.set_value(ec); });
        EXPECT_FALSE(engine->useManualClock(kStart));
        EXPECT_TRUE(engine->running());
        EXPECT_EQ(1u, timer.cancel());
        EXPECT_EQ(boost::asio::error::operation_aborted, await(aborted.get_future()));
    }

    // Two handlers that each wait for the other can only finish on two workers at once.
    std::atomic<int> arrived(0), met(0);
    for (int i = 0; i < 2; ++i)
        boost::asio::post(io, [&] {
            ++arrived;
            const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
            while (arrived.load() < 2 && std::chrono::steady_clock::now() < until) std::this_thread::yield();
            if (arrived.load() == 2) ++met;
        });
    ttservice::test::LogCapture capture(utils::TT_LOG_ERROR);
    boost::asio::post(io, [] { throw std::runtime_error("handler failure"); });
    std::promise<void> afterThrow;
    boost::asio::post(io, [&] { afterThrow.set_value(); });
    await(afterThrow.get_future());

    // stop() returns only once the handler in progress has finished.
    std::promise<void> started;
    std::atomic<bool> finished(false);
    boost::asio::post(io, [&] {
        started.set_value();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        finished = true;
    });
    await(started.get_future());
    engine->stop();
    EXPECT_TRUE(finished.load());
    EXPECT_EQ(2, met.load());
    EXPECT_EQ(1u, capture.count("a handler threw: handler failure"));
    engine->stop();
    EXPECT_FALSE(engine->running());

    std::promise<void> ranLater;
    boost::asio::post(io, [&] { ranLater.set_value(); });
    std::future<void> later = ranLater.get_future();
    EXPECT_EQ(std::future_status::timeout, later.wait_for(std::chrono::milliseconds(20)));
    engine->start(1);
    EXPECT_TRUE(engine->running());
    await(std::move(later));
    engine->stop();
}

TEST(SystemClock, ForeignStrandUsesItsOwnContext) {
    boost::asio::io_context io;
    boost::asio::io_context::strand strand(io);
    bool fired = false;
    {
        DeadlineTimer timer(strand);
        timer.expires_from_now(milliseconds(1));
        timer.async_wait(
            [&](const boost::system::error_code& ec) { fired = !ec && strand.running_in_this_thread(); });
        io.run();  // returns once the timer's handler has run
    }
    EXPECT_TRUE(fired);
}

}  // namespace
