// Helpers of the persistence tests: documents print as JSON in failure messages; a small numbered
// document; reads of a service as values, for one-line checks (a read that fails fails the test);
// and lines of a LogCapture on "TTStdFile" counted by what they contain.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "bson/BSONObj.h"
#include "persist/CPersistService.h"
#include "testing/LogCapture.h"

namespace bson {
inline void PrintTo(const BSONObj& o, std::ostream* os) {
    *os << o.toJson();
}
}  // namespace bson

namespace ttservice {
namespace test {

// {"n": n, "text": text}
inline bson::BSONObj doc(int n, const std::string& text = std::string()) {
    bson::BSONObjBuilder b;
    b.append("n", n);
    b.append("text", text);
    return b.obj();
}

inline std::map<std::string, bson::BSONObj> readAll(persist::CPersistService& s, const std::string& hash,
                                                    const std::string& pattern) {
    std::map<std::string, bson::BSONObj> out;
    EXPECT_TRUE(s.readAllData(hash, pattern, out)) << "reading '" << hash << "' keys '" << pattern << "'";
    return out;
}

inline std::set<std::string> readSet(persist::CPersistService& s, const std::string& name) {
    std::set<std::string> out;
    EXPECT_TRUE(s.readSetStrData(name, out)) << "reading set '" << name << "'";
    return out;
}

inline std::vector<bson::BSONObj> readList(persist::CPersistService& s, const std::string& name) {
    std::vector<bson::BSONObj> out;
    EXPECT_TRUE(s.readListData(name, out)) << "reading list '" << name << "'";
    return out;
}

// How many lines written on "TTStdFile" while `log` lived contain `text`.
inline size_t countStdLines(const LogCapture& log, const std::string& text) {
    const std::vector<std::string> lines = log.texts(utils::LOGGER_STD);
    return static_cast<size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const std::string& l) { return l.find(text) != std::string::npos; }));
}

}  // namespace test
}  // namespace ttservice
