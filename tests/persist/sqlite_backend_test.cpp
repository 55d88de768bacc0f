// The SQLite store as other processes and damaged files see it: another process reading the file,
// a file that cannot be written, files that are missing, not a database or damaged, a file another
// connection keeps locked, and documents damaged inside the file.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "persist/CPersistService.h"
#include "testing/PersistTestUtil.h"
#include "testing/TempDir.h"

namespace persist {
namespace {

using ttservice::test::countStdLines;

// Documents large enough that a few hundred span several pages of the file.
bson::BSONObj doc(int n) {
    return ttservice::test::doc(n, std::string(200, 'x'));
}

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

class SqliteBackendTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(m_dir.path().empty()); }
    PersistServicePtr open(const std::string& query = std::string()) {
        std::string error;
        PersistServicePtr s = CPersistService::open(m_strUrl + query, &error);
        EXPECT_TRUE(s) << error;
        return s;
    }

    ttservice::test::TempDir m_dir{"tt-sqlite"};
    const std::string m_strFile = m_dir.file("store.db");
    const std::string m_strUrl = "sqlite://" + m_strFile;
};

TEST_F(SqliteBackendTest, AnotherProcessSeesFlushedDataWhileTheServiceRuns) {
    if (system("command -v sqlite3 >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "the sqlite3 shell is not installed";
    PersistServicePtr s = open("?sync=full");
    for (int i = 0; i < 250; ++i)
        ASSERT_TRUE(s->asyncWriteData("NqTradeData", "k" + std::to_string(i), doc(i)));
    ASSERT_TRUE(s->asyncWriteSetStrData("Accounts", "10086"));
    s->flush();

    FILE* shell = popen(("sqlite3 -readonly " + m_strFile +
                         " \"SELECT count(*), sum(length(value)) FROM tt_hash WHERE hash = 'NqTradeData';"
                         "SELECT member FROM tt_set WHERE name = 'Accounts'; PRAGMA journal_mode;\"")
                            .c_str(),
                        "r");
    ASSERT_TRUE(shell);
    std::string out;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), shell)) > 0;) out.append(buf, n);
    EXPECT_EQ(0, WEXITSTATUS(pclose(shell)));
    EXPECT_EQ("250|" + std::to_string(250 * doc(0).objsize()) + "\n10086\nwal\n", out);
}

TEST_F(SqliteBackendTest, AFileThatCannotBeWrittenFailsToOpenNamingIt) {
    open()->shutdown();
    ASSERT_EQ(0, chmod(m_strFile.c_str(), 0444));
    ASSERT_EQ(0, chmod(m_dir.path().c_str(), 0755));
    auto namesTheReadOnlyFile = [&](const std::string& error) {
        return error.find(m_strFile) != std::string::npos && error.find("read-only") != std::string::npos;
    };
    std::string error;
    if (geteuid() != 0) {
        EXPECT_FALSE(openBackend(m_strUrl, &error));
        EXPECT_TRUE(namesTheReadOnlyFile(error)) << error;
        return;
    }
    // Permissions do not bind root: open the file as an ordinary user, in a child process whose exit
    // status says 0 refused naming the file as read-only, 1 opened, 2 refused otherwise, 3 no switch.
    pid_t pid = fork();
    if (pid == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) _exit(3);
        if (openBackend(m_strUrl, &error)) _exit(1);
        _exit(namesTheReadOnlyFile(error) ? 0 : 2);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (WEXITSTATUS(status) == 3) GTEST_SKIP() << "running as root and cannot switch to nobody";
    EXPECT_EQ(0, WEXITSTATUS(status)) << "1: the read-only file was opened; 2: the error does not say why";
}

// A missing folder, a file that is not a database, and a real store with one page overwritten:
// each fails to open naming the file and is left as it was.
TEST_F(SqliteBackendTest, AMissingOrDamagedFileFailsToOpenNamingItAndIsLeftAlone) {
    std::string garbage;
    for (int i = 0; i < 4096; ++i) garbage.push_back(static_cast<char>((i * 7919) & 0xFF));
    const std::string notDb = m_dir.write("garbage.db", garbage);

    PersistServicePtr s = open();
    for (int i = 0; i < 300; ++i) ASSERT_TRUE(s->asyncWriteData("H", "k" + std::to_string(i), doc(i)));
    s->shutdown();
    s.reset();
    std::string bytes = readAll(m_strFile);
    ASSERT_GT(bytes.size(), 8u * 4096) << "the store spans several pages";
    bytes.replace(bytes.size() / 4096 / 2 * 4096, 4096, garbage);
    m_dir.write("store.db", bytes);

    const std::pair<std::string, std::string> cases[] = {
        {m_dir.file("no/such/folder/x.db"), ""}, {notDb, "not a database"}, {m_strFile, "damaged"}};
    for (const auto& c : cases) {
        const std::string before = readAll(c.first);
        std::string error;
        EXPECT_FALSE(CPersistService::open("sqlite://" + c.first, &error)) << c.first;
        EXPECT_NE(std::string::npos, error.find(c.first)) << error;
        EXPECT_NE(std::string::npos, error.find(c.second)) << error;
        EXPECT_EQ(before, readAll(c.first)) << c.first << " was changed";
    }
    std::string error;
    EXPECT_TRUE(CPersistService::open(m_strUrl + "?check=none", &error))
        << "opened anyway on request: " << error;
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
    EXPECT_EQ(20u, ttservice::test::readAll(*open(), "H", "k.*").size());
}

TEST_F(SqliteBackendTest, DamagedDocumentsAreSkippedAndNamedAndTheRestIsRead) {
    PersistServicePtr s = open();
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(s->writeData("H", "k" + std::to_string(i), doc(i)));
    ASSERT_TRUE(s->asyncWriteListData("L", {doc(1), doc(2)}, true));
    s->flush();

    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(m_strFile.c_str(), &db));
    // A wrong declared length, and a string that is not UTF-8 inside an otherwise sound document.
    std::string badUtf8 = doc(2).bytes();
    badUtf8[badUtf8.size() - 5] = static_cast<char>(0xC3);
    sqlite3_stmt* st = nullptr;
    ASSERT_EQ(SQLITE_OK,
              sqlite3_prepare_v2(db, "UPDATE tt_hash SET value = ?1 WHERE key = ?2", -1, &st, nullptr));
    for (const auto& kv :
         {std::make_pair(doc(1).bytes().substr(0, 20), "k1"), std::make_pair(badUtf8, "k2")}) {
        sqlite3_bind_blob(st, 1, kv.first.data(), static_cast<int>(kv.first.size()), SQLITE_TRANSIENT);
        sqlite3_bind_text(st, 2, kv.second, -1, SQLITE_TRANSIENT);
        ASSERT_EQ(SQLITE_DONE, sqlite3_step(st));
        sqlite3_reset(st);
    }
    sqlite3_finalize(st);
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, "UPDATE tt_list SET value = x'0500' WHERE pos = 0", nullptr,
                                      nullptr, nullptr));
    sqlite3_close(db);

    ttservice::test::LogCapture log(utils::TT_LOG_ERROR);
    EXPECT_TRUE(s->readData("H", "k1").isEmpty());
    EXPECT_EQ((std::map<std::string, bson::BSONObj>{{"k0", doc(0)}}),
              ttservice::test::readAll(*s, "H", "k.*"));
    EXPECT_EQ(std::vector<bson::BSONObj>{doc(2)}, ttservice::test::readList(*s, "L"));
    EXPECT_EQ(2u, countStdLines(log, "'k1'")) << "once by readData, once by readAllData";
    EXPECT_EQ(1u, countStdLines(log, "'k2'"));
    EXPECT_EQ(1u, countStdLines(log, "'L' key '#0'"));
}

}  // namespace
}  // namespace persist
