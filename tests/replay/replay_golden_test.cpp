// The demo session (examples/demo/session.jsonl) gives, byte for byte, the output checked in as
// tests/replay/golden/demo.out: what a new user sees from `scripts/setup.sh demo`. After a deliberate
// change of the output, rerun with TT_UPDATE_GOLDEN=1 to rewrite the file, and review its diff.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "ReplayTestUtil.h"

namespace ttservice {
namespace replay {
namespace {

using test::readFile;
using test::runTool;
using ::testing::HasSubstr;
using ::testing::Not;

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

// The demo replays cleanly with timings only in the trailer, gives the same bytes on every run (text
// and JSON), and shows what it is there to show, named here so that a change that breaks it names
// the behaviour rather than a line of the golden file.
TEST_F(ReplayGoldenTest, DemoIsCleanDeterministicAndShowsTheCachedFundsReplayedLastAndTheOpenRemainder) {
    const test::CToolRun r = runDemo();
    ASSERT_EQ(EXIT_OK, r.status);
    EXPECT_THAT(r.err, HasSubstr("0 skipped"));
    EXPECT_THAT(r.err, HasSubstr("records/s"));
    EXPECT_THAT(r.out, Not(HasSubstr("records/s"))) << "timings belong to the trailer only";
    EXPECT_EQ(r.out, runDemo().out);
    EXPECT_EQ(runDemo({"--json"}).out, runDemo({"--json"}).out);
    EXPECT_THAT(r.out, HasSubstr("flush at line 24, 2 slot(s): 542:SH_1001 543:10001_8800123"));
    EXPECT_THAT(r.out, HasSubstr("undealt_volume 10001_8800123 600000: buy 600, sell 0"));
    EXPECT_THAT(r.out, HasSubstr("instrument DCE rb2405: SHFErb2405 (real market SHFE)"));
    EXPECT_THAT(r.out, HasSubstr("no calculator installed"));
}

}  // namespace
}  // namespace replay
}  // namespace ttservice
