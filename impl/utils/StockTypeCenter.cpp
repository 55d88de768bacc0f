#include "utils/StockTypeCenter.h"

#include <boost/make_shared.hpp>
#include <json/json.h>

#include <memory>

namespace utils {

namespace {

typedef std::map<int, std::vector<StockTypeRule> > RuleMap;

bool fail(std::string* error, const std::string& message) {
    if (error) *error = message;
    return false;
}

std::string quoted(const std::string& s) {
    return "\"" + s + "\"";
}

// A type key is a positive decimal number that fits an int.
bool parseTypeKey(const std::string& key, int& type) {
    if (key.empty() || key.size() > 9) return false;
    int value = 0;
    for (char c : key) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
    }
    type = value;
    return true;
}

bool readStrings(const Json::Value& v, const std::string& where, std::vector<std::string>& out,
                 std::string* error) {
    if (!v.isArray()) return fail(error, where + " is not an array of strings");
    for (Json::ArrayIndex i = 0; i < v.size(); ++i) {
        if (!v[i].isString() || v[i].asString().empty())
            return fail(error, where + "[" + std::to_string(i) + "] is not a non-empty string");
        out.push_back(v[i].asString());
    }
    return true;
}

bool readRule(const Json::Value& v, const std::string& where, StockTypeRule& rule, std::string* error) {
    if (!v.isObject()) return fail(error, where + " is not an object");
    for (const std::string& name : v.getMemberNames()) {
        const Json::Value& member = v[name];
        const std::string at = where + "." + name;
        if (name == "market") {
            if (!member.isString()) return fail(error, at + " is not a string");
            rule.market = member.asString();
        } else if (name == "prefixes") {
            if (!readStrings(member, at, rule.prefixes, error)) return false;
        } else if (name == "codes") {
            std::vector<std::string> codes;
            if (!readStrings(member, at, codes, error)) return false;
            rule.codes.insert(codes.begin(), codes.end());
        } else if (name == "ranges") {
            if (!member.isArray()) return fail(error, at + " is not an array of [low, high] pairs");
            for (Json::ArrayIndex i = 0; i < member.size(); ++i) {
                const Json::Value& pair = member[i];
                const std::string pat = at + "[" + std::to_string(i) + "]";
                if (!pair.isArray() || pair.size() != 2 || !pair[0].isString() || !pair[1].isString())
                    return fail(error, pat + " is not a pair of strings [low, high]");
                const std::string lo = pair[0].asString(), hi = pair[1].asString();
                if (lo.empty() || lo.size() != hi.size())
                    return fail(error, pat + ": " + quoted(lo) + " and " + quoted(hi) +
                                           " must be non-empty codes of the same length");
                if (hi < lo) return fail(error, pat + ": low " + quoted(lo) + " is above high " + quoted(hi));
                rule.ranges.push_back(std::make_pair(lo, hi));
            }
        } else {
            return fail(error, at + " is not a rule member (market, prefixes, ranges, codes)");
        }
    }
    if (rule.prefixes.empty() && rule.ranges.empty() && rule.codes.empty())
        return fail(error, where + " has no prefixes, ranges or codes");
    return true;
}

bool parseRules(const std::string& jsonText, RuleMap& out, std::string* error) {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    builder["failIfExtra"] = true;
    builder["rejectDupKeys"] = true;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errs;
    if (!reader->parse(jsonText.data(), jsonText.data() + jsonText.size(), &root, &errs))
        return fail(error, "stock types are not valid JSON: " + errs);
    if (!root.isObject()) return fail(error, "stock types must be a JSON object keyed by type number");
    for (const std::string& key : root.getMemberNames()) {
        const std::string where = "stock type " + quoted(key);
        int type = 0;
        if (!parseTypeKey(key, type)) return fail(error, where + ": the key is not a type number");
        const Json::Value& list = root[key];
        if (!list.isArray()) return fail(error, where + " is not an array of rules");
        std::vector<StockTypeRule>& rules = out[type];
        for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
            StockTypeRule rule;
            if (!readRule(list[i], where + " rule " + std::to_string(i), rule, error)) return false;
            rules.push_back(rule);
        }
    }
    return true;
}

bool ruleMatches(const StockTypeRule& rule, const std::string& code, const std::string& market) {
    if (!rule.market.empty() && rule.market != market) return false;
    for (const std::string& p : rule.prefixes)
        if (code.size() >= p.size() && code.compare(0, p.size(), p) == 0) return true;
    for (const std::pair<std::string, std::string>& r : rule.ranges)
        if (code.size() == r.first.size() && r.first <= code && code <= r.second) return true;
    return rule.codes.find(code) != rule.codes.end();
}

}  // namespace

StockTypeCenter& StockTypeCenter::instance() {
    static StockTypeCenter center;
    return center;
}

StockTypeCenter::StockTypeCenter() : m_rules(boost::make_shared<const Rules>()) {}

boost::shared_ptr<const StockTypeCenter::Rules> StockTypeCenter::rules() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_rules;
}

void StockTypeCenter::install(const boost::shared_ptr<const Rules>& rules) {
    boost::shared_ptr<const Rules> old;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        old = m_rules;
        m_rules = rules;
    }
    // `old` is released here, outside the lock.
}

bool StockTypeCenter::isTypedStock(int type, const std::string& code, const std::string& market) const {
    const boost::shared_ptr<const Rules> snapshot = rules();
    const Rules::const_iterator it = snapshot->find(type);
    if (it == snapshot->end()) return false;
    for (const StockTypeRule& rule : it->second)
        if (ruleMatches(rule, code, market)) return true;
    return false;
}

bool StockTypeCenter::loadJson(const std::string& jsonText, std::string* error) {
    boost::shared_ptr<Rules> parsed = boost::make_shared<Rules>();
    if (!parseRules(jsonText, *parsed, error)) return false;
    install(parsed);
    return true;
}

bool StockTypeCenter::checkJson(const std::string& jsonText, std::string* error) {
    RuleMap parsed;
    return parseRules(jsonText, parsed, error);
}

void StockTypeCenter::addRule(int type, const StockTypeRule& rule) {
    boost::shared_ptr<const Rules> old;
    std::lock_guard<std::mutex> lock(m_mutex);
    // Copy and publish under the lock, so that two concurrent additions both survive.
    boost::shared_ptr<Rules> next = boost::make_shared<Rules>(*m_rules);
    (*next)[type].push_back(rule);
    old.swap(m_rules);
    m_rules = next;
}

void StockTypeCenter::clear() {
    install(boost::make_shared<const Rules>());
}

}  // namespace utils
