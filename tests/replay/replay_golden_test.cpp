// The demo session (examples/demo/session.jsonl) gives, byte for byte, the output checked in as
// tests/replay/golden/demo.out: what a new user sees from `scripts/setup.sh demo`. After a deliberate
// change of the output, rerun with TT_UPDATE_GOLDEN=1 to rewrite the file, and review its diff.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "ReplayTestUtil.h"

namespace ttservice {
namespace replay {
namespace {

using test::readFile;
using test::runTool;

const std::string kDemo = TT_SOURCE_DIR "/examples/demo/session.jsonl";
const std::string kGolden = TT_SOURCE_DIR "/tests/replay/golden/demo.out";

// The tool names the session as it was given on the command line; the golden output was made from
// the tree's root, so the test passes the same relative path.
test::CToolRun runDemo(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> args = {"examples/demo/session.jsonl", "--no-store"};
    args.insert(args.end(), extra.begin(), extra.end());
    return runTool(args);
}

class ReplayGoldenTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, chdir(TT_SOURCE_DIR)) << "cannot enter the source tree"; }
};

TEST_F(ReplayGoldenTest, DemoOutputMatchesTheGoldenFileByteForByte) {
    const test::CToolRun r = runDemo();
    ASSERT_EQ(EXIT_OK, r.status) << r.err;
    if (std::getenv("TT_UPDATE_GOLDEN")) {
        std::ofstream(kGolden, std::ios::binary | std::ios::trunc) << r.out;
        GTEST_SKIP() << "golden file rewritten: " << kGolden;
    }
    const std::string golden = readFile(kGolden);
    ASSERT_FALSE(golden.empty()) << "missing " << kGolden;
    EXPECT_EQ(golden, r.out);
}

TEST_F(ReplayGoldenTest, DemoReplaysWithoutSkippedLinesAndATrailerOnStandardError) {
    const test::CToolRun r = runDemo();
    ASSERT_EQ(EXIT_OK, r.status);
    EXPECT_NE(std::string::npos, r.err.find("0 skipped")) << r.err;
    EXPECT_NE(std::string::npos, r.err.find("records/s")) << r.err;
    EXPECT_EQ(std::string::npos, r.out.find("records/s")) << "timings belong to the trailer only";
}

TEST_F(ReplayGoldenTest, TwoRunsGiveTheSameBytesInTextAndJson) {
    EXPECT_EQ(runDemo().out, runDemo().out);
    EXPECT_EQ(runDemo({"--json"}).out, runDemo({"--json"}).out);
}

// What the demo is there to show, stated so that a change of the layer that breaks it names the
// behaviour rather than a line of the golden file.
TEST_F(ReplayGoldenTest, DemoShowsTheCachedFundsReplayedLastAndTheOpenRemainder) {
    const std::string out = runDemo().out;
    EXPECT_NE(std::string::npos, out.find("flush at line 24, 2 slot(s): 542:SH_1001 543:10001_8800123"))
        << out;
    EXPECT_NE(std::string::npos, out.find("undealt_volume 10001_8800123 600000: buy 600, sell 0")) << out;
    EXPECT_NE(std::string::npos, out.find("instrument DCE rb2405: SHFErb2405 (real market SHFE)")) << out;
    EXPECT_NE(std::string::npos, out.find("no calculator installed")) << out;
}

}  // namespace
}  // namespace replay
}  // namespace ttservice
