// main() of every test executable. With TT_TEST_LOG set, logging is configured from
// examples/log4cxx.properties so that a failing test can be rerun with its log lines.
#include "utils/LogCenter.h"

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    if (std::getenv("TT_TEST_LOG"))
        utils::CLogCenter::instance().configure(TT_SOURCE_DIR "/examples/log4cxx.properties");
    const int rc = RUN_ALL_TESTS();
    utils::CLogCenter::instance().shutdown();
    return rc;
}
