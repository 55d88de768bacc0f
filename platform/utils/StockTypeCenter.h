// utils::StockTypeCenter: which instrument codes belong to a numbered stock type (for example
// 100021, the pledge repurchase codes). The rules are data, loaded from the configuration file's
// "stockTypes" section or added by code: per type, per market, code prefixes, inclusive code ranges
// and explicit codes.
//
// Thread safety: reads may run on any thread concurrently with each other; loading replaces the
// whole rule set atomically (readers see the old or the new set, never a mix).
#pragma once

#include <boost/shared_ptr.hpp>

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace utils {

struct StockTypeRule {
    std::string market;                                        // exchange code, "" for every market
    std::vector<std::string> prefixes;                         // code begins with one of these
    std::vector<std::pair<std::string, std::string> > ranges;  // lo <= code <= hi, same length
    std::set<std::string> codes;                               // exact codes
};

class StockTypeCenter {
public:
    static StockTypeCenter& instance();

    // True when `code` of `market` matches a rule of `type`. Unknown types are false.
    bool isTypedStock(int type, const std::string& code, const std::string& market) const;

    // Replaces every rule with those of a JSON text (the "stockTypes" object of the configuration:
    // {"100021": [{"market": "SH", "prefixes": ["204"], "ranges": [["131800","131899"]],
    // "codes": ["888880"]}]}). Returns false and sets *error (naming the bad entry) when the text
    // is malformed; the rules are then unchanged.
    bool loadJson(const std::string& jsonText, std::string* error);
    // Validates a JSON text as loadJson does, without installing it (the configuration service
    // checks a whole file before it applies any part of it).
    static bool checkJson(const std::string& jsonText, std::string* error);
    // Adds one rule to a type, keeping the others.
    void addRule(int type, const StockTypeRule& rule);
    // Removes every rule.
    void clear();

private:
    typedef std::map<int, std::vector<StockTypeRule> > Rules;
    StockTypeCenter();
    boost::shared_ptr<const Rules> rules() const;
    void install(const boost::shared_ptr<const Rules>& rules);

    // m_mutex guards the pointer m_rules only; a rule set is never modified once published, so
    // readers use their copy of the pointer without the lock.
    mutable std::mutex m_mutex;
    boost::shared_ptr<const Rules> m_rules;
};

}  // namespace utils
