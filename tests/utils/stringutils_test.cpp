#include "utils/StringUtils.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

typedef std::vector<std::string> Parts;

// split keeps every part, empty ones included; a stock key is market then code.
TEST(StringUtils, SplitKeepsEveryPartAndStockKey) {
    const struct {
        std::string s, sep;
        Parts expected;
    } cases[] = {
        {"a b", " ", {"a", "b"}},
        {"a  b", " ", {"a", "", "b"}},
        {" a ", " ", {"", "a", ""}},
        {" ", " ", {"", ""}},
        {"", " ", {""}},
        {"", "", {""}},
        {"abc", "", {"abc"}},
        {"abc", "x", {"abc"}},
        {"a____b____c", "____", {"a", "b", "c"}},
        {"a_____b", "____", {"a", "_b"}},
        {"____", "____", {"", ""}},
        {"SP a1805&a1809", " ", {"SP", "a1805&a1809"}},
        {"a1805&a1809", "&", {"a1805", "a1809"}},
        {"a&&", "&", {"a", "", ""}},
        {"abab", "ab", {"", "", ""}},
        {"aaa", "aa", {"", "a"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.expected, utils::split(c.s, c.sep)) << "split(\"" << c.s << "\", \"" << c.sep << "\")";
    EXPECT_EQ("SH600000", utils::nqStockKey("SH", "600000"));
    EXPECT_EQ("600000", utils::nqStockKey("", "600000"));
}

}  // namespace
