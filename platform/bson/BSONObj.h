// bson::BSONObj and bson::BSONObjBuilder: a small RAII face over libbson.
//
// A BSONObj is an immutable, validated BSON document. Copies share one buffer (a shared pointer),
// so passing documents around never copies bytes. A document of 5 bytes or less is the empty
// document and counts as absent (isEmpty()).
//
// Documents built here are always well formed. Bytes from outside (a store, the network, a file)
// enter only through BSONObj::fromBytes, which walks every element, checks every string for UTF-8
// and every nested document and array, and yields the empty document plus a reason when anything
// is wrong: a bad buffer never crashes a reader and never yields a half-read document.
//
// Thread safety: a BSONObj is immutable and may be read from any number of threads. A
// BSONObjBuilder belongs to one thread at a time.
#pragma once

#include <bson/bson.h>

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace bson {

class BSONObj {
public:
    // The empty document (5 bytes).
    BSONObj();

    // Validates `len` bytes at `data` and copies them. On any defect the result is the empty
    // document and, when `reason` is given, *reason says what was wrong and at which offset.
    static BSONObj fromBytes(const void* data, size_t len, std::string* reason = nullptr);
    static BSONObj fromBytes(const std::string& bytes, std::string* reason = nullptr) {
        return fromBytes(bytes.data(), bytes.size(), reason);
    }
    // Validates a document given as a libbson value and copies it.
    static BSONObj fromBson(const bson_t* doc, std::string* reason = nullptr);

    const uint8_t* objdata() const { return m_pData; }
    int objsize() const { return static_cast<int>(m_nSize); }
    // True for a document of 5 bytes or less: such a document counts as absent.
    bool isEmpty() const { return m_nSize <= 5; }
    std::string bytes() const { return std::string(reinterpret_cast<const char*>(m_pData), m_nSize); }

    // A read-only libbson view of this document, valid while this object lives.
    bool view(bson_t* out) const;

    // Field reads by name. Each returns false (and leaves `out` alone) when the field is absent
    // or of another BSON type. The integer reads accept int32, int64, bool and double (truncated
    // toward zero), and refuse a value that does not fit the result (or a NaN) as mistyped;
    // getDouble accepts int32, int64 and double.
    bool hasField(const char* name) const;
    bool getInt(const char* name, int32_t& out) const;
    bool getInt64(const char* name, int64_t& out) const;
    bool getDouble(const char* name, double& out) const;
    bool getBool(const char* name, bool& out) const;
    bool getString(const char* name, std::string& out) const;
    bool getObject(const char* name, BSONObj& out) const;
    // Elements of an array field that are documents, in array order.
    bool getObjectArray(const char* name, std::vector<BSONObj>& out) const;
    bool getStringArray(const char* name, std::vector<std::string>& out) const;

    // Convenience reads with a default for absent or mistyped fields.
    int32_t getIntField(const char* name, int32_t def = 0) const;
    int64_t getInt64Field(const char* name, int64_t def = 0) const;
    double getDoubleField(const char* name, double def = 0.0) const;
    bool getBoolField(const char* name, bool def = false) const;
    std::string getStringField(const char* name, const std::string& def = std::string()) const;
    BSONObj getObjectField(const char* name) const;

    // Names of the top-level fields, in document order.
    std::vector<std::string> fieldNames() const;

    // Relaxed extended JSON, for log lines and inspection tools.
    std::string toJson() const;

    bool operator==(const BSONObj& o) const;
    bool operator!=(const BSONObj& o) const { return !(*this == o); }

private:
    friend class BSONObjBuilder;
    BSONObj(boost::shared_ptr<uint8_t> owner, size_t size);

    boost::shared_ptr<uint8_t> m_pOwner;  // keeps the buffer alive; shared by copies
    const uint8_t* m_pData;
    size_t m_nSize;
};

class BSONObjBuilder {
public:
    BSONObjBuilder();
    ~BSONObjBuilder();
    BSONObjBuilder(const BSONObjBuilder&) = delete;
    BSONObjBuilder& operator=(const BSONObjBuilder&) = delete;

    BSONObjBuilder& append(const char* name, int32_t v);
    BSONObjBuilder& append(const char* name, int64_t v);
    BSONObjBuilder& append(const char* name, double v);
    BSONObjBuilder& append(const char* name, bool v);
    BSONObjBuilder& append(const char* name, const std::string& v);
    BSONObjBuilder& append(const char* name, const char* v);
    BSONObjBuilder& append(const char* name, const BSONObj& sub);
    BSONObjBuilder& appendArray(const char* name, const std::vector<BSONObj>& items);
    BSONObjBuilder& appendArray(const char* name, const std::vector<std::string>& items);
    BSONObjBuilder& appendNull(const char* name);
    // Appends every field of `o` at the top level of this document.
    BSONObjBuilder& appendElements(const BSONObj& o);

    // The document under construction, for code that appends with libbson directly.
    bson_t* raw() { return &m_doc; }
    int len() const { return static_cast<int>(m_doc.len); }

    // Finishes the document and hands its buffer to the result without copying; the builder
    // starts over empty.
    BSONObj obj();

private:
    bson_t m_doc;
};

}  // namespace bson
