// The in-memory backend: ordered maps under one mutex. It stands in for the real stores in tests
// of other parts, so it keeps exactly their semantics (byte-ordered keys, all-or-nothing batches).
#include <mutex>

#include "persist/PersistBackend.h"

namespace persist {

namespace {

struct CMemoryStore {
    std::mutex m_mutex;  // guards the three maps
    std::map<std::string, std::map<std::string, std::string> > m_hashes;
    std::map<std::string, std::set<std::string> > m_sets;
    std::map<std::string, std::vector<std::string> > m_lists;
};

std::mutex g_namedMutex;  // guards g_namedStores
std::map<std::string, boost::shared_ptr<CMemoryStore> > g_namedStores;

std::string docBytes(const bson::BSONObj& o) {
    return o.bytes();
}

class CMemoryBackend : public IPersistBackend {
public:
    CMemoryBackend(const boost::shared_ptr<CMemoryStore>& store, const std::string& name)
        : m_pStore(store), m_strName(name) {}

    std::string url() const override { return "memory://" + m_strName; }

    EApplyResult apply(const CWriteOp* ops, size_t n, uint64_t, std::string*) override {
        std::lock_guard<std::mutex> lock(m_pStore->m_mutex);
        for (size_t i = 0; i < n; ++i) {
            const CWriteOp& op = ops[i];
            switch (op.m_eKind) {
                case WRITE_PUT:
                    m_pStore->m_hashes[op.m_strName][op.m_strKey] = docBytes(op.m_value);
                    break;
                case WRITE_REMOVE: {
                    auto it = m_pStore->m_hashes.find(op.m_strName);
                    if (it != m_pStore->m_hashes.end()) {
                        it->second.erase(op.m_strKey);
                        if (it->second.empty()) m_pStore->m_hashes.erase(it);
                    }
                    break;
                }
                case WRITE_SET_ADD:
                    m_pStore->m_sets[op.m_strName].insert(op.m_strKey);
                    break;
                case WRITE_SET_REMOVE: {
                    auto it = m_pStore->m_sets.find(op.m_strName);
                    if (it != m_pStore->m_sets.end()) {
                        it->second.erase(op.m_strKey);
                        if (it->second.empty()) m_pStore->m_sets.erase(it);
                    }
                    break;
                }
                case WRITE_LIST_REPLACE:
                    m_pStore->m_lists.erase(op.m_strName);
                    [[fallthrough]];
                case WRITE_LIST_APPEND:
                    if (!op.m_values.empty()) {
                        std::vector<std::string>& l = m_pStore->m_lists[op.m_strName];
                        for (const bson::BSONObj& d : op.m_values) l.push_back(docBytes(d));
                    }
                    break;
            }
        }
        return APPLY_OK;
    }

    bool get(const std::string& hash, const std::string& key, std::string* bytes, bool* found,
             std::string*) override {
        std::lock_guard<std::mutex> lock(m_pStore->m_mutex);
        *found = false;
        auto h = m_pStore->m_hashes.find(hash);
        if (h == m_pStore->m_hashes.end()) return true;
        auto it = h->second.find(key);
        if (it == h->second.end()) return true;
        *bytes = it->second;
        *found = true;
        return true;
    }

    bool scan(const std::string& hash, const std::string& prefix, KeyBytesList* out, std::string*) override {
        std::lock_guard<std::mutex> lock(m_pStore->m_mutex);
        auto h = m_pStore->m_hashes.find(hash);
        if (h == m_pStore->m_hashes.end()) return true;
        for (auto it = h->second.lower_bound(prefix); it != h->second.end(); ++it) {
            if (it->first.compare(0, prefix.size(), prefix) != 0) break;
            out->push_back(*it);
        }
        return true;
    }

    bool readSet(const std::string& name, std::set<std::string>* out, std::string*) override {
        std::lock_guard<std::mutex> lock(m_pStore->m_mutex);
        auto it = m_pStore->m_sets.find(name);
        if (it != m_pStore->m_sets.end()) *out = it->second;
        return true;
    }

    bool readList(const std::string& name, std::vector<std::string>* out, std::string*) override {
        std::lock_guard<std::mutex> lock(m_pStore->m_mutex);
        auto it = m_pStore->m_lists.find(name);
        if (it != m_pStore->m_lists.end()) *out = it->second;
        return true;
    }

    bool listNames(ENameKind kind, std::vector<std::string>* out, std::string*) override {
        std::lock_guard<std::mutex> lock(m_pStore->m_mutex);
        out->clear();
        if (kind == NAMES_HASHES) {
            for (const auto& h : m_pStore->m_hashes) out->push_back(h.first);
        } else if (kind == NAMES_SETS) {
            for (const auto& s : m_pStore->m_sets) out->push_back(s.first);
        } else {
            for (const auto& l : m_pStore->m_lists) out->push_back(l.first);
        }
        return true;
    }

private:
    boost::shared_ptr<CMemoryStore> m_pStore;
    std::string m_strName;
};

}  // namespace

PersistBackendPtr newMemoryBackend(const std::string& name) {
    boost::shared_ptr<CMemoryStore> store;
    if (name.empty()) {
        store.reset(new CMemoryStore);
    } else {
        std::lock_guard<std::mutex> lock(g_namedMutex);
        boost::shared_ptr<CMemoryStore>& slot = g_namedStores[name];
        if (!slot) slot.reset(new CMemoryStore);
        store = slot;
    }
    return PersistBackendPtr(new CMemoryBackend(store, name));
}

void dropMemoryStores() {
    std::lock_guard<std::mutex> lock(g_namedMutex);
    g_namedStores.clear();
}

}  // namespace persist
