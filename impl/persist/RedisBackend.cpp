// The Redis backend, over hiredis 0.14 (RESP2, blocking connections).
//
// Layout, under a namespace prefix NS (URL option namespace=, default "tt"):
//   NS:h:NAME     a Redis hash per persisted hash: key -> BSON bytes
//   NS:x:NAME     a sorted set of the same keys, all with score 0: the lexicographic index that
//                 prefix reads walk with ZRANGEBYLEX (a byte-wise range, so '*', '?', '[' in keys
//                 are plain bytes); updated in the same MULTI/EXEC as the hash, so the two agree
//   NS:v:NAME     a counter bumped by every transaction that changes the hash
//   NS:s:NAME     a Redis set per persisted set
//   NS:l:NAME     a Redis list per persisted list (BSON bytes)
//   NS:hashes, NS:sets, NS:lists   the names in use, for tools that walk the whole store
//   NS:applied:ID the last list-holding batch applied by the writer with id ID (expires after a week)
// Every change is made inside MULTI/EXEC, pipelined. A batch of puts, removals and set changes is
// cut at group ends into transactions of about 256 operations, all sent at once, so the server
// applies one while the next arrives; if an attempt fails part-way, the retry resumes at the first
// transaction not confirmed (sending again one that did run changes nothing for these operations).
// A batch holding list operations is one transaction that also records its id in NS:applied:ID: if
// the connection fails after it was sent, the retry reads the marker and skips the batch when it
// took effect, so an append is never doubled.
//
// A prefix read takes pages of kScanPage keys, each with one script (ZRANGEBYLEX then HMGET on the
// server, so a page is one consistent state), and checks that the hash's counter did not move
// between pages; if it did, a transaction landed in the middle and the read starts again. After
// kScanAttempts such restarts it reads the whole range with one script. So a reader never sees part
// of a transaction, as a SQLite reader never does.
//
// Two connections (writer thread, readers), each behind its own mutex. A connection that fails is
// dropped and re-established on the next call; while the server stays away, attempts are spaced
// with a back-off doubling from 50 ms to 2 s, so callers fail fast instead of each waiting for a
// connect timeout. SIGPIPE from a vanished server is blocked and consumed around each call on the
// calling thread only; the process's signal dispositions are left alone.
#include <hiredis/hiredis.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>
#include <mutex>
#include <random>
#include <set>

#include "Backends.h"

namespace persist {

namespace {

const size_t kScanPage = 1000;
const int kScanAttempts = 4;
// KEYS: index, hash, counter. ARGV: min, max, most keys (-1: all). Returns {counter, keys, values};
// HMGET goes in slices, since Lua unpacks only a few thousand values at once.
const char* const kScanScript =
    "local v = redis.call('GET', KEYS[3]) or '0' "
    "local ks = redis.call('ZRANGEBYLEX', KEYS[1], ARGV[1], ARGV[2], 'LIMIT', 0, tonumber(ARGV[3])) "
    "local vs = {} "
    "for i = 1, #ks, 1000 do "
    "  local part = redis.call('HMGET', KEYS[2], unpack(ks, i, math.min(i + 999, #ks))) "
    "  for j = 1, #part do vs[#vs + 1] = part[j] end "
    "end "
    "return {v, ks, vs}";
// Operations per transaction when a batch is split (see splitParts).
const size_t kPartOps = 256;

typedef std::unique_ptr<redisReply, void (*)(void*)> ReplyPtr;

ReplyPtr makeReply(void* r) {
    return ReplyPtr(static_cast<redisReply*>(r), freeReplyObject);
}

// Blocks SIGPIPE on this thread for the guard's life and discards one raised meanwhile.
class CSigPipeGuard {
public:
    CSigPipeGuard() {
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        m_bWasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_old);
    }
    ~CSigPipeGuard() {
        if (!m_bWasPending) {
            sigset_t pending;
            sigpending(&pending);
            if (sigismember(&pending, SIGPIPE) == 1) {
                struct timespec zero = {0, 0};
                sigtimedwait(&m_pipe, nullptr, &zero);
            }
        }
        pthread_sigmask(SIG_SETMASK, &m_old, nullptr);
    }

private:
    sigset_t m_pipe;
    sigset_t m_old;
    bool m_bWasPending;
};

// The arguments of one command; strings added by reference must outlive the command. Strings it
// owns stay where they are when the command moves (a list's nodes never move), and it cannot be
// copied, since a copy would point into the original.
class CArgs {
public:
    CArgs() = default;
    CArgs(const CArgs&) = delete;
    CArgs& operator=(const CArgs&) = delete;
    CArgs(CArgs&&) noexcept = default;
    CArgs& operator=(CArgs&&) noexcept = default;

    CArgs& add(const std::string& s) { return add(s.data(), s.size()); }
    CArgs& add(const char* p, size_t n) {
        m_ptrs.push_back(p);
        m_lens.push_back(n);
        return *this;
    }
    CArgs& lit(const char* s) { return add(s, strlen(s)); }
    CArgs& own(std::string s) {
        m_owned.push_back(std::move(s));
        return add(m_owned.back());
    }
    CArgs& doc(const bson::BSONObj& o) {
        return add(reinterpret_cast<const char*>(o.objdata()), static_cast<size_t>(o.objsize()));
    }
    int argc() const { return static_cast<int>(m_ptrs.size()); }
    const char** argv() { return m_ptrs.data(); }
    const size_t* lens() const { return m_lens.data(); }

private:
    std::vector<const char*> m_ptrs;
    std::vector<size_t> m_lens;
    std::list<std::string> m_owned;
};

struct CRedisAddress {
    std::string m_strHost = "127.0.0.1";
    int m_nPort = 6379;
    int m_nDb = 0;
    std::string m_strPassword;
    int m_nConnectTimeoutMs = 1000;
    int m_nTimeoutMs = 10000;
};

timeval toTimeval(int ms) {
    timeval tv;
    tv.tv_sec = ms / 1000;
    tv.tv_usec = (ms % 1000) * 1000;
    return tv;
}

class CRedisConnection {
public:
    explicit CRedisConnection(const CRedisAddress& a) : m_addr(a), m_pCtx(nullptr), m_nDelayMs(0) {}
    ~CRedisConnection() { drop(); }
    CRedisConnection(const CRedisConnection&) = delete;
    CRedisConnection& operator=(const CRedisConnection&) = delete;

    std::mutex& mutex() { return m_mutex; }

    // Connected, or false with the reason; honours the back-off between failed attempts.
    bool ensure(std::string* error) {
        if (m_pCtx) return true;
        auto now = std::chrono::steady_clock::now();
        if (now < m_nextAttempt) {
            if (error)
                *error = where() + ": not connected (" + m_strLastError + "), next attempt after back-off";
            return false;
        }
        std::string why;
        if (connect(&why)) {
            m_nDelayMs = 0;
            return true;
        }
        m_nDelayMs = std::min(2000, std::max(50, m_nDelayMs * 2));
        m_nextAttempt = now + std::chrono::milliseconds(m_nDelayMs);
        m_strLastError = why;
        if (error) *error = where() + ": " + why;
        return false;
    }

    // Forgets a connection after an I/O failure; the next call reconnects at once.
    void drop() {
        if (m_pCtx) redisFree(m_pCtx);
        m_pCtx = nullptr;
    }

    // Sends one command and returns its reply; null (connection dropped, *error set) on I/O failure.
    ReplyPtr command(CArgs& args, std::string* error) {
        if (!ensure(error)) return makeReply(nullptr);
        ReplyPtr r = makeReply(redisCommandArgv(m_pCtx, args.argc(), args.argv(), args.lens()));
        if (!r) ioFailed(error);
        return r;
    }

    // Pipelines the commands; fills `replies` with one reply each. False (connection dropped,
    // *error set) when the connection failed part-way.
    bool pipeline(std::vector<CArgs>& cmds, std::vector<ReplyPtr>* replies, std::string* error) {
        if (!ensure(error)) return false;
        for (CArgs& c : cmds) {
            if (redisAppendCommandArgv(m_pCtx, c.argc(), c.argv(), c.lens()) != REDIS_OK)
                return ioFailed(error);
        }
        for (size_t i = 0; i < cmds.size(); ++i) {
            void* r = nullptr;
            if (redisGetReply(m_pCtx, &r) != REDIS_OK || !r) return ioFailed(error);
            replies->push_back(makeReply(r));
        }
        return true;
    }

    std::string where() const { return "Redis " + m_addr.m_strHost + ":" + std::to_string(m_addr.m_nPort); }

private:
    bool connect(std::string* why) {
        redisContext* c = redisConnectWithTimeout(m_addr.m_strHost.c_str(), m_addr.m_nPort,
                                                  toTimeval(m_addr.m_nConnectTimeoutMs));
        if (!c || c->err) {
            *why = c ? c->errstr : "cannot allocate a connection";
            if (c) redisFree(c);
            return false;
        }
        redisSetTimeout(c, toTimeval(m_addr.m_nTimeoutMs));
        redisEnableKeepAlive(c);
        m_pCtx = c;
        if (!m_addr.m_strPassword.empty()) {
            CArgs a;
            a.lit("AUTH").add(m_addr.m_strPassword);
            if (!simpleOk(a, why)) return false;
        }
        if (m_addr.m_nDb != 0) {
            CArgs a;
            a.lit("SELECT").own(std::to_string(m_addr.m_nDb));
            if (!simpleOk(a, why)) return false;
        }
        return true;
    }

    bool simpleOk(CArgs& a, std::string* why) {
        ReplyPtr r = makeReply(redisCommandArgv(m_pCtx, a.argc(), a.argv(), a.lens()));
        if (r && r->type != REDIS_REPLY_ERROR) return true;
        *why = std::string(a.argv()[0]) +
               " failed: " + (r ? std::string(r->str, r->len) : std::string(m_pCtx->errstr));
        drop();
        return false;
    }

    bool ioFailed(std::string* error) {
        if (error) *error = where() + ": " + (m_pCtx && m_pCtx->err ? m_pCtx->errstr : "connection lost");
        drop();
        return false;
    }

    CRedisAddress m_addr;
    redisContext* m_pCtx;
    std::chrono::steady_clock::time_point m_nextAttempt;
    int m_nDelayMs;
    std::string m_strLastError;
    std::mutex m_mutex;  // one thread at a time on this connection
};

std::string replyText(const redisReply* r) {
    if (!r) return "no reply";
    if (r->str) return std::string(r->str, r->len);
    return "reply of type " + std::to_string(r->type);
}

// Server states that pass: out of memory, loading, busy script, replica trouble, failed save.
bool isPassingError(const std::string& e) {
    static const char* const kPassing[] = {"OOM",        "LOADING", "BUSY",     "MASTERDOWN", "READONLY",
                                           "NOREPLICAS", "MISCONF", "TRYAGAIN", "CLUSTERDOWN"};
    for (const char* p : kPassing) {
        if (e.compare(0, strlen(p), p) == 0) return true;
    }
    return false;
}

class CRedisBackend : public IPersistBackend {
public:
    CRedisBackend(const std::string& url, const CRedisAddress& addr, const std::string& ns)
        : m_strUrl(url),
          m_writer(addr),
          m_reader(addr),
          m_strNs(ns),
          m_nAmbiguousBatch(0),
          m_nResumeBatch(0),
          m_nResumePart(0) {
        std::random_device rd;
        uint64_t id = (static_cast<uint64_t>(rd()) << 32) ^ rd();
        char buf[24];
        snprintf(buf, sizeof(buf), "%016llx", static_cast<unsigned long long>(id));
        m_strMarker = ns + ":applied:" + buf;
    }

    // Connects once so that a wrong address or password is reported by open().
    bool probe(std::string* error) {
        std::lock_guard<std::mutex> lock(m_reader.mutex());
        CSigPipeGuard guard;
        CArgs a;
        a.lit("PING");
        ReplyPtr r = m_reader.command(a, error);
        if (!r) return false;
        if (r->type == REDIS_REPLY_ERROR) {
            if (error) *error = m_reader.where() + ": " + replyText(r.get());
            return false;
        }
        return true;
    }

    std::string url() const override { return m_strUrl; }

    EApplyResult apply(const CWriteOp* ops, size_t n, uint64_t batchId, std::string* error) override {
        std::lock_guard<std::mutex> lock(m_writer.mutex());
        CSigPipeGuard guard;
        const bool hasList = std::any_of(ops, ops + n, [](const CWriteOp& op) { return op.isListOp(); });
        if (hasList && batchId != 0 && batchId == m_nAmbiguousBatch) {
            CArgs a;
            a.lit("GET").add(m_strMarker);
            ReplyPtr r = m_writer.command(a, error);
            if (!r) return APPLY_RETRY;
            m_nAmbiguousBatch = 0;
            if (r->type == REDIS_REPLY_STRING && replyText(r.get()) == std::to_string(batchId))
                return APPLY_OK;
        }
        const std::vector<std::pair<size_t, size_t> > parts = splitParts(ops, n, hasList);
        const size_t first = batchId != 0 && batchId == m_nResumeBatch ? m_nResumePart : 0;
        m_nResumeBatch = 0;

        std::vector<CArgs> cmds;
        std::vector<size_t> execAt(parts.size(), 0);
        for (size_t p = first; p < parts.size(); ++p) {
            cmds.emplace_back();
            cmds.back().lit("MULTI");
            appendOps(ops + parts[p].first, parts[p].second - parts[p].first, &cmds);
            appendVersions(ops + parts[p].first, parts[p].second - parts[p].first, &cmds);
            if (p == first) appendRegistries(ops + parts[p].first, n - parts[p].first, &cmds);
            if (hasList) {
                cmds.emplace_back();
                cmds.back().lit("SET").add(m_strMarker).own(std::to_string(batchId)).lit("EX").lit("604800");
            }
            cmds.emplace_back();
            cmds.back().lit("EXEC");
            execAt[p] = cmds.size() - 1;
        }
        std::vector<ReplyPtr> replies;
        replies.reserve(cmds.size());
        const bool answered = m_writer.pipeline(cmds, &replies, error);

        // Parts are confirmed in order, up to the first that failed or went unanswered.
        size_t confirmed = first;
        std::string failure;
        size_t cmdStart = 0;
        for (size_t p = first; p < parts.size() && execAt[p] < replies.size(); ++p) {
            std::string e = transactionError(replies, cmdStart, execAt[p]);
            cmdStart = execAt[p] + 1;
            if (e.empty() && confirmed == p) ++confirmed;
            if (!e.empty() && failure.empty()) failure = e;
        }
        if (!answered) {
            // Whatever was sent after the last answer may or may not have run.
            m_nResumeBatch = batchId;
            m_nResumePart = confirmed;
            if (hasList) m_nAmbiguousBatch = batchId;
            return APPLY_RETRY;
        }
        if (failure.empty()) return APPLY_OK;
        // Parts after a failed one may have run; they are sent again on retry, which for puts,
        // removals and set changes (the only operations split across parts) changes nothing.
        m_nResumeBatch = batchId;
        m_nResumePart = confirmed;
        if (error) *error = m_writer.where() + ": " + failure;
        return isPassingError(failure) ? APPLY_RETRY : APPLY_REJECTED;
    }

    bool get(const std::string& hash, const std::string& key, std::string* bytes, bool* found,
             std::string* error) override {
        std::lock_guard<std::mutex> lock(m_reader.mutex());
        CSigPipeGuard guard;
        *found = false;
        CArgs a;
        a.lit("HGET").own(hashKey(hash)).add(key);
        ReplyPtr r = m_reader.command(a, error);
        if (!r || !expect(r.get(), error)) return false;
        if (r->type == REDIS_REPLY_STRING) {
            bytes->assign(r->str, r->len);
            *found = true;
        }
        return true;
    }

    bool scan(const std::string& hash, const std::string& prefix, KeyBytesList* out,
              std::string* error) override {
        std::lock_guard<std::mutex> lock(m_reader.mutex());
        CSigPipeGuard guard;
        std::string upper;
        const std::string min = prefix.empty() ? std::string("-") : "[" + prefix;
        const std::string max = prefixSuccessor(prefix, &upper) ? "(" + upper : std::string("+");
        const std::string hkey = hashKey(hash), xkey = indexKey(hash), vkey = versionKey(hash);
        const size_t base = out->size();
        for (int attempt = 0;; ++attempt) {
            const bool whole = attempt >= kScanAttempts;
            const std::string limit = whole ? std::string("-1") : std::to_string(kScanPage);
            std::string from = min, version;
            for (bool firstPage = true;; firstPage = false) {
                CArgs a;
                a.lit("EVAL").add(kScanScript, strlen(kScanScript)).lit("3").add(xkey).add(hkey).add(vkey);
                a.add(from).add(max).add(limit);
                ReplyPtr r = m_reader.command(a, error);
                if (!r || !expect(r.get(), error)) return false;
                const bool triple = r->type == REDIS_REPLY_ARRAY && r->elements == 3;
                const redisReply* keys = triple ? r->element[1] : nullptr;
                const redisReply* vals = triple ? r->element[2] : nullptr;
                if (!keys || keys->type != REDIS_REPLY_ARRAY || !vals || vals->type != REDIS_REPLY_ARRAY ||
                    vals->elements != keys->elements) {
                    if (error)
                        *error = m_reader.where() + ": unexpected reply to a prefix read of '" + hkey + "'";
                    return false;
                }
                const std::string v = replyText(r->element[0]);
                if (!firstPage && v != version) break;  // the hash changed between pages
                version = v;
                for (size_t i = 0; i < keys->elements; ++i) {
                    // A key in the index but not in the hash is skipped: both change in one
                    // transaction, so this only happens if something else edited the hash.
                    if (vals->element[i]->type != REDIS_REPLY_STRING) continue;
                    out->emplace_back(std::string(keys->element[i]->str, keys->element[i]->len),
                                      std::string(vals->element[i]->str, vals->element[i]->len));
                }
                if (whole || keys->elements < kScanPage) return true;
                const redisReply* last = keys->element[keys->elements - 1];
                from = "(" + std::string(last->str, last->len);
            }
            out->resize(base);
        }
    }

    bool readSet(const std::string& name, std::set<std::string>* out, std::string* error) override {
        std::lock_guard<std::mutex> lock(m_reader.mutex());
        CSigPipeGuard guard;
        CArgs a;
        a.lit("SMEMBERS").own(m_strNs + ":s:" + name);
        ReplyPtr r = m_reader.command(a, error);
        if (!r || !expect(r.get(), error)) return false;
        for (size_t i = 0; i < r->elements; ++i)
            out->insert(std::string(r->element[i]->str, r->element[i]->len));
        return true;
    }

    bool readList(const std::string& name, std::vector<std::string>* out, std::string* error) override {
        std::lock_guard<std::mutex> lock(m_reader.mutex());
        CSigPipeGuard guard;
        CArgs a;
        a.lit("LRANGE").own(m_strNs + ":l:" + name).lit("0").lit("-1");
        ReplyPtr r = m_reader.command(a, error);
        if (!r || !expect(r.get(), error)) return false;
        for (size_t i = 0; i < r->elements; ++i)
            out->push_back(std::string(r->element[i]->str, r->element[i]->len));
        return true;
    }

    bool listNames(ENameKind kind, std::vector<std::string>* out, std::string* error) override {
        std::lock_guard<std::mutex> lock(m_reader.mutex());
        CSigPipeGuard guard;
        out->clear();
        CArgs a;
        a.lit("SMEMBERS").own(registryKey(kind));
        ReplyPtr r = m_reader.command(a, error);
        if (!r || !expect(r.get(), error)) return false;
        if (r->elements == 0) return true;
        // A name stays registered after its last key goes; report only names that hold data.
        std::vector<CArgs> checks(r->elements);
        std::vector<std::string> names;
        for (size_t i = 0; i < r->elements; ++i) {
            names.emplace_back(r->element[i]->str, r->element[i]->len);
            checks[i].lit("EXISTS").own(typedKey(kind, names.back()));
        }
        std::vector<ReplyPtr> exists;
        if (!m_reader.pipeline(checks, &exists, error)) return false;
        for (size_t i = 0; i < names.size(); ++i) {
            if (exists[i]->type == REDIS_REPLY_INTEGER && exists[i]->integer > 0) out->push_back(names[i]);
        }
        std::sort(out->begin(), out->end());
        return true;
    }

private:
    std::string hashKey(const std::string& name) const { return m_strNs + ":h:" + name; }
    std::string indexKey(const std::string& name) const { return m_strNs + ":x:" + name; }
    std::string versionKey(const std::string& name) const { return m_strNs + ":v:" + name; }
    std::string registryKey(ENameKind kind) const {
        return m_strNs + (kind == NAMES_HASHES ? ":hashes" : kind == NAMES_SETS ? ":sets" : ":lists");
    }
    std::string typedKey(ENameKind kind, const std::string& name) const {
        return m_strNs + (kind == NAMES_HASHES ? ":h:" : kind == NAMES_SETS ? ":s:" : ":l:") + name;
    }

    bool expect(const redisReply* r, std::string* error) const {
        if (r->type != REDIS_REPLY_ERROR) return true;
        if (error) *error = m_reader.where() + ": " + replyText(r);
        return false;
    }

    // A batch holding list operations is one transaction, so that the applied marker can tell
    // whether a lost answer hid an append. Any other batch is cut, at group ends, into transactions
    // of about kPartOps operations, pipelined: the server applies the first while the rest arrive.
    static std::vector<std::pair<size_t, size_t> > splitParts(const CWriteOp* ops, size_t n, bool single) {
        std::vector<std::pair<size_t, size_t> > parts;
        size_t begin = 0;
        for (size_t i = 0; i < n && !single; ++i) {
            if (ops[i].m_bGroupEnd && i + 1 - begin >= kPartOps) {
                parts.emplace_back(begin, i + 1);
                begin = i + 1;
            }
        }
        if (begin < n) parts.emplace_back(begin, n);
        return parts;
    }

    // The error of the transaction whose replies are replies[from..exec] ("" when it applied):
    // a command refused while queueing (EXEC then aborts), EXEC refused, or a command that failed
    // inside the transaction.
    static std::string transactionError(const std::vector<ReplyPtr>& replies, size_t from, size_t exec) {
        for (size_t i = from; i < exec; ++i) {
            if (replies[i]->type == REDIS_REPLY_ERROR)
                return "transaction refused: " + replyText(replies[i].get());
        }
        const redisReply* r = replies[exec].get();
        if (r->type == REDIS_REPLY_ERROR) return "transaction refused: " + replyText(r);
        if (r->type != REDIS_REPLY_ARRAY) return "transaction aborted";
        for (size_t i = 0; i < r->elements; ++i) {
            if (r->element[i]->type == REDIS_REPLY_ERROR)
                return "command in transaction failed: " + replyText(r->element[i]);
        }
        return std::string();
    }

    // The operations as commands: runs of puts or removes on one hash fold into one HSET/HDEL and
    // one ZADD/ZREM, runs of set changes into one SADD/SREM.
    void appendOps(const CWriteOp* ops, size_t n, std::vector<CArgs>* cmds) const {
        size_t i = 0;
        while (i < n) {
            const CWriteOp& op = ops[i];
            size_t j = i + 1;
            if (op.m_eKind == WRITE_PUT || op.m_eKind == WRITE_REMOVE || op.m_eKind == WRITE_SET_ADD ||
                op.m_eKind == WRITE_SET_REMOVE) {
                while (j < n && ops[j].m_eKind == op.m_eKind && ops[j].m_strName == op.m_strName) ++j;
            }
            switch (op.m_eKind) {
                case WRITE_PUT: {
                    CArgs h, z;
                    h.lit("HSET").own(hashKey(op.m_strName));
                    z.lit("ZADD").own(indexKey(op.m_strName));
                    for (size_t k = i; k < j; ++k) {
                        h.add(ops[k].m_strKey).doc(ops[k].m_value);
                        z.lit("0").add(ops[k].m_strKey);
                    }
                    cmds->push_back(std::move(h));
                    cmds->push_back(std::move(z));
                    break;
                }
                case WRITE_REMOVE: {
                    CArgs h, z;
                    h.lit("HDEL").own(hashKey(op.m_strName));
                    z.lit("ZREM").own(indexKey(op.m_strName));
                    for (size_t k = i; k < j; ++k) {
                        h.add(ops[k].m_strKey);
                        z.add(ops[k].m_strKey);
                    }
                    cmds->push_back(std::move(h));
                    cmds->push_back(std::move(z));
                    break;
                }
                case WRITE_SET_ADD:
                case WRITE_SET_REMOVE: {
                    CArgs s;
                    s.lit(op.m_eKind == WRITE_SET_ADD ? "SADD" : "SREM").own(m_strNs + ":s:" + op.m_strName);
                    for (size_t k = i; k < j; ++k) s.add(ops[k].m_strKey);
                    cmds->push_back(std::move(s));
                    break;
                }
                case WRITE_LIST_REPLACE:
                case WRITE_LIST_APPEND: {
                    const std::string lkey = m_strNs + ":l:" + op.m_strName;
                    if (op.m_eKind == WRITE_LIST_REPLACE) {
                        cmds->emplace_back();
                        cmds->back().lit("DEL").own(lkey);
                    }
                    if (!op.m_values.empty()) {
                        CArgs l;
                        l.lit("RPUSH").own(lkey);
                        for (const bson::BSONObj& d : op.m_values) l.doc(d);
                        cmds->push_back(std::move(l));
                    }
                    break;
                }
            }
            i = j;
        }
    }

    // Bumps the counter of every hash the operations change (see scan()).
    void appendVersions(const CWriteOp* ops, size_t n, std::vector<CArgs>* cmds) const {
        std::set<std::string> hashes;
        for (size_t i = 0; i < n; ++i) {
            if (ops[i].m_eKind == WRITE_PUT || ops[i].m_eKind == WRITE_REMOVE)
                hashes.insert(ops[i].m_strName);
        }
        for (const std::string& h : hashes) {
            cmds->emplace_back();
            cmds->back().lit("INCR").own(versionKey(h));
        }
    }

    // Registers the names the operations create, for tools that walk the store.
    void appendRegistries(const CWriteOp* ops, size_t n, std::vector<CArgs>* cmds) const {
        std::set<std::string> names[3];
        for (size_t i = 0; i < n; ++i) {
            if (ops[i].m_eKind == WRITE_PUT) names[NAMES_HASHES].insert(ops[i].m_strName);
            if (ops[i].m_eKind == WRITE_SET_ADD) names[NAMES_SETS].insert(ops[i].m_strName);
            if (ops[i].isListOp() && !ops[i].m_values.empty()) names[NAMES_LISTS].insert(ops[i].m_strName);
        }
        addRegistry(NAMES_HASHES, names[NAMES_HASHES], cmds);
        addRegistry(NAMES_SETS, names[NAMES_SETS], cmds);
        addRegistry(NAMES_LISTS, names[NAMES_LISTS], cmds);
    }

    void addRegistry(ENameKind kind, const std::set<std::string>& names, std::vector<CArgs>* cmds) const {
        if (names.empty()) return;
        CArgs a;
        a.lit("SADD").own(registryKey(kind));
        for (const std::string& n : names) a.own(n);
        cmds->push_back(std::move(a));
    }

    std::string m_strUrl;
    CRedisConnection m_writer;
    CRedisConnection m_reader;
    std::string m_strNs;
    std::string m_strMarker;
    // Guarded by m_writer.mutex(): the batch whose list transaction went unanswered, and the batch
    // (and how many of its parts) confirmed before an attempt failed, so a retry starts after them.
    uint64_t m_nAmbiguousBatch;
    uint64_t m_nResumeBatch;
    size_t m_nResumePart;
};

bool parseAddress(const std::string& rest, CRedisAddress* a, std::string* why) {
    std::string s = rest;
    size_t at = s.rfind('@');
    if (at != std::string::npos) {
        std::string auth = s.substr(0, at);
        s = s.substr(at + 1);
        size_t colon = auth.find(':');
        a->m_strPassword = colon == std::string::npos ? auth : auth.substr(colon + 1);
    }
    size_t slash = s.find('/');
    if (slash != std::string::npos) {
        std::string db = s.substr(slash + 1);
        s.resize(slash);
        if (!db.empty()) {
            char* end = nullptr;
            long v = strtol(db.c_str(), &end, 10);
            if (*end != '\0' || v < 0 || v > 1000000) {
                *why = "database '" + db + "' is not a number";
                return false;
            }
            a->m_nDb = static_cast<int>(v);
        }
    }
    size_t colon = s.rfind(':');
    if (colon != std::string::npos) {
        std::string port = s.substr(colon + 1);
        s.resize(colon);
        char* end = nullptr;
        long v = strtol(port.c_str(), &end, 10);
        if (port.empty() || *end != '\0' || v <= 0 || v > 65535) {
            *why = "port '" + port + "' is not a port number";
            return false;
        }
        a->m_nPort = static_cast<int>(v);
    }
    if (!s.empty()) a->m_strHost = s;
    return true;
}

}  // namespace

PersistBackendPtr openRedisBackend(CPersistUrl* url, const std::string& original, std::string* error) {
    CRedisAddress addr;
    std::string why;
    if (!parseAddress(url->m_strRest, &addr, &why)) {
        if (error) *error = "persistence URL '" + original + "': " + why;
        return PersistBackendPtr();
    }
    long long v = 0;
    bool present = false;
    if (!url->takeInt("timeout_ms", &v, &present, error)) return PersistBackendPtr();
    if (present) addr.m_nTimeoutMs = static_cast<int>(v);
    if (!url->takeInt("connect_timeout_ms", &v, &present, error)) return PersistBackendPtr();
    if (present) addr.m_nConnectTimeoutMs = static_cast<int>(v);
    std::string ns = "tt", nsOption;
    if (url->take("namespace", &nsOption)) {
        if (nsOption.empty()) {
            if (error) *error = "persistence URL '" + original + "': option namespace must not be empty";
            return PersistBackendPtr();
        }
        ns = nsOption;
    }
    if (!checkNoOtherOptions(*url, original, error)) return PersistBackendPtr();
    boost::shared_ptr<CRedisBackend> backend(new CRedisBackend(original, addr, ns));
    if (!backend->probe(error)) return PersistBackendPtr();
    return backend;
}

}  // namespace persist
