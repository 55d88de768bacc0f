// ttservice::CppCategory: the category service. Brokers grant custom fee rates by category of
// security ("SH main board A shares", "ChiNext", "convertible bonds", "ferrous futures", ...); a
// category is a numbered set of instruments defined by market and code rules, so that a broker's
// category codes are configuration, not code.
//
// Categories are read from the "categories" section of the configuration (JSON):
//
//   "categories": {
//     "10003": {"name": "ChiNext", "rules": [{"market": "SZ", "prefixes": ["300", "301"]}]},
//     "10008": {"name": "ST shares", "rules": [{"markets": ["SH", "SZ"], "nameContains": ["ST"]}]},
//     ...
//   }
//
// Each member is one category: its key is the category code (a positive decimal integer), its
// value an object with an optional "name" and a non-empty array "rules". A category holds an
// instrument when at least one of its rules matches it. A rule matches an instrument when all of
// the following hold (a test whose member is absent is passed):
//   "market" / "markets"  (one of them is required) the instrument's exchange code is listed;
//   code tests            the code passes at least one of the code tests that are present:
//       "prefixes"        the code begins with one of the strings;
//       "ranges"          [lo, hi] pairs of equal length: the code has that length and
//                         lo <= code <= hi in plain string order (numeric order for digit strings);
//       "codes"           the code is one of the strings;
//       "products"        the code's leading letters (a futures code's product, "rb" of "rb2410")
//                         equal one of the strings, ignoring ASCII case;
//                         with none of the four present, every code of the market passes;
//   "nameContains"        the instrument name contains one of the strings;
//   "nameExcludes"        the instrument name contains none of the strings.
// Any other member of a rule is an error (a misspelt test must not silently widen a category).
//
// Loading validates the whole section first; on any error nothing is replaced, every problem is
// reported naming the category code, the rule index and the member, and the rules in force stay.
//
// The process-wide instance is CSingletonT<CppCategory>::instance(): its first use loads the
// section of the configuration in force then (ConfigCollector::instance()); a program that
// installs another configuration later calls reloadFromConfig(). Tests may construct their own
// CppCategory or load rules into the process-wide one and clear() it afterwards.
//
// Thread safety: every member may be called from any thread. Look-ups read an immutable snapshot
// of the rules; loading replaces the whole snapshot atomically, so a reader sees the old rules or
// the new ones, never a mix. No callback is made.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "records/FeeRecords.h"
#include "utils/Singleton.h"

namespace ttservice {

class ConfigCollector;

// One rule of a category (see the header comment for the meaning of each member).
struct CCategoryRule {
    std::set<std::string> m_setMarkets;
    std::vector<std::string> m_vPrefixes;
    std::vector<std::pair<std::string, std::string> > m_vRanges;
    std::set<std::string> m_setCodes;
    std::vector<std::string> m_vProducts;  // stored in lower case
    std::vector<std::string> m_vNameContains;
    std::vector<std::string> m_vNameExcludes;

    bool matches(const std::string& market, const std::string& code, const std::string& name) const;
};

struct CCategoryDef {
    int m_nCode = 0;
    std::string m_strName;
    std::vector<CCategoryRule> m_vRules;
};

class CppCategory {
public:
    // Starts with no category: every test is false until rules are loaded.
    CppCategory();

    // True when category `category` holds the instrument. Unknown categories (0 included, which is
    // what a non-numeric category code turns into) hold nothing.
    bool isStockInCategoryForTS(const std::string& market, const std::string& code, const std::string& name,
                                int category) const;

    // True when `list`, a broker's own code list for a category, names the instrument. An element
    // names it when it equals the code ("600000"), the instrument key ("SH600000") or the code
    // with the market after a dot ("600000.SH"). An empty code or list names nothing.
    bool isStockInCustomCategory(const std::string& market, const std::string& code,
                                 const std::vector<std::string>& list) const;

    // True when the instrument belongs to a group category: it is in at least one member whose
    // m_bExclude is false and in no member whose m_bExclude is true. A member's category is
    // tested with its own code list when `categoryMap` holds one under the member's m_strCategory
    // (isStockInCustomCategory), else with the configured rules of atoi(m_strCategory).
    // A group without an including member holds nothing: a custom rate applies only to instruments
    // that some member names positively. Empty members are skipped.
    bool isStockInGroupCategory(const std::string& market, const std::string& code, const std::string& name,
                                const CGroupCategorySubInfoList& groups,
                                const StringListMap& categoryMap) const;

    // Replaces every category with those of `jsonText` (the value of the "categories" section).
    // `origin` names where the text came from in messages. Returns false, sets *error (every
    // problem, "; "-separated) and keeps the rules in force when the text is invalid. An empty
    // text loads no category (the section is optional).
    bool loadJson(const std::string& jsonText, const std::string& origin, std::string* error);
    // Validates a "categories" section without loading it (for the configuration loader, which
    // validates the whole file once when it is loaded). Same messages as loadJson.
    static bool checkJson(const std::string& jsonText, const std::string& origin, std::string* error);
    // loadJson of the "categories" section of `config`.
    bool loadFromConfig(const ConfigCollector& config, std::string* error);
    // loadFromConfig of ConfigCollector::instance(); a failure is also logged to "TTStdFile".
    bool reloadFromConfig(std::string* error = nullptr);

    // Builders for code and tests: add or replace one category; remove every category.
    void setCategory(const CCategoryDef& def);
    void clear();

    bool hasCategory(int category) const;
    std::vector<int> getCategoryCodes() const;
    // The configured name of a category, "" when unknown.
    std::string getCategoryName(int category) const;

private:
    typedef std::map<int, CCategoryDef> Categories;
    static bool parseJson(const std::string& jsonText, const std::string& origin, Categories& out,
                          std::string* error);
    boost::shared_ptr<const Categories> snapshot() const;

    mutable boost::mutex m_mutex;  // guards the pointer m_categories, not what it points to
    boost::shared_ptr<const Categories> m_categories;  // never empty; replaced whole
};

template <>
CppCategory& CSingletonT<CppCategory>::instance();

}  // namespace ttservice
