// Bad lines of a session: each is reported with its line number and the reason, skipped, and
// leaves the layer exactly as the session without it leaves it. The comparison replaces the bad
// line by a comment, so both sessions have the same line numbers.
#include <gtest/gtest.h>

#include <algorithm>

#include "ReplayTestUtil.h"
#include "testing/TempDir.h"

namespace ttservice {
namespace replay {
namespace {

using test::joinLines;
using test::replaySession;
using ::testing::HasSubstr;

// A small session with two accounts; a bad line is inserted before the line index given.
const std::vector<std::string> kBase = {
    R"({"event":"exchanges","exchanges":[{"m_strExchangeID":"SH","m_strTradeDay":"20240315"}]})",
    R"({"event":"instruments","instruments":[{"m_strExchangeID":"SH","m_strInstrumentID":"600000","m_strInstrumentName":"浦发银行"}]})",
    R"({"event":"create_account","info":{"m_nPlatformID":10001,"m_nAccountType":2,"m_strAccountID":"A1"}})",
    R"({"event":"register","account":"10001_A1"})",
    R"({"event":"initialize","account":"10001_A1"})",
    R"({"event":"start_cache","account":"10001_A1"})",
    R"({"event":"record","account":"10001_A1","record":{"class":"CAccountDetail","m_dBalance":1000,"m_dAvailable":900}})",
    R"({"event":"record","account":"10001_A1","record":{"class":"COrderDetail","m_strExchangeID":"SH","m_strInstrumentID":"600000","m_strOrderSysID":"1","m_eOrderStatus":50,"m_nVolumeTotalOriginal":300}})",
    R"({"event":"flush","account":"10001_A1"})",
    R"({"event":"record","account":"10001_A1","record":{"class":"CDealDetail","m_strExchangeID":"SH","m_strInstrumentID":"600000","m_strTradeID":"T1","m_strOrderSysID":"1","m_nVolume":100}})",
    R"({"event":"quote","quote":{"m_strExchangeID":"SH","m_strInstrumentID":"600000","m_dLastPrice":7.1,"m_dAskPrice1":7.11}})",
    R"({"event":"create_account","info":{"m_nPlatformID":20001,"m_nAccountType":1,"m_strAccountID":"F1"}})",
    R"({"event":"record","account":"20001_F1","record":{"class":"CPositionDetail","m_strExchangeID":"SHFE","m_strInstrumentID":"rb2405","m_nVolume":2}})",
    R"({"event":"advance","ms":3000})",
    R"({"event":"query","what":"undealt_volume","account":"10001_A1","instrument":"600000"})",
    R"({"event":"query","what":"order_price","exchange":"SH","instrument":"600000","price_type":4,"operation":18})",
};

struct CBadLine {
    const char* name;
    size_t before;  // index in kBase the bad line goes before
    std::string line;
    const char* reason;  // expected in the message
};

const std::vector<CBadLine> kBadLines = {
    {"BadJson", 3, R"({"event":"record","account":)", "bad JSON"},
    {"TrailingGarbage", 3, R"({"event":"advance","ms":1} x)", "bad JSON"},
    {"NotAnObject", 3, R"([1,2,3])", "an event must be a JSON object"},
    {"NoEventName", 3, R"({"account":"10001_A1"})", "needs a string member \"event\""},
    {"UnknownEvent", 3, R"({"event":"recrod","account":"10001_A1"})", "unknown event 'recrod'"},
    {"UnknownMember", 9,
     R"({"event":"record","account":"10001_A1","cach_only":true,"record":{"class":"CAccountDetail"}})",
     "unknown member 'cach_only'"},
    {"MemberOfWrongType", 9,
     R"({"event":"record","account":"10001_A1","cache_only":"yes","record":{"class":"CAccountDetail"}})",
     "member 'cache_only' must be true or false"},
    {"RecordWithoutClass", 9, R"({"event":"record","account":"10001_A1","record":{"m_dBalance":1}})",
     "record has no \"class\""},
    {"UnknownClass", 9, R"({"event":"record","account":"10001_A1","record":{"class":"CFooDetail"}})",
     "unknown class 'CFooDetail'"},
    {"UnknownField", 9,
     R"({"event":"record","account":"10001_A1","record":{"class":"COrderDetail","m_strOrderSysID":"1","m_nVolumee":5}})",
     "unknown field 'm_nVolumee' of COrderDetail"},
    {"FieldOfWrongType", 9,
     R"({"event":"record","account":"10001_A1","record":{"class":"COrderDetail","m_strOrderSysID":"1","m_nVolumeTotalOriginal":"ten"}})",
     "field 'm_nVolumeTotalOriginal' of COrderDetail: expects a 32-bit integer"},
    {"NestedRecordOfWrongClass", 9,
     R"({"event":"record","account":"10001_A1","record":{"class":"COrderDetail","m_tag":{"class":"CDealDetail"}}})",
     "m_tag"},
    {"UnknownAccount", 9, R"({"event":"record","account":"10001_ZZ","record":{"class":"CAccountDetail"}})",
     "unknown account '10001_ZZ'"},
    {"RecordBeforeItsAccountIsCreated", 11,
     R"({"event":"record","account":"20001_F1","record":{"class":"CAccountDetail","m_dBalance":5}})",
     "unknown account '20001_F1' (no create_account for it before this line)"},
    {"FlushWithoutCaching", 10, R"({"event":"flush","account":"10001_A1"})", "without start_cache"},
    {"CreatedTwice", 5, R"({"event":"create_account","info":{"m_nPlatformID":10001,"m_strAccountID":"A1"}})",
     "account '10001_A1' was already created at line 3"},
    {"AccountInfoWithoutId", 3, R"({"event":"create_account","info":{"m_nPlatformID":10001}})",
     "the account info needs m_strAccountID"},
    {"RegisteredTwice", 5, R"({"event":"register","account":"10001_A1"})", "is already registered"},
    {"RemoveOfUnregistered", 13, R"({"event":"remove","account":"20001_F1"})",
     "account '20001_F1' is not registered"},
    {"ClockAfterATimerIsArmed", 6, R"({"event":"clock","start":"2024-03-15 09:30:00"})",
     "only while no refresh timer is armed"},
    {"ClockOfBadTime", 0, R"({"event":"clock","start":"2024-02-30 09:30:00"})",
     "member 'start' must be a time"},
    {"NegativeAdvance", 13, R"({"event":"advance","ms":-5})", "must not be negative"},
    {"QuoteWithoutInstrument", 10, R"({"event":"quote","quote":{"m_strExchangeID":"SH","m_dLastPrice":7}})",
     "a quote needs m_strExchangeID and m_strInstrumentID"},
    {"QuoteOfAnotherClass", 10, R"({"event":"quote","quote":{"class":"CDealDetail"}})",
     "member 'quote' must be a CPriceData, not a CDealDetail"},
    {"TickOfZero", 2, R"({"event":"tick_table","key":"SH","ticks":[[100,0.01],[1000,0]]})",
     "ticks[1]: the tick must be positive"},
    {"TickPairMalformed", 2, R"({"event":"tick_table","key":"SH","ticks":[[100]]})", "ticks[0] must be a"},
    {"CustomFeesOfUnknownMarket", 4,
     R"({"event":"custom_fees","account":"10001_A1","market":"bond","table":{}})",
     "member 'market' must be one of"},
    {"UnknownQuery", 15, R"({"event":"query","what":"volume","account":"10001_A1"})",
     "unknown query 'volume'"},
    {"QueryMissingMember", 15, R"({"event":"query","what":"undealt_volume","account":"10001_A1"})",
     "missing member 'instrument'"},
    {"QueryOfUnknownAccount", 15,
     R"({"event":"query","what":"undealt_volume","account":"1_X","instrument":"600000"})",
     "unknown account '1_X'"},
    {"FeesOfUnknownInstrument", 15,
     R"({"event":"query","what":"fees","account":"10001_A1","exchange":"SH","instrument":"999999"})",
     "unknown instrument SH 999999"},
    {"OrderPriceForNeither", 15,
     R"({"event":"query","what":"order_price","exchange":"SH","instrument":"600000","price_type":4,"operation":18,"for":"both"})",
     "member 'for' must be"},
};

// The output without its last line, the counts ("... N lines skipped"), which must differ.
std::string withoutCounts(const std::string& out) {
    return out.substr(0, out.rfind("\nreplayed: "));
}

TEST(ReplayBadLines, EachIsReportedWithItsLineAndLeavesTheStateAsWithoutIt) {
    for (const CBadLine& bad : kBadLines) {
        SCOPED_TRACE(std::string(bad.name) + ": " + bad.line);
        std::vector<std::string> with = kBase, without = kBase;
        with.insert(with.begin() + static_cast<std::ptrdiff_t>(bad.before), bad.line);
        without.insert(without.begin() + static_cast<std::ptrdiff_t>(bad.before), "# the bad line");
        const test::CReplayRun a = replaySession(joinLines(with));
        const test::CReplayRun b = replaySession(joinLines(without));
        EXPECT_EQ(1u, a.counters.m_nErrors) << a.err;
        EXPECT_EQ(0u, b.counters.m_nErrors) << b.err;
        EXPECT_THAT(a.err, ::testing::StartsWith("session:" + std::to_string(bad.before + 1) + ": "));
        EXPECT_THAT(a.err, HasSubstr(bad.reason));
        EXPECT_THAT(a.err, HasSubstr("(line skipped)"));
        EXPECT_EQ(1u, std::count(a.err.begin(), a.err.end(), '\n')) << "one line per bad line: " << a.err;
        // Nothing applied: the same answers, the same summary.
        EXPECT_EQ(withoutCounts(b.out), withoutCounts(a.out));
        EXPECT_THAT(a.out, HasSubstr("; 1 lines skipped\n"));
        EXPECT_EQ(b.summary, a.summary);
        EXPECT_EQ(b.counters.m_nEvents, a.counters.m_nEvents);
    }
}

// The tool goes on after every bad line, names each, and exits with 1.
TEST(ReplayBadLines, TheToolGoesOnAfterEveryBadLineAndExitsWithOne) {
    std::vector<std::string> lines = kBase;
    lines.push_back(R"({"event":"nope"})");
    lines.insert(lines.begin() + 9, "not json at all");
    lines.insert(lines.begin() + 2,
                 R"({"event":"record","account":"10001_A1","record":{"class":"CAccountDetail"}})");
    ttservice::test::TempDir dir("tt-replay-bad");
    const std::string path = dir.write("bad.jsonl", joinLines(lines));
    const test::CToolRun r = test::runTool({path, "--no-store"});
    EXPECT_EQ(EXIT_ERRORS, r.status);
    EXPECT_THAT(r.err, HasSubstr(path + ":3: unknown account '10001_A1'"));
    EXPECT_THAT(r.err, HasSubstr(path + ":11: bad JSON"));
    EXPECT_THAT(r.err, HasSubstr(path + ":19: unknown event 'nope'"));
    EXPECT_THAT(r.err, HasSubstr("3 skipped"));
    // The lines after them were applied: the last query answered.
    EXPECT_THAT(r.out, HasSubstr("order_price SH 600000 type 4 operation 18 for order: 7.11"));
}

}  // namespace
}  // namespace replay
}  // namespace ttservice
