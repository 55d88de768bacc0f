// The log centre's sink under concurrent use: lines written on several threads while captures come
// and go. Run under ThreadSanitizer as well (label tsan).
#include "testing/LogCapture.h"
#include "utils/LogCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using ttservice::test::LogCapture;

void writeLines(int writer, int count) {
    for (int i = 0; i < count; ++i) TT_LOG_STD_INFO("writer %1% line %2%", writer, i);
}

TEST(LogCenterConcurrent, SinkSetAndClearedWhileThreadsWrite) {
    std::atomic<bool> stop(false);
    std::vector<std::thread> writers;
    for (int w = 0; w < 2; ++w)
        writers.emplace_back([w, &stop] {
            while (!stop.load()) writeLines(w, 10);
        });
    for (int round = 0; round < 200; ++round) {
        LogCapture capture;
        std::this_thread::yield();
        // Whatever arrived is whole: every line is one a writer formatted.
        for (const std::string& text : capture.texts()) ASSERT_EQ(0u, text.rfind("writer ", 0)) << text;
    }
    stop = true;
    for (std::thread& t : writers) t.join();

    // With one capture alive throughout, every line of every thread arrives exactly once.
    LogCapture capture;
    const int kLines = 500;
    writers.clear();
    for (int w = 0; w < 2; ++w) writers.emplace_back([w] { writeLines(w, kLines); });
    for (std::thread& t : writers) t.join();
    EXPECT_EQ(static_cast<size_t>(2 * kLines), capture.count("writer "));
    EXPECT_EQ(1u, capture.count("writer 0 line 499"));
    EXPECT_EQ(1u, capture.count("writer 1 line 0"));
}

}  // namespace
