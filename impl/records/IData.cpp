#include "records/IData.h"

#include "RecordCodec.h"
#include "records/RecordJson.h"
#include "records/TypeManager.h"

#include <cstdio>
#include <cstring>

namespace ttservice {

namespace records {

std::string formatDouble(double v) {
    char buf[40];
    snprintf(buf, sizeof buf, "%.15g", v);
    return buf;
}

namespace {

const char kTypeIdField[] = "_typeid";

// Fills `rec` from `doc`, one pass over the document. Documents written by this library hold the
// fields in table order, so the next field is tried first and the name search is the fallback.
int fillFromBson(IData& rec, const bson_t* doc, std::string* problems) {
    const RecordType& t = rec.recordType();
    const size_t n = t.fields.size();
    bson_iter_t it;
    if (!bson_iter_init(&it, doc)) return 1;
    size_t cursor = 0;
    int bad = 0;
    while (bson_iter_next(&it)) {
        const char* key = bson_iter_key(&it);
        if (key[0] == '_' && strcmp(key, kTypeIdField) == 0) continue;
        int idx = -1;
        if (cursor < n && strcmp(t.fields[cursor].name, key) == 0) idx = static_cast<int>(cursor);
        else idx = t.fieldIndex(key);
        if (idx < 0) continue;  // a field this build does not know: ignored
        cursor = static_cast<size_t>(idx) + 1;
        const FieldInfo& f = t.fields[idx];
        if (!f.codec->readBson(&it, f.addr(rec))) {
            ++bad;
            if (problems) {
                if (!problems->empty()) *problems += ", ";
                *problems += std::string(t.name) + "." + key;
            }
        }
    }
    return bad;
}

bool readTypeId(const bson_t* doc, int& typeId) {
    bson_iter_t it;
    if (!bson_iter_init(&it, doc)) return false;
    // "_typeid" comes first in documents written here; search the rest otherwise.
    if (!bson_iter_next(&it) || strcmp(bson_iter_key(&it), kTypeIdField) != 0) {
        if (!bson_iter_init_find(&it, doc, kTypeIdField)) return false;
    }
    int64_t v = 0;
    if (!iterInt64(&it, v) || v < INT32_MIN || v > INT32_MAX) return false;
    typeId = static_cast<int>(v);
    return true;
}

Json::StreamWriterBuilder compactWriter() {
    Json::StreamWriterBuilder w;
    w["indentation"] = "";
    w["emitUTF8"] = true;
    w["precision"] = 15;
    return w;
}

}  // namespace

IDataPtr parseDocument(const bson_t* doc, int* bad, std::string* problems, std::string* error) {
    int typeId = 0;
    if (!readTypeId(doc, typeId)) {
        if (error) *error = "document has no \"_typeid\"";
        return IDataPtr();
    }
    IDataPtr rec = TypeManager::instance().create(typeId);
    if (!rec) {
        if (error) *error = "unknown type id " + std::to_string(typeId);
        return IDataPtr();
    }
    *bad = fillFromBson(*rec, doc, problems);
    return rec;
}

IDataPtr parseNested(const bson_t* doc, int* bad) { return parseDocument(doc, bad, nullptr, nullptr); }

void appendRecord(bson_t* doc, const char* name, const IData& rec) {
    bson_t child;
    bson_append_document_begin(doc, name, -1, &child);
    bson_append_int32(&child, kTypeIdField, -1, rec.getTypeId());
    const RecordType& t = rec.recordType();
    IData& r = const_cast<IData&>(rec);
    for (const FieldInfo& f : t.fields) f.codec->appendBson(&child, f.name, f.addr(r));
    bson_append_document_end(doc, &child);
}

void recordToJson(const IData& rec, Json::Value& out) {
    out = Json::Value(Json::objectValue);
    out["class"] = rec.getClassName();
    IData& r = const_cast<IData&>(rec);
    for (const FieldInfo& f : rec.recordType().fields) f.codec->toJson(f.addr(r), out[f.name]);
}

void toJsonValue(const IData& record, Json::Value& out) { recordToJson(record, out); }

bool fromJsonValue(const Json::Value& in, IData& record, std::string* error) {
    if (!in.isObject()) {
        if (error) *error = std::string("a ") + record.getClassName() + " must be a JSON object";
        return false;
    }
    const RecordType& t = record.recordType();
    for (Json::Value::const_iterator it = in.begin(); it != in.end(); ++it) {
        const std::string name = it.name();
        if (name == "class") continue;
        int idx = t.fieldIndex(name);
        if (idx < 0) {
            if (error) *error = "unknown field '" + name + "' of " + t.name;
            return false;
        }
        const FieldInfo& f = t.fields[idx];
        std::string why;
        if (!f.codec->fromJson(*it, f.addr(record), &why)) {
            if (error) *error = "field '" + name + "' of " + t.name + ": " + why;
            return false;
        }
    }
    return true;
}

bool readRecordField(const Json::Value& v, IDataPtr& out, const RecordType& declared, std::string* err) {
    if (!v.isObject()) {
        if (err) *err = std::string("expects a ") + declared.name + " object";
        return false;
    }
    const RecordType* type = &declared;
    if (v.isMember("class")) {
        if (!v["class"].isString() || !(type = TypeManager::instance().findType(v["class"].asString()))) {
            if (err) *err = "unknown class " + v["class"].toStyledString();
            return false;
        }
    }
    out = type->create();
    return fromJsonValue(v, *out, err);
}

IDataPtr parseJsonValue(const Json::Value& in, std::string* error, const char* defaultClass) {
    if (!in.isObject()) {
        if (error) *error = "a record must be a JSON object";
        return IDataPtr();
    }
    std::string cls = defaultClass ? defaultClass : "";
    if (in.isMember("class")) {
        if (!in["class"].isString()) {
            if (error) *error = "\"class\" must be a string";
            return IDataPtr();
        }
        cls = in["class"].asString();
    }
    IDataPtr rec = TypeManager::instance().create(cls);
    if (!rec) {
        if (error) *error = cls.empty() ? "record has no \"class\"" : "unknown class '" + cls + "'";
        return IDataPtr();
    }
    if (!fromJsonValue(in, *rec, error)) return IDataPtr();
    return rec;
}

// ---- container codecs ------------------------------------------------------------------------

void StringListCodec::toText(const void* p, std::string& out) {
    out = "[";
    for (size_t i = 0; i < ref(p).size(); ++i) out += (i ? "," : "") + ref(p)[i];
    out += "]";
}
void StringListCodec::appendBson(bson_t* doc, const char* name, const void* p) {
    bson_t child;
    bson_append_array_begin(doc, name, -1, &child);
    char idx[16];
    for (size_t i = 0; i < ref(p).size(); ++i) {
        const char* key = nullptr;
        bson_uint32_to_string(static_cast<uint32_t>(i), &key, idx, sizeof idx);
        bson_append_utf8(&child, key, -1, ref(p)[i].data(), static_cast<int>(ref(p)[i].size()));
    }
    bson_append_array_end(doc, &child);
}
bool StringListCodec::readBson(const bson_iter_t* it, void* p) {
    bson_iter_t child;
    if (bson_iter_type(it) != BSON_TYPE_ARRAY || !bson_iter_recurse(it, &child)) return false;
    StringVector out;
    while (bson_iter_next(&child)) {
        if (bson_iter_type(&child) != BSON_TYPE_UTF8) return false;
        uint32_t n = 0;
        const char* s = bson_iter_utf8(&child, &n);
        out.emplace_back(s, n);
    }
    ref(p).swap(out);
    return true;
}
void StringListCodec::toJson(const void* p, Json::Value& out) {
    out = Json::Value(Json::arrayValue);
    for (const auto& s : ref(p)) out.append(s);
}
bool StringListCodec::fromJson(const Json::Value& v, void* p, std::string* err) {
    if (!v.isArray()) return setErr(err, "expects an array of strings"), false;
    StringVector out;
    for (Json::ArrayIndex i = 0; i < v.size(); ++i) {
        if (!v[i].isString()) return setErr(err, "expects an array of strings"), false;
        out.push_back(v[i].asString());
    }
    ref(p).swap(out);
    return true;
}

void DoubleMapCodec::toText(const void* p, std::string& out) {
    out = "{";
    bool first = true;
    for (const auto& kv : ref(p)) {
        out += (first ? "" : ",") + kv.first + ":" + formatDouble(kv.second);
        first = false;
    }
    out += "}";
}
void DoubleMapCodec::appendBson(bson_t* doc, const char* name, const void* p) {
    bson_t child;
    bson_append_document_begin(doc, name, -1, &child);
    for (const auto& kv : ref(p)) bson_append_double(&child, kv.first.c_str(), -1, kv.second);
    bson_append_document_end(doc, &child);
}
bool DoubleMapCodec::readBson(const bson_iter_t* it, void* p) {
    bson_iter_t child;
    if (bson_iter_type(it) != BSON_TYPE_DOCUMENT || !bson_iter_recurse(it, &child)) return false;
    StringDoubleMap out;
    while (bson_iter_next(&child)) {
        double d = 0;
        if (!DoubleCodec::readBson(&child, &d)) return false;
        out[bson_iter_key(&child)] = d;
    }
    ref(p).swap(out);
    return true;
}
void DoubleMapCodec::toJson(const void* p, Json::Value& out) {
    out = Json::Value(Json::objectValue);
    for (const auto& kv : ref(p)) out[kv.first] = kv.second;
}
bool DoubleMapCodec::fromJson(const Json::Value& v, void* p, std::string* err) {
    if (!v.isObject()) return setErr(err, "expects an object of numbers"), false;
    StringDoubleMap out;
    for (const auto& name : v.getMemberNames()) {
        if (!v[name].isNumeric() || v[name].isBool()) return setErr(err, "expects an object of numbers"), false;
        out[name] = v[name].asDouble();
    }
    ref(p).swap(out);
    return true;
}

void StringListMapCodec::toText(const void* p, std::string& out) {
    out = "{" + std::to_string(ref(p).size()) + " lists}";
}
void StringListMapCodec::appendBson(bson_t* doc, const char* name, const void* p) {
    bson_t child;
    bson_append_document_begin(doc, name, -1, &child);
    for (const auto& kv : ref(p)) StringListCodec::appendBson(&child, kv.first.c_str(), &kv.second);
    bson_append_document_end(doc, &child);
}
bool StringListMapCodec::readBson(const bson_iter_t* it, void* p) {
    bson_iter_t child;
    if (bson_iter_type(it) != BSON_TYPE_DOCUMENT || !bson_iter_recurse(it, &child)) return false;
    StringListMap out;
    while (bson_iter_next(&child)) {
        StringVector list;
        if (!StringListCodec::readBson(&child, &list)) return false;
        out[bson_iter_key(&child)].swap(list);
    }
    ref(p).swap(out);
    return true;
}
void StringListMapCodec::toJson(const void* p, Json::Value& out) {
    out = Json::Value(Json::objectValue);
    for (const auto& kv : ref(p)) StringListCodec::toJson(&kv.second, out[kv.first]);
}
bool StringListMapCodec::fromJson(const Json::Value& v, void* p, std::string* err) {
    if (!v.isObject()) return setErr(err, "expects an object of string arrays"), false;
    StringListMap out;
    for (const auto& name : v.getMemberNames())
        if (!StringListCodec::fromJson(v[name], &out[name], err)) return false;
    ref(p).swap(out);
    return true;
}

void Int64ListCodec::toText(const void* p, std::string& out) {
    out = "[";
    for (size_t i = 0; i < ref(p).size(); ++i) out += (i ? "," : "") + std::to_string(ref(p)[i]);
    out += "]";
}
void Int64ListCodec::appendBson(bson_t* doc, const char* name, const void* p) {
    bson_t child;
    bson_append_array_begin(doc, name, -1, &child);
    char idx[16];
    for (size_t i = 0; i < ref(p).size(); ++i) {
        const char* key = nullptr;
        bson_uint32_to_string(static_cast<uint32_t>(i), &key, idx, sizeof idx);
        bson_append_int64(&child, key, -1, ref(p)[i]);
    }
    bson_append_array_end(doc, &child);
}
bool Int64ListCodec::readBson(const bson_iter_t* it, void* p) {
    bson_iter_t child;
    if (bson_iter_type(it) != BSON_TYPE_ARRAY || !bson_iter_recurse(it, &child)) return false;
    Int64Vector out;
    while (bson_iter_next(&child)) {
        int64_t v = 0;
        if (!iterInt64(&child, v)) return false;
        out.push_back(v);
    }
    ref(p).swap(out);
    return true;
}
void Int64ListCodec::toJson(const void* p, Json::Value& out) {
    out = Json::Value(Json::arrayValue);
    for (int64_t v : ref(p)) out.append(Json::Int64(v));
}
bool Int64ListCodec::fromJson(const Json::Value& v, void* p, std::string* err) {
    if (!v.isArray()) return setErr(err, "expects an array of integers"), false;
    Int64Vector out;
    for (Json::ArrayIndex i = 0; i < v.size(); ++i) {
        if (!v[i].isInt64()) return setErr(err, "expects an array of integers"), false;
        out.push_back(v[i].asInt64());
    }
    ref(p).swap(out);
    return true;
}

}  // namespace records

// ---- RecordType and IData ----------------------------------------------------------------------

int RecordType::fieldIndex(const std::string& name) const {
    for (size_t i = 0; i < fields.size(); ++i)
        if (name == fields[i].name) return static_cast<int>(i);
    return -1;
}

IData::~IData() {}

std::string IData::getKey() const { return std::string(); }

std::string IData::toString() const {
    const RecordType& t = recordType();
    std::string out = t.name;
    out += "{";
    std::string v;
    IData& self = const_cast<IData&>(*this);
    for (size_t i = 0; i < t.fields.size(); ++i) {
        t.fields[i].codec->toText(t.fields[i].addr(self), v);
        if (i) out += ", ";
        out += t.fields[i].name;
        out += "=";
        out += v;
    }
    out += "}";
    return out;
}

bson::BSONObj IData::toBson() const {
    bson::BSONObjBuilder b;
    appendElements(b);
    return b.obj();
}

void IData::appendElements(bson::BSONObjBuilder& builder) const {
    bson_t* doc = builder.raw();
    bson_append_int32(doc, records::kTypeIdField, -1, getTypeId());
    IData& self = const_cast<IData&>(*this);
    for (const FieldInfo& f : recordType().fields) f.codec->appendBson(doc, f.name, f.addr(self));
}

int IData::bsonValueFromObj(const bson::BSONObj& obj, std::string* problems) {
    bson_t view;
    if (!obj.view(&view)) return 1;
    return records::fillFromBson(*this, &view, problems);
}

std::string IData::toJson() const {
    Json::Value v;
    records::recordToJson(*this, v);
    return Json::writeString(records::compactWriter(), v);
}

bool IData::fromJson(const std::string& jsonText, std::string* error) {
    Json::CharReaderBuilder rb;
    std::unique_ptr<Json::CharReader> reader(rb.newCharReader());
    Json::Value v;
    std::string errs;
    if (!reader->parse(jsonText.data(), jsonText.data() + jsonText.size(), &v, &errs)) {
        if (error) *error = "not JSON: " + errs;
        return false;
    }
    return records::fromJsonValue(v, *this, error);
}

int IData::getInt(int field) const {
    const FieldInfo* f = fieldInfo(field);
    if (!f) return 0;
    void* p = f->addr(const_cast<IData&>(*this));
    if (f->kind == EFieldKind::Int32) {
        int v;
        memcpy(&v, p, sizeof v);
        return v;
    }
    const int64_t v = f->codec->toInt(p);
    return v < INT32_MIN ? INT32_MIN : v > INT32_MAX ? INT32_MAX : static_cast<int>(v);
}

int64_t IData::getInt64(int field) const {
    const FieldInfo* f = fieldInfo(field);
    return f ? f->codec->toInt(f->addr(const_cast<IData&>(*this))) : 0;
}

double IData::getDouble(int field) const {
    const FieldInfo* f = fieldInfo(field);
    if (!f) return 0.0;
    void* p = f->addr(const_cast<IData&>(*this));
    if (f->kind == EFieldKind::Double) {
        double v;
        memcpy(&v, p, sizeof v);
        return v;
    }
    return f->codec->toDouble(p);
}

std::string IData::getString(int field) const {
    const FieldInfo* f = fieldInfo(field);
    if (!f || f->kind != EFieldKind::String) return std::string();
    return *static_cast<const std::string*>(f->addr(const_cast<IData&>(*this)));
}

void IData::getData(int field, int& out) const { out = getInt(field); }

void IData::getData(int field, std::string& out) const {
    const FieldInfo* f = fieldInfo(field);
    if (!f || f->kind != EFieldKind::String) {
        out.clear();
        return;
    }
    out = *static_cast<const std::string*>(f->addr(const_cast<IData&>(*this)));
}

void IData::getData(int field, bool& out) const {
    const FieldInfo* f = fieldInfo(field);
    out = f && f->kind == EFieldKind::Double ? getDouble(field) != 0.0 : getInt64(field) != 0;
}

IDataPtr IData::getRecord(int field) const {
    const FieldInfo* f = fieldInfo(field);
    return f ? f->codec->getRecord(f->addr(const_cast<IData&>(*this))) : IDataPtr();
}

bool IData::setData(int field, const IDataPtr& value) {
    const FieldInfo* f = fieldInfo(field);
    return f && f->codec->setRecord(f->addr(*this), value);
}

bool IData::setInt(int field, int64_t value) {
    const FieldInfo* f = fieldInfo(field);
    return f && f->codec->fromInt(f->addr(*this), value);
}

bool IData::setDouble(int field, double value) {
    const FieldInfo* f = fieldInfo(field);
    return f && f->codec->fromDouble(f->addr(*this), value);
}

bool IData::setString(int field, const std::string& value) {
    const FieldInfo* f = fieldInfo(field);
    return f && f->codec->fromString(f->addr(*this), value);
}

bool IData::setBool(int field, bool value) { return setInt(field, value ? 1 : 0); }

}  // namespace ttservice
