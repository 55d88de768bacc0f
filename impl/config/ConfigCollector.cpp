#include "config/ConfigCollector.h"

#include "category/CppCategory.h"
#include "utils/StockTypeCenter.h"

#include <boost/make_shared.hpp>
#include <json/json.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>

namespace ttservice {

namespace {

std::mutex g_instanceMutex;
boost::shared_ptr<ConfigCollector> g_instance;  // guarded by g_instanceMutex; never empty once read

bool fail(std::string* error, const std::string& message) {
    if (error) *error = message;
    return false;
}

std::string compactJson(const Json::Value& v) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, v);
}

// The text of a "values" entry: strings as they are, numbers and booleans as JSON writes them.
bool valueText(const Json::Value& v, std::string& out) {
    if (v.isString()) {
        out = v.asString();
    } else if (v.isBool()) {
        out = v.asBool() ? "true" : "false";
    } else if (v.isInt64()) {
        out = std::to_string(v.asInt64());
    } else if (v.isUInt64()) {
        out = std::to_string(v.asUInt64());
    } else if (v.isDouble()) {
        out = compactJson(v);
    } else {
        return false;
    }
    return true;
}

bool readFamilies(const Json::Value& section, const std::string& origin, ConfigCollector& config,
                  std::string* error) {
    if (!section.isObject())
        return fail(error, origin + ": option \"platformFamilies\" must be an object of integer arrays");
    for (const std::string& name : section.getMemberNames()) {
        const Json::Value& list = section[name];
        const std::string option = "\"platformFamilies." + name + "\"";
        if (!list.isArray())
            return fail(error, origin + ": option " + option + " must be an array of integers");
        std::set<int> ids;
        for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
            if (!list[i].isInt())
                return fail(error, origin + ": option " + option + " must be an array of integers; element " +
                                       std::to_string(i) + " is " + compactJson(list[i]));
            ids.insert(list[i].asInt());
        }
        config.setFamily(name, ids);
    }
    return true;
}

bool readFlags(const Json::Value& section, const std::string& origin, ConfigCollector& config,
               std::string* error) {
    if (!section.isObject()) return fail(error, origin + ": option \"flags\" must be an object of booleans");
    for (const std::string& name : section.getMemberNames()) {
        const Json::Value& v = section[name];
        if (!v.isBool())
            return fail(error, origin + ": option \"flags." + name + "\" must be true or false, not " +
                                   compactJson(v));
        config.setFlag(name, v.asBool());
    }
    return true;
}

bool readValues(const Json::Value& section, const std::string& origin, ConfigCollector& config,
                std::string* error) {
    if (!section.isObject())
        return fail(error, origin + ": option \"values\" must be an object of strings and numbers");
    for (const std::string& name : section.getMemberNames()) {
        std::string text;
        if (!valueText(section[name], text))
            return fail(error, origin + ": option \"values." + name +
                                   "\" must be a string or a number, not " + compactJson(section[name]));
        config.setString(name, text);
    }
    return true;
}

}  // namespace

ConfigCollector::ConfigCollector() {}

boost::shared_ptr<ConfigCollector> ConfigCollector::instance() {
    std::lock_guard<std::mutex> lock(g_instanceMutex);
    if (!g_instance) g_instance = boost::make_shared<ConfigCollector>();
    return g_instance;
}

void ConfigCollector::setInstance(const boost::shared_ptr<ConfigCollector>& config) {
    boost::shared_ptr<ConfigCollector> next = config ? config : boost::make_shared<ConfigCollector>();
    std::lock_guard<std::mutex> lock(g_instanceMutex);
    // The previous configuration is released by whoever holds it last, outside this lock.
    next.swap(g_instance);
}

boost::shared_ptr<ConfigCollector> ConfigCollector::loadFile(const std::string& path, std::string* error) {
    std::ifstream in(path.c_str(), std::ios::in | std::ios::binary);
    if (!in) {
        fail(error, "configuration file " + path + " cannot be opened: " + std::strerror(errno));
        return boost::shared_ptr<ConfigCollector>();
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad()) {
        fail(error, "configuration file " + path + " cannot be read");
        return boost::shared_ptr<ConfigCollector>();
    }
    boost::shared_ptr<ConfigCollector> config = loadText(text.str(), path, error);
    if (!config) return config;
    // loadText has validated the section, so this applies what was checked.
    const std::string stockTypes = config->getSection("stockTypes");
    if (!stockTypes.empty()) {
        std::string stockError;
        if (!utils::StockTypeCenter::instance().loadJson(stockTypes, &stockError)) {
            fail(error, path + ": option \"stockTypes\": " + stockError);
            return boost::shared_ptr<ConfigCollector>();
        }
    }
    return config;
}

boost::shared_ptr<ConfigCollector> ConfigCollector::loadText(const std::string& jsonText,
                                                             const std::string& origin, std::string* error) {
    const std::string where = origin.empty() ? std::string("configuration") : origin;
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    builder["failIfExtra"] = true;
    builder["rejectDupKeys"] = true;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value root;
    std::string errs;
    if (!reader->parse(jsonText.data(), jsonText.data() + jsonText.size(), &root, &errs)) {
        while (!errs.empty() && (errs.back() == '\n' || errs.back() == ' ')) errs.pop_back();
        fail(error, where + ": not valid JSON: " + errs);
        return boost::shared_ptr<ConfigCollector>();
    }
    if (!root.isObject()) {
        fail(error, where + ": the configuration must be a JSON object");
        return boost::shared_ptr<ConfigCollector>();
    }

    boost::shared_ptr<ConfigCollector> config = boost::make_shared<ConfigCollector>();
    config->m_strOrigin = origin;
    // Every top-level section is kept as text, including those this class does not know: other
    // services ("categories", ...) read their own.
    for (const std::string& name : root.getMemberNames()) config->setSection(name, compactJson(root[name]));

    if (root.isMember("platformFamilies") && !readFamilies(root["platformFamilies"], where, *config, error))
        return boost::shared_ptr<ConfigCollector>();
    if (root.isMember("flags") && !readFlags(root["flags"], where, *config, error))
        return boost::shared_ptr<ConfigCollector>();
    if (root.isMember("values") && !readValues(root["values"], where, *config, error))
        return boost::shared_ptr<ConfigCollector>();
    if (root.isMember("stockTypes")) {
        std::string stockError;
        if (!utils::StockTypeCenter::checkJson(config->getSection("stockTypes"), &stockError)) {
            fail(error, where + ": option \"stockTypes\": " + stockError);
            return boost::shared_ptr<ConfigCollector>();
        }
    }
    // The category service reads its section when it loads, but a bad rule is a bad option of
    // this file: found now, with the file named, rather than when the first category is asked.
    // Its messages already name the file and the option ("<file>: categories.<code>...").
    if (root.isMember("categories") &&
        !CppCategory::checkJson(config->getSection("categories"), where, error))
        return boost::shared_ptr<ConfigCollector>();
    return config;
}

bool ConfigCollector::isSomePt(const std::string& familyName, int platformId) const {
    const auto it = m_families.find(familyName);
    return it != m_families.end() && it->second.count(platformId) != 0;
}

bool ConfigCollector::getFlag(const std::string& name, bool def) const {
    const auto it = m_flags.find(name);
    return it == m_flags.end() ? def : it->second;
}

std::string ConfigCollector::getString(const std::string& name, const std::string& def) const {
    const auto it = m_values.find(name);
    return it == m_values.end() ? def : it->second;
}

int ConfigCollector::getInt(const std::string& name, int def) const {
    const auto it = m_values.find(name);
    if (it == m_values.end() || it->second.empty()) return def;
    const char* begin = it->second.c_str();
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(begin, &end, 10);
    if (errno != 0 || *end != '\0' || v < INT_MIN || v > INT_MAX) return def;
    return static_cast<int>(v);
}

std::string ConfigCollector::getSection(const std::string& name) const {
    const auto it = m_sections.find(name);
    return it == m_sections.end() ? std::string() : it->second;
}

void ConfigCollector::setFamily(const std::string& familyName, const std::set<int>& ids) {
    m_families[familyName] = ids;
}

void ConfigCollector::setFlag(const std::string& name, bool value) {
    m_flags[name] = value;
}

void ConfigCollector::setString(const std::string& name, const std::string& value) {
    m_values[name] = value;
}

void ConfigCollector::setSection(const std::string& name, const std::string& jsonText) {
    m_sections[name] = jsonText;
}

}  // namespace ttservice
