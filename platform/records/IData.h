// ttservice::IData: the base of every record (orders, deals, positions, funds, reference data).
//
// Identity. Every record class has a type descriptor (RecordType): a type id, a base id (-1 when
// the class has no base kind), its class name and its field table. The kind under which a store
// files a record is the base id, or the type id when the base id is -1, so every subclass of one
// base shares its base's kind. getKey() is computed by each class from its own fields (each class
// header states its rule); two records of one kind with equal keys are the same entity.
//
// Fields. One field table per class is the single source of truth: the ITEM_<field> constants,
// the generic reads and writes (getInt/getDouble/getString/getData/setData/set*), the BSON form
// (toBson, bsonValueFromObj, appendElements), the JSON form, toString and cloning all walk it. A
// subclass's table starts with its base's fields, so a base's ITEM_ numbers stay valid on it.
// Adding a field is one line in the class's field list.
//
// Serialised form. A record's document holds "_typeid" (int32) followed by its fields by name.
// Reading a document never trusts it: an unknown field is ignored, a field of the wrong BSON type
// is left at its default and reported, a nested record of the wrong class is not attached.
//
// Thread safety. Field reads and writes take no lock. Each record has its own recursive mutex;
// code that reads or writes several fields of a record that another thread may be updating holds
// an IData::Lock for the duration. Records are owned by boost::shared_ptr.
#pragma once

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

namespace bson {
class BSONObj;
class BSONObjBuilder;
}  // namespace bson

namespace ttservice {

class IData;
typedef boost::shared_ptr<IData> IDataPtr;

// The shape of a field's member.
enum class EFieldKind : uint8_t {
    Int32,          // int
    Enum,           // an enumeration held as int
    Int64,          // int64_t
    Double,         // double
    Bool,           // bool
    String,         // std::string
    Record,         // boost::shared_ptr<T>, T a record class
    RecordList,     // std::vector<boost::shared_ptr<T> >
    RecordMap,      // std::map<std::string, boost::shared_ptr<T> >
    StringList,     // std::vector<std::string>
    DoubleMap,      // std::map<std::string, double>
    StringListMap,  // std::map<std::string, std::vector<std::string> >
    Int64List       // std::vector<int64_t>
};

struct FieldCodec;  // how a field is converted; defined by the record library's implementation

struct FieldInfo {
    const char* name;           // the member's name, e.g. "m_strOrderSysID"; its name in documents
    EFieldKind kind;
    void* (*addr)(IData&);      // the member's address in a record of the declaring class
    const FieldCodec* codec;
};

struct RecordType {
    const char* name;  // class name, e.g. "COrderDetail"
    int typeId;
    int baseId;        // -1 when the class has no base kind
    std::vector<FieldInfo> fields;
    IDataPtr (*create)();

    int kind() const { return baseId == -1 ? typeId : baseId; }
    // Index of a field by name, or -1.
    int fieldIndex(const std::string& name) const;
};

// Names for record-valued members (macro arguments cannot hold template commas).
typedef std::vector<std::string> StringVector;
typedef std::map<std::string, double> StringDoubleMap;
typedef std::map<std::string, std::vector<std::string> > StringListMap;
typedef std::vector<int64_t> Int64Vector;

class IData {
public:
    enum : int { ITEM_END_ = 0 };

    virtual ~IData();

    // The type descriptor.
    virtual const RecordType& recordType() const = 0;
    int getTypeId() const { return recordType().typeId; }
    int getBaseId() const { return recordType().baseId; }
    // The kind under which stores file this record: the base id, or the type id without one.
    int getKind() const { return recordType().kind(); }
    const char* getClassName() const { return recordType().name; }

    // The record's key within its kind (see each class's rule). The base class has none ("").
    virtual std::string getKey() const;

    // A copy of this record (members copied; nested records shared).
    virtual IDataPtr clone() const = 0;

    // "ClassName{field=value, ...}" for log lines.
    std::string toString() const;

    // The serialised form: "_typeid" and every field.
    bson::BSONObj toBson() const;
    // Appends "_typeid" and every field to a document being built.
    void appendElements(bson::BSONObjBuilder& builder) const;
    // Fills this record from a document: known fields of the right type are set, others left as
    // they are. Returns the number of fields that were present but unusable (wrong type, wrong
    // nested class); their names go to *problems when given.
    int bsonValueFromObj(const bson::BSONObj& obj, std::string* problems = nullptr);

    // JSON text of the fields (no "_typeid"; the class name under "class"), and back. fromJson
    // returns false and names the bad field in *error for a field of the wrong JSON type or an
    // unknown field name; the fields read before it stay set.
    std::string toJson() const;
    bool fromJson(const std::string& jsonText, std::string* error);

    // Generic field access by ITEM_ number. An unknown number or a field of another shape reads
    // as 0, 0.0 or "" and ignores a write (the write functions then return false). Numeric
    // fields (int, enumeration, int64, double, bool) convert among themselves: a double read or
    // written as an integer is truncated toward zero and saturates at the integer's range (NaN
    // gives 0), and getInt saturates an int64 at the int range; getData(field, bool&) is true for
    // any non-zero number.
    int getInt(int field) const;
    int64_t getInt64(int field) const;
    double getDouble(int field) const;
    std::string getString(int field) const;
    void getData(int field, int& out) const;
    void getData(int field, std::string& out) const;
    void getData(int field, bool& out) const;
    IDataPtr getRecord(int field) const;
    bool setData(int field, const IDataPtr& value);
    bool setInt(int field, int64_t value);
    bool setDouble(int field, double value);
    bool setString(int field, const std::string& value);
    bool setBool(int field, bool value);

    // Number of fields, and a field's descriptor (nullptr when out of range).
    int fieldCount() const { return static_cast<int>(recordType().fields.size()); }
    const FieldInfo* fieldInfo(int field) const {
        const std::vector<FieldInfo>& f = recordType().fields;
        return field >= 0 && static_cast<size_t>(field) < f.size() ? &f[field] : nullptr;
    }

    // The record's own mutex (recursive).
    boost::recursive_mutex& mutex() const { return m_mutex; }

    // Holds a record's mutex from construction to destruction, keeping the record alive.
    class Lock {
    public:
        explicit Lock(const IDataPtr& data) : m_data(data) {
            if (m_data) m_data->m_mutex.lock();
        }
        ~Lock() {
            if (m_data) m_data->m_mutex.unlock();
        }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        IDataPtr m_data;
    };

protected:
    IData() {}
    // Copies carry the fields, never the mutex.
    IData(const IData&) {}
    IData& operator=(const IData&) { return *this; }

private:
    mutable boost::recursive_mutex m_mutex;
};

// The largest finite double: "no price" / "no value".
const double TT_INVALID_DOUBLE = std::numeric_limits<double>::max();

}  // namespace ttservice

// Declares a record class's members, ITEM_ constants and type descriptor. FIELDS is an X-macro
// list of F(type, name, default); BASE is IData or a record class whose fields come first.
#define TT_RECORD_MEMBER_(type, name, def) type name{def};
#define TT_RECORD_ITEM_(type, name, def) ITEM_##name,
#define TT_RECORD(CLASS, BASE, TYPE_ID, BASE_ID, FIELDS)                                         \
public:                                                                                          \
    enum : int { TYPE_ID_ = TYPE_ID, BASE_ID_ = BASE_ID };                                       \
    enum : int { ITEM_BEGIN_##CLASS = BASE::ITEM_END_ - 1, FIELDS(TT_RECORD_ITEM_) ITEM_END_ };  \
    FIELDS(TT_RECORD_MEMBER_)                                                                    \
    static const ::ttservice::RecordType& staticType();                                          \
    const ::ttservice::RecordType& recordType() const override { return staticType(); }          \
    ::ttservice::IDataPtr clone() const override { return boost::make_shared<CLASS>(*this); }    \
    typedef BASE BaseRecord;
