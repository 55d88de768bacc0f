#include "PersistTool.h"

#include <unistd.h>

#include <ostream>

namespace persist {
namespace tool {

namespace {

const char* const kUsage =
    "usage:\n"
    "  ttpersist URL hashes\n"
    "  ttpersist URL keys HASH [PATTERN]\n"
    "  ttpersist URL get HASH KEY\n"
    "  ttpersist URL dump HASH [PATTERN]\n"
    "  ttpersist URL sets | set NAME\n"
    "  ttpersist URL lists | list NAME\n"
    "  ttpersist copy FROM-URL TO-URL\n"
    "URL: sqlite:///path/file.db, redis://host:port/db or memory://name\n"
    "PATTERN: \"prefix.*\" for every key beginning with prefix, anything else is one literal key\n";

int usage(std::ostream& err, const std::string& why) {
    if (!why.empty()) err << "ttpersist: " << why << "\n";
    err << kUsage;
    return EXIT_USAGE;
}

int failed(std::ostream& err, const std::string& why) {
    err << "ttpersist: " << why << "\n";
    return EXIT_FAILED;
}

// Keys of `hash` matching `pattern`, with their bytes.
bool matching(IPersistBackend& b, const std::string& hash, const std::string& pattern, KeyBytesList* rows,
              std::string* error) {
    if (pattern.size() >= 2 && pattern.compare(pattern.size() - 2, 2, ".*") == 0) {
        return b.scan(hash, pattern.substr(0, pattern.size() - 2), rows, error);
    }
    std::string bytes;
    bool found = false;
    if (!b.get(hash, pattern, &bytes, &found, error)) return false;
    if (found) rows->emplace_back(pattern, bytes);
    return true;
}

// The document as JSON, or a note saying why the bytes are not a document.
std::string asJson(const std::string& bytes) {
    std::string reason;
    bson::BSONObj o = bson::BSONObj::fromBytes(bytes, &reason);
    if (!reason.empty()) return "<invalid document: " + reason + ">";
    return o.toJson();
}

bool flushOps(IPersistBackend& to, std::vector<CWriteOp>* ops, uint64_t* batchId, std::string* error) {
    if (ops->empty()) return true;
    EApplyResult r = to.apply(ops->data(), ops->size(), ++*batchId, error);
    ops->clear();
    return r == APPLY_OK;
}

int runOn(IPersistBackend& b, const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    const std::string& cmd = args[1];
    std::string error;
    std::vector<std::string> names;
    if ((cmd == "hashes" || cmd == "sets" || cmd == "lists") && args.size() == 2) {
        ENameKind kind = cmd == "hashes" ? NAMES_HASHES : cmd == "sets" ? NAMES_SETS : NAMES_LISTS;
        if (!b.listNames(kind, &names, &error)) return failed(err, error);
        for (const std::string& n : names) out << n << "\n";
        return EXIT_OK;
    }
    if ((cmd == "keys" || cmd == "dump") && (args.size() == 3 || args.size() == 4)) {
        KeyBytesList rows;
        if (!matching(b, args[2], args.size() == 4 ? args[3] : ".*", &rows, &error))
            return failed(err, error);
        for (const auto& row : rows) {
            out << row.first;
            if (cmd == "dump") out << "\t" << asJson(row.second);
            out << "\n";
        }
        return EXIT_OK;
    }
    if (cmd == "get" && args.size() == 4) {
        std::string bytes;
        bool found = false;
        if (!b.get(args[2], args[3], &bytes, &found, &error)) return failed(err, error);
        if (!found) return failed(err, "no key '" + args[3] + "' in '" + args[2] + "'");
        std::string reason;
        bson::BSONObj o = bson::BSONObj::fromBytes(bytes, &reason);
        if (!reason.empty())
            return failed(err, "'" + args[2] + "' key '" + args[3] + "' is not a valid document: " + reason);
        out << o.toJson() << "\n";
        return EXIT_OK;
    }
    if (cmd == "set" && args.size() == 3) {
        std::set<std::string> members;
        if (!b.readSet(args[2], &members, &error)) return failed(err, error);
        for (const std::string& m : members) out << m << "\n";
        return EXIT_OK;
    }
    if (cmd == "list" && args.size() == 3) {
        std::vector<std::string> items;
        if (!b.readList(args[2], &items, &error)) return failed(err, error);
        for (const std::string& i : items) out << asJson(i) << "\n";
        return EXIT_OK;
    }
    return usage(err, "unknown command or wrong number of arguments: '" + cmd + "'");
}

// Opens a store to read from. A SQLite file that does not exist is an error here, rather than
// being created empty by a mistyped path.
PersistBackendPtr openSource(const std::string& url, std::string* error) {
    CPersistUrl parsed;
    if (!CPersistUrl::parse(url, &parsed, error)) return PersistBackendPtr();
    if (parsed.m_strScheme == "sqlite" && !parsed.m_strRest.empty() &&
        access(parsed.m_strRest.c_str(), F_OK) != 0) {
        *error = "no SQLite store at '" + parsed.m_strRest + "'";
        return PersistBackendPtr();
    }
    return openBackend(parsed, url, error);
}

}  // namespace

bool copyStore(IPersistBackend& from, IPersistBackend& to, CCopyStats* stats, std::ostream& err,
               std::string* error, size_t batchOps) {
    CCopyStats s;
    uint64_t batchId = 0;
    std::vector<CWriteOp> ops;
    std::vector<std::string> names;
    if (!from.listNames(NAMES_HASHES, &names, error)) return false;
    for (const std::string& hash : names) {
        KeyBytesList rows;
        if (!from.scan(hash, std::string(), &rows, error)) return false;
        ++s.m_nHashes;
        for (const auto& row : rows) {
            std::string reason;
            CWriteOp op;
            op.m_value = bson::BSONObj::fromBytes(row.second, &reason);
            if (!reason.empty()) {
                err << "ttpersist: skipped '" << hash << "' key '" << row.first << "': " << reason << "\n";
                ++s.m_nSkipped;
                continue;
            }
            op.m_eKind = WRITE_PUT;
            op.m_strName = hash;
            op.m_strKey = row.first;
            ops.push_back(std::move(op));
            ++s.m_nKeys;
            if (ops.size() >= batchOps && !flushOps(to, &ops, &batchId, error)) return false;
        }
    }
    if (!from.listNames(NAMES_SETS, &names, error)) return false;
    for (const std::string& set : names) {
        std::set<std::string> members;
        if (!from.readSet(set, &members, error)) return false;
        ++s.m_nSets;
        for (const std::string& m : members) {
            CWriteOp op;
            op.m_eKind = WRITE_SET_ADD;
            op.m_strName = set;
            op.m_strKey = m;
            ops.push_back(std::move(op));
            ++s.m_nMembers;
            if (ops.size() >= batchOps && !flushOps(to, &ops, &batchId, error)) return false;
        }
    }
    if (!from.listNames(NAMES_LISTS, &names, error)) return false;
    for (const std::string& list : names) {
        std::vector<std::string> items;
        if (!from.readList(list, &items, error)) return false;
        CWriteOp op;
        op.m_eKind = WRITE_LIST_REPLACE;
        op.m_strName = list;
        for (size_t i = 0; i < items.size(); ++i) {
            std::string reason;
            bson::BSONObj o = bson::BSONObj::fromBytes(items[i], &reason);
            if (!reason.empty()) {
                err << "ttpersist: skipped item " << i << " of list '" << list << "': " << reason << "\n";
                ++s.m_nSkipped;
                continue;
            }
            op.m_values.push_back(o);
        }
        ++s.m_nLists;
        s.m_nListItems += op.m_values.size();
        ops.push_back(std::move(op));
        if (!flushOps(to, &ops, &batchId, error)) return false;
    }
    if (!flushOps(to, &ops, &batchId, error)) return false;
    if (stats) *stats = s;
    return true;
}

int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    if (args.empty() || args[0] == "help" || args[0] == "--help" || args[0] == "-h") return usage(err, "");
    std::string error;
    if (args[0] == "copy") {
        if (args.size() != 3) return usage(err, "copy takes FROM-URL and TO-URL");
        PersistBackendPtr from = openSource(args[1], &error);
        if (!from) return failed(err, error);
        PersistBackendPtr to = openBackend(args[2], &error);
        if (!to) return failed(err, error);
        CCopyStats s;
        if (!copyStore(*from, *to, &s, err, &error)) return failed(err, "copy failed: " + error);
        out << "copied " << s.m_nKeys << " keys in " << s.m_nHashes << " hashes, " << s.m_nMembers
            << " members in " << s.m_nSets << " sets, " << s.m_nListItems << " documents in " << s.m_nLists
            << " lists";
        if (s.m_nSkipped) out << "; skipped " << s.m_nSkipped << " invalid documents";
        out << "\n";
        return s.m_nSkipped ? EXIT_FAILED : EXIT_OK;
    }
    if (args.size() < 2) return usage(err, "missing command");
    PersistBackendPtr b = openSource(args[0], &error);
    if (!b) return failed(err, error);
    return runOn(*b, args, out, err);
}

}  // namespace tool
}  // namespace persist
