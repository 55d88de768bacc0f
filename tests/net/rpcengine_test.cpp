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

// What a handler saw: its error and the engine's clock when it ran.
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

TEST_F(ManualClock, TimersFireInExpiryOrderOnTheStrand) {
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
    ASSERT_EQ(3u, m_calls.size());
    const char* const order[] = {"early", "tie", "late"};
    const int at[] = {100, 100, 300};
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(order[i], m_calls[i].name);
        EXPECT_FALSE(m_calls[i].ec) << m_calls[i].ec.message();
        EXPECT_EQ(kStart + milliseconds(at[i]), m_calls[i].at) << order[i];
        EXPECT_TRUE(m_calls[i].onStrand) << order[i];
    }
}

TEST_F(ManualClock, CancelDeliversOperationAborted) {
    DeadlineTimer timer(m_engine->getDisPatcherStrand());
    timer.expires_from_now(seconds(1));
    timer.async_wait(recorder("cancelled"));
    EXPECT_EQ(1u, timer.cancel());
    EXPECT_EQ(0u, timer.cancel());
    EXPECT_TRUE(m_calls.empty());  // delivered through the strand, not from inside cancel()
    m_engine->poll();
    ASSERT_EQ(1u, m_calls.size());
    EXPECT_EQ(boost::asio::error::operation_aborted, m_calls[0].ec);
    EXPECT_TRUE(m_calls[0].onStrand);
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
    ASSERT_EQ(4u, m_calls.size());
    EXPECT_EQ("first", m_calls[1].name);
    EXPECT_EQ(boost::asio::error::operation_aborted, m_calls[1].ec);
    EXPECT_EQ("destroyed", m_calls[2].name);
    EXPECT_EQ(boost::asio::error::operation_aborted, m_calls[2].ec);
    EXPECT_EQ("second", m_calls[3].name);
    EXPECT_FALSE(m_calls[3].ec);
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

TEST_F(ManualClock, PostedHandlersRunInPollAndAdvance) {
    int ran = 0;
    boost::asio::post(m_engine->getDisPatcherStrand(), [&] { ++ran; });
    EXPECT_EQ(0, ran);
    m_engine->poll();
    EXPECT_EQ(1, ran);
    boost::asio::post(m_engine->getIoContext(), [&] { ++ran; });
    m_engine->advanceClock(milliseconds(1));
    EXPECT_EQ(2, ran);
    // The manual clock starts no worker.
    m_engine->start(2);
    EXPECT_FALSE(m_engine->running());
}

TEST(SystemClock, TimerFiresOnTheStrand) {
    RPCEngine* engine = RPCEngine::instance();
    ASSERT_FALSE(engine->manualClock());
    engine->start(2);
    ASSERT_TRUE(engine->running());
    const ptime before = engine->now();
    {
        std::promise<std::pair<boost::system::error_code, bool> > firedPromise;
        DeadlineTimer timer(engine->getDisPatcherStrand());
        timer.expires_from_now(milliseconds(5));
        timer.async_wait([&](const boost::system::error_code& ec) {
            firedPromise.set_value(
                std::make_pair(ec, engine->getDisPatcherStrand().running_in_this_thread()));
        });
        std::future<std::pair<boost::system::error_code, bool> > fired = firedPromise.get_future();
        ASSERT_EQ(std::future_status::ready, fired.wait_for(std::chrono::seconds(30)));
        const std::pair<boost::system::error_code, bool> result = fired.get();
        EXPECT_FALSE(result.first) << result.first.message();
        EXPECT_TRUE(result.second);
        EXPECT_GE(engine->now(), before + milliseconds(5));
    }
    {
        // A cancelled system-clock wait is delivered as operation_aborted by the workers.
        std::promise<boost::system::error_code> abortedPromise;
        DeadlineTimer timer(engine->getDisPatcherStrand());
        timer.expires_from_now(boost::posix_time::hours(1));
        timer.async_wait([&](const boost::system::error_code& ec) { abortedPromise.set_value(ec); });
        // Armed: the clock cannot switch to manual.
        EXPECT_FALSE(engine->useManualClock(kStart));
        EXPECT_TRUE(engine->running());
        EXPECT_EQ(1u, timer.cancel());
        std::future<boost::system::error_code> aborted = abortedPromise.get_future();
        ASSERT_EQ(std::future_status::ready, aborted.wait_for(std::chrono::seconds(30)));
        EXPECT_EQ(boost::asio::error::operation_aborted, aborted.get());
    }
    engine->stop();
    engine->stop();
    EXPECT_FALSE(engine->running());
    engine->start(1);
    EXPECT_TRUE(engine->running());
    engine->stop();
}

TEST(SystemClock, WorkersRunHandlersInParallelSurviveThrowsAndStopInOrder) {
    RPCEngine* engine = RPCEngine::instance();
    ASSERT_FALSE(engine->manualClock());
    engine->start(2);
    boost::asio::io_context& io = engine->getIoContext();

    // Two handlers that each wait for the other can only finish on two workers at once.
    std::atomic<int> arrived(0);
    std::atomic<int> met(0);
    for (int i = 0; i < 2; ++i)
        boost::asio::post(io, [&] {
            ++arrived;
            const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
            while (arrived.load() < 2 && std::chrono::steady_clock::now() < until) std::this_thread::yield();
            if (arrived.load() == 2) ++met;
        });
    // A handler that throws does not take its worker down: it is logged and later handlers run.
    ttservice::test::LogCapture capture(utils::TT_LOG_ERROR);
    boost::asio::post(io, [] { throw std::runtime_error("handler failure"); });
    std::promise<void> afterThrow;
    boost::asio::post(io, [&] { afterThrow.set_value(); });
    ASSERT_EQ(std::future_status::ready, afterThrow.get_future().wait_for(std::chrono::seconds(30)));

    // stop() returns only once the handler in progress has finished.
    std::promise<void> started;
    std::atomic<bool> finished(false);
    boost::asio::post(io, [&] {
        started.set_value();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        finished = true;
    });
    ASSERT_EQ(std::future_status::ready, started.get_future().wait_for(std::chrono::seconds(30)));
    engine->stop();
    EXPECT_TRUE(finished.load());
    EXPECT_EQ(2, met.load());
    EXPECT_FALSE(engine->running());
    EXPECT_EQ(1u, capture.count("a handler threw: handler failure"));

    // A handler posted while stopped waits for the next start.
    std::atomic<bool> ranLater(false);
    boost::asio::post(io, [&] { ranLater = true; });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(ranLater.load());
    engine->start(1);
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!ranLater.load() && std::chrono::steady_clock::now() < until) std::this_thread::yield();
    EXPECT_TRUE(ranLater.load());
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
