// persist::IPersistBackend: the storage under CPersistService. A backend keeps three kinds of data,
// each under a name:
//   hashes  name -> (key -> BSON document bytes), read by exact key or by key prefix in byte order;
//   sets    name -> set of member strings;
//   lists   name -> ordered list of BSON document bytes.
// Backends store bytes exactly as given and hand them back unchecked: the service validates what it
// reads (bson::BSONObj::fromBytes) and names the hash and key of anything it has to skip.
//
// Implementations, chosen by URL in openBackend():
//   sqlite:///path/to/file.db[?sync=normal|full&check=quick|none&busy_timeout_ms=N&checkpoint_pages=N]
//                                                                      the default
//   redis://[:password@]host[:port][/db][?timeout_ms=N&connect_timeout_ms=N&namespace=NAME]
//   memory://[name]                                                    in-process fake for tests
// and CFaultInjectionBackend (FaultInjectionBackend.h), a wrapper that fails on command.
//
// Thread safety: every backend may be called from any number of threads at once. apply() is called
// by one writer thread per service; reads come from callers' threads concurrently with it.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bson/BSONObj.h"

namespace persist {

enum EWriteKind {
    WRITE_PUT = 0,          // hash m_strName: m_strKey -> m_value
    WRITE_REMOVE = 1,       // hash m_strName: drop m_strKey
    WRITE_SET_ADD = 2,      // set m_strName: add member m_strKey
    WRITE_SET_REMOVE = 3,   // set m_strName: drop member m_strKey
    WRITE_LIST_APPEND = 4,  // list m_strName: append m_values in order
    WRITE_LIST_REPLACE = 5  // list m_strName: becomes exactly m_values
};

// One queued change. A plain value; documents are shared, never copied.
struct CWriteOp {
    EWriteKind m_eKind = WRITE_PUT;
    std::string m_strName;
    std::string m_strKey;
    bson::BSONObj m_value;
    std::vector<bson::BSONObj> m_values;
    // Set by the service: the order of the operation in its queue, and whether it closes a group
    // that must be applied in one transaction (a single write is a group of one).
    uint64_t m_nSeq = 0;
    bool m_bGroupEnd = true;

    bool isListOp() const { return m_eKind == WRITE_LIST_APPEND || m_eKind == WRITE_LIST_REPLACE; }
};

enum EApplyResult {
    APPLY_OK = 0,
    // Nothing was applied and trying again later may succeed: server gone, disk full, file locked.
    APPLY_RETRY = 1,
    // Nothing was applied and the same operations will fail again (for example a document larger
    // than the backend accepts).
    APPLY_REJECTED = 2
};

enum ENameKind { NAMES_HASHES = 0, NAMES_SETS = 1, NAMES_LISTS = 2 };

typedef std::vector<std::pair<std::string, std::string> > KeyBytesList;

class IPersistBackend {
public:
    virtual ~IPersistBackend() {}

    // The URL this backend was opened from, for messages and tools.
    virtual std::string url() const = 0;

    // Applies ops[0..n) in order. Each group (the operations up to one with m_bGroupEnd) is applied
    // atomically; SQLite and memory apply the whole batch in one transaction, Redis may use several.
    // After a failure a part of the batch may be stored: the caller retries the same operations with
    // the same `batchId`, and the backend completes the batch without applying any list operation
    // twice (replaying puts, removals and set changes in order is harmless). On failure *error
    // says why.
    virtual EApplyResult apply(const CWriteOp* ops, size_t n, uint64_t batchId, std::string* error) = 0;

    // Reads one key. Returns false only when the store could not be read; an absent key is
    // *found == false.
    virtual bool get(const std::string& hash, const std::string& key, std::string* bytes, bool* found,
                     std::string* error) = 0;
    // Appends to *out every key of `hash` that begins with `prefix` (all keys for ""), in byte order,
    // with its bytes.
    virtual bool scan(const std::string& hash, const std::string& prefix, KeyBytesList* out,
                      std::string* error) = 0;
    virtual bool readSet(const std::string& name, std::set<std::string>* out, std::string* error) = 0;
    virtual bool readList(const std::string& name, std::vector<std::string>* out, std::string* error) = 0;
    // Names of the non-empty hashes, sets or lists, sorted.
    virtual bool listNames(ENameKind kind, std::vector<std::string>* out, std::string* error) = 0;
};

typedef boost::shared_ptr<IPersistBackend> PersistBackendPtr;

// A URL split into its parts: "scheme://rest?k=v&k2=v2".
struct CPersistUrl {
    std::string m_strScheme;
    std::string m_strRest;
    std::map<std::string, std::string> m_options;

    static bool parse(const std::string& url, CPersistUrl* out, std::string* error);
    // Removes and returns option `name` ("" and false when absent).
    bool take(const std::string& name, std::string* value);
    // Removes option `name` and reads it as a non-negative integer; false with *error naming the
    // option when present but not a number.
    bool takeInt(const std::string& name, long long* value, bool* present, std::string* error);
};

// Opens the backend a URL names (see the list above). Returns an empty pointer and sets *error
// naming the URL or the file when the URL is malformed, names an unknown option, or the store
// cannot be opened (a read-only or corrupt SQLite file fails here, not on the first write).
// Service options in the query (queue=, batch=, ...) must have been taken out by the caller.
PersistBackendPtr openBackend(const std::string& url, std::string* error);
PersistBackendPtr openBackend(CPersistUrl url, const std::string& original, std::string* error);

// The in-memory backend. "memory://" gives a fresh, private store; "memory://NAME" gives the store
// of that name shared by every backend opened with it in this process, so a test can close and
// reopen it. dropMemoryStores() forgets every named store.
PersistBackendPtr newMemoryBackend(const std::string& name = std::string());
void dropMemoryStores();

// The smallest string greater than every string that begins with `prefix`, for range reads
// "key >= prefix AND key < upper". False when there is none (an empty prefix, or one made only
// of 0xFF bytes): the range then has no upper end.
bool prefixSuccessor(const std::string& prefix, std::string* upper);

}  // namespace persist
