// The SQLite store as other processes and damaged files see it: another process reading the file,
// a file that cannot be written, a file that is not a database, a file another connection keeps
// locked, and documents damaged inside the file.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

#include "persist/CPersistService.h"
#include "testing/LogCapture.h"
#include "utils/LogCenter.h"

namespace bson {
// Failures print documents as JSON.
inline void PrintTo(const BSONObj& o, std::ostream* os) {
    *os << o.toJson();
}
}  // namespace bson

namespace persist {
namespace {

bson::BSONObj doc(int n) {
    bson::BSONObjBuilder b;
    b.append("n", n);
    b.append("pad", std::string(200, 'x'));
    return b.obj();
}

// Runs a program and returns what it printed on standard output (and its exit status).
std::string runProgram(const std::vector<std::string>& args, int* status) {
    int fds[2];
    if (pipe(fds) != 0) return "<pipe failed>";
    pid_t pid = fork();
    if (pid == 0) {
        dup2(fds[1], 1);
        close(fds[0]);
        close(fds[1]);
        std::vector<char*> argv;
        for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(fds[1]);
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof(buf))) > 0) out.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    waitpid(pid, status, 0);
    return out;
}

bool haveSqliteCli() {
    return system("command -v sqlite3 >/dev/null 2>&1") == 0;
}

class SqliteBackendTest : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/tt-sqlite-XXXXXX";
        ASSERT_TRUE(mkdtemp(tmpl));
        m_strDir = tmpl;
        m_strFile = m_strDir + "/store.db";
        m_strUrl = "sqlite://" + m_strFile;
    }
    void TearDown() override {
        chmod(m_strDir.c_str(), 0700);
        std::filesystem::remove_all(m_strDir);
    }
    PersistServicePtr open(const std::string& query = std::string()) {
        std::string error;
        PersistServicePtr s = CPersistService::open(m_strUrl + query, &error);
        EXPECT_TRUE(s) << error;
        return s;
    }

    std::string m_strDir, m_strFile, m_strUrl;
};

TEST_F(SqliteBackendTest, AnotherProcessSeesFlushedDataWhileTheServiceRuns) {
    if (!haveSqliteCli()) GTEST_SKIP() << "the sqlite3 command-line shell is not installed";
    PersistServicePtr s = open("?sync=full");
    for (int i = 0; i < 250; ++i)
        ASSERT_TRUE(s->asyncWriteData("NqTradeData", "k" + std::to_string(i), doc(i)));
    ASSERT_TRUE(s->asyncWriteSetStrData("Accounts", "10086"));
    s->flush();

    int status = -1;
    std::string out =
        runProgram({"sqlite3", "-readonly", m_strFile,
                    "SELECT count(*), sum(length(value)) FROM tt_hash WHERE hash = 'NqTradeData';"
                    "SELECT member FROM tt_set WHERE name = 'Accounts';"
                    "PRAGMA journal_mode;"},
                   &status);
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_EQ("250|" + std::to_string(250 * doc(0).objsize()) + "\n10086\nwal\n", out);
}

TEST_F(SqliteBackendTest, AFileThatCannotBeWrittenFailsToOpenNamingIt) {
    open()->shutdown();
    ASSERT_EQ(0, chmod(m_strFile.c_str(), 0444));
    ASSERT_EQ(0, chmod(m_strDir.c_str(), 0755));
    std::string error;
    if (geteuid() != 0) {
        EXPECT_FALSE(openBackend(m_strUrl, &error));
    } else {
        // Permissions do not bind root: look at the file as an ordinary user, in a child process.
        int fds[2];
        ASSERT_EQ(0, pipe(fds));
        pid_t pid = fork();
        if (pid == 0) {
            close(fds[0]);
            std::string childError = "could not drop privileges";
            bool opened = false;
            if (setgid(65534) == 0 && setuid(65534) == 0)
                opened = static_cast<bool>(openBackend(m_strUrl, &childError));
            if (write(fds[1], childError.data(), childError.size()) < 0) _exit(3);
            _exit(opened ? 1 : 0);
        }
        close(fds[1]);
        char buf[1024];
        ssize_t n;
        while ((n = read(fds[0], buf, sizeof(buf))) > 0) error.append(buf, static_cast<size_t>(n));
        close(fds[0]);
        int status = 0;
        waitpid(pid, &status, 0);
        if (error == "could not drop privileges")
            GTEST_SKIP() << "running as root and cannot switch to nobody";
        EXPECT_EQ(0, WEXITSTATUS(status)) << "the read-only file was opened for writing";
    }
    EXPECT_NE(std::string::npos, error.find(m_strFile)) << error;
    EXPECT_NE(std::string::npos, error.find("read-only")) << error;
}

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

TEST_F(SqliteBackendTest, ADamagedFileFailsToOpenNamingItAndIsLeftAlone) {
    // A file that is not a database at all, and a real store with one page overwritten.
    std::string garbage;
    for (int i = 0; i < 4096; ++i) garbage.push_back(static_cast<char>((i * 7919) & 0xFF));
    const std::string notDb = m_strDir + "/garbage.db";
    std::ofstream(notDb, std::ios::binary) << garbage;

    PersistServicePtr s = open();
    for (int i = 0; i < 300; ++i) ASSERT_TRUE(s->asyncWriteData("H", "k" + std::to_string(i), doc(i)));
    s->shutdown();
    s.reset();
    std::string bytes = readAll(m_strFile);
    ASSERT_GT(bytes.size(), 8u * 4096) << "the store spans several pages";
    const size_t page = bytes.size() / 4096 / 2 * 4096;
    for (size_t i = 0; i < 4096; ++i) bytes[page + i] = garbage[i];
    std::ofstream(m_strFile, std::ios::binary | std::ios::trunc) << bytes;

    struct {
        std::string file;
        std::string says;
    } cases[] = {{notDb, "not a database"}, {m_strFile, "damaged"}};
    for (const auto& c : cases) {
        const std::string before = readAll(c.file);
        std::string error;
        EXPECT_FALSE(CPersistService::open("sqlite://" + c.file, &error)) << c.file;
        EXPECT_NE(std::string::npos, error.find(c.file)) << error;
        EXPECT_NE(std::string::npos, error.find(c.says)) << error;
        EXPECT_EQ(before, readAll(c.file)) << c.file << " was changed";
    }
    std::string error;
    EXPECT_TRUE(CPersistService::open(m_strUrl + "?check=none", &error))
        << "opened anyway on request: " << error;
}

TEST_F(SqliteBackendTest, AMissingFolderFailsToOpenNamingTheFile) {
    std::string error;
    EXPECT_FALSE(CPersistService::open("sqlite://" + m_strDir + "/no/such/folder/x.db", &error));
    EXPECT_NE(std::string::npos, error.find(m_strDir + "/no/such/folder/x.db")) << error;
}

TEST_F(SqliteBackendTest, WritesWaitForALockedFileAndAreAppliedWhenItIsReleased) {
    PersistServicePtr s = open("?busy_timeout_ms=5&retry_ms=1&retry_max_ms=10");
    ASSERT_TRUE(s->writeData("H", "before", doc(0)));

    sqlite3* other = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(m_strFile.c_str(), &other));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr));
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(s->asyncWriteData("H", "k" + std::to_string(i), doc(i)));
    while (s->counters().m_nRetried < 3) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(20u, s->counters().m_nPending);
    EXPECT_EQ(doc(5), s->readData("H", "k5")) << "served from the queue meanwhile";
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr));
    sqlite3_close(other);

    s->flush();
    EXPECT_EQ(0u, s->counters().m_nFailed);
    s->shutdown();
    PersistServicePtr reopened = open();
    std::map<std::string, bson::BSONObj> all;
    ASSERT_TRUE(reopened->readAllData("H", "k.*", all));
    EXPECT_EQ(20u, all.size());
}

TEST_F(SqliteBackendTest, DamagedDocumentsAreSkippedAndNamedAndTheRestIsRead) {
    PersistServicePtr s = open();
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(s->writeData("H", "k" + std::to_string(i), doc(i)));
    ASSERT_TRUE(s->asyncWriteListData("L", {doc(1), doc(2)}, true));
    s->flush();

    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(m_strFile.c_str(), &db));
    // A wrong declared length, and a string that is not UTF-8 inside an otherwise sound document.
    const std::string shortDoc = doc(1).bytes().substr(0, 20);
    std::string badUtf8 = doc(2).bytes();
    badUtf8[badUtf8.size() - 5] = static_cast<char>(0xC3);
    sqlite3_stmt* st = nullptr;
    ASSERT_EQ(SQLITE_OK,
              sqlite3_prepare_v2(db, "UPDATE tt_hash SET value = ?1 WHERE key = ?2", -1, &st, nullptr));
    for (const auto& kv :
         {std::make_pair(shortDoc, std::string("k1")), std::make_pair(badUtf8, std::string("k2"))}) {
        sqlite3_bind_blob(st, 1, kv.first.data(), static_cast<int>(kv.first.size()), SQLITE_TRANSIENT);
        sqlite3_bind_text(st, 2, kv.second.c_str(), -1, SQLITE_TRANSIENT);
        ASSERT_EQ(SQLITE_DONE, sqlite3_step(st));
        sqlite3_reset(st);
    }
    sqlite3_finalize(st);
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, "UPDATE tt_list SET value = x'0500' WHERE pos = 0", nullptr,
                                      nullptr, nullptr));
    sqlite3_close(db);

    std::vector<std::string> lines;
    std::map<std::string, bson::BSONObj> all;
    std::vector<bson::BSONObj> items;
    {
        ttservice::test::LogCapture capture(utils::TT_LOG_ERROR);
        EXPECT_TRUE(s->readData("H", "k1").isEmpty());
        EXPECT_TRUE(s->readAllData("H", "k.*", all));
        EXPECT_TRUE(s->readListData("L", items));
        lines = capture.texts(utils::LOGGER_STD);
    }

    EXPECT_EQ((std::map<std::string, bson::BSONObj>{{"k0", doc(0)}}), all);
    EXPECT_EQ(std::vector<bson::BSONObj>{doc(2)}, items);
    auto mentions = [&](const std::string& what) {
        return std::count_if(lines.begin(), lines.end(),
                             [&](const std::string& l) { return l.find(what) != std::string::npos; });
    };
    EXPECT_EQ(2, mentions("'k1'")) << "once by readData, once by readAllData";
    EXPECT_EQ(1, mentions("'k2'"));
    EXPECT_EQ(1, mentions("'L' key '#0'"));
}

}  // namespace
}  // namespace persist
