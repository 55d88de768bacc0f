// persist::CFaultInjectionBackend: wraps another backend and makes its writes (and, on request, its
// reads) fail on command, so tests can show that the service retries, counts and never loses a
// queued write. A failed write reaches the wrapped backend not at all: nothing of it is applied.
//
// Thread safety: the controls may be flipped from a test thread while the service's writer thread
// and readers call through; every member is safe to call concurrently.
#pragma once

#include <atomic>
#include <mutex>

#include "persist/PersistBackend.h"

namespace persist {

class CFaultInjectionBackend : public IPersistBackend {
public:
    explicit CFaultInjectionBackend(const PersistBackendPtr& target);

    // The next `n` calls of apply() fail with `result` (APPLY_RETRY or APPLY_REJECTED).
    void failNextWrites(int n, EApplyResult result = APPLY_RETRY);
    // While set, every apply() fails with APPLY_RETRY, as when a server is down.
    void setFailWrites(bool fail);
    // While set, every read fails.
    void setFailReads(bool fail);

    // apply() calls seen, and how many of them were failed on purpose.
    int writeAttempts() const { return m_nWriteAttempts.load(); }
    int injectedWriteFailures() const { return m_nInjected.load(); }
    const PersistBackendPtr& target() const { return m_pTarget; }

    std::string url() const override;
    EApplyResult apply(const CWriteOp* ops, size_t n, uint64_t batchId, std::string* error) override;
    bool get(const std::string& hash, const std::string& key, std::string* bytes, bool* found,
             std::string* error) override;
    bool scan(const std::string& hash, const std::string& prefix, KeyBytesList* out,
              std::string* error) override;
    bool readSet(const std::string& name, std::set<std::string>* out, std::string* error) override;
    bool readList(const std::string& name, std::vector<std::string>* out, std::string* error) override;
    bool listNames(ENameKind kind, std::vector<std::string>* out, std::string* error) override;

private:
    bool readFails(std::string* error) const;

    PersistBackendPtr m_pTarget;
    std::mutex m_mutex;  // guards m_nFailNext and m_eFailNextResult
    int m_nFailNext;
    EApplyResult m_eFailNextResult;
    std::atomic<bool> m_bFailWrites;
    std::atomic<bool> m_bFailReads;
    std::atomic<int> m_nWriteAttempts;
    std::atomic<int> m_nInjected;
};

}  // namespace persist
