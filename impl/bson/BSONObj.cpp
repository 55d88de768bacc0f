#include "bson/BSONObj.h"

#include <cstdint>
#include <cstring>
#include <sstream>

namespace bson {

namespace {

const uint8_t kEmptyDoc[5] = {5, 0, 0, 0, 0};

// Deepest nesting accepted from outside; deeper documents are rejected rather than recursed into.
const int kMaxDepth = 64;

bool fail(std::string* reason, const std::string& what) {
    if (reason) *reason = what;
    return false;
}

// Where a nested document sits within the top-level one: a chain of keys up to the top, turned
// into a dotted name ("m_accountInfo.m_strAccountID") only when a message needs it, so a walk that
// succeeds allocates nothing.
struct Path {
    const Path* parent;
    const char* key;
};

std::string dotted(const Path* p) {
    if (!p) return std::string();
    std::string up = dotted(p->parent);
    return up.empty() ? std::string(p->key) : up + "." + p->key;
}

std::string fieldName(const Path* path, const char* key) {
    const Path here{path, key};
    return "field '" + dotted(&here) + "'";
}

// True when n bytes at s are UTF-8 (a NUL inside a string is allowed, as BSON strings carry their
// length). Field names and most values are ASCII: those are settled by one pass over the bytes,
// and only text with a byte above 0x7f goes through libbson's decoder.
bool validText(const char* s, size_t n) {
    if (!s) return false;
    for (size_t i = 0; i < n; ++i)
        if (static_cast<unsigned char>(s[i]) >= 0x80) return bson_utf8_validate(s, n, true);
    return true;
}

// Walks one document completely. libbson's own bson_validate() lets some broken buffers through
// (bad UTF-8 in code, regular expressions and their scopes, among others), so every element is
// visited and checked here: every text is UTF-8, every nested document and array is walked in
// turn, and the walk must end exactly on the document's terminating byte. `path` locates this
// document within the top-level one (null at the top), for messages.
bool validateDoc(const bson_t* doc, int depth, const Path* path, std::string* reason) {
    if (depth > kMaxDepth)
        return fail(reason, "document '" + dotted(path) + "' nested deeper than 64 levels");
    bson_iter_t it;
    if (!bson_iter_init(&it, doc)) return fail(reason, "bad document header at '" + dotted(path) + "'");
    const char* last = nullptr;  // the key of the last element read whole, to place a corrupt one
    while (bson_iter_next(&it)) {
        const char* key = bson_iter_key(&it);
        if (!validText(key, strlen(key))) {  // a key holds no NUL: it ends at the first one
            return fail(reason, "field name is not UTF-8 at offset " + std::to_string(it.off) +
                                    (path ? " of '" + dotted(path) + "'" : std::string()));
        }
        switch (bson_iter_type(&it)) {
        case BSON_TYPE_UTF8:
        case BSON_TYPE_CODE:
        case BSON_TYPE_SYMBOL: {
            uint32_t n = 0;
            const char* s = nullptr;
            if (bson_iter_type(&it) == BSON_TYPE_UTF8) s = bson_iter_utf8(&it, &n);
            else if (bson_iter_type(&it) == BSON_TYPE_CODE) s = bson_iter_code(&it, &n);
            else s = bson_iter_symbol(&it, &n);
            if (!validText(s, n))
                return fail(reason, "string " + fieldName(path, key) + " is not valid UTF-8");
            break;
        }
        case BSON_TYPE_REGEX: {
            const char* options = nullptr;
            const char* re = bson_iter_regex(&it, &options);
            if (!re || !options || !validText(re, strlen(re)) || !validText(options, strlen(options)))
                return fail(reason, "regular expression " + fieldName(path, key) + " is not valid UTF-8");
            break;
        }
        case BSON_TYPE_DBPOINTER: {
            uint32_t n = 0;
            const char* collection = nullptr;
            const bson_oid_t* oid = nullptr;
            bson_iter_dbpointer(&it, &n, &collection, &oid);
            if (!validText(collection, n))
                return fail(reason, "db pointer " + fieldName(path, key) + " is not valid UTF-8");
            break;
        }
        case BSON_TYPE_CODEWSCOPE: {
            uint32_t n = 0, scopeLen = 0;
            const uint8_t* scopeData = nullptr;
            const char* code = bson_iter_codewscope(&it, &n, &scopeLen, &scopeData);
            if (!validText(code, n))
                return fail(reason, "code " + fieldName(path, key) + " is not valid UTF-8");
            bson_t scope;
            if (!scopeData || !bson_init_static(&scope, scopeData, scopeLen))
                return fail(reason, "scope of " + fieldName(path, key) + " is corrupt");
            const Path here{path, key};
            if (!validateDoc(&scope, depth + 1, &here, reason)) return false;
            break;
        }
        case BSON_TYPE_DOCUMENT:
        case BSON_TYPE_ARRAY: {
            uint32_t n = 0;
            const uint8_t* data = nullptr;
            if (bson_iter_type(&it) == BSON_TYPE_DOCUMENT) bson_iter_document(&it, &n, &data);
            else bson_iter_array(&it, &n, &data);
            bson_t sub;
            if (!data || !bson_init_static(&sub, data, n))
                return fail(reason, "nested document " + fieldName(path, key) + " is corrupt");
            const Path here{path, key};
            if (!validateDoc(&sub, depth + 1, &here, reason)) return false;
            break;
        }
        default:
            break;
        }
        last = key;
    }
    // A walk that stopped on a corrupt element records its offset in err_off (or stops short of
    // the end on an unknown type byte); a complete walk stops on the terminating byte.
    if (it.err_off != 0 || it.off + 1 != doc->len) {
        const uint32_t at = it.err_off != 0 ? it.err_off : it.off;
        const std::string where = last   ? "after " + fieldName(path, last)
                                  : path ? "first element of '" + dotted(path) + "'"
                                         : std::string("first element");
        return fail(reason, "corrupt element at offset " + std::to_string(at) + " (" + where + ")");
    }
    return true;
}

bool findField(const BSONObj& o, const char* name, bson_iter_t* it) {
    bson_t view;
    if (!o.view(&view)) return false;
    return bson_iter_init_find(it, &view, name);
}

}  // namespace

BSONObj::BSONObj() : m_pData(kEmptyDoc), m_nSize(5) {}

BSONObj::BSONObj(boost::shared_ptr<uint8_t> owner, size_t size)
    : m_pOwner(std::move(owner)), m_pData(m_pOwner.get()), m_nSize(size) {}

BSONObj BSONObj::fromBytes(const void* data, size_t len, std::string* reason) {
    if (!data || len < 5) {
        fail(reason, "buffer of " + std::to_string(len) + " bytes is shorter than a document");
        return BSONObj();
    }
    const uint8_t* p = static_cast<const uint8_t*>(data);
    uint32_t declared = 0;
    memcpy(&declared, p, 4);
    declared = BSON_UINT32_FROM_LE(declared);
    if (declared != len) {
        fail(reason, "declared length " + std::to_string(declared) + " differs from buffer length " +
                         std::to_string(len));
        return BSONObj();
    }
    bson_t doc;
    if (!bson_init_static(&doc, p, len)) {
        fail(reason, "document does not end with a zero byte");
        return BSONObj();
    }
    if (!validateDoc(&doc, 0, nullptr, reason)) return BSONObj();
    boost::shared_ptr<uint8_t> buf(static_cast<uint8_t*>(bson_malloc(len)), bson_free);
    memcpy(buf.get(), p, len);
    if (reason) reason->clear();
    return BSONObj(buf, len);
}

BSONObj BSONObj::fromBson(const bson_t* doc, std::string* reason) {
    if (!doc) {
        fail(reason, "null document");
        return BSONObj();
    }
    return fromBytes(bson_get_data(doc), doc->len, reason);
}

bool BSONObj::view(bson_t* out) const { return bson_init_static(out, m_pData, m_nSize); }

bool BSONObj::hasField(const char* name) const {
    bson_iter_t it;
    return findField(*this, name, &it);
}

bool BSONObj::getInt(const char* name, int32_t& out) const {
    int64_t v = 0;
    if (!getInt64(name, v) || v < INT32_MIN || v > INT32_MAX) return false;
    out = static_cast<int32_t>(v);
    return true;
}

bool BSONObj::getInt64(const char* name, int64_t& out) const {
    bson_iter_t it;
    if (!findField(*this, name, &it)) return false;
    switch (bson_iter_type(&it)) {
    case BSON_TYPE_INT32: out = bson_iter_int32(&it); return true;
    case BSON_TYPE_INT64: out = bson_iter_int64(&it); return true;
    case BSON_TYPE_DOUBLE: {
        // Truncated toward zero; NaN and values beyond the 64-bit range are not integers.
        const double d = bson_iter_double(&it);
        if (!(d > -9223372036854775808.0 && d < 9223372036854775808.0)) return false;
        out = static_cast<int64_t>(d);
        return true;
    }
    case BSON_TYPE_BOOL: out = bson_iter_bool(&it) ? 1 : 0; return true;
    default: return false;
    }
}

bool BSONObj::getDouble(const char* name, double& out) const {
    bson_iter_t it;
    if (!findField(*this, name, &it)) return false;
    switch (bson_iter_type(&it)) {
    case BSON_TYPE_DOUBLE: out = bson_iter_double(&it); return true;
    case BSON_TYPE_INT32: out = bson_iter_int32(&it); return true;
    case BSON_TYPE_INT64: out = static_cast<double>(bson_iter_int64(&it)); return true;
    default: return false;
    }
}

bool BSONObj::getBool(const char* name, bool& out) const {
    bson_iter_t it;
    if (!findField(*this, name, &it) || bson_iter_type(&it) != BSON_TYPE_BOOL) return false;
    out = bson_iter_bool(&it);
    return true;
}

bool BSONObj::getString(const char* name, std::string& out) const {
    bson_iter_t it;
    if (!findField(*this, name, &it) || bson_iter_type(&it) != BSON_TYPE_UTF8) return false;
    uint32_t n = 0;
    const char* s = bson_iter_utf8(&it, &n);
    out.assign(s, n);
    return true;
}

bool BSONObj::getObject(const char* name, BSONObj& out) const {
    bson_iter_t it;
    if (!findField(*this, name, &it) || bson_iter_type(&it) != BSON_TYPE_DOCUMENT) return false;
    uint32_t n = 0;
    const uint8_t* data = nullptr;
    bson_iter_document(&it, &n, &data);
    // Share the parent's buffer: the sub-document is a slice of it.
    BSONObj sub;
    sub.m_pOwner = m_pOwner;
    sub.m_pData = data;
    sub.m_nSize = n;
    if (!m_pOwner) {  // the static empty document has no sub-documents; copy defensively
        sub = fromBytes(data, n);
    }
    out = sub;
    return true;
}

bool BSONObj::getObjectArray(const char* name, std::vector<BSONObj>& out) const {
    bson_iter_t it, child;
    if (!findField(*this, name, &it) || bson_iter_type(&it) != BSON_TYPE_ARRAY) return false;
    if (!bson_iter_recurse(&it, &child)) return false;
    while (bson_iter_next(&child)) {
        if (bson_iter_type(&child) != BSON_TYPE_DOCUMENT) continue;
        uint32_t n = 0;
        const uint8_t* data = nullptr;
        bson_iter_document(&child, &n, &data);
        BSONObj sub;
        sub.m_pOwner = m_pOwner;
        sub.m_pData = data;
        sub.m_nSize = n;
        out.push_back(sub);
    }
    return true;
}

bool BSONObj::getStringArray(const char* name, std::vector<std::string>& out) const {
    bson_iter_t it, child;
    if (!findField(*this, name, &it) || bson_iter_type(&it) != BSON_TYPE_ARRAY) return false;
    if (!bson_iter_recurse(&it, &child)) return false;
    while (bson_iter_next(&child)) {
        if (bson_iter_type(&child) != BSON_TYPE_UTF8) continue;
        uint32_t n = 0;
        const char* s = bson_iter_utf8(&child, &n);
        out.emplace_back(s, n);
    }
    return true;
}

int32_t BSONObj::getIntField(const char* name, int32_t def) const {
    getInt(name, def);
    return def;
}
int64_t BSONObj::getInt64Field(const char* name, int64_t def) const {
    getInt64(name, def);
    return def;
}
double BSONObj::getDoubleField(const char* name, double def) const {
    getDouble(name, def);
    return def;
}
bool BSONObj::getBoolField(const char* name, bool def) const {
    getBool(name, def);
    return def;
}
std::string BSONObj::getStringField(const char* name, const std::string& def) const {
    std::string out = def;
    getString(name, out);
    return out;
}
BSONObj BSONObj::getObjectField(const char* name) const {
    BSONObj out;
    getObject(name, out);
    return out;
}

std::vector<std::string> BSONObj::fieldNames() const {
    std::vector<std::string> names;
    bson_t view;
    bson_iter_t it;
    if (!this->view(&view) || !bson_iter_init(&it, &view)) return names;
    while (bson_iter_next(&it)) names.emplace_back(bson_iter_key(&it));
    return names;
}

std::string BSONObj::toJson() const {
    bson_t view;
    if (!this->view(&view)) return "{}";
    size_t n = 0;
    char* s = bson_as_relaxed_extended_json(&view, &n);
    if (!s) return "{}";
    std::string out(s, n);
    bson_free(s);
    return out;
}

bool BSONObj::operator==(const BSONObj& o) const {
    return m_nSize == o.m_nSize && memcmp(m_pData, o.m_pData, m_nSize) == 0;
}

BSONObjBuilder::BSONObjBuilder() { bson_init(&m_doc); }
BSONObjBuilder::~BSONObjBuilder() { bson_destroy(&m_doc); }

BSONObjBuilder& BSONObjBuilder::append(const char* name, int32_t v) {
    bson_append_int32(&m_doc, name, -1, v);
    return *this;
}
BSONObjBuilder& BSONObjBuilder::append(const char* name, int64_t v) {
    bson_append_int64(&m_doc, name, -1, v);
    return *this;
}
BSONObjBuilder& BSONObjBuilder::append(const char* name, double v) {
    bson_append_double(&m_doc, name, -1, v);
    return *this;
}
BSONObjBuilder& BSONObjBuilder::append(const char* name, bool v) {
    bson_append_bool(&m_doc, name, -1, v);
    return *this;
}
BSONObjBuilder& BSONObjBuilder::append(const char* name, const std::string& v) {
    bson_append_utf8(&m_doc, name, -1, v.data(), static_cast<int>(v.size()));
    return *this;
}
BSONObjBuilder& BSONObjBuilder::append(const char* name, const char* v) {
    bson_append_utf8(&m_doc, name, -1, v ? v : "", -1);
    return *this;
}
BSONObjBuilder& BSONObjBuilder::append(const char* name, const BSONObj& sub) {
    bson_t view;
    sub.view(&view);
    bson_append_document(&m_doc, name, -1, &view);
    return *this;
}
BSONObjBuilder& BSONObjBuilder::appendArray(const char* name, const std::vector<BSONObj>& items) {
    bson_t child;
    bson_append_array_begin(&m_doc, name, -1, &child);
    char idx[16];
    for (size_t i = 0; i < items.size(); ++i) {
        const char* key = nullptr;
        bson_uint32_to_string(static_cast<uint32_t>(i), &key, idx, sizeof idx);
        bson_t view;
        items[i].view(&view);
        bson_append_document(&child, key, -1, &view);
    }
    bson_append_array_end(&m_doc, &child);
    return *this;
}
BSONObjBuilder& BSONObjBuilder::appendArray(const char* name, const std::vector<std::string>& items) {
    bson_t child;
    bson_append_array_begin(&m_doc, name, -1, &child);
    char idx[16];
    for (size_t i = 0; i < items.size(); ++i) {
        const char* key = nullptr;
        bson_uint32_to_string(static_cast<uint32_t>(i), &key, idx, sizeof idx);
        bson_append_utf8(&child, key, -1, items[i].data(), static_cast<int>(items[i].size()));
    }
    bson_append_array_end(&m_doc, &child);
    return *this;
}
BSONObjBuilder& BSONObjBuilder::appendNull(const char* name) {
    bson_append_null(&m_doc, name, -1);
    return *this;
}
BSONObjBuilder& BSONObjBuilder::appendElements(const BSONObj& o) {
    bson_t view;
    if (o.view(&view)) bson_concat(&m_doc, &view);
    return *this;
}

BSONObj BSONObjBuilder::obj() {
    uint32_t len = 0;
    uint8_t* buf = bson_destroy_with_steal(&m_doc, true, &len);
    bson_init(&m_doc);
    if (!buf) return BSONObj();
    return BSONObj(boost::shared_ptr<uint8_t>(buf, bson_free), len);
}

}  // namespace bson
