#include "persist/CPersistService.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <thread>

#include "config/ConfigCollector.h"
#include "utils/LogCenter.h"

namespace persist {

namespace {

const char* kindName(EWriteKind k) {
    switch (k) {
        case WRITE_PUT:
            return "write";
        case WRITE_REMOVE:
            return "removal";
        case WRITE_SET_ADD:
            return "set add";
        case WRITE_SET_REMOVE:
            return "set removal";
        case WRITE_LIST_APPEND:
            return "list append";
        case WRITE_LIST_REPLACE:
            return "list replace";
    }
    return "operation";
}

bool endsWithWildcard(const std::string& pattern) {
    return pattern.size() >= 2 && pattern.compare(pattern.size() - 2, 2, ".*") == 0;
}

bool hasPrefix(const std::string& s, const std::string& prefix) {
    return s.size() >= prefix.size() && s.compare(0, prefix.size(), prefix) == 0;
}

// Pending hash writes are counted in this many slots, by a hash of the key.
const size_t kSlots = 1 << 14;
// After its last batch the writer lingers (polls every linger_ms, so writers need not wake it) for
// this long before it sleeps until woken.
const std::chrono::milliseconds kLingerWindow(250);
// Operations retired per hold of the queue mutex, so writers wait at most that long for it.
const size_t kRetireStep = 256;
// Log the first failure of a streak and then every this many.
const int kLogEveryFailures = 20;

}  // namespace

// ---------------------------------------------------------------------------------------------
// The service proper. See the header for the guarantees; the notes here are about how.
//
// Every queued operation gets a sequence number and waits in m_chunks (contiguous vectors, handed
// to the writer whole, in O(1)); the chunk the writer is applying stays visible as m_inFlight until
// it is done. Finished chunks come back as spares with their operations kept: the next writes are
// copied into strings that already have room, so a steady stream of writes allocates nothing. The queue
// itself is what reads consult for writes not yet applied:
//   - a key read first looks at its slot in m_slots, a count of pending writes by a hash of the key.
//     A zero count (the usual case) means every write of the key has been applied: the store has it.
//     Otherwise the pending operations are searched for the latest write of the key;
//   - pattern, set and list reads search the pending operations when any of their kind are pending.
// A slot is only decremented after the store has applied the write, so a read that finds the slot
// empty and goes to the store finds the write there. Queueing a write therefore costs one copy of
// its names and a counter increment; the search costs only the rare read of a key still pending.
//
// Waking a sleeping thread is a system call that costs the waker microseconds, far more than the
// enqueue itself. So a write never wakes the writer while it is busy or lingering: after a batch
// the writer polls the queue every linger_ms for kLingerWindow, and only a writer that has gone
// to sleep is woken by the next write. A lingering writer is woken early when a full batch is
// waiting, or by flush(), writeData() and shutdown(), which wait for it.
class CPersistService::CImpl {
public:
    CImpl(const PersistBackendPtr& backend, const CPersistOptions& options);
    ~CImpl() { shutdown(); }

    bson::BSONObj readData(const std::string& hash, const std::string& key);
    bool readAllData(const std::string& hash, const std::string& pattern,
                     std::map<std::string, bson::BSONObj>& out);
    bool readSet(const std::string& name, std::set<std::string>& out);
    bool readList(const std::string& name, std::vector<bson::BSONObj>& out);

    bool enqueueKeyOp(EWriteKind kind, const std::string& name, const std::string& key,
                      const bson::BSONObj& value, bool wait);
    bool enqueueGroup(const std::string& hash,
                      const std::vector<std::pair<std::string, bson::BSONObj> >& datas);
    bool enqueueList(const std::string& name, const std::vector<bson::BSONObj>& docs, bool replace);

    bool flushFor(std::chrono::milliseconds limit);
    void flush();
    void shutdown();
    CPersistCounters counters() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_counters;
    }

    const PersistBackendPtr m_pBackend;
    const CPersistOptions m_options;

private:
    // Operations in contiguous storage. m_ops is reserved once and never grown past that, so an
    // operation keeps its address while readers look at it; slots from m_nUsed on are spare.
    struct CChunk {
        std::vector<CWriteOp> m_ops;
        size_t m_nUsed = 0;
    };

    enum EFamily { FAMILY_HASH = 0, FAMILY_SET = 1, FAMILY_LIST = 2, FAMILY_COUNT = 3 };
    static EFamily familyOf(EWriteKind k) {
        return k == WRITE_PUT || k == WRITE_REMOVE           ? FAMILY_HASH
               : k == WRITE_SET_ADD || k == WRITE_SET_REMOVE ? FAMILY_SET
                                                             : FAMILY_LIST;
    }
    static size_t slotOf(const std::string& key) { return std::hash<std::string_view>()(key) & (kSlots - 1); }

    // Under m_mutex: room for `n` operations, or false (counted and to be logged by the caller).
    bool admitLocked(size_t n, const char** reason);
    // A chunk with room for `n` more operations, started (from the spares) if need be.
    CChunk& chunkForLocked(size_t n);
    // The next operation slot of `c`, to be filled in by the caller.
    static CWriteOp& nextSlotLocked(CChunk& c);
    // Numbers and counts c's last `n` operations as one group, and says whether to wake the writer
    // (`urgent`: the caller is about to wait for the writer).
    void commitLocked(CChunk& c, size_t n, bool urgent, bool* notify);
    // Wakes a writer that is not busy. Under m_mutex.
    void wakeWriterLocked();
    // Calls f(op) for every operation not yet applied, oldest first.
    template <class F>
    void forEachPendingLocked(const F& f) const;
    bool refuse(EWriteKind kind, const std::string& name, const std::string& key, const char* reason,
                uint64_t refusedSoFar);
    bool waitOutcome(uint64_t seq);
    // Validates bytes read back from the store; false (logged with hash and key) when they are not
    // a sound document.
    bool decode(const std::string& hash, const std::string& key, const std::string& bytes,
                bson::BSONObj* out) const;

    void writerLoop();
    void applyWithRetry(CWriteOp* ops, size_t n);
    void retire(CWriteOp* ops, size_t n, bool applied, const std::string& reason);

    // m_mutex guards every member from here to m_counters.
    mutable std::mutex m_mutex;
    std::condition_variable m_cvWork;  // the writer waits here for operations or shutdown
    std::condition_variable m_cvDone;  // flush and writeData wait here
    std::deque<CChunk> m_chunks;       // queued, not yet taken by the writer
    std::vector<CChunk> m_spareChunks;
    // The chunk the writer is working through; operations before m_nInFlightDone are retired. The
    // writer reads it without the mutex but changes it only under it.
    CChunk m_inFlight;
    size_t m_nInFlightDone;
    std::vector<uint32_t> m_slots;            // pending hash writes per key slot
    size_t m_nPendingOfFamily[FAMILY_COUNT];  // pending operations of each family
    uint64_t m_nNextSeq;                      // sequence number of the next operation queued
    uint64_t m_nDoneSeq;                      // every operation up to this one has been applied or given up
    // WRITER_BUSY also once a wake-up has been sent, so that one is sent only once.
    enum EWriterState { WRITER_BUSY, WRITER_LINGERING, WRITER_ASLEEP } m_eWriterState;
    bool m_bStopping;
    std::chrono::steady_clock::time_point m_stopDeadline;
    std::map<uint64_t, int> m_syncWaiters;  // writeData: seq -> 0 waiting, 1 applied, -1 given up
    CPersistCounters m_counters;

    // Held exclusively by the writer while it applies and retires a batch holding list operations,
    // shared by list reads: a list read never sees a list change both in the store and pending.
    std::shared_mutex m_listApplyMutex;

    // Writer thread only.
    uint64_t m_nBatchId;
    bool m_bAbandoning;  // shutdown timed out: what is left is given up

    std::mutex m_shutdownMutex;  // serialises shutdown()
    bool m_bShutdownDone;
    std::thread m_writer;
};

CPersistService::CImpl::CImpl(const PersistBackendPtr& backend, const CPersistOptions& options)
    : m_pBackend(backend),
      m_options(options),
      m_nInFlightDone(0),
      m_slots(kSlots, 0),
      m_nPendingOfFamily{0, 0, 0},
      m_nNextSeq(1),
      m_nDoneSeq(0),
      m_eWriterState(WRITER_BUSY),
      m_bStopping(false),
      m_nBatchId(0),
      m_bAbandoning(false),
      m_bShutdownDone(false) {
    if (m_pBackend) m_writer = std::thread(&CImpl::writerLoop, this);
}

template <class F>
void CPersistService::CImpl::forEachPendingLocked(const F& f) const {
    for (size_t i = m_nInFlightDone; i < m_inFlight.m_nUsed; ++i) f(m_inFlight.m_ops[i]);
    for (const CChunk& chunk : m_chunks) {
        for (size_t i = 0; i < chunk.m_nUsed; ++i) f(chunk.m_ops[i]);
    }
}

// ---- reads ----

bool CPersistService::CImpl::decode(const std::string& hash, const std::string& key, const std::string& bytes,
                                    bson::BSONObj* out) const {
    std::string reason;
    *out = bson::BSONObj::fromBytes(bytes, &reason);
    if (reason.empty()) return true;
    TT_LOG_STD_ERROR("skipped unreadable document in '%1%' key '%2%' of %3%: %4%", hash, key,
                     m_pBackend->url(), reason);
    return false;
}

bson::BSONObj CPersistService::CImpl::readData(const std::string& hash, const std::string& key) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_slots[slotOf(key)] != 0) {
            const CWriteOp* latest = nullptr;
            forEachPendingLocked([&](const CWriteOp& op) {
                if (familyOf(op.m_eKind) == FAMILY_HASH && op.m_strKey == key && op.m_strName == hash)
                    latest = &op;
            });
            if (latest) return latest->m_eKind == WRITE_PUT ? latest->m_value : bson::BSONObj();
        }
    }
    if (!m_pBackend) return bson::BSONObj();
    std::string bytes, error;
    bool found = false;
    if (!m_pBackend->get(hash, key, &bytes, &found, &error)) {
        TT_LOG_STD_ERROR("cannot read '%1%' key '%2%': %3%", hash, key, error);
        return bson::BSONObj();
    }
    bson::BSONObj o;
    if (found) decode(hash, key, bytes, &o);
    return o;
}

bool CPersistService::CImpl::readAllData(const std::string& hash, const std::string& pattern,
                                         std::map<std::string, bson::BSONObj>& out) {
    const bool isPrefix = endsWithWildcard(pattern);
    const std::string prefix = isPrefix ? pattern.substr(0, pattern.size() - 2) : pattern;
    // key -> latest pending value (empty pointer for a removal)
    std::map<std::string, const bson::BSONObj*> pendingRefs;
    std::map<std::string, bson::BSONObj> pending;
    std::set<std::string> pendingRemoved;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_nPendingOfFamily[FAMILY_HASH] != 0) {
            forEachPendingLocked([&](const CWriteOp& op) {
                if (familyOf(op.m_eKind) != FAMILY_HASH || op.m_strName != hash) return;
                if (isPrefix ? !hasPrefix(op.m_strKey, prefix) : op.m_strKey != prefix) return;
                pendingRefs[op.m_strKey] = op.m_eKind == WRITE_PUT ? &op.m_value : nullptr;
            });
            for (const auto& p : pendingRefs) {
                if (p.second) {
                    pending[p.first] = *p.second;
                } else {
                    pendingRemoved.insert(p.first);
                }
            }
        }
    }
    std::map<std::string, bson::BSONObj> found;
    bool ok = false;
    if (m_pBackend) {
        std::string error;
        KeyBytesList rows;
        if (isPrefix) {
            ok = m_pBackend->scan(hash, prefix, &rows, &error);
        } else {
            bool present = false;
            std::string bytes;
            ok = m_pBackend->get(hash, prefix, &bytes, &present, &error);
            if (ok && present) rows.emplace_back(prefix, bytes);
        }
        if (!ok) TT_LOG_STD_ERROR("cannot read '%1%' keys '%2%': %3%", hash, pattern, error);
        for (const auto& row : rows) {
            bson::BSONObj o;
            if (decode(hash, row.first, row.second, &o)) found[row.first] = o;
        }
    }
    for (const std::string& k : pendingRemoved) found.erase(k);
    for (auto& p : pending) found[p.first] = p.second;
    for (auto& f : found) out[f.first] = f.second;
    return ok;
}

bool CPersistService::CImpl::readSet(const std::string& name, std::set<std::string>& out) {
    std::map<std::string, bool> pending;  // member -> added (true) or removed (false), latest wins
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_nPendingOfFamily[FAMILY_SET] != 0) {
            forEachPendingLocked([&](const CWriteOp& op) {
                if (familyOf(op.m_eKind) == FAMILY_SET && op.m_strName == name) {
                    pending[op.m_strKey] = op.m_eKind == WRITE_SET_ADD;
                }
            });
        }
    }
    std::set<std::string> members;
    bool ok = false;
    if (m_pBackend) {
        std::string error;
        ok = m_pBackend->readSet(name, &members, &error);
        if (!ok) TT_LOG_STD_ERROR("cannot read set '%1%': %2%", name, error);
    }
    for (const auto& p : pending) {
        if (p.second) {
            members.insert(p.first);
        } else {
            members.erase(p.first);
        }
    }
    out.swap(members);
    return ok;
}

bool CPersistService::CImpl::readList(const std::string& name, std::vector<bson::BSONObj>& out) {
    std::shared_lock<std::shared_mutex> applyLock(m_listApplyMutex);
    std::vector<std::pair<bool, std::vector<bson::BSONObj> > > pending;  // (replace, documents), in order
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_nPendingOfFamily[FAMILY_LIST] != 0) {
            forEachPendingLocked([&](const CWriteOp& op) {
                if (op.isListOp() && op.m_strName == name)
                    pending.emplace_back(op.m_eKind == WRITE_LIST_REPLACE, op.m_values);
            });
        }
    }
    std::vector<bson::BSONObj> docs;
    bool ok = false;
    if (m_pBackend) {
        std::string error;
        std::vector<std::string> rows;
        ok = m_pBackend->readList(name, &rows, &error);
        if (!ok) TT_LOG_STD_ERROR("cannot read list '%1%': %2%", name, error);
        for (size_t i = 0; i < rows.size(); ++i) {
            bson::BSONObj o;
            if (decode(name, "#" + std::to_string(i), rows[i], &o)) docs.push_back(o);
        }
    }
    for (const auto& p : pending) {
        if (p.first) docs.clear();
        docs.insert(docs.end(), p.second.begin(), p.second.end());
    }
    out.swap(docs);
    return ok;
}

// ---- writes ----

bool CPersistService::CImpl::admitLocked(size_t n, const char** reason) {
    if (!m_pBackend) {
        *reason = "no store is open";
        return false;
    }
    if (m_bStopping) {
        *reason = "the service is shut down";
        return false;
    }
    if (m_counters.m_nPending + n > m_options.m_nQueueLimit) {
        m_counters.m_nRejected += n;
        *reason = "the queue is full";
        return false;
    }
    return true;
}

CPersistService::CImpl::CChunk& CPersistService::CImpl::chunkForLocked(size_t n) {
    // A group never spans two chunks.
    CChunk* chunk = m_chunks.empty() ? nullptr : &m_chunks.back();
    if (!chunk || chunk->m_nUsed + n > chunk->m_ops.capacity()) {
        m_chunks.emplace_back();
        chunk = &m_chunks.back();
        if (!m_spareChunks.empty()) {
            std::swap(*chunk, m_spareChunks.back());
            m_spareChunks.pop_back();
        }
        chunk->m_ops.reserve(std::max(n, std::max<size_t>(m_options.m_nMaxBatchOps, 1)));
    }
    return *chunk;
}

CWriteOp& CPersistService::CImpl::nextSlotLocked(CChunk& c) {
    if (c.m_nUsed == c.m_ops.size()) c.m_ops.emplace_back();
    return c.m_ops[c.m_nUsed++];
}

void CPersistService::CImpl::commitLocked(CChunk& c, size_t n, bool urgent, bool* notify) {
    for (size_t i = c.m_nUsed - n; i < c.m_nUsed; ++i) {
        CWriteOp& op = c.m_ops[i];
        op.m_nSeq = m_nNextSeq++;
        op.m_bGroupEnd = i + 1 == c.m_nUsed;
        const EFamily family = familyOf(op.m_eKind);
        if (family == FAMILY_HASH) ++m_slots[slotOf(op.m_strKey)];
        ++m_nPendingOfFamily[family];
    }
    m_counters.m_nQueued += n;
    m_counters.m_nPending += n;
    // A busy writer comes back for more by itself and a lingering one looks within linger_ms, so
    // the push path pays no system call unless the writer sleeps, a full batch waits, or the
    // caller will wait for the write.
    *notify =
        m_eWriterState == WRITER_ASLEEP ||
        (m_eWriterState == WRITER_LINGERING && (urgent || m_counters.m_nPending >= m_options.m_nMaxBatchOps));
    if (*notify) m_eWriterState = WRITER_BUSY;
}

void CPersistService::CImpl::wakeWriterLocked() {
    if (m_eWriterState == WRITER_BUSY) return;
    m_eWriterState = WRITER_BUSY;
    m_cvWork.notify_one();
}

bool CPersistService::CImpl::refuse(EWriteKind kind, const std::string& name, const std::string& key,
                                    const char* reason, uint64_t refusedSoFar) {
    TT_LOG_STD_ERROR("refused %1% of '%2%' key '%3%': %4% (%5% operations refused so far, queue limit %6%)",
                     kindName(kind), name, key, reason, refusedSoFar, m_options.m_nQueueLimit);
    return false;
}

bool CPersistService::CImpl::enqueueKeyOp(EWriteKind kind, const std::string& name, const std::string& key,
                                          const bson::BSONObj& value, bool wait) {
    uint64_t seq = 0, refused = 0;
    bool notify = false;
    const char* reason = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (admitLocked(1, &reason)) {
            CChunk& chunk = chunkForLocked(1);
            CWriteOp& op = nextSlotLocked(chunk);
            op.m_eKind = kind;
            op.m_strName.assign(name);
            op.m_strKey.assign(key);
            op.m_value = kind == WRITE_PUT ? value : bson::BSONObj();
            op.m_values.clear();
            seq = m_nNextSeq;
            if (wait) m_syncWaiters[seq] = 0;
            commitLocked(chunk, 1, wait, &notify);
        }
        refused = m_counters.m_nRejected;
    }
    if (reason) return refuse(kind, name, key, reason, refused);
    if (notify) m_cvWork.notify_one();
    return wait ? waitOutcome(seq) : true;
}

bool CPersistService::CImpl::enqueueGroup(const std::string& hash,
                                          const std::vector<std::pair<std::string, bson::BSONObj> >& datas) {
    if (datas.empty()) return true;
    bool notify = false;
    const char* reason = nullptr;
    uint64_t refused = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (admitLocked(datas.size(), &reason)) {
            CChunk& chunk = chunkForLocked(datas.size());
            for (const auto& d : datas) {
                CWriteOp& op = nextSlotLocked(chunk);
                op.m_eKind = WRITE_PUT;
                op.m_strName.assign(hash);
                op.m_strKey.assign(d.first);
                op.m_value = d.second;
                op.m_values.clear();
            }
            commitLocked(chunk, datas.size(), false, &notify);
        }
        refused = m_counters.m_nRejected;
    }
    if (reason) {
        return refuse(WRITE_PUT, hash,
                      datas.front().first + " (and " + std::to_string(datas.size() - 1) + " more)", reason,
                      refused);
    }
    if (notify) m_cvWork.notify_one();
    return true;
}

bool CPersistService::CImpl::enqueueList(const std::string& name, const std::vector<bson::BSONObj>& docs,
                                         bool replace) {
    if (!replace && docs.empty()) return true;
    const EWriteKind kind = replace ? WRITE_LIST_REPLACE : WRITE_LIST_APPEND;
    bool notify = false;
    const char* reason = nullptr;
    uint64_t refused = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (admitLocked(1, &reason)) {
            CChunk& chunk = chunkForLocked(1);
            CWriteOp& op = nextSlotLocked(chunk);
            op.m_eKind = kind;
            op.m_strName.assign(name);
            op.m_strKey.clear();
            op.m_value = bson::BSONObj();
            op.m_values = docs;
            commitLocked(chunk, 1, false, &notify);
        }
        refused = m_counters.m_nRejected;
    }
    if (reason) return refuse(kind, name, "", reason, refused);
    if (notify) m_cvWork.notify_one();
    return true;
}

bool CPersistService::CImpl::waitOutcome(uint64_t seq) {
    std::unique_lock<std::mutex> lock(m_mutex);
    auto it = m_syncWaiters.find(seq);
    m_cvDone.wait_for(lock, std::chrono::milliseconds(std::max(0, m_options.m_nWriteTimeoutMs)),
                      [&] { return it->second != 0; });
    const int outcome = it->second;
    m_syncWaiters.erase(it);
    lock.unlock();
    if (outcome == 0) {
        TT_LOG_STD_ERROR("write %1% not applied within %2% ms; it stays queued and is retried", seq,
                         m_options.m_nWriteTimeoutMs);
    }
    return outcome == 1;
}

bool CPersistService::CImpl::flushFor(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const uint64_t target = m_nNextSeq - 1;
    if (m_nDoneSeq >= target) return true;
    wakeWriterLocked();
    return m_cvDone.wait_for(lock, limit, [&] { return m_nDoneSeq >= target; });
}

void CPersistService::CImpl::flush() {
    std::unique_lock<std::mutex> lock(m_mutex);
    const uint64_t target = m_nNextSeq - 1;
    if (m_nDoneSeq >= target) return;
    wakeWriterLocked();
    m_cvDone.wait(lock, [&] { return m_nDoneSeq >= target; });
}

void CPersistService::CImpl::shutdown() {
    std::lock_guard<std::mutex> once(m_shutdownMutex);
    if (m_bShutdownDone) return;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bStopping = true;
        m_stopDeadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(m_options.m_nShutdownTimeoutMs);
    }
    m_cvWork.notify_all();
    if (m_writer.joinable()) m_writer.join();
    m_bShutdownDone = true;
    if (m_pBackend) {
        CPersistCounters c = counters();
        TT_LOG_STD_INFO(
            "persistence on %1% stopped: %2% queued, %3% applied, %4% retried, %5% failed, %6% refused",
            m_pBackend->url(), c.m_nQueued, c.m_nApplied, c.m_nRetried, c.m_nFailed, c.m_nRejected);
    }
}

// ---- the writer thread ----

void CPersistService::CImpl::writerLoop() {
    const size_t maxBatch = std::max<size_t>(m_options.m_nMaxBatchOps, 1);
    const std::chrono::milliseconds linger(std::max(0, m_options.m_nLingerMs));
    std::chrono::steady_clock::time_point lastWork;  // long ago: start asleep
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        while (m_chunks.empty() && !m_bStopping) {
            const auto now = std::chrono::steady_clock::now();
            if (linger.count() > 0 && now - lastWork < kLingerWindow) {
                m_eWriterState = WRITER_LINGERING;
                m_cvWork.wait_until(lock, now + linger);
            } else {
                m_eWriterState = WRITER_ASLEEP;
                m_cvWork.wait(lock);
            }
        }
        m_eWriterState = WRITER_BUSY;
        if (m_chunks.empty()) return;  // stopping, and everything is applied
        std::swap(m_inFlight, m_chunks.front());
        m_chunks.pop_front();
        m_nInFlightDone = 0;
        lock.unlock();

        CWriteOp* const ops = m_inFlight.m_ops.data();
        const size_t count = m_inFlight.m_nUsed;
        size_t pos = 0;
        while (pos < count) {
            // Whole groups, up to maxBatch operations (a larger group goes alone).
            size_t end = pos;
            while (end < count) {
                size_t g = end;
                while (g + 1 < count && !ops[g].m_bGroupEnd) ++g;
                if (end > pos && g + 1 - pos > maxBatch) break;
                end = g + 1;
            }
            if (m_bAbandoning) {
                retire(ops + pos, end - pos, false, "shutdown timed out while the store was failing");
            } else {
                applyWithRetry(ops + pos, end - pos);
            }
            pos = end;
        }
        // Every operation of the chunk is retired, so no reader looks at them any more: they let
        // go of their documents without the lock.
        for (size_t i = 0; i < count; ++i) {
            ops[i].m_value = bson::BSONObj();
            ops[i].m_values.clear();
        }
        lastWork = std::chrono::steady_clock::now();

        // The chunk is kept for reuse, unless an unusually large group made it much bigger than a
        // normal one; and the writer looks for more work under the same hold of the lock.
        CChunk done;
        lock.lock();
        std::swap(done, m_inFlight);
        m_nInFlightDone = 0;
        done.m_nUsed = 0;
        if (done.m_ops.capacity() <= 4 * maxBatch && m_spareChunks.size() < 4) {
            m_spareChunks.push_back(std::move(done));
        } else {
            lock.unlock();
            done = CChunk();
            lock.lock();
        }
    }
}

void CPersistService::CImpl::applyWithRetry(CWriteOp* ops, size_t n) {
    const bool hasList = std::any_of(ops, ops + n, [](const CWriteOp& op) { return op.isListOp(); });
    const size_t groups =
        static_cast<size_t>(std::count_if(ops, ops + n, [](const CWriteOp& op) { return op.m_bGroupEnd; }));
    const uint64_t batchId = ++m_nBatchId;
    int delayMs = std::max(1, m_options.m_nRetryDelayMs);
    int failures = 0;
    for (;;) {
        std::string error;
        EApplyResult r;
        {
            std::unique_lock<std::shared_mutex> listLock(m_listApplyMutex, std::defer_lock);
            if (hasList) listLock.lock();
            r = m_pBackend->apply(ops, n, batchId, &error);
            if (r == APPLY_OK) {
                retire(ops, n, true, std::string());
            } else if (r == APPLY_REJECTED && groups == 1) {
                // One group the store will not take: give it up, loudly.
                retire(ops, n, false, error);
            }
        }
        if (r == APPLY_OK) {
            if (failures > 0) {
                TT_LOG_STD_INFO("persistence on %1% recovered after %2% failed attempts", m_pBackend->url(),
                                failures);
            }
            return;
        }
        if (r == APPLY_REJECTED) {
            if (groups == 1) return;
            // Several groups: apply each on its own, so one unstorable group costs only itself.
            TT_LOG_STD_ERROR(
                "store %1% refused a batch of %2% operations (%3%); applying them one group at a time",
                m_pBackend->url(), n, error);
            size_t begin = 0;
            for (size_t i = 0; i < n; ++i) {
                if (!ops[i].m_bGroupEnd) continue;
                if (m_bAbandoning) {
                    retire(ops + begin, i + 1 - begin, false,
                           "shutdown timed out while the store was failing");
                } else {
                    applyWithRetry(ops + begin, i + 1 - begin);
                }
                begin = i + 1;
            }
            return;
        }
        ++failures;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            if (m_bStopping && m_options.m_nShutdownTimeoutMs >= 0 &&
                std::chrono::steady_clock::now() >= m_stopDeadline) {
                lock.unlock();
                TT_LOG_STD_ERROR(
                    "shutdown timed out: store %1% still failing (%2%); giving up what is queued",
                    m_pBackend->url(), error);
                m_bAbandoning = true;
                retire(ops, n, false, "shutdown timed out while the store was failing: " + error);
                return;
            }
            ++m_counters.m_nRetried;
            if (failures == 1 || failures % kLogEveryFailures == 0) {
                TT_LOG_STD_ERROR(
                    "store %1% failed to apply %2% operations (attempt %3%, retrying in %4% ms): %5%",
                    m_pBackend->url(), n, failures, delayMs, error);
            }
            auto wakeAt = std::chrono::steady_clock::now() + std::chrono::milliseconds(delayMs);
            if (m_bStopping && m_options.m_nShutdownTimeoutMs >= 0) wakeAt = std::min(wakeAt, m_stopDeadline);
            const bool wasStopping = m_bStopping;
            // Shutdown interrupts the pause, so its deadline is checked at once.
            m_cvWork.wait_until(lock, wakeAt, [&] { return m_bStopping != wasStopping; });
        }
        delayMs = std::min(delayMs * 2, std::max(1, m_options.m_nMaxRetryDelayMs));
    }
}

void CPersistService::CImpl::retire(CWriteOp* ops, size_t n, bool applied, const std::string& reason) {
    if (!applied) {
        for (size_t i = 0; i < n; ++i) {
            TT_LOG_STD_ERROR("gave up %1% of '%2%' key '%3%' (%4% bytes): %5%", kindName(ops[i].m_eKind),
                             ops[i].m_strName, ops[i].m_strKey, ops[i].m_value.objsize(), reason);
        }
    }
    // In steps, so a large batch does not hold up writers. Retiring part of a group is safe: the
    // store already holds all of it, and the rest is served from the queue meanwhile.
    for (size_t begin = 0; begin < n; begin += kRetireStep) {
        const size_t end = std::min(n, begin + kRetireStep);
        std::lock_guard<std::mutex> lock(m_mutex);
        for (size_t i = begin; i < end; ++i) {
            const EFamily family = familyOf(ops[i].m_eKind);
            if (family == FAMILY_HASH) --m_slots[slotOf(ops[i].m_strKey)];
            --m_nPendingOfFamily[family];
            if (!m_syncWaiters.empty()) {
                auto w = m_syncWaiters.find(ops[i].m_nSeq);
                if (w != m_syncWaiters.end()) w->second = applied ? 1 : -1;
            }
        }
        m_nInFlightDone = static_cast<size_t>(ops + end - m_inFlight.m_ops.data());
        (applied ? m_counters.m_nApplied : m_counters.m_nFailed) += end - begin;
        m_counters.m_nPending -= end - begin;
        m_nDoneSeq = ops[end - 1].m_nSeq;
    }
    m_cvDone.notify_all();
}

// ---------------------------------------------------------------------------------------------

bool takeServiceOptions(CPersistUrl* url, CPersistOptions* options, std::string* error) {
    struct {
        const char* name;
        long long min;
        long long value;
        bool present;
    } items[] = {{"queue", 1, 0, false},
                 {"batch", 1, 0, false},
                 {"retry_ms", 1, 0, false},
                 {"retry_max_ms", 1, 0, false},
                 {"shutdown_timeout_ms", -1, 0, false},
                 {"write_timeout_ms", 0, 0, false},
                 {"linger_ms", 0, 0, false}};
    for (auto& it : items) {
        if (!url->takeInt(it.name, &it.value, &it.present, error)) return false;
        if (it.present && (it.value < it.min || it.value > 2000000000LL)) {
            if (error)
                *error = std::string("persistence option '") + it.name +
                         "' is out of range: " + std::to_string(it.value);
            return false;
        }
    }
    if (items[0].present) options->m_nQueueLimit = static_cast<size_t>(items[0].value);
    if (items[1].present) options->m_nMaxBatchOps = static_cast<size_t>(items[1].value);
    if (items[2].present) options->m_nRetryDelayMs = static_cast<int>(items[2].value);
    if (items[3].present) options->m_nMaxRetryDelayMs = static_cast<int>(items[3].value);
    if (items[4].present) options->m_nShutdownTimeoutMs = static_cast<int>(items[4].value);
    if (items[5].present) options->m_nWriteTimeoutMs = static_cast<int>(items[5].value);
    if (items[6].present) options->m_nLingerMs = static_cast<int>(items[6].value);
    return true;
}

namespace {

std::mutex g_instanceMutex;  // guards g_instance
boost::shared_ptr<CPersistService> g_instance;

std::string defaultUrl(std::string* error) {
    boost::shared_ptr<ttservice::ConfigCollector> config = ttservice::ConfigCollector::instance();
    std::string url = config ? config->getString("persist.url") : std::string();
    if (!url.empty()) return url;
    std::string base;
    const char* xdg = getenv("XDG_DATA_HOME");
    const char* home = getenv("HOME");
    if (xdg && *xdg) {
        base = xdg;
    } else if (home && *home) {
        base = std::string(home) + "/.local/share";
    } else {
        *error = "neither persist.url, $XDG_DATA_HOME nor $HOME is set";
        return std::string();
    }
    const std::string folder = base + "/ttservice";
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    if (ec) {
        *error = "cannot create folder '" + folder + "': " + ec.message();
        return std::string();
    }
    return "sqlite://" + folder + "/ttservice.db";
}

}  // namespace

CPersistService::CPersistService(std::unique_ptr<CImpl> impl) : m_pImpl(std::move(impl)) {}

CPersistService::~CPersistService() {
    m_pImpl->shutdown();
}

boost::shared_ptr<CPersistService> CPersistService::instance() {
    std::lock_guard<std::mutex> lock(g_instanceMutex);
    if (!g_instance) {
        std::string error;
        std::string url = defaultUrl(&error);
        if (!url.empty()) g_instance = open(url, &error);
        if (!g_instance) {
            TT_LOG_STD_ERROR("persistence unavailable, writes will be refused: %1%", error);
            g_instance.reset(new CPersistService(
                std::unique_ptr<CImpl>(new CImpl(PersistBackendPtr(), CPersistOptions()))));
        }
    }
    return g_instance;
}

void CPersistService::setInstance(const boost::shared_ptr<CPersistService>& service) {
    boost::shared_ptr<CPersistService> old;
    std::lock_guard<std::mutex> lock(g_instanceMutex);
    old.swap(g_instance);
    g_instance = service;
}

boost::shared_ptr<CPersistService> CPersistService::open(const std::string& url, std::string* error) {
    CPersistUrl parsed;
    if (!CPersistUrl::parse(url, &parsed, error)) return boost::shared_ptr<CPersistService>();
    CPersistOptions options;
    if (!takeServiceOptions(&parsed, &options, error)) return boost::shared_ptr<CPersistService>();
    PersistBackendPtr backend = openBackend(parsed, url, error);
    if (!backend) return boost::shared_ptr<CPersistService>();
    return create(backend, options);
}

boost::shared_ptr<CPersistService> CPersistService::create(const PersistBackendPtr& backend,
                                                           const CPersistOptions& options) {
    return boost::shared_ptr<CPersistService>(
        new CPersistService(std::unique_ptr<CImpl>(new CImpl(backend, options))));
}

bson::BSONObj CPersistService::readData(const std::string& hash, const std::string& key) {
    return m_pImpl->readData(hash, key);
}

bool CPersistService::readAllData(const std::string& hash, const std::string& pattern,
                                  std::map<std::string, bson::BSONObj>& out) {
    return m_pImpl->readAllData(hash, pattern, out);
}

bool CPersistService::readSetStrData(const std::string& setName, std::set<std::string>& out) {
    return m_pImpl->readSet(setName, out);
}

bool CPersistService::readListData(const std::string& listName, std::vector<bson::BSONObj>& out) {
    return m_pImpl->readList(listName, out);
}

bool CPersistService::writeData(const std::string& hash, const std::string& key, const bson::BSONObj& value) {
    return m_pImpl->enqueueKeyOp(WRITE_PUT, hash, key, value, true);
}

bool CPersistService::asyncWriteData(const std::string& hash, const std::string& key,
                                     const bson::BSONObj& value, bool bWriteThrough) {
    return m_pImpl->enqueueKeyOp(WRITE_PUT, hash, key, value, bWriteThrough);
}

bool CPersistService::asyncWriteDatas(const std::string& hash,
                                      const std::vector<std::pair<std::string, bson::BSONObj> >& datas) {
    return m_pImpl->enqueueGroup(hash, datas);
}

bool CPersistService::removeData(const std::string& hash, const std::string& key) {
    return m_pImpl->enqueueKeyOp(WRITE_REMOVE, hash, key, bson::BSONObj(), false);
}

bool CPersistService::asyncWriteSetStrData(const std::string& setName, const std::string& member) {
    return m_pImpl->enqueueKeyOp(WRITE_SET_ADD, setName, member, bson::BSONObj(), false);
}

bool CPersistService::removeSetStrData(const std::string& setName, const std::string& member) {
    return m_pImpl->enqueueKeyOp(WRITE_SET_REMOVE, setName, member, bson::BSONObj(), false);
}

bool CPersistService::asyncWriteListData(const std::string& listName, const std::vector<bson::BSONObj>& docs,
                                         bool replace) {
    return m_pImpl->enqueueList(listName, docs, replace);
}

void CPersistService::flush() {
    m_pImpl->flush();
}

bool CPersistService::flushFor(std::chrono::milliseconds limit) {
    return m_pImpl->flushFor(limit);
}

void CPersistService::shutdown() {
    m_pImpl->shutdown();
}

CPersistCounters CPersistService::counters() const {
    return m_pImpl->counters();
}

const PersistBackendPtr& CPersistService::backend() const {
    return m_pImpl->m_pBackend;
}

const CPersistOptions& CPersistService::options() const {
    return m_pImpl->m_options;
}

}  // namespace persist
