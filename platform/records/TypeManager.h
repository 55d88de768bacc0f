// ttservice::TypeManager: the registry of record classes. It turns serialised documents back into
// records of the right concrete class and prints enumeration values for log lines.
//
// Every record class of the record library is registered when the manager is first used; the
// registry is immutable afterwards, so every member may be called from any thread. registerType()
// exists for integrators that add record classes, and must be called before other threads use the
// manager.
#pragma once

#include "records/IData.h"

#include <map>
#include <string>
#include <vector>

namespace bson {
class BSONObj;
}

namespace ttservice {

class TypeManager {
public:
    static TypeManager& instance();

    // A new record of the class named by the document's "_typeid", filled from the document.
    // Empty pointer for an empty document, a missing or unknown type id. Fields of the wrong BSON
    // type stay at their defaults; `error` (when given) then names them, and is set to the reason
    // when the result is empty. Without `error`, a non-empty document that is refused or only
    // partly read is reported on "TTStdFile" (warn level) instead; an empty document is simply
    // absent and reported nowhere.
    IDataPtr parse(const bson::BSONObj& obj) const;
    IDataPtr parse(const bson::BSONObj& obj, std::string* error) const;

    // A new default record by type id or class name; empty pointer when unknown.
    IDataPtr create(int typeId) const;
    IDataPtr create(const std::string& className) const;
    const RecordType* findType(int typeId) const;
    const RecordType* findType(const std::string& className) const;
    // Every registered class, by type id.
    std::vector<const RecordType*> types() const;

    // The printable name of an enumeration value, e.g. ("EEntrustStatus", 54) gives
    // "ENTRUST_STATUS_CANCELED". An unknown enumeration or value gives the decimal value.
    std::string getEnumItemName(const std::string& enumName, int value) const;
    // The value of an enumerator by name; false when unknown.
    bool getEnumItemValue(const std::string& enumName, const std::string& itemName, int& value) const;

    void registerType(const RecordType& type);

private:
    TypeManager();
    std::map<int, const RecordType*> m_byId;
    std::map<std::string, const RecordType*> m_byName;
    std::map<std::string, std::map<int, std::string> > m_enumNames;
    std::map<std::string, std::map<std::string, int> > m_enumValues;
};

}  // namespace ttservice
