// JSON form of records, on the same field tables as BSON. A record is a JSON object whose "class"
// member names its class and whose other members are its fields by name; nested records are
// objects of the same form ("class" may be left out where the member's declared class is meant).
// For tools that speak JSON (session files, inspection); include only where jsoncpp is linked.
//
// Thread safety: stateless; the record passed must not be written by another thread meanwhile.
#pragma once

#include "records/IData.h"

#include <json/json.h>

namespace ttservice {
namespace records {

// The record as a JSON object.
void toJsonValue(const IData& record, Json::Value& out);

// Sets the fields of `record` from the members of `in` ("class" is skipped). Returns false and
// names the member in *error for an unknown member or a value of the wrong JSON type.
bool fromJsonValue(const Json::Value& in, IData& record, std::string* error);

// A new record of the class named by in["class"] (or `defaultClass` when that is absent), filled
// from `in`. Empty pointer and *error set for an unknown class or a bad member.
IDataPtr parseJsonValue(const Json::Value& in, std::string* error, const char* defaultClass = nullptr);

}  // namespace records
}  // namespace ttservice
