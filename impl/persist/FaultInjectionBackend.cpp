#include "persist/FaultInjectionBackend.h"

namespace persist {

CFaultInjectionBackend::CFaultInjectionBackend(const PersistBackendPtr& target)
    : m_pTarget(target),
      m_nFailNext(0),
      m_eFailNextResult(APPLY_RETRY),
      m_bFailWrites(false),
      m_bFailReads(false),
      m_nWriteAttempts(0),
      m_nInjected(0) {}

void CFaultInjectionBackend::failNextWrites(int n, EApplyResult result) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_nFailNext = n;
    m_eFailNextResult = result;
}

void CFaultInjectionBackend::setFailWrites(bool fail) {
    m_bFailWrites.store(fail);
}

void CFaultInjectionBackend::setFailReads(bool fail) {
    m_bFailReads.store(fail);
}

std::string CFaultInjectionBackend::url() const {
    return m_pTarget->url();
}

EApplyResult CFaultInjectionBackend::apply(const CWriteOp* ops, size_t n, uint64_t batchId,
                                           std::string* error) {
    ++m_nWriteAttempts;
    EApplyResult injected = APPLY_OK;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_nFailNext > 0) {
            --m_nFailNext;
            injected = m_eFailNextResult;
        }
    }
    if (injected == APPLY_OK && m_bFailWrites.load()) injected = APPLY_RETRY;
    if (injected != APPLY_OK) {
        ++m_nInjected;
        if (error) *error = "injected write failure";
        return injected;
    }
    return m_pTarget->apply(ops, n, batchId, error);
}

bool CFaultInjectionBackend::readFails(std::string* error) const {
    if (!m_bFailReads.load()) return false;
    if (error) *error = "injected read failure";
    return true;
}

bool CFaultInjectionBackend::get(const std::string& hash, const std::string& key, std::string* bytes,
                                 bool* found, std::string* error) {
    if (readFails(error)) return false;
    return m_pTarget->get(hash, key, bytes, found, error);
}

bool CFaultInjectionBackend::scan(const std::string& hash, const std::string& prefix, KeyBytesList* out,
                                  std::string* error) {
    if (readFails(error)) return false;
    return m_pTarget->scan(hash, prefix, out, error);
}

bool CFaultInjectionBackend::readSet(const std::string& name, std::set<std::string>* out,
                                     std::string* error) {
    if (readFails(error)) return false;
    return m_pTarget->readSet(name, out, error);
}

bool CFaultInjectionBackend::readList(const std::string& name, std::vector<std::string>* out,
                                      std::string* error) {
    if (readFails(error)) return false;
    return m_pTarget->readList(name, out, error);
}

bool CFaultInjectionBackend::listNames(ENameKind kind, std::vector<std::string>* out, std::string* error) {
    if (readFails(error)) return false;
    return m_pTarget->listNames(kind, out, error);
}

}  // namespace persist
