// ttservice::test::CRedisServer: a private redis-server for a test or benchmark.
//
// start() picks a free loopback port, makes a temporary folder, runs
//   redis-server --port N --bind 127.0.0.1 --save "" --appendonly no --daemonize no --dir <folder>
// in the background and returns once the server answers PING. The server is stopped by its process
// id (SIGTERM, then waiting for it) when the object goes, and the folder is removed. kill() and
// restart() let a test take the server away mid-stream and bring it back on the same port.
// setDurable(true) before start() switches to an append-only file fsynced on every write, so that
// what the server acknowledged survives kill() and restart().
//
// Tests skip (GTEST_SKIP) when available() is false: redis-server is not installed.
//
// Thread safety: one thread at a time.
#pragma once

#include <sys/types.h>

#include <string>

namespace ttservice {
namespace test {

class CRedisServer {
public:
    CRedisServer();
    ~CRedisServer();
    CRedisServer(const CRedisServer&) = delete;
    CRedisServer& operator=(const CRedisServer&) = delete;

    // The redis-server on PATH, or "" when none is installed.
    static std::string executable();
    static bool available() { return !executable().empty(); }

    void setDurable(bool durable) { m_bDurable = durable; }
    bool start(std::string* error);
    // SIGTERM and wait for the process to end. True when it was running.
    bool stop();
    // SIGKILL: the server vanishes as in a crash.
    bool kill();
    // Starts again on the same port and folder (after stop() or kill()).
    bool restart(std::string* error);

    bool running() const { return m_nPid > 0; }
    int port() const { return m_nPort; }
    pid_t pid() const { return m_nPid; }
    const std::string& dir() const { return m_strDir; }
    // "redis://127.0.0.1:PORT/DB"
    std::string url(int db = 0) const;

private:
    bool spawn(std::string* error);
    bool waitReady(std::string* error);
    bool terminate(int signal);

    bool m_bDurable;
    int m_nPort;
    pid_t m_nPid;
    std::string m_strDir;
};

}  // namespace test
}  // namespace ttservice
