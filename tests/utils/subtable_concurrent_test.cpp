// SubTable under concurrent use: one thread notifies in a loop while another subscribes and
// releases. Run under ThreadSanitizer as well (label tsan).
#include "utils/SubTable.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

typedef utils::SubTable<int, int> Table;

TEST(SubTableConcurrent, NotifyWhileSubscribingAndReleasing) {
    Table table;
    std::atomic<size_t> permanentCalls(0), transientCalls(0);
    Table::SubRequestPtr permanent = table.subscribe(1, [&](const int&) { ++permanentCalls; });

    const size_t kNotifies = 20000;
    std::atomic<bool> stop(false);
    std::thread churn([&] {
        std::vector<Table::SubRequestPtr> held;
        size_t round = 0;
        while (!stop.load()) {
            held.push_back(table.subscribe(1, [&](const int&) { ++transientCalls; }));
            held.push_back(table.subscribe(2, [&](const int&) { ++transientCalls; }));
            if (++round % 3 == 0) held.clear();
        }
        held.clear();
    });

    size_t reported = 0;
    for (size_t i = 0; i < kNotifies; ++i) {
        const size_t n = table.notify(1, static_cast<int>(i));
        ASSERT_GE(n, 1u);  // the permanent subscriber is always there
        reported += n;
    }
    stop = true;
    churn.join();

    // notify counts exactly the callbacks it called, and the permanent one was called every time.
    EXPECT_EQ(kNotifies, permanentCalls.load());
    EXPECT_EQ(reported, permanentCalls.load() + transientCalls.load());
    // Every transient request was released: only the permanent subscription is left.
    EXPECT_EQ(1u, table.size());
    EXPECT_FALSE(table.hasSubscribers(2));
    EXPECT_EQ(1u, table.notify(1, 0));
}

TEST(SubTableConcurrent, ReleaseFromAnotherThreadStopsCalls) {
    Table table;
    std::atomic<size_t> calls(0);
    for (int round = 0; round < 200; ++round) {
        Table::SubRequestPtr req = table.subscribe(7, [&](const int&) { ++calls; });
        std::atomic<bool> released(false);
        std::thread notifier([&] {
            while (!released.load()) table.notify(7, 0);
        });
        while (calls.load() == 0) std::this_thread::yield();
        req.reset();
        released = true;
        notifier.join();
        // Released and joined: no further call can start.
        const size_t before = calls.load();
        EXPECT_EQ(0u, table.notify(7, 0));
        EXPECT_EQ(before, calls.load());
        calls = 0;
    }
    EXPECT_EQ(0u, table.size());
}

}  // namespace
