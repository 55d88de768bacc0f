// URL parsing and the backend factory.
#include <cerrno>
#include <cstdlib>

#include "Backends.h"
#include "persist/PersistBackend.h"

namespace persist {

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Decodes %XX escapes, so a path or option may hold '?', '&', '=' or '%' itself.
bool percentDecode(const std::string& in, std::string* out) {
    out->clear();
    out->reserve(in.size());
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] != '%') {
            out->push_back(in[i]);
            continue;
        }
        if (i + 2 >= in.size()) return false;
        int hi = hexValue(in[i + 1]), lo = hexValue(in[i + 2]);
        if (hi < 0 || lo < 0) return false;
        out->push_back(static_cast<char>(hi * 16 + lo));
        i += 2;
    }
    return true;
}

}  // namespace

bool CPersistUrl::parse(const std::string& url, CPersistUrl* out, std::string* error) {
    *out = CPersistUrl();
    size_t sep = url.find("://");
    if (sep == std::string::npos || sep == 0) {
        if (error)
            *error =
                "persistence URL '" + url + "' has no scheme (expected sqlite://, redis:// or memory://)";
        return false;
    }
    out->m_strScheme = url.substr(0, sep);
    std::string rest = url.substr(sep + 3);
    std::string query;
    size_t q = rest.find('?');
    if (q != std::string::npos) {
        query = rest.substr(q + 1);
        rest.resize(q);
    }
    if (!percentDecode(rest, &out->m_strRest)) {
        if (error) *error = "persistence URL '" + url + "' has a bad %-escape";
        return false;
    }
    size_t pos = 0;
    while (pos < query.size()) {
        size_t amp = query.find('&', pos);
        if (amp == std::string::npos) amp = query.size();
        std::string item = query.substr(pos, amp - pos);
        pos = amp + 1;
        if (item.empty()) continue;
        size_t eq = item.find('=');
        std::string name, value;
        if (eq == std::string::npos || eq == 0 || !percentDecode(item.substr(0, eq), &name) ||
            !percentDecode(item.substr(eq + 1), &value)) {
            if (error) *error = "persistence URL '" + url + "' has a malformed option '" + item + "'";
            return false;
        }
        out->m_options[name] = value;
    }
    return true;
}

bool CPersistUrl::take(const std::string& name, std::string* value) {
    auto it = m_options.find(name);
    if (it == m_options.end()) {
        value->clear();
        return false;
    }
    *value = it->second;
    m_options.erase(it);
    return true;
}

bool CPersistUrl::takeInt(const std::string& name, long long* value, bool* present, std::string* error) {
    std::string text;
    *present = take(name, &text);
    if (!*present) return true;
    errno = 0;
    char* end = nullptr;
    long long v = strtoll(text.c_str(), &end, 10);
    if (text.empty() || errno != 0 || !end || *end != '\0') {
        if (error) *error = "persistence option '" + name + "' must be a whole number, not '" + text + "'";
        return false;
    }
    *value = v;
    return true;
}

bool prefixSuccessor(const std::string& prefix, std::string* upper) {
    std::string s = prefix;
    while (!s.empty() && static_cast<unsigned char>(s.back()) == 0xFF) s.pop_back();
    if (s.empty()) return false;
    s.back() = static_cast<char>(static_cast<unsigned char>(s.back()) + 1);
    *upper = s;
    return true;
}

bool checkNoOtherOptions(const CPersistUrl& url, const std::string& original, std::string* error) {
    if (url.m_options.empty()) return true;
    if (error)
        *error =
            "persistence URL '" + original + "' has unknown option '" + url.m_options.begin()->first + "'";
    return false;
}

PersistBackendPtr openBackend(const std::string& url, std::string* error) {
    CPersistUrl parsed;
    if (!CPersistUrl::parse(url, &parsed, error)) return PersistBackendPtr();
    return openBackend(parsed, url, error);
}

PersistBackendPtr openBackend(CPersistUrl url, const std::string& original, std::string* error) {
    PersistBackendPtr backend;
    if (url.m_strScheme == "sqlite") {
        backend = openSqliteBackend(&url, original, error);
    } else if (url.m_strScheme == "redis") {
        backend = openRedisBackend(&url, original, error);
    } else if (url.m_strScheme == "memory") {
        if (checkNoOtherOptions(url, original, error)) backend = newMemoryBackend(url.m_strRest);
    } else {
        if (error) {
            *error = "persistence URL '" + original + "' has unknown scheme '" + url.m_strScheme +
                     "' (expected sqlite://, redis:// or memory://)";
        }
        return PersistBackendPtr();
    }
    return backend;
}

}  // namespace persist
