// The session parser on its own: what each event decodes to, the defaults of optional members,
// comments and line ends, and that it never looks at state (an unknown account parses).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <fstream>
#include <set>

#include "SessionEvent.h"

namespace ttservice {
namespace replay {
namespace {

CSessionEvent parse(const std::string& line) {
    CSessionParser parser;
    CSessionEvent e;
    std::string error;
    EXPECT_TRUE(parser.parse(line, e, &error)) << error << ": " << line;
    return e;
}

std::string errorOf(const std::string& line) {
    CSessionParser parser;
    CSessionEvent e;
    std::string error;
    EXPECT_FALSE(parser.parse(line, e, &error)) << line;
    return error;
}

// Blank and comment lines hold no event; a line ending in a carriage return parses.
TEST(SessionParser, BlankAndCommentLinesHoldNoEventAndCarriageReturnsAreIgnored) {
    for (const char* line : {"", "   ", "\t\r", "# a comment", "   # indented comment"})
        EXPECT_TRUE(CSessionParser::isBlank(line)) << "'" << line << "'";
    for (const char* line : {"{}", " {\"event\":\"advance\",\"ms\":1}", "x#"})
        EXPECT_FALSE(CSessionParser::isBlank(line)) << "'" << line << "'";
    EXPECT_EQ(5, parse("{\"event\":\"advance\",\"ms\":5}\r").m_nMillis);
}

// A record decodes to its class and names an account without looking it up; optional members take
// their documented defaults.
TEST(SessionParser, EventsDecodeWithTheDefaultsOfOptionalMembersAndNoState) {
    const CSessionEvent e = parse(
        R"({"event":"record","account":"nobody","record":{"class":"CDealDetail","m_strTradeID":"T1","m_nVolume":3}})");
    EXPECT_EQ(CSessionEvent::RECORD, e.m_eKind);
    EXPECT_EQ("nobody", e.m_strAccount);
    EXPECT_FALSE(e.m_bFlag) << "cache_only defaults to false";
    const CDealDetailPtr deal = boost::dynamic_pointer_cast<CDealDetail>(e.m_record);
    ASSERT_TRUE(deal);
    EXPECT_EQ("T1", deal->m_strTradeID);
    EXPECT_EQ(3, deal->m_nVolume);
    EXPECT_TRUE(
        parse(R"({"event":"record","account":"a","cache_only":true,"record":{"class":"CAccountDetail"}})")
            .m_bFlag);

    const CSessionEvent account =
        parse(R"({"event":"create_account","info":{"m_nPlatformID":20001,"m_strAccountID":"9"}})");
    EXPECT_EQ(DEFAULT_UPDATE_INTERVAL_MS, account.m_nMillis);
    EXPECT_EQ("20001_9", account.m_strAccount) << "the account key follows from the info";
    EXPECT_EQ(1000,
              parse(R"({"event":"create_account","interval":1000,"info":{"m_strAccountID":"9"}})").m_nMillis);

    EXPECT_TRUE(parse(R"({"event":"initialize","account":"a"})").m_bFlag);
    EXPECT_FALSE(parse(R"({"event":"initialize","account":"a","value":false})").m_bFlag);

    const CSessionEvent price = parse(
        R"({"event":"query","what":"order_price","exchange":"SH","instrument":"600000","price_type":4,"operation":18})");
    EXPECT_FALSE(price.m_bForCalc);
    EXPECT_FALSE(price.m_bHasFixPrice);
    const CSessionEvent fix = parse(
        R"({"event":"query","what":"order_price","exchange":"SH","instrument":"600000","price_type":11,"operation":18,"for":"calc","fix_price":7.5})");
    EXPECT_TRUE(fix.m_bForCalc);
    EXPECT_TRUE(fix.m_bHasFixPrice);
    EXPECT_EQ(7.5, fix.m_dFixPrice);

    EXPECT_FALSE(parse(R"({"event":"query","what":"fees","account":"a","exchange":"SH","instrument":"1"})")
                     .m_bHasFamily);
    const CSessionEvent fees = parse(
        R"({"event":"query","what":"fees","account":"a","exchange":"SH","instrument":"1","market":"hgt"})");
    EXPECT_TRUE(fees.m_bHasFamily);
    EXPECT_EQ(FEE_HGT, fees.m_eFamily);
}

// Instruments replace their own markets unless markets are given; clocks and fee tables decode.
TEST(SessionParser, InstrumentsClocksAndFeeTablesDecode) {
    const CSessionEvent own = parse(
        R"({"event":"instruments","instruments":[{"m_strExchangeID":"SZ","m_strInstrumentID":"000001"},{"m_strExchangeID":"SH","m_strInstrumentID":"600000"},{"m_strExchangeID":"SZ","m_strInstrumentID":"300001"}]})");
    EXPECT_EQ((std::vector<std::string>{"SZ", "SH"}), own.m_markets);
    ASSERT_EQ(3u, own.m_records.size());
    EXPECT_TRUE(boost::dynamic_pointer_cast<CInstrumentDetail>(own.m_records[2]));
    EXPECT_TRUE(parse(R"({"event":"instruments","markets":[],"instruments":[{"m_strExchangeID":"SH"}]})")
                    .m_markets.empty());

    const CSessionEvent clock = parse(R"({"event":"clock","start":"2024-03-15 01:25:07"})");
    EXPECT_EQ("2024-Mar-15 01:25:07", boost::posix_time::to_simple_string(clock.m_clock));

    const CSessionEvent fees = parse(
        R"({"event":"custom_fees","account":"a","market":"future","table":{"m_vMarginRates":[{"m_strCategory":"1"}]}})");
    EXPECT_EQ(FEE_FUTURE, fees.m_eFamily);
    const CCustomFutureInstrumentFeePtr table =
        boost::dynamic_pointer_cast<CCustomFutureInstrumentFee>(fees.m_record);
    ASSERT_TRUE(table);
    ASSERT_EQ(1u, table->m_vMarginRates.size());
    EXPECT_EQ("1", table->m_vMarginRates[0]->m_strCategory);
}

// docs/session-format.md shows an example of every event and every query; each example line of its
// JSON blocks must be a valid event, so that a reader who copies one gets no error.
TEST(SessionParser, TheFormatPageHasAValidExampleOfEveryEventAndQuery) {
    std::ifstream page(TT_SOURCE_DIR "/docs/session-format.md");
    ASSERT_TRUE(page) << "cannot read docs/session-format.md";
    std::set<std::string> events, queries;
    CSessionParser parser;
    std::string line;
    bool inJson = false;
    int lineNo = 0;
    while (std::getline(page, line)) {
        ++lineNo;
        if (line.compare(0, 3, "```") == 0) {
            inJson = line == "```json";
            continue;
        }
        if (!inJson || line.compare(0, 9, "{\"event\":") != 0) continue;
        CSessionEvent e;
        std::string error;
        EXPECT_TRUE(parser.parse(line, e, &error)) << "docs/session-format.md:" << lineNo << ": " << error;
        Json::Value v;
        ASSERT_TRUE(parser.parseJson(line, v, &error));
        events.insert(v["event"].asString());
        if (e.m_eKind == CSessionEvent::QUERY) queries.insert(queryName(e.m_eQuery));
    }
    EXPECT_EQ(
        (std::set<std::string>{"record", "quote", "advance", "clock", "exchanges", "instruments",
                               "tick_table", "exchange_rate", "custom_fees", "create_account", "register",
                               "start_cache", "initialize", "flush", "clear", "remove", "query"}),
        events);
    std::set<std::string> allQueries;
    for (int q = QUERY_CAN_ORDER_VOLUME; q <= QUERY_TRADE_DAY; ++q) allQueries.insert(queryName(EQuery(q)));
    EXPECT_EQ(allQueries, queries);
}

// Errors come on one line; a JSON error names the column, not jsoncpp's "Line 1" (which would read as
// the session's line 1); a duplicate member is refused; a fee table of the wrong class is named.
TEST(SessionParser, ErrorsComeOnOneLineAndNameTheColumn) {
    using ::testing::HasSubstr;
    using ::testing::StartsWith;
    EXPECT_THAT(errorOf("{\"event\":\n"), AllOf(StartsWith("bad JSON: "), Not(HasSubstr("\n"))));
    EXPECT_THAT(errorOf(R"({"event":"record","account":)"),
                AllOf(StartsWith("bad JSON: column 29: "), Not(HasSubstr("Line"))));
    EXPECT_THAT(errorOf(R"({"event":"advance","ms":1,"ms":2})"), HasSubstr("bad JSON"));
    EXPECT_THAT(
        errorOf(
            R"({"event":"custom_fees","account":"a","market":"stock","table":{"class":"CCustomFutureInstrumentFee"}})"),
        HasSubstr("must be a CCustomStockInstrumentFee"));
}

}  // namespace
}  // namespace replay
}  // namespace ttservice
