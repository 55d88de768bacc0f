// ttreplay generate: the same options give the same bytes, the session is valid and replays without
// a skipped line, and what it generates holds together (codes of each market, deals that add up to
// the traded volume of their orders, partial fills, cancels).
#include <gtest/gtest.h>
#include <json/json.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "ReplayTestUtil.h"
#include "SessionGenerator.h"
#include "testing/TempDir.h"

namespace ttservice {
namespace replay {
namespace {

std::string generate(int accounts, uint64_t records, uint64_t seed, int instruments = 400) {
    CGeneratorOptions o;
    o.m_nAccounts = accounts;
    o.m_nRecords = records;
    o.m_nSeed = seed;
    o.m_nInstruments = instruments;
    std::ostringstream out;
    generateSession(o, out);
    return out.str();
}

std::vector<Json::Value> events(const std::string& session) {
    std::vector<Json::Value> out;
    std::istringstream in(session);
    for (std::string line; std::getline(in, line);)
        if (!line.empty() && line[0] != '#') out.push_back(test::parseJson(line));
    return out;
}

// The same seed gives the same bytes, on standard output or through the tool to a file; another seed
// another session; exactly the records asked for; bad options are usage errors.
TEST(ReplayGenerate, SameOptionsSameBytesAndExactlyTheRecordsAskedFor) {
    const std::string a = generate(4, 3000, 42);
    EXPECT_EQ(a, generate(4, 3000, 42));
    EXPECT_NE(a, generate(4, 3000, 43));
    for (uint64_t records : {0ULL, 1ULL, 37ULL, 2500ULL}) {
        size_t n = 0;
        for (const Json::Value& e : events(generate(4, records, 5))) n += e["event"].asString() == "record";
        EXPECT_EQ(records, n) << "records " << records;
    }
    ttservice::test::TempDir dir("tt-replay-gen");
    const test::CToolRun r = test::runTool({"generate", "--accounts", "4", "--records", "500", "--seed", "7",
                                            "--instruments", "300", "-o", dir.file("s.jsonl")});
    EXPECT_EQ(EXIT_OK, r.status) << r.err;
    EXPECT_EQ(generate(4, 500, 7, 300), test::readFile(dir.file("s.jsonl")));
    EXPECT_EQ(EXIT_USAGE, test::runTool({"generate", "--accounts", "0"}).status);
    EXPECT_EQ(EXIT_USAGE, test::runTool({"generate", "--records", "many"}).status);
    EXPECT_EQ(EXIT_USAGE, test::runTool({"generate", "--speed", "3"}).status);
}

TEST(ReplayGenerate, ReplaysWithoutASkippedLine) {
    const test::CReplayRun r = test::replaySession(generate(8, 4000, 9));
    EXPECT_EQ(0u, r.counters.m_nErrors) << r.err.substr(0, 2000);
    EXPECT_EQ(4000u, r.counters.m_nRecords);
    ASSERT_EQ(8u, r.summary["accounts"].size());
    for (const Json::Value& a : r.summary["accounts"]) {
        EXPECT_TRUE(a["registered"].asBool()) << a["account"];
        EXPECT_TRUE(a["initialized"].asBool()) << a["account"];
        EXPECT_FALSE(a["dataCenter"]["flushes"].empty()) << "every login flushes its cache: " << a["account"];
        EXPECT_FALSE(a["funds"].isNull()) << a["account"];
    }
    EXPECT_NE(std::string::npos, r.out.find("revalue")) << "clock advances fire the refresh timers";
}

// Accounts of every platform family; instruments with real-looking codes of each market; the deals
// of every order add up to the traded volume of its last version; partial fills and cancels occur.
TEST(ReplayGenerate, AccountsInstrumentsOrdersAndDealsLookRealAndHoldTogether) {
    std::set<std::string> families;
    std::map<std::string, std::set<std::string> > prefixes;  // market -> code shapes seen
    const std::regex futures("^(cu|al|rb|m|i|a|IF|IC)2[45][01][0-9]$|^(SR|CF|TA)[45][01][0-9]$");
    size_t instruments = 0, cancelled = 0, partlyCancelled = 0;
    std::map<std::string, int> traded, dealt, status;  // by account and order id
    std::set<std::string> partlyTraded;                // orders seen partly traded at some point
    for (const Json::Value& e : events(generate(4, 6000, 11, 2000))) {
        const std::string name = e["event"].asString();
        if (name == "create_account") {
            const int p = e["info"]["m_nPlatformID"].asInt();
            families.insert(p >= 10000 && p < 20000   ? "stock"
                            : p >= 20000 && p < 29999 ? "futures"
                            : p >= 60000 && p < 70000 ? "option"
                            : p >= 51001 && p < 59999 ? "hgt"
                                                      : "other");
        }
        for (const Json::Value& i : e["instruments"]) {
            ++instruments;
            const std::string market = i["m_strExchangeID"].asString(),
                              code = i["m_strInstrumentID"].asString();
            if (market == "SH" || market == "SZ") {
                ASSERT_TRUE(code.size() == 6 || (market == "SH" && code.size() == 8)) << code;
                prefixes[market].insert(code.substr(0, 3));
            } else if (market == "HGT") {
                EXPECT_EQ(5u, code.size()) << code;
            } else {
                EXPECT_TRUE(std::regex_match(code, futures)) << market << " " << code;
                prefixes[market].insert(code);
            }
        }
        const Json::Value& r = e["record"];
        const std::string id = e["account"].asString() + "/" + r["m_strOrderSysID"].asString();
        if (r["class"] == "COrderDetail") {
            traded[id] = r.get("m_nVolumeTraded", 0).asInt();
            status[id] = r["m_eOrderStatus"].asInt();
            if (status[id] == 55) partlyTraded.insert(id);
            EXPECT_LE(traded[id], r["m_nVolumeTotalOriginal"].asInt()) << id;
        } else if (r["class"] == "CDealDetail") {
            ASSERT_TRUE(traded.count(id)) << "a deal of an order not seen before: " << id;
            dealt[id] += r["m_nVolume"].asInt();
        }
    }
    EXPECT_EQ((std::set<std::string>{"stock", "futures", "option", "hgt"}), families);
    EXPECT_GT(instruments, 2000u);
    for (const char* p : {"600", "601", "688", "100"}) EXPECT_TRUE(prefixes["SH"].count(p)) << "SH " << p;
    for (const char* p : {"000", "300"}) EXPECT_TRUE(prefixes["SZ"].count(p)) << "SZ " << p;
    EXPECT_TRUE(prefixes["SHFE"].count("rb2405"));
    EXPECT_TRUE(prefixes["CZCE"].count("SR405"));
    EXPECT_TRUE(prefixes["CFFEX"].count("IF2406"));
    for (const auto& kv : traded) {
        EXPECT_EQ(kv.second, dealt[kv.first]) << kv.first;
        partlyCancelled += status[kv.first] == 53;
        cancelled += status[kv.first] == 54;
    }
    EXPECT_GT(partlyTraded.size(), 0u);
    EXPECT_GT(cancelled, 0u);
    EXPECT_GT(partlyCancelled, 0u);
}

}  // namespace
}  // namespace replay
}  // namespace ttservice
