// The session parser on its own: what each event decodes to, the defaults of optional members,
// comments and line ends, and that it never looks at state (an unknown account parses).
#include <gtest/gtest.h>

#include "SessionEvent.h"

#include <boost/date_time/posix_time/posix_time.hpp>

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

TEST(SessionParser, BlankAndCommentLinesHoldNoEvent) {
    for (const char* line : {"", "   ", "\t\r", "# a comment", "   # indented comment"})
        EXPECT_TRUE(CSessionParser::isBlank(line)) << "'" << line << "'";
    for (const char* line : {"{}", " {\"event\":\"advance\",\"ms\":1}", "x#"})
        EXPECT_FALSE(CSessionParser::isBlank(line)) << "'" << line << "'";
}

TEST(SessionParser, ALineEndingInCarriageReturnParses) {
    EXPECT_EQ(5, parse("{\"event\":\"advance\",\"ms\":5}\r").m_nMillis);
}

TEST(SessionParser, RecordEventDecodesTheRecordOfItsClassAndNamesNoState) {
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
}

TEST(SessionParser, OptionalMembersTakeTheirDocumentedDefaults) {
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

TEST(SessionParser, InstrumentsReplaceTheirOwnMarketsUnlessMarketsAreGiven) {
    const CSessionEvent own = parse(
        R"({"event":"instruments","instruments":[{"m_strExchangeID":"SZ","m_strInstrumentID":"000001"},{"m_strExchangeID":"SH","m_strInstrumentID":"600000"},{"m_strExchangeID":"SZ","m_strInstrumentID":"300001"}]})");
    EXPECT_EQ((std::vector<std::string>{"SZ", "SH"}), own.m_markets);
    ASSERT_EQ(3u, own.m_records.size());
    EXPECT_TRUE(boost::dynamic_pointer_cast<CInstrumentDetail>(own.m_records[2]));
    EXPECT_TRUE(parse(R"({"event":"instruments","markets":[],"instruments":[{"m_strExchangeID":"SH"}]})")
                    .m_markets.empty());
}

TEST(SessionParser, TickTablesClocksAndFeeTablesDecode) {
    const CSessionEvent ticks =
        parse(R"({"event":"tick_table","key":"HGT","ticks":[[0.25,0.001],[10,0.01]]})");
    ASSERT_EQ(2u, ticks.m_ticks.size());
    EXPECT_EQ(0.25, ticks.m_ticks[0].first);
    EXPECT_EQ(0.01, ticks.m_ticks[1].second);

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
    EXPECT_NE(
        std::string::npos,
        errorOf(
            R"({"event":"custom_fees","account":"a","market":"stock","table":{"class":"CCustomFutureInstrumentFee"}})")
            .find("must be a CCustomStockInstrumentFee"));
}

TEST(SessionParser, JsonErrorsComeOnOneLine) {
    const std::string error = errorOf("{\"event\":\n");
    EXPECT_EQ(0u, error.find("bad JSON: ")) << error;
    EXPECT_EQ(std::string::npos, error.find('\n')) << error;
    EXPECT_NE(std::string::npos, errorOf(R"({"event":"advance","ms":1,"ms":2})").find("bad JSON"))
        << "a duplicate member is refused";
}

}  // namespace
}  // namespace replay
}  // namespace ttservice
