// persist::CPersistService: where sub-accounts and portfolios keep the state a trader expects back
// after restarting the terminal.
//
// Data model:
//   hashes  a named hash ("NqTradeData", "NqLoanRepurchaseImpawnData") maps a key to a BSON document.
//           Key parts are joined by "____" (four underscores). In readAllData a pattern that ends in
//           ".*" reads every key beginning with what precedes the ".*"; any other pattern is one
//           literal key: '*', '?', '[' and '.' inside a key are ordinary characters.
//   sets    a set name maps to a set of strings.
//   lists   a list name maps to an ordered list of documents.
//
// Writes go through one in-memory queue per service, applied by the service's writer thread:
//   - operations are applied in the order they were queued (so writes of one key land in order);
//   - every read sees every write queued before it, from any thread, even before the writer has
//     applied it (reads consult the writes still pending);
//   - a write the backend refuses for a passing reason (server down, disk full, file locked) stays
//     queued and is retried with back-off, doubling from `retry_ms` to `retry_max_ms`; it is never
//     dropped silently. The only writes ever given up are those the backend rejects as unstorable,
//     and those still queued when shutdown() times out: each is logged on "TTStdFile" with its
//     hash and key and counted in m_nFailed;
//   - the queue holds at most `queue` operations; a write that does not fit is refused: the call
//     returns false, "TTStdFile" gets an error line, and m_nRejected counts it;
//   - the writer hands what has gathered to the backend as one batch (up to `batch` operations:
//     one SQLite transaction, one pipeline of MULTI/EXEC blocks on Redis), so the cost of a commit
//     or a round trip is shared by every write waiting for it. asyncWriteDatas() groups are never
//     split: each is applied all or nothing.
//
// Options, as URL query parameters of open() (e.g. "sqlite:///data/tt.db?queue=500000&sync=full"):
//   queue=N                 most operations queued at once. Default: 262144.
//   batch=N                 most operations applied in one transaction. Default: 2048.
//   retry_ms=N              first pause after a failed apply. Default: 10.
//   retry_max_ms=N          longest pause between retries. Default: 2000.
//   shutdown_timeout_ms=N   how long shutdown() keeps retrying a failing backend before it gives up
//                           what is left (logged and counted). Default: 30000.
//   write_timeout_ms=N      how long writeData() waits for its write to be applied. Default: 10000.
//   linger_ms=N             after a batch, how often the writer looks for more work while writes
//                           keep coming (see Cost). 0 wakes the writer for every write that finds
//                           it idle. Default: 1.
// plus the backend's own options (PersistBackend.h; e.g. sqlite sync=full).
//
// Cost: queueing a write copies its hash and key (the document is shared, not copied) and bumps a
// counter; it makes no system call while the writer is busy or lingering. For 250 ms after its
// last batch the writer lingers, looking for new writes every `linger_ms`, so a write waits at
// most that long before the writer takes it (sooner when a full batch is waiting, and at once for
// flush() and writeData()), and writes arriving meanwhile share a transaction. Only the first write
// after a quiet spell pays for waking the writer. A read of a key with no write pending goes
// straight to the store; a read of a key with writes pending, and a pattern, set or list read
// while writes of that kind are pending, search the queue instead (holding the queue's mutex for
// the length of the queue).
//
// Thread safety: every member may be called from any thread. One mutex guards the queue and the
// counters; a write holds it for a few moves, the writer for a counter update per operation, and
// it is never held while the backend is called (the writer retires a finished batch in steps of a
// few hundred operations). The writer thread is the only caller of apply().
#pragma once

#include <boost/shared_ptr.hpp>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bson/BSONObj.h"
#include "persist/PersistBackend.h"

namespace persist {

// The service's own settings; each matches a URL option above.
struct CPersistOptions {
    size_t m_nQueueLimit = 262144;     // queue=. Default: 262144 operations.
    size_t m_nMaxBatchOps = 2048;      // batch=. Default: 2048 operations per transaction.
    int m_nRetryDelayMs = 10;          // retry_ms=. Default: 10 ms.
    int m_nMaxRetryDelayMs = 2000;     // retry_max_ms=. Default: 2000 ms.
    int m_nShutdownTimeoutMs = 30000;  // shutdown_timeout_ms=. Default: 30000 ms; negative waits forever.
    int m_nWriteTimeoutMs = 10000;     // write_timeout_ms=. Default: 10000 ms.
    int m_nLingerMs = 1;               // linger_ms=. Default: 1 ms; 0 never lingers.
};

// Counts since the service was opened (m_nPending is the current depth).
struct CPersistCounters {
    uint64_t m_nQueued = 0;    // operations accepted into the queue
    uint64_t m_nApplied = 0;   // operations stored by the backend
    uint64_t m_nRetried = 0;   // failed apply attempts that were tried again
    uint64_t m_nFailed = 0;    // operations given up (unstorable, or left when shutdown timed out)
    uint64_t m_nRejected = 0;  // operations refused because the queue was full
    uint64_t m_nPending = 0;   // operations queued or being applied now
};

class CPersistService {
public:
    // The process default, opened on first use from ConfigCollector's "persist.url"; when that is
    // empty, "sqlite://" + ($XDG_DATA_HOME or $HOME/.local/share) + "/ttservice/ttservice.db" (the
    // folder is created). If the store cannot be opened the error is logged and the returned
    // service refuses every write (returns false) and reads nothing; it is never null.
    static boost::shared_ptr<CPersistService> instance();
    // Replaces the process default (tests, tools). An empty pointer returns to the lazily opened one.
    static void setInstance(const boost::shared_ptr<CPersistService>& service);
    // Opens a service on the store a URL names. Empty pointer and *error on failure.
    static boost::shared_ptr<CPersistService> open(const std::string& url, std::string* error);
    // A service over a backend the caller made (tests wrap backends, e.g. CFaultInjectionBackend).
    static boost::shared_ptr<CPersistService> create(const PersistBackendPtr& backend,
                                                     const CPersistOptions& options = CPersistOptions());

    // Drains the queue (shutdown()) and closes the store.
    ~CPersistService();
    CPersistService(const CPersistService&) = delete;
    CPersistService& operator=(const CPersistService&) = delete;

    // ---- reads: synchronous, and they see every write queued before them ----

    // The document at (hash, key); the empty document when absent or unreadable (logged).
    bson::BSONObj readData(const std::string& hash, const std::string& key);
    // Adds to `out` (replacing entries of equal key) the documents whose keys match `pattern`:
    // "prefix.*" matches every key beginning with "prefix", anything else is one literal key.
    // Returns false when the store could not be read (out then holds only still-pending writes).
    // Stored documents that fail validation are logged with their key and left out.
    bool readAllData(const std::string& hash, const std::string& pattern,
                     std::map<std::string, bson::BSONObj>& out);
    // Replaces `out` with the members of the set. False when the store could not be read.
    bool readSetStrData(const std::string& setName, std::set<std::string>& out);
    // Replaces `out` with the documents of the list, in order. False when the store could not be read.
    bool readListData(const std::string& listName, std::vector<bson::BSONObj>& out);

    // ---- writes: queued, applied in order by the writer thread ----
    // Each returns true once the operation is queued, false when it was refused (queue full,
    // service shut down, or no store); a refusal is logged on "TTStdFile".

    // Stores `value` at (hash, key) and waits until it (and everything queued before it) is
    // applied. False when the store did not take it within `write_timeout_ms`; the write then stays
    // queued and is still applied when the store recovers.
    bool writeData(const std::string& hash, const std::string& key, const bson::BSONObj& value);
    // Queues `value` for (hash, key). `bWriteThrough`: false (the push path) returns as soon as the
    // write is queued; true behaves as writeData, waiting until the write is applied.
    bool asyncWriteData(const std::string& hash, const std::string& key, const bson::BSONObj& value,
                        bool bWriteThrough = false);
    // Queues the pairs as one batch: they are applied together in one transaction, all or none.
    bool asyncWriteDatas(const std::string& hash,
                         const std::vector<std::pair<std::string, bson::BSONObj> >& datas);
    // Queues the removal of (hash, key), ordered with the writes.
    bool removeData(const std::string& hash, const std::string& key);
    bool asyncWriteSetStrData(const std::string& setName, const std::string& member);
    bool removeSetStrData(const std::string& setName, const std::string& member);
    // Appends `docs` to the list, or with `replace` makes the list exactly `docs`.
    bool asyncWriteListData(const std::string& listName, const std::vector<bson::BSONObj>& docs,
                            bool replace);

    // Waits until every operation queued before the call has been applied (or given up).
    void flush();
    // The same with a limit; false when the limit passed first.
    bool flushFor(std::chrono::milliseconds limit);
    // Stops taking writes, applies everything queued (retrying failures for up to
    // `shutdown_timeout_ms`), stops the writer thread. Idempotent; reads keep working afterwards.
    void shutdown();

    CPersistCounters counters() const;
    // The backend (tools and tests); null for a service that could not open its store.
    const PersistBackendPtr& backend() const;
    const CPersistOptions& options() const;

private:
    class CImpl;
    explicit CPersistService(std::unique_ptr<CImpl> impl);

    const std::unique_ptr<CImpl> m_pImpl;
};

typedef boost::shared_ptr<CPersistService> PersistServicePtr;

// Reads the service options (queue=, batch=, ...) out of a parsed URL, leaving the backend's own.
bool takeServiceOptions(CPersistUrl* url, CPersistOptions* options, std::string* error);

}  // namespace persist
