// Constructors of the backends behind openBackend(). Each takes its own options out of the URL,
// refuses any it does not know (checkNoOtherOptions) before touching the store, and fails with a
// message naming the URL or file.
#pragma once

#include <string>

#include "persist/PersistBackend.h"

namespace persist {

bool checkNoOtherOptions(const CPersistUrl& url, const std::string& original, std::string* error);

// sqlite:///path/file.db?sync=normal|full&check=quick|none&busy_timeout_ms=N&checkpoint_pages=N
PersistBackendPtr openSqliteBackend(CPersistUrl* url, const std::string& original, std::string* error);
// redis://[:password@]host[:port][/db]?timeout_ms=N&connect_timeout_ms=N&namespace=NAME
PersistBackendPtr openRedisBackend(CPersistUrl* url, const std::string& original, std::string* error);

}  // namespace persist
