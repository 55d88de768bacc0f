#include "category/CppCategory.h"

#include <json/json.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "config/ConfigCollector.h"
#include "utils/LogCenter.h"

namespace ttservice {

namespace {

bool startsWith(const std::string& s, const std::string& prefix) {
    return s.size() >= prefix.size() && s.compare(0, prefix.size(), prefix) == 0;
}

bool containsAny(const std::string& s, const std::vector<std::string>& parts) {
    for (const std::string& p : parts)
        if (s.find(p) != std::string::npos) return true;
    return false;
}

std::string toLowerAscii(std::string s) {
    for (char& c : s)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return s;
}

bool isAsciiAlpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The leading letters of a code, lower-cased: the product of a futures code ("rb" of "rb2410").
std::string leadingLettersLower(const std::string& code) {
    size_t n = 0;
    while (n < code.size() && isAsciiAlpha(code[n])) ++n;
    return toLowerAscii(code.substr(0, n));
}

// Collects the problems of one load, each prefixed by where it was found.
class Problems {
public:
    explicit Problems(const std::string& origin)
        : m_origin(origin.empty() ? std::string("categories") : origin) {}
    void add(const std::string& where, const std::string& what) {
        if (!m_text.empty()) m_text += "; ";
        m_text += m_origin + ": categories" + where + ": " + what;
    }
    bool empty() const { return m_text.empty(); }
    const std::string& text() const { return m_text; }

private:
    std::string m_origin;
    std::string m_text;
};

// A positive decimal integer that fits an int, with no sign, space or other character.
bool parseCategoryCode(const std::string& s, int& out) {
    if (s.empty() || s.size() > 10) return false;
    long long v = 0;
    for (char c : s) {
        if (c < '0' || c > '9') return false;
        v = v * 10 + (c - '0');
    }
    if (v <= 0 || v > INT_MAX) return false;
    out = static_cast<int>(v);
    return true;
}

// Reads an array of non-empty strings; false (with problems recorded) when it is anything else.
bool readStringArray(const Json::Value& v, const std::string& where, Problems& problems,
                     std::vector<std::string>& out) {
    if (!v.isArray() || v.empty()) {
        problems.add(where, "must be a non-empty array of strings");
        return false;
    }
    bool ok = true;
    for (Json::ArrayIndex i = 0; i < v.size(); ++i) {
        const Json::Value& e = v[i];
        if (!e.isString() || e.asString().empty()) {
            problems.add(where + "[" + std::to_string(i) + "]", "must be a non-empty string");
            ok = false;
            continue;
        }
        out.push_back(e.asString());
    }
    return ok;
}

void readRule(const Json::Value& v, const std::string& where, Problems& problems, CCategoryRule& rule) {
    if (!v.isObject()) {
        problems.add(where, "a rule must be an object");
        return;
    }
    static const char* const kMembers[] = {"market", "markets",  "prefixes",     "ranges",
                                           "codes",  "products", "nameContains", "nameExcludes"};
    for (const std::string& name : v.getMemberNames()) {
        bool known = false;
        for (const char* m : kMembers) known = known || name == m;
        if (!known) problems.add(where + "." + name, "unknown rule member");
    }
    if (v.isMember("market")) {
        const Json::Value& m = v["market"];
        if (!m.isString() || m.asString().empty())
            problems.add(where + ".market", "must be a non-empty string");
        else
            rule.m_setMarkets.insert(m.asString());
    }
    if (v.isMember("markets")) {
        std::vector<std::string> markets;
        readStringArray(v["markets"], where + ".markets", problems, markets);
        rule.m_setMarkets.insert(markets.begin(), markets.end());
    }
    if (!v.isMember("market") && !v.isMember("markets"))
        problems.add(where, "needs \"market\" or \"markets\"");
    if (v.isMember("prefixes"))
        readStringArray(v["prefixes"], where + ".prefixes", problems, rule.m_vPrefixes);
    if (v.isMember("codes")) {
        std::vector<std::string> codes;
        readStringArray(v["codes"], where + ".codes", problems, codes);
        rule.m_setCodes.insert(codes.begin(), codes.end());
    }
    if (v.isMember("products")) {
        std::vector<std::string> products;
        if (readStringArray(v["products"], where + ".products", problems, products)) {
            for (size_t i = 0; i < products.size(); ++i) {
                const std::string& p = products[i];
                if (!std::all_of(p.begin(), p.end(), isAsciiAlpha))
                    problems.add(where + ".products[" + std::to_string(i) + "]", "a product is letters only");
                else
                    rule.m_vProducts.push_back(toLowerAscii(p));
            }
        }
    }
    if (v.isMember("ranges")) {
        const Json::Value& r = v["ranges"];
        if (!r.isArray() || r.empty()) {
            problems.add(where + ".ranges", "must be a non-empty array of [low, high] pairs");
        } else {
            for (Json::ArrayIndex i = 0; i < r.size(); ++i) {
                const std::string at = where + ".ranges[" + std::to_string(i) + "]";
                const Json::Value& p = r[i];
                if (!p.isArray() || p.size() != 2 || !p[0].isString() || !p[1].isString()) {
                    problems.add(at, "must be a pair of strings [low, high]");
                    continue;
                }
                const std::string lo = p[0].asString(), hi = p[1].asString();
                if (lo.empty() || lo.size() != hi.size())
                    problems.add(at, "low and high must be non-empty and of equal length");
                else if (hi < lo)
                    problems.add(at, "low must not be greater than high");
                else
                    rule.m_vRanges.emplace_back(lo, hi);
            }
        }
    }
    if (v.isMember("nameContains"))
        readStringArray(v["nameContains"], where + ".nameContains", problems, rule.m_vNameContains);
    if (v.isMember("nameExcludes"))
        readStringArray(v["nameExcludes"], where + ".nameExcludes", problems, rule.m_vNameExcludes);
}

}  // namespace

bool CCategoryRule::matches(const std::string& market, const std::string& code,
                            const std::string& name) const {
    if (m_setMarkets.find(market) == m_setMarkets.end()) return false;
    const bool anyCodeTest =
        !m_vPrefixes.empty() || !m_vRanges.empty() || !m_setCodes.empty() || !m_vProducts.empty();
    if (anyCodeTest) {
        bool codeOk = false;
        for (const std::string& p : m_vPrefixes)
            if (startsWith(code, p)) {
                codeOk = true;
                break;
            }
        if (!codeOk)
            for (const auto& r : m_vRanges)
                if (code.size() == r.first.size() && r.first <= code && code <= r.second) {
                    codeOk = true;
                    break;
                }
        if (!codeOk) codeOk = m_setCodes.find(code) != m_setCodes.end();
        if (!codeOk && !m_vProducts.empty()) {
            const std::string product = leadingLettersLower(code);
            codeOk = !product.empty() &&
                     std::find(m_vProducts.begin(), m_vProducts.end(), product) != m_vProducts.end();
        }
        if (!codeOk) return false;
    }
    if (!m_vNameContains.empty() && !containsAny(name, m_vNameContains)) return false;
    if (!m_vNameExcludes.empty() && containsAny(name, m_vNameExcludes)) return false;
    return true;
}

CppCategory::CppCategory() : m_categories(boost::make_shared<const Categories>()) {}

boost::shared_ptr<const CppCategory::Categories> CppCategory::snapshot() const {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_categories;
}

bool CppCategory::isStockInCategoryForTS(const std::string& market, const std::string& code,
                                         const std::string& name, int category) const {
    if (category <= 0 || code.empty()) return false;
    const boost::shared_ptr<const Categories> cats = snapshot();
    const Categories::const_iterator it = cats->find(category);
    if (it == cats->end()) return false;
    for (const CCategoryRule& rule : it->second.m_vRules)
        if (rule.matches(market, code, name)) return true;
    return false;
}

bool CppCategory::isStockInCustomCategory(const std::string& market, const std::string& code,
                                          const std::vector<std::string>& list) const {
    if (code.empty()) return false;
    for (const std::string& e : list) {
        if (e == code) return true;
        // "SH600000" and "600000.SH"
        if (e.size() == market.size() + code.size() && startsWith(e, market) &&
            e.compare(market.size(), code.size(), code) == 0)
            return true;
        if (!market.empty() && e.size() == code.size() + 1 + market.size() && startsWith(e, code) &&
            e[code.size()] == '.' && e.compare(code.size() + 1, market.size(), market) == 0)
            return true;
    }
    return false;
}

bool CppCategory::isStockInGroupCategory(const std::string& market, const std::string& code,
                                         const std::string& name, const CGroupCategorySubInfoList& groups,
                                         const StringListMap& categoryMap) const {
    bool included = false;
    for (const CGroupCategorySubInfoPtr& member : groups) {
        if (!member) continue;
        // An including member that cannot change the answer any more is not evaluated.
        if (!member->m_bExclude && included) continue;
        const StringListMap::const_iterator own = categoryMap.find(member->m_strCategory);
        const bool in =
            own != categoryMap.end()
                ? isStockInCustomCategory(market, code, own->second)
                : isStockInCategoryForTS(market, code, name, std::atoi(member->m_strCategory.c_str()));
        if (!in) continue;
        if (member->m_bExclude) return false;
        included = true;
    }
    return included;
}

bool CppCategory::parseJson(const std::string& jsonText, const std::string& origin, Categories& out,
                            std::string* error) {
    Problems problems(origin);
    const bool blank = std::all_of(jsonText.begin(), jsonText.end(),
                                   [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; });
    if (!blank) {
        Json::Value root;
        Json::CharReaderBuilder builder;
        builder["collectComments"] = false;
        builder["rejectDupKeys"] = true;
        std::string parseErrors;
        std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        if (!reader->parse(jsonText.data(), jsonText.data() + jsonText.size(), &root, &parseErrors)) {
            while (!parseErrors.empty() && (parseErrors.back() == '\n' || parseErrors.back() == ' '))
                parseErrors.pop_back();
            problems.add("", "not valid JSON: " + parseErrors);
        } else if (!root.isObject()) {
            problems.add("", "must be an object of category code to category");
        } else {
            for (const std::string& key : root.getMemberNames()) {
                const std::string where = ".\"" + key + "\"";
                CCategoryDef def;
                if (!parseCategoryCode(key, def.m_nCode)) {
                    problems.add(where, "the category code must be a positive decimal integer");
                    continue;
                }
                const Json::Value& v = root[key];
                if (!v.isObject()) {
                    problems.add(where, "a category must be an object with \"rules\"");
                    continue;
                }
                for (const std::string& name : v.getMemberNames())
                    if (name != "name" && name != "rules")
                        problems.add(where + "." + name, "unknown category member");
                if (v.isMember("name")) {
                    if (!v["name"].isString())
                        problems.add(where + ".name", "must be a string");
                    else
                        def.m_strName = v["name"].asString();
                }
                const Json::Value& rules = v["rules"];
                if (!rules.isArray() || rules.empty()) {
                    problems.add(where + ".rules", "must be a non-empty array of rules");
                    continue;
                }
                for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
                    CCategoryRule rule;
                    readRule(rules[i], where + ".rules[" + std::to_string(i) + "]", problems, rule);
                    def.m_vRules.push_back(rule);
                }
                out[def.m_nCode] = def;
            }
        }
    }
    if (problems.empty()) return true;
    if (error) *error = problems.text();
    return false;
}

bool CppCategory::checkJson(const std::string& jsonText, const std::string& origin, std::string* error) {
    Categories discarded;
    return parseJson(jsonText, origin, discarded, error);
}

bool CppCategory::loadJson(const std::string& jsonText, const std::string& origin, std::string* error) {
    boost::shared_ptr<Categories> next = boost::make_shared<Categories>();
    if (!parseJson(jsonText, origin, *next, error)) return false;
    boost::shared_ptr<const Categories> frozen = next;
    {
        boost::mutex::scoped_lock lock(m_mutex);
        m_categories.swap(frozen);
    }
    return true;  // the old rules are released here, outside the lock
}

bool CppCategory::loadFromConfig(const ConfigCollector& config, std::string* error) {
    return loadJson(config.getSection("categories"), config.origin(), error);
}

bool CppCategory::reloadFromConfig(std::string* error) {
    const boost::shared_ptr<ConfigCollector> config = ConfigCollector::instance();
    if (!config) {
        clear();
        return true;
    }
    std::string problems;
    if (loadFromConfig(*config, &problems)) return true;
    TT_LOG_STD_ERROR("%1%", problems);
    if (error) *error = problems;
    return false;
}

void CppCategory::setCategory(const CCategoryDef& def) {
    boost::mutex::scoped_lock lock(m_mutex);
    boost::shared_ptr<Categories> next = boost::make_shared<Categories>(*m_categories);
    (*next)[def.m_nCode] = def;
    m_categories = next;
}

void CppCategory::clear() {
    boost::shared_ptr<const Categories> empty = boost::make_shared<const Categories>();
    boost::mutex::scoped_lock lock(m_mutex);
    m_categories.swap(empty);
}

bool CppCategory::hasCategory(int category) const {
    const boost::shared_ptr<const Categories> cats = snapshot();
    return cats->find(category) != cats->end();
}

std::vector<int> CppCategory::getCategoryCodes() const {
    const boost::shared_ptr<const Categories> cats = snapshot();
    std::vector<int> codes;
    codes.reserve(cats->size());
    for (const auto& c : *cats) codes.push_back(c.first);
    return codes;
}

std::string CppCategory::getCategoryName(int category) const {
    const boost::shared_ptr<const Categories> cats = snapshot();
    const Categories::const_iterator it = cats->find(category);
    return it == cats->end() ? std::string() : it->second.m_strName;
}

template <>
CppCategory& CSingletonT<CppCategory>::instance() {
    static CppCategory category;
    // The first use loads the configuration in force; a failure is logged and leaves no category.
    static const bool loaded = category.reloadFromConfig();
    (void)loaded;
    return category;
}

}  // namespace ttservice
