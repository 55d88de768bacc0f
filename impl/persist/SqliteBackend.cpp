// The SQLite backend: the embedded default.
//
// Layout (schema version 1, kept in PRAGMA user_version):
//   tt_hash(hash TEXT, key TEXT, value BLOB)   unique index on (hash, key)
//   tt_set(name TEXT, member TEXT)             unique index on (name, member)
//   tt_list(name TEXT, pos INTEGER, value BLOB) unique index on (name, pos)
// Rowid tables with a unique index: for 500-byte values they insert several times faster than
// WITHOUT ROWID tables. Keys compare as bytes (BINARY collation), so a prefix read is the index
// range "hash = ? AND key >= prefix AND key < successor(prefix)".
//
// Durability: WAL journal. The default synchronous=NORMAL makes every committed batch survive a
// crash of the process; a power cut or kernel crash can lose the last batches committed before it,
// never corrupt the file. "?sync=full" fsyncs the WAL on every commit, so a committed batch also
// survives a power cut, at the cost of one fsync per batch.
//
// Opening runs PRAGMA quick_check (about 30 ms for a 50 MB file with a warm cache), so a damaged
// file is refused at start with a message naming it, instead of failing a read here and a write
// there; "?check=none" skips it, to open a damaged file anyway and copy out what can be read.
//
// Two connections: the writer thread's (all writes, one transaction per batch) and one shared by
// readers, each behind its own mutex; under WAL a reader never waits for the writer's transaction.
// Every statement is prepared once and reused.
#include <sqlite3.h>

#include <cstdlib>
#include <mutex>

#include "Backends.h"

namespace persist {

namespace {

const int kSchemaVersion = 1;

// WAL pages (4 KB each) written before the log is copied back into the database file. A
// checkpoint syncs the file, so with SQLite's default of 1000 a steady stream of batches spends
// most of its time in checkpoints; 10000 (about 40 MB of log) keeps them rare.
const long long kDefaultCheckpointPages = 10000;

const char* const kSchema =
    "CREATE TABLE IF NOT EXISTS tt_hash(hash TEXT NOT NULL, key TEXT NOT NULL, value BLOB NOT NULL);"
    "CREATE UNIQUE INDEX IF NOT EXISTS tt_hash_key ON tt_hash(hash, key);"
    "CREATE TABLE IF NOT EXISTS tt_set(name TEXT NOT NULL, member TEXT NOT NULL);"
    "CREATE UNIQUE INDEX IF NOT EXISTS tt_set_member ON tt_set(name, member);"
    "CREATE TABLE IF NOT EXISTS tt_list(name TEXT NOT NULL, pos INTEGER NOT NULL, value BLOB NOT NULL);"
    "CREATE UNIQUE INDEX IF NOT EXISTS tt_list_pos ON tt_list(name, pos);";

enum EWriterStmt {
    W_BEGIN,
    W_COMMIT,
    W_ROLLBACK,
    W_PUT,
    W_REMOVE,
    W_SET_ADD,
    W_SET_REMOVE,
    W_LIST_CLEAR,
    W_LIST_NEXT,
    W_LIST_INSERT,
    W_COUNT
};

const char* const kWriterSql[W_COUNT] = {
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
    "INSERT INTO tt_hash(hash, key, value) VALUES(?1, ?2, ?3) "
    "ON CONFLICT(hash, key) DO UPDATE SET value = excluded.value",
    "DELETE FROM tt_hash WHERE hash = ?1 AND key = ?2",
    "INSERT OR IGNORE INTO tt_set(name, member) VALUES(?1, ?2)",
    "DELETE FROM tt_set WHERE name = ?1 AND member = ?2",
    "DELETE FROM tt_list WHERE name = ?1",
    "SELECT COALESCE(MAX(pos) + 1, 0) FROM tt_list WHERE name = ?1",
    "INSERT INTO tt_list(name, pos, value) VALUES(?1, ?2, ?3)",
};

enum EReaderStmt { R_GET, R_RANGE, R_FROM, R_SET, R_LIST, R_HASHES, R_SETS, R_LISTS, R_COUNT };

const char* const kReaderSql[R_COUNT] = {
    "SELECT value FROM tt_hash WHERE hash = ?1 AND key = ?2",
    "SELECT key, value FROM tt_hash WHERE hash = ?1 AND key >= ?2 AND key < ?3 ORDER BY key",
    "SELECT key, value FROM tt_hash WHERE hash = ?1 AND key >= ?2 ORDER BY key",
    "SELECT member FROM tt_set WHERE name = ?1 ORDER BY member",
    "SELECT value FROM tt_list WHERE name = ?1 ORDER BY pos",
    "SELECT DISTINCT hash FROM tt_hash ORDER BY hash",
    "SELECT DISTINCT name FROM tt_set ORDER BY name",
    "SELECT DISTINCT name FROM tt_list ORDER BY name",
};

// Errors that say the data itself cannot be stored; anything else (busy, locked, full, I/O) may
// pass and is retried.
EApplyResult classify(int rc) {
    switch (rc & 0xFF) {
        case SQLITE_TOOBIG:
        case SQLITE_CONSTRAINT:
        case SQLITE_MISMATCH:
        case SQLITE_RANGE:
            return APPLY_REJECTED;
        default:
            return APPLY_RETRY;
    }
}

void bindText(sqlite3_stmt* s, int i, const std::string& v) {
    sqlite3_bind_text(s, i, v.data(), static_cast<int>(v.size()), SQLITE_STATIC);
}

void bindDoc(sqlite3_stmt* s, int i, const bson::BSONObj& o) {
    sqlite3_bind_blob(s, i, o.objdata(), o.objsize(), SQLITE_STATIC);
}

std::string columnBytes(sqlite3_stmt* s, int i) {
    const void* p = sqlite3_column_blob(s, i);
    int n = sqlite3_column_bytes(s, i);
    return p ? std::string(static_cast<const char*>(p), static_cast<size_t>(n)) : std::string();
}

// Resets a statement when it goes out of scope, so no read keeps a WAL snapshot open.
struct CStmtReset {
    sqlite3_stmt* m_pStmt;
    explicit CStmtReset(sqlite3_stmt* s) : m_pStmt(s) {}
    ~CStmtReset() {
        sqlite3_reset(m_pStmt);
        sqlite3_clear_bindings(m_pStmt);
    }
};

class CConnection {
public:
    CConnection() : m_pDb(nullptr) {}
    ~CConnection() { close(); }
    CConnection(const CConnection&) = delete;
    CConnection& operator=(const CConnection&) = delete;

    bool open(const std::string& path, int busyMs, std::string* error) {
        int rc = sqlite3_open_v2(path.c_str(), &m_pDb, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
        if (rc != SQLITE_OK) return fail("cannot open SQLite store '" + path + "'", error);
        if (sqlite3_db_readonly(m_pDb, "main") == 1) {
            if (error)
                *error = "SQLite store '" + path +
                         "' is read-only: check the permissions of the file and its folder";
            return false;
        }
        sqlite3_busy_timeout(m_pDb, busyMs);
        m_strPath = path;
        return true;
    }

    bool exec(const std::string& sql, std::string* error) {
        char* msg = nullptr;
        int rc = sqlite3_exec(m_pDb, sql.c_str(), nullptr, nullptr, &msg);
        if (rc == SQLITE_OK) return true;
        if (error) {
            *error = "SQLite store '" + m_strPath + "': " + (msg ? msg : sqlite3_errstr(rc)) +
                     " (while running " + sql.substr(0, 40) + ")";
        }
        sqlite3_free(msg);
        return false;
    }

    // One-row, one-column query, as text.
    bool queryText(const std::string& sql, std::string* out, std::string* error) {
        sqlite3_stmt* s = nullptr;
        int rc = sqlite3_prepare_v2(m_pDb, sql.c_str(), -1, &s, nullptr);
        if (rc == SQLITE_OK) {
            rc = sqlite3_step(s);
            if (rc == SQLITE_ROW) {
                const unsigned char* t = sqlite3_column_text(s, 0);
                *out = t ? reinterpret_cast<const char*>(t) : "";
                rc = SQLITE_OK;
            } else if (rc == SQLITE_DONE) {
                out->clear();
                rc = SQLITE_OK;
            }
        }
        sqlite3_finalize(s);
        if (rc == SQLITE_OK) return true;
        return fail("SQLite store '" + m_strPath + "'", error);
    }

    bool prepareAll(const char* const* sql, int nSql, std::string* error) {
        m_stmts.assign(static_cast<size_t>(nSql), nullptr);
        for (int i = 0; i < nSql; ++i) {
            if (sqlite3_prepare_v3(m_pDb, sql[i], -1, SQLITE_PREPARE_PERSISTENT, &m_stmts[i], nullptr) !=
                SQLITE_OK) {
                return fail("SQLite store '" + m_strPath + "': cannot prepare statement", error);
            }
        }
        return true;
    }

    void close() {
        for (sqlite3_stmt* s : m_stmts) sqlite3_finalize(s);
        m_stmts.clear();
        if (m_pDb) sqlite3_close_v2(m_pDb);
        m_pDb = nullptr;
    }

    bool fail(const std::string& what, std::string* error) const {
        if (error) *error = what + ": " + (m_pDb ? sqlite3_errmsg(m_pDb) : "out of memory");
        return false;
    }

    sqlite3* db() const { return m_pDb; }
    sqlite3_stmt* stmt(int i) const { return m_stmts[i]; }
    const std::string& path() const { return m_strPath; }
    std::mutex& mutex() { return m_mutex; }

private:
    sqlite3* m_pDb;
    std::string m_strPath;
    std::vector<sqlite3_stmt*> m_stmts;
    std::mutex m_mutex;  // one thread at a time on this connection
};

class CSqliteBackend : public IPersistBackend {
public:
    explicit CSqliteBackend(const std::string& url) : m_strUrl(url) {}

    bool open(const std::string& path, bool fullSync, bool check, int busyMs, long long checkpointPages,
              std::string* error) {
        if (!m_writer.open(path, busyMs, error)) return false;
        // The first statements read the file header: a file that is not a database fails here.
        std::string mode;
        if (!m_writer.queryText("PRAGMA journal_mode=WAL", &mode, error)) return false;
        if (mode != "wal") {
            if (error)
                *error = "SQLite store '" + path + "': cannot switch to WAL journal (mode is '" + mode + "')";
            return false;
        }
        if (check) {
            std::string verdict;
            if (!m_writer.queryText("PRAGMA quick_check(1)", &verdict, error)) {
                // Locked, out of memory, I/O: *error says so. Only damage is reported as damage.
                const int rc = sqlite3_errcode(m_writer.db()) & 0xFF;
                if (rc != SQLITE_CORRUPT && rc != SQLITE_NOTADB) return false;
                verdict = sqlite3_errmsg(m_writer.db());
            }
            if (verdict != "ok") {
                for (char& c : verdict) {
                    if (c == '\n') c = ' ';
                }
                if (error) {
                    *error = "SQLite store '" + path + "' is damaged (" + verdict +
                             "); restore it from a backup, or open it with ?check=none to copy out what "
                             "can still be read";
                }
                return false;
            }
        }
        if (!m_writer.exec(fullSync ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL", error))
            return false;
        if (!m_writer.exec("PRAGMA wal_autocheckpoint=" + std::to_string(checkpointPages), error))
            return false;
        std::string version;
        if (!m_writer.queryText("PRAGMA user_version", &version, error)) return false;
        if (atoi(version.c_str()) > kSchemaVersion) {
            if (error) {
                *error = "SQLite store '" + path + "' was written by a newer version (schema " + version +
                         ", this build reads " + std::to_string(kSchemaVersion) + ")";
            }
            return false;
        }
        if (!m_writer.exec(std::string("BEGIN IMMEDIATE;") + kSchema +
                               "PRAGMA user_version=" + std::to_string(kSchemaVersion) + ";COMMIT;",
                           error)) {
            m_writer.exec("ROLLBACK", nullptr);
            return false;
        }
        if (!m_writer.prepareAll(kWriterSql, W_COUNT, error)) return false;
        if (!m_reader.open(path, busyMs, error)) return false;
        return m_reader.prepareAll(kReaderSql, R_COUNT, error);
    }

    std::string url() const override { return m_strUrl; }

    EApplyResult apply(const CWriteOp* ops, size_t n, uint64_t, std::string* error) override {
        std::lock_guard<std::mutex> lock(m_writer.mutex());
        int rc = step(W_BEGIN);
        if (rc != SQLITE_DONE) return failWrite(rc, "begin", error);
        for (size_t i = 0; i < n; ++i) {
            rc = applyOne(ops[i]);
            if (rc != SQLITE_DONE) {
                EApplyResult r = failWrite(
                    rc, ("writing '" + ops[i].m_strName + "' key '" + ops[i].m_strKey + "'").c_str(), error);
                rollback();
                return r;
            }
        }
        rc = step(W_COMMIT);
        if (rc != SQLITE_DONE) {
            EApplyResult r = failWrite(rc, "commit", error);
            rollback();
            return r;
        }
        return APPLY_OK;
    }

    bool get(const std::string& hash, const std::string& key, std::string* bytes, bool* found,
             std::string* error) override {
        std::lock_guard<std::mutex> lock(m_reader.mutex());
        sqlite3_stmt* s = m_reader.stmt(R_GET);
        CStmtReset reset(s);
        bindText(s, 1, hash);
        bindText(s, 2, key);
        int rc = sqlite3_step(s);
        *found = rc == SQLITE_ROW;
        if (rc == SQLITE_ROW) {
            *bytes = columnBytes(s, 0);
            return true;
        }
        if (rc == SQLITE_DONE) return true;
        return m_reader.fail("SQLite store '" + m_reader.path() + "': reading '" + hash + "'", error);
    }

    bool scan(const std::string& hash, const std::string& prefix, KeyBytesList* out,
              std::string* error) override {
        std::lock_guard<std::mutex> lock(m_reader.mutex());
        std::string upper;
        bool bounded = prefixSuccessor(prefix, &upper);
        sqlite3_stmt* s = m_reader.stmt(bounded ? R_RANGE : R_FROM);
        CStmtReset reset(s);
        bindText(s, 1, hash);
        bindText(s, 2, prefix);
        if (bounded) bindText(s, 3, upper);
        int rc;
        while ((rc = sqlite3_step(s)) == SQLITE_ROW) out->emplace_back(columnBytes(s, 0), columnBytes(s, 1));
        if (rc == SQLITE_DONE) return true;
        return m_reader.fail("SQLite store '" + m_reader.path() + "': reading '" + hash + "'", error);
    }

    bool readSet(const std::string& name, std::set<std::string>* out, std::string* error) override {
        std::lock_guard<std::mutex> lock(m_reader.mutex());
        sqlite3_stmt* s = m_reader.stmt(R_SET);
        CStmtReset reset(s);
        bindText(s, 1, name);
        int rc;
        while ((rc = sqlite3_step(s)) == SQLITE_ROW) out->insert(columnBytes(s, 0));
        if (rc == SQLITE_DONE) return true;
        return m_reader.fail("SQLite store '" + m_reader.path() + "': reading set '" + name + "'", error);
    }

    bool readList(const std::string& name, std::vector<std::string>* out, std::string* error) override {
        std::lock_guard<std::mutex> lock(m_reader.mutex());
        sqlite3_stmt* s = m_reader.stmt(R_LIST);
        CStmtReset reset(s);
        bindText(s, 1, name);
        int rc;
        while ((rc = sqlite3_step(s)) == SQLITE_ROW) out->push_back(columnBytes(s, 0));
        if (rc == SQLITE_DONE) return true;
        return m_reader.fail("SQLite store '" + m_reader.path() + "': reading list '" + name + "'", error);
    }

    bool listNames(ENameKind kind, std::vector<std::string>* out, std::string* error) override {
        std::lock_guard<std::mutex> lock(m_reader.mutex());
        out->clear();
        sqlite3_stmt* s = m_reader.stmt(kind == NAMES_HASHES ? R_HASHES
                                        : kind == NAMES_SETS ? R_SETS
                                                             : R_LISTS);
        CStmtReset reset(s);
        int rc;
        while ((rc = sqlite3_step(s)) == SQLITE_ROW) out->push_back(columnBytes(s, 0));
        if (rc == SQLITE_DONE) return true;
        return m_reader.fail("SQLite store '" + m_reader.path() + "': listing names", error);
    }

private:
    int step(int which) {
        sqlite3_stmt* s = m_writer.stmt(which);
        int rc = sqlite3_step(s);
        sqlite3_reset(s);
        return rc;
    }

    // Runs one bound statement to completion; SQLITE_DONE on success.
    static int run(sqlite3_stmt* s) {
        int rc = sqlite3_step(s);
        sqlite3_reset(s);
        sqlite3_clear_bindings(s);
        return rc;
    }

    int applyOne(const CWriteOp& op) {
        sqlite3_stmt* s = nullptr;
        switch (op.m_eKind) {
            case WRITE_PUT:
                s = m_writer.stmt(W_PUT);
                bindText(s, 1, op.m_strName);
                bindText(s, 2, op.m_strKey);
                bindDoc(s, 3, op.m_value);
                return run(s);
            case WRITE_REMOVE:
                s = m_writer.stmt(W_REMOVE);
                bindText(s, 1, op.m_strName);
                bindText(s, 2, op.m_strKey);
                return run(s);
            case WRITE_SET_ADD:
            case WRITE_SET_REMOVE:
                s = m_writer.stmt(op.m_eKind == WRITE_SET_ADD ? W_SET_ADD : W_SET_REMOVE);
                bindText(s, 1, op.m_strName);
                bindText(s, 2, op.m_strKey);
                return run(s);
            case WRITE_LIST_APPEND:
            case WRITE_LIST_REPLACE:
                return applyList(op);
        }
        return SQLITE_MISUSE;
    }

    int applyList(const CWriteOp& op) {
        sqlite3_int64 pos = 0;
        if (op.m_eKind == WRITE_LIST_REPLACE) {
            sqlite3_stmt* c = m_writer.stmt(W_LIST_CLEAR);
            bindText(c, 1, op.m_strName);
            int rc = run(c);
            if (rc != SQLITE_DONE) return rc;
        } else {
            sqlite3_stmt* q = m_writer.stmt(W_LIST_NEXT);
            bindText(q, 1, op.m_strName);
            int rc = sqlite3_step(q);
            if (rc == SQLITE_ROW) pos = sqlite3_column_int64(q, 0);
            sqlite3_reset(q);
            sqlite3_clear_bindings(q);
            if (rc != SQLITE_ROW) return rc;
        }
        sqlite3_stmt* ins = m_writer.stmt(W_LIST_INSERT);
        for (const bson::BSONObj& d : op.m_values) {
            bindText(ins, 1, op.m_strName);
            sqlite3_bind_int64(ins, 2, pos++);
            bindDoc(ins, 3, d);
            int rc = run(ins);
            if (rc != SQLITE_DONE) return rc;
        }
        return SQLITE_DONE;
    }

    void rollback() {
        if (!sqlite3_get_autocommit(m_writer.db())) step(W_ROLLBACK);
    }

    EApplyResult failWrite(int rc, const char* what, std::string* error) {
        if (error) {
            *error = "SQLite store '" + m_writer.path() + "': " + what +
                     " failed: " + sqlite3_errmsg(m_writer.db()) + " (code " + std::to_string(rc) + ")";
        }
        return classify(rc);
    }

    std::string m_strUrl;
    CConnection m_writer;
    CConnection m_reader;
};

}  // namespace

PersistBackendPtr openSqliteBackend(CPersistUrl* url, const std::string& original, std::string* error) {
    std::string sync;
    bool fullSync = false;
    if (url->take("sync", &sync)) {
        if (sync == "full") {
            fullSync = true;
        } else if (sync != "normal") {
            if (error)
                *error = "persistence URL '" + original + "': option sync must be 'normal' or 'full', not '" +
                         sync + "'";
            return PersistBackendPtr();
        }
    }
    std::string checkOption;
    bool check = true;
    if (url->take("check", &checkOption)) {
        if (checkOption == "none") {
            check = false;
        } else if (checkOption != "quick") {
            if (error)
                *error = "persistence URL '" + original + "': option check must be 'quick' or 'none', not '" +
                         checkOption + "'";
            return PersistBackendPtr();
        }
    }
    long long busyMs = 1000, checkpointPages = kDefaultCheckpointPages;
    bool present = false;
    if (!url->takeInt("busy_timeout_ms", &busyMs, &present, error)) return PersistBackendPtr();
    if (!url->takeInt("checkpoint_pages", &checkpointPages, &present, error)) return PersistBackendPtr();
    if (!checkNoOtherOptions(*url, original, error)) return PersistBackendPtr();
    const std::string& path = url->m_strRest;
    if (path.empty()) {
        if (error)
            *error = "persistence URL '" + original + "' names no file (expected sqlite:///path/file.db)";
        return PersistBackendPtr();
    }
    boost::shared_ptr<CSqliteBackend> backend(new CSqliteBackend(original));
    if (!backend->open(path, fullSync, check, static_cast<int>(busyMs), checkpointPages, error))
        return PersistBackendPtr();
    return backend;
}

}  // namespace persist
