// Internal to the record library: how each member type is read, written, serialised and parsed,
// and the macro that builds a class's field table from its field list.
#pragma once

#include "bson/BSONObj.h"
#include "records/IData.h"

#include <json/json.h>

#include <cinttypes>
#include <cstring>
#include <limits>
#include <sstream>
#include <type_traits>

namespace ttservice {

struct FieldCodec {
    int64_t (*toInt)(const void* p);
    double (*toDouble)(const void* p);
    void (*toText)(const void* p, std::string& out);  // for getString (strings) and toString (all)
    bool (*fromInt)(void* p, int64_t v);
    bool (*fromDouble)(void* p, double v);
    bool (*fromString)(void* p, const std::string& v);
    void (*appendBson)(bson_t* doc, const char* name, const void* p);
    bool (*readBson)(const bson_iter_t* it, void* p);
    void (*toJson)(const void* p, Json::Value& out);
    bool (*fromJson)(const Json::Value& v, void* p, std::string* err);
    IDataPtr (*getRecord)(const void* p);
    bool (*setRecord)(void* p, const IDataPtr& v);
};

namespace records {

// Parses a nested record document (already validated as part of its parent). Returns an empty
// pointer for an unknown type id; bad fields are counted in *bad.
IDataPtr parseNested(const bson_t* doc, int* bad);
// Parses a top-level document; *error says why when the result is empty, *problems names bad fields.
IDataPtr parseDocument(const bson_t* doc, int* bad, std::string* problems, std::string* error);
void appendRecord(bson_t* doc, const char* name, const IData& rec);
std::string formatDouble(double v);
bool readRecordField(const Json::Value& v, IDataPtr& out, const RecordType& declared, std::string* err);

// ---- traits ---------------------------------------------------------------------------------
template <class T, class Enable = void>
struct Kind;
template <> struct Kind<int> { static constexpr EFieldKind value = EFieldKind::Int32; };
template <> struct Kind<int64_t> { static constexpr EFieldKind value = EFieldKind::Int64; };
template <> struct Kind<double> { static constexpr EFieldKind value = EFieldKind::Double; };
template <> struct Kind<bool> { static constexpr EFieldKind value = EFieldKind::Bool; };
template <> struct Kind<std::string> { static constexpr EFieldKind value = EFieldKind::String; };
template <class T>
struct Kind<T, typename std::enable_if<std::is_enum<T>::value>::type> {
    static constexpr EFieldKind value = EFieldKind::Enum;
};
template <class T> struct Kind<boost::shared_ptr<T> > { static constexpr EFieldKind value = EFieldKind::Record; };
template <class T> struct Kind<std::vector<boost::shared_ptr<T> > > { static constexpr EFieldKind value = EFieldKind::RecordList; };
template <class T> struct Kind<std::map<std::string, boost::shared_ptr<T> > > { static constexpr EFieldKind value = EFieldKind::RecordMap; };
template <> struct Kind<StringVector> { static constexpr EFieldKind value = EFieldKind::StringList; };
template <> struct Kind<StringDoubleMap> { static constexpr EFieldKind value = EFieldKind::DoubleMap; };
template <> struct Kind<StringListMap> { static constexpr EFieldKind value = EFieldKind::StringListMap; };
template <> struct Kind<Int64Vector> { static constexpr EFieldKind value = EFieldKind::Int64List; };

inline bool iterInt64(const bson_iter_t* it, int64_t& v) {
    switch (bson_iter_type(it)) {
    case BSON_TYPE_INT32: v = bson_iter_int32(it); return true;
    case BSON_TYPE_INT64: v = bson_iter_int64(it); return true;
    default: return false;
    }
}

inline void setErr(std::string* err, const std::string& what) {
    if (err) *err = what;
}

// ---- codecs per member type -----------------------------------------------------------------
// Defaults: not numeric, not text, not a record.
struct CodecBase {
    static int64_t toInt(const void*) { return 0; }
    static double toDouble(const void*) { return 0.0; }
    static bool fromInt(void*, int64_t) { return false; }
    static bool fromDouble(void*, double) { return false; }
    static bool fromString(void*, const std::string&) { return false; }
    static IDataPtr getRecord(const void*) { return IDataPtr(); }
    static bool setRecord(void*, const IDataPtr&) { return false; }
};

// A double as an integer of type I: truncated toward zero, saturated at I's bounds, NaN as 0. A
// plain cast is undefined for values out of range, and a double field may well hold one (the
// "no price" value is the largest finite double).
template <class I>
I saturatingCast(double v) {
    if (v != v) return 0;
    if (v <= static_cast<double>(std::numeric_limits<I>::min())) return std::numeric_limits<I>::min();
    if (v >= static_cast<double>(std::numeric_limits<I>::max())) return std::numeric_limits<I>::max();
    return static_cast<I>(v);
}

// Numbers (int, enum, int64, double, bool) convert among themselves on generic access.
template <class T>
struct NumberCodec : CodecBase {
    typedef typename std::conditional<std::is_enum<T>::value, int, T>::type Repr;
    static T& ref(void* p) { return *static_cast<T*>(p); }
    static const T& ref(const void* p) { return *static_cast<const T*>(p); }
    static int64_t toInt(const void* p) { return static_cast<int64_t>(ref(p)); }
    static double toDouble(const void* p) { return static_cast<double>(ref(p)); }
    static bool fromInt(void* p, int64_t v) {
        ref(p) = static_cast<T>(v);
        return true;
    }
    static bool fromDouble(void* p, double v) {  // integer members; DoubleCodec has its own
        static_assert(std::is_integral<Repr>::value, "integer members only");
        ref(p) = static_cast<T>(saturatingCast<Repr>(v));
        return true;
    }
};

template <class T>
struct IntCodec : NumberCodec<T> {  // int32 and enumerations
    static void toText(const void* p, std::string& out) { out = std::to_string(static_cast<int>(NumberCodec<T>::ref(p))); }
    static void appendBson(bson_t* doc, const char* name, const void* p) {
        bson_append_int32(doc, name, -1, static_cast<int32_t>(NumberCodec<T>::ref(p)));
    }
    static bool readBson(const bson_iter_t* it, void* p) {
        int64_t v = 0;
        if (!iterInt64(it, v) || v < INT32_MIN || v > INT32_MAX) return false;
        NumberCodec<T>::ref(p) = static_cast<T>(v);
        return true;
    }
    static void toJson(const void* p, Json::Value& out) { out = static_cast<int>(NumberCodec<T>::ref(p)); }
    static bool fromJson(const Json::Value& v, void* p, std::string* err) {
        if (!v.isInt()) return setErr(err, "expects a 32-bit integer"), false;
        NumberCodec<T>::ref(p) = static_cast<T>(v.asInt());
        return true;
    }
};

struct Int64Codec : NumberCodec<int64_t> {
    static void toText(const void* p, std::string& out) { out = std::to_string(ref(p)); }
    static void appendBson(bson_t* doc, const char* name, const void* p) { bson_append_int64(doc, name, -1, ref(p)); }
    static bool readBson(const bson_iter_t* it, void* p) { return iterInt64(it, ref(p)); }
    static void toJson(const void* p, Json::Value& out) { out = Json::Int64(ref(p)); }
    static bool fromJson(const Json::Value& v, void* p, std::string* err) {
        if (!v.isInt64()) return setErr(err, "expects an integer"), false;
        ref(p) = v.asInt64();
        return true;
    }
};

struct DoubleCodec : NumberCodec<double> {
    static int64_t toInt(const void* p) { return saturatingCast<int64_t>(ref(p)); }
    static bool fromDouble(void* p, double v) {
        ref(p) = v;
        return true;
    }
    static void toText(const void* p, std::string& out) { out = formatDouble(ref(p)); }
    static void appendBson(bson_t* doc, const char* name, const void* p) { bson_append_double(doc, name, -1, ref(p)); }
    static bool readBson(const bson_iter_t* it, void* p) {
        if (bson_iter_type(it) == BSON_TYPE_DOUBLE) {
            ref(p) = bson_iter_double(it);
            return true;
        }
        int64_t v = 0;
        if (!iterInt64(it, v)) return false;
        ref(p) = static_cast<double>(v);
        return true;
    }
    static void toJson(const void* p, Json::Value& out) { out = ref(p); }
    static bool fromJson(const Json::Value& v, void* p, std::string* err) {
        if (!v.isNumeric() || v.isBool()) return setErr(err, "expects a number"), false;
        ref(p) = v.asDouble();
        return true;
    }
};

struct BoolCodec : NumberCodec<bool> {
    static int64_t toInt(const void* p) { return ref(p) ? 1 : 0; }
    static double toDouble(const void* p) { return ref(p) ? 1.0 : 0.0; }
    static bool fromInt(void* p, int64_t v) {
        ref(p) = v != 0;
        return true;
    }
    static bool fromDouble(void* p, double v) {
        ref(p) = v != 0.0;
        return true;
    }
    static void toText(const void* p, std::string& out) { out = ref(p) ? "true" : "false"; }
    static void appendBson(bson_t* doc, const char* name, const void* p) { bson_append_bool(doc, name, -1, ref(p)); }
    static bool readBson(const bson_iter_t* it, void* p) {
        if (bson_iter_type(it) != BSON_TYPE_BOOL) return false;
        ref(p) = bson_iter_bool(it);
        return true;
    }
    static void toJson(const void* p, Json::Value& out) { out = ref(p); }
    static bool fromJson(const Json::Value& v, void* p, std::string* err) {
        if (!v.isBool()) return setErr(err, "expects true or false"), false;
        ref(p) = v.asBool();
        return true;
    }
};

struct StringCodec : CodecBase {
    static std::string& ref(void* p) { return *static_cast<std::string*>(p); }
    static const std::string& ref(const void* p) { return *static_cast<const std::string*>(p); }
    static void toText(const void* p, std::string& out) { out = ref(p); }
    static bool fromString(void* p, const std::string& v) {
        ref(p) = v;
        return true;
    }
    static void appendBson(bson_t* doc, const char* name, const void* p) {
        bson_append_utf8(doc, name, -1, ref(p).data(), static_cast<int>(ref(p).size()));
    }
    static bool readBson(const bson_iter_t* it, void* p) {
        if (bson_iter_type(it) != BSON_TYPE_UTF8) return false;
        uint32_t n = 0;
        const char* s = bson_iter_utf8(it, &n);
        ref(p).assign(s, n);
        return true;
    }
    static void toJson(const void* p, Json::Value& out) { out = ref(p); }
    static bool fromJson(const Json::Value& v, void* p, std::string* err) {
        if (!v.isString()) return setErr(err, "expects a string"), false;
        ref(p) = v.asString();
        return true;
    }
};

// A nested record held by shared pointer to class T.
template <class T>
struct RecordCodec : CodecBase {
    typedef boost::shared_ptr<T> Ptr;
    static Ptr& ref(void* p) { return *static_cast<Ptr*>(p); }
    static const Ptr& ref(const void* p) { return *static_cast<const Ptr*>(p); }
    static void toText(const void* p, std::string& out) {
        out = ref(p) ? std::string(ref(p)->getClassName()) + "(" + ref(p)->getKey() + ")" : "null";
    }
    static IDataPtr getRecord(const void* p) { return ref(p); }
    static bool setRecord(void* p, const IDataPtr& v) {
        if (!v) {
            ref(p).reset();
            return true;
        }
        Ptr t = boost::dynamic_pointer_cast<T>(v);
        if (!t) return false;
        ref(p) = t;
        return true;
    }
    static void appendBson(bson_t* doc, const char* name, const void* p) {
        if (ref(p)) appendRecord(doc, name, *ref(p));
        else bson_append_null(doc, name, -1);
    }
    static bool readOne(const bson_iter_t* it, Ptr& out) {
        if (bson_iter_type(it) != BSON_TYPE_DOCUMENT) return false;
        uint32_t n = 0;
        const uint8_t* data = nullptr;
        bson_iter_document(it, &n, &data);
        bson_t sub;
        if (!bson_init_static(&sub, data, n)) return false;
        int bad = 0;
        IDataPtr rec = parseNested(&sub, &bad);
        out = boost::dynamic_pointer_cast<T>(rec);
        return out && bad == 0;
    }
    static bool readBson(const bson_iter_t* it, void* p) {
        if (bson_iter_type(it) == BSON_TYPE_NULL) {
            ref(p).reset();
            return true;
        }
        Ptr v;
        if (!readOne(it, v)) return false;
        ref(p) = v;
        return true;
    }
    static void toJson(const void* p, Json::Value& out);
    static bool fromJsonOne(const Json::Value& v, Ptr& out, std::string* err) {
        IDataPtr rec;
        if (!readRecordField(v, rec, T::staticType(), err)) return false;
        out = boost::dynamic_pointer_cast<T>(rec);
        if (!out) return setErr(err, std::string("expects a record of class ") + T::staticType().name), false;
        return true;
    }
    static bool fromJson(const Json::Value& v, void* p, std::string* err) {
        if (v.isNull()) {
            ref(p).reset();
            return true;
        }
        Ptr out;
        if (!fromJsonOne(v, out, err)) return false;
        ref(p) = out;
        return true;
    }
};

void recordToJson(const IData& rec, Json::Value& out);

template <class T>
void RecordCodec<T>::toJson(const void* p, Json::Value& out) {
    if (ref(p)) recordToJson(*ref(p), out);
    else out = Json::Value(Json::nullValue);
}

template <class T>
struct RecordListCodec : CodecBase {
    typedef std::vector<boost::shared_ptr<T> > List;
    static List& ref(void* p) { return *static_cast<List*>(p); }
    static const List& ref(const void* p) { return *static_cast<const List*>(p); }
    static void toText(const void* p, std::string& out) { out = "[" + std::to_string(ref(p).size()) + " records]"; }
    static void appendBson(bson_t* doc, const char* name, const void* p) {
        bson_t child;
        bson_append_array_begin(doc, name, -1, &child);
        char idx[16];
        const List& l = ref(p);
        for (size_t i = 0; i < l.size(); ++i) {
            if (!l[i]) continue;
            const char* key = nullptr;
            bson_uint32_to_string(static_cast<uint32_t>(i), &key, idx, sizeof idx);
            appendRecord(&child, key, *l[i]);
        }
        bson_append_array_end(doc, &child);
    }
    static bool readBson(const bson_iter_t* it, void* p) {
        bson_iter_t child;
        if (bson_iter_type(it) != BSON_TYPE_ARRAY || !bson_iter_recurse(it, &child)) return false;
        List out;
        while (bson_iter_next(&child)) {
            boost::shared_ptr<T> v;
            if (!RecordCodec<T>::readOne(&child, v)) return false;
            out.push_back(v);
        }
        ref(p).swap(out);
        return true;
    }
    static void toJson(const void* p, Json::Value& out) {
        out = Json::Value(Json::arrayValue);
        for (const auto& r : ref(p)) {
            Json::Value v;
            if (r) recordToJson(*r, v);
            out.append(v);
        }
    }
    static bool fromJson(const Json::Value& v, void* p, std::string* err) {
        if (!v.isArray()) return setErr(err, "expects an array of records"), false;
        List out;
        for (Json::ArrayIndex i = 0; i < v.size(); ++i) {
            boost::shared_ptr<T> r;
            if (!RecordCodec<T>::fromJsonOne(v[i], r, err)) return false;
            out.push_back(r);
        }
        ref(p).swap(out);
        return true;
    }
};

template <class T>
struct RecordMapCodec : CodecBase {
    typedef std::map<std::string, boost::shared_ptr<T> > Map;
    static Map& ref(void* p) { return *static_cast<Map*>(p); }
    static const Map& ref(const void* p) { return *static_cast<const Map*>(p); }
    static void toText(const void* p, std::string& out) { out = "{" + std::to_string(ref(p).size()) + " records}"; }
    static void appendBson(bson_t* doc, const char* name, const void* p) {
        bson_t child;
        bson_append_document_begin(doc, name, -1, &child);
        for (const auto& kv : ref(p))
            if (kv.second) appendRecord(&child, kv.first.c_str(), *kv.second);
        bson_append_document_end(doc, &child);
    }
    static bool readBson(const bson_iter_t* it, void* p) {
        bson_iter_t child;
        if (bson_iter_type(it) != BSON_TYPE_DOCUMENT || !bson_iter_recurse(it, &child)) return false;
        Map out;
        while (bson_iter_next(&child)) {
            boost::shared_ptr<T> v;
            if (!RecordCodec<T>::readOne(&child, v)) return false;
            out[bson_iter_key(&child)] = v;
        }
        ref(p).swap(out);
        return true;
    }
    static void toJson(const void* p, Json::Value& out) {
        out = Json::Value(Json::objectValue);
        for (const auto& kv : ref(p)) {
            Json::Value v;
            if (kv.second) recordToJson(*kv.second, v);
            out[kv.first] = v;
        }
    }
    static bool fromJson(const Json::Value& v, void* p, std::string* err) {
        if (!v.isObject()) return setErr(err, "expects an object of records"), false;
        Map out;
        for (const auto& name : v.getMemberNames()) {
            boost::shared_ptr<T> r;
            if (!RecordCodec<T>::fromJsonOne(v[name], r, err)) return false;
            out[name] = r;
        }
        ref(p).swap(out);
        return true;
    }
};

struct StringListCodec : CodecBase {
    static StringVector& ref(void* p) { return *static_cast<StringVector*>(p); }
    static const StringVector& ref(const void* p) { return *static_cast<const StringVector*>(p); }
    static void toText(const void* p, std::string& out);
    static void appendBson(bson_t* doc, const char* name, const void* p);
    static bool readBson(const bson_iter_t* it, void* p);
    static void toJson(const void* p, Json::Value& out);
    static bool fromJson(const Json::Value& v, void* p, std::string* err);
};
struct DoubleMapCodec : CodecBase {
    static StringDoubleMap& ref(void* p) { return *static_cast<StringDoubleMap*>(p); }
    static const StringDoubleMap& ref(const void* p) { return *static_cast<const StringDoubleMap*>(p); }
    static void toText(const void* p, std::string& out);
    static void appendBson(bson_t* doc, const char* name, const void* p);
    static bool readBson(const bson_iter_t* it, void* p);
    static void toJson(const void* p, Json::Value& out);
    static bool fromJson(const Json::Value& v, void* p, std::string* err);
};
struct StringListMapCodec : CodecBase {
    static StringListMap& ref(void* p) { return *static_cast<StringListMap*>(p); }
    static const StringListMap& ref(const void* p) { return *static_cast<const StringListMap*>(p); }
    static void toText(const void* p, std::string& out);
    static void appendBson(bson_t* doc, const char* name, const void* p);
    static bool readBson(const bson_iter_t* it, void* p);
    static void toJson(const void* p, Json::Value& out);
    static bool fromJson(const Json::Value& v, void* p, std::string* err);
};
struct Int64ListCodec : CodecBase {
    static Int64Vector& ref(void* p) { return *static_cast<Int64Vector*>(p); }
    static const Int64Vector& ref(const void* p) { return *static_cast<const Int64Vector*>(p); }
    static void toText(const void* p, std::string& out);
    static void appendBson(bson_t* doc, const char* name, const void* p);
    static bool readBson(const bson_iter_t* it, void* p);
    static void toJson(const void* p, Json::Value& out);
    static bool fromJson(const Json::Value& v, void* p, std::string* err);
};

template <class T, class Enable = void>
struct CodecOf;
template <> struct CodecOf<int> { typedef IntCodec<int> type; };
template <class T>
struct CodecOf<T, typename std::enable_if<std::is_enum<T>::value>::type> { typedef IntCodec<T> type; };
template <> struct CodecOf<int64_t> { typedef Int64Codec type; };
template <> struct CodecOf<double> { typedef DoubleCodec type; };
template <> struct CodecOf<bool> { typedef BoolCodec type; };
template <> struct CodecOf<std::string> { typedef StringCodec type; };
template <class T> struct CodecOf<boost::shared_ptr<T> > { typedef RecordCodec<T> type; };
template <class T> struct CodecOf<std::vector<boost::shared_ptr<T> > > { typedef RecordListCodec<T> type; };
template <class T> struct CodecOf<std::map<std::string, boost::shared_ptr<T> > > { typedef RecordMapCodec<T> type; };
template <> struct CodecOf<StringVector> { typedef StringListCodec type; };
template <> struct CodecOf<StringDoubleMap> { typedef DoubleMapCodec type; };
template <> struct CodecOf<StringListMap> { typedef StringListMapCodec type; };
template <> struct CodecOf<Int64Vector> { typedef Int64ListCodec type; };

template <class T>
const FieldCodec* codecFor() {
    typedef typename CodecOf<T>::type C;
    static const FieldCodec codec = {&C::toInt,      &C::toDouble, &C::toText,   &C::fromInt,
                                     &C::fromDouble, &C::fromString, &C::appendBson, &C::readBson,
                                     &C::toJson,     &C::fromJson, &C::getRecord, &C::setRecord};
    return &codec;
}

// ---- field tables ---------------------------------------------------------------------------
template <auto P>
struct MemberOf;
template <class C, class T, T C::*P>
struct MemberOf<P> {
    typedef C Class;
    typedef T Type;
};

template <auto P>
void* memberAddr(IData& d) {
    typedef typename MemberOf<P>::Class C;
    return &(static_cast<C&>(d).*P);
}

template <auto P>
FieldInfo makeField(const char* name) {
    typedef typename MemberOf<P>::Type T;
    FieldInfo f;
    f.name = name;
    f.kind = Kind<T>::value;
    f.addr = &memberAddr<P>;
    f.codec = codecFor<T>();
    return f;
}

template <class B>
std::vector<FieldInfo> baseFields() {
    return B::staticType().fields;
}
template <>
inline std::vector<FieldInfo> baseFields<IData>() {
    return std::vector<FieldInfo>();
}

template <class C>
IDataPtr createRecord() {
    return boost::make_shared<C>();
}

}  // namespace records
}  // namespace ttservice

#define TT_FIELD_INFO_(type, name, def) fields.push_back(::ttservice::records::makeField<&Self::name>(#name));
// Defines CLASS::staticType() from the class's field list.
#define TT_DEFINE_RECORD(CLASS, FIELDS)                                                \
    const ::ttservice::RecordType& CLASS::staticType() {                               \
        static const ::ttservice::RecordType t = [] {                                  \
            typedef CLASS Self;                                                        \
            ::ttservice::RecordType r;                                                 \
            r.name = #CLASS;                                                           \
            r.typeId = CLASS::TYPE_ID_;                                                \
            r.baseId = CLASS::BASE_ID_;                                                \
            r.fields = ::ttservice::records::baseFields<CLASS::BaseRecord>();          \
            std::vector<::ttservice::FieldInfo>& fields = r.fields;                    \
            FIELDS(TT_FIELD_INFO_)                                                     \
            r.create = &::ttservice::records::createRecord<CLASS>;                     \
            return r;                                                                  \
        }();                                                                           \
        return t;                                                                      \
    }
