// ttservice::ConfigCollector: the configuration service. It holds, read from one JSON file:
//   "platformFamilies": {"ctp": [20001, ...], "hundsun": [...], "support_local_order_id": [...]}
//                       named sets of platform ids, asked by isSomePt(familyName, platformId);
//   "flags":            {"name": true, ...} feature flags (default: false);
//   "values":           {"name": "text" or number} other settings (default: as the caller says);
//   "stockTypes":       the rules of utils::StockTypeCenter (loaded into it by loadFile; a file
//                       without this section leaves the rules as they are);
//   "categories":       the category rules of CppCategory (validated here, loaded by that service).
// The whole file is validated once when loaded; a missing file or bad JSON gives a message naming
// the file (and the bad option) and leaves the previous configuration in force. Other top-level
// sections are kept unchecked for the services that read them (getSection).
//
// Thread safety: a ConfigCollector is immutable once built. instance() hands out a shared pointer
// that the caller holds for the duration of its call; setInstance() swaps the process-wide one
// atomically (tests and tools use it to install their own).
#pragma once

#include <boost/shared_ptr.hpp>

#include <map>
#include <set>
#include <string>

namespace ttservice {

class ConfigCollector {
public:
    ConfigCollector();

    // The process-wide configuration (an empty one until a program loads or sets another).
    static boost::shared_ptr<ConfigCollector> instance();
    static void setInstance(const boost::shared_ptr<ConfigCollector>& config);

    // Reads and validates a configuration file. Returns an empty pointer and sets *error (which
    // names the file and the bad option) on failure.
    static boost::shared_ptr<ConfigCollector> loadFile(const std::string& path, std::string* error);
    static boost::shared_ptr<ConfigCollector> loadText(const std::string& jsonText, const std::string& origin,
                                                       std::string* error);

    // True when `platformId` is in the named family. An unknown family is empty.
    bool isSomePt(const std::string& familyName, int platformId) const;
    bool getFlag(const std::string& name, bool def = false) const;
    std::string getString(const std::string& name, const std::string& def = std::string()) const;
    int getInt(const std::string& name, int def = 0) const;

    // The raw JSON text of a top-level section ("" when absent), for services that read their own.
    std::string getSection(const std::string& name) const;
    // The file this configuration came from ("" when built in code).
    const std::string& origin() const { return m_strOrigin; }

    // Builders, for code and tests that make a configuration without a file.
    void setFamily(const std::string& familyName, const std::set<int>& ids);
    void setFlag(const std::string& name, bool value);
    void setString(const std::string& name, const std::string& value);
    void setSection(const std::string& name, const std::string& jsonText);

private:
    std::map<std::string, std::set<int>, std::less<> > m_families;
    std::map<std::string, bool, std::less<> > m_flags;
    std::map<std::string, std::string, std::less<> > m_values;
    std::map<std::string, std::string, std::less<> > m_sections;
    std::string m_strOrigin;
};

}  // namespace ttservice
