// ttpersist: inspects and copies persistence stores.
//
//   ttpersist URL hashes                    names of the hashes that hold keys
//   ttpersist URL keys HASH [PATTERN]       keys of a hash, in byte order (PATTERN as in
//                                           CPersistService::readAllData: "prefix.*" or one literal
//                                           key; default ".*", every key)
//   ttpersist URL get HASH KEY              one document as JSON
//   ttpersist URL dump HASH [PATTERN]       "key<TAB>JSON" per matching key
//   ttpersist URL sets | set NAME           set names | members of one set
//   ttpersist URL lists | list NAME         list names | documents of one list as JSON
//   ttpersist copy FROM-URL TO-URL          copies every hash, set and list (lists are replaced,
//                                           keys and members added; nothing else in TO is removed)
//
// The logic lives here so that tests drive it; tools/ttpersist/main.cpp only forwards argv.
// Thread safety: each call opens its own stores; calls are independent.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "persist/PersistBackend.h"

namespace persist {
namespace tool {

// Exit status of run().
enum EExit { EXIT_OK = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

// Runs one command line (without the program name). Results go to `out`, problems to `err`.
int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

struct CCopyStats {
    size_t m_nHashes = 0;
    size_t m_nKeys = 0;
    size_t m_nSets = 0;
    size_t m_nMembers = 0;
    size_t m_nLists = 0;
    size_t m_nListItems = 0;
    size_t m_nSkipped = 0;  // documents that failed validation and were not copied (each reported)
};

// Copies every hash, set and list of `from` into `to`, in transactions of `batchOps` operations.
// Documents that fail validation are reported on `err` with their hash and key and skipped.
bool copyStore(IPersistBackend& from, IPersistBackend& to, CCopyStats* stats, std::ostream& err,
               std::string* error, size_t batchOps = 1000);

}  // namespace tool
}  // namespace persist
