#include "testing/RedisServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

extern char** environ;

namespace ttservice {
namespace test {

namespace {

sockaddr_in loopback(int port) {
    sockaddr_in a;
    memset(&a, 0, sizeof(a));
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return a;
}

// A port the kernel just handed out on 127.0.0.1 and that nobody holds now.
int freePort() {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    sockaddr_in a = loopback(0);
    int port = -1;
    socklen_t len = sizeof(a);
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0) {
        port = ntohs(a.sin_port);
    }
    close(fd);
    return port;
}

// True when a server on the port answers PING with PONG.
bool ping(int port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return false;
    timeval tv = {0, 500000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv));
    sockaddr_in a = loopback(port);
    bool ok = false;
    if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) == 0) {
        const char cmd[] = "PING\r\n";
        if (send(fd, cmd, sizeof(cmd) - 1, MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof(cmd) - 1)) {
            char buf[16] = {0};
            ssize_t n = recv(fd, buf, sizeof(buf) - 1, 0);
            ok = n >= 5 && strncmp(buf, "+PONG", 5) == 0;
        }
    }
    close(fd);
    return ok;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

}  // namespace

CRedisServer::CRedisServer() : m_bDurable(false), m_nPort(-1), m_nPid(-1) {}

CRedisServer::~CRedisServer() {
    stop();
    if (!m_strDir.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(m_strDir, ec);
    }
}

std::string CRedisServer::executable() {
    const char* path = getenv("PATH");
    std::stringstream dirs(path ? path : "/usr/local/bin:/usr/bin:/bin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        if (dir.empty()) continue;
        std::string candidate = dir + "/redis-server";
        if (access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return std::string();
}

std::string CRedisServer::url(int db) const {
    return "redis://127.0.0.1:" + std::to_string(m_nPort) + "/" + std::to_string(db);
}

bool CRedisServer::start(std::string* error) {
    if (running()) return true;
    if (m_strDir.empty()) {
        std::string tmpl = (std::filesystem::temp_directory_path() / "tt-redis-XXXXXX").string();
        std::vector<char> buf(tmpl.begin(), tmpl.end());
        buf.push_back('\0');
        if (!mkdtemp(buf.data())) {
            if (error)
                *error = "cannot make a temporary folder for redis-server: " + std::string(strerror(errno));
            return false;
        }
        m_strDir = buf.data();
    }
    // Another process may take the port between our probe and the server's bind: try a few.
    std::string why;
    for (int attempt = 0; attempt < 5; ++attempt) {
        m_nPort = freePort();
        if (m_nPort <= 0) {
            why = "no free loopback port";
            continue;
        }
        if (spawn(&why) && waitReady(&why)) return true;
    }
    if (error) *error = why;
    return false;
}

bool CRedisServer::restart(std::string* error) {
    if (running()) stop();
    if (m_nPort <= 0) return start(error);
    // The kernel may keep the old listening port briefly; retry for a while on the same port.
    std::string why;
    for (int attempt = 0; attempt < 20; ++attempt) {
        if (spawn(&why) && waitReady(&why)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (error) *error = why;
    return false;
}

bool CRedisServer::spawn(std::string* error) {
    const std::string exe = executable();
    if (exe.empty()) {
        if (error) *error = "redis-server is not installed";
        return false;
    }
    const std::string port = std::to_string(m_nPort);
    std::vector<std::string> args = {exe, "--port",      port, "--bind", "127.0.0.1", "--save",
                                     "",  "--daemonize", "no", "--dir",  m_strDir};
    if (m_bDurable) {
        args.insert(args.end(), {"--appendonly", "yes", "--appendfsync", "always"});
    } else {
        args.insert(args.end(), {"--appendonly", "no"});
    }
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);

    const std::string log = m_strDir + "/redis.log";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    pid_t pid = -1;
    int rc = posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) {
        if (error) *error = "cannot start " + exe + ": " + strerror(rc);
        return false;
    }
    m_nPid = pid;
    return true;
}

bool CRedisServer::waitReady(std::string* error) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        if (waitpid(m_nPid, &status, WNOHANG) == m_nPid) {
            m_nPid = -1;
            if (error) {
                *error = "redis-server on port " + std::to_string(m_nPort) +
                         " exited at start; its log: " + readFile(m_strDir + "/redis.log");
            }
            return false;
        }
        if (ping(m_nPort)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    terminate(SIGKILL);
    if (error)
        *error = "redis-server on port " + std::to_string(m_nPort) + " did not answer PING within 15 s";
    return false;
}

bool CRedisServer::terminate(int sig) {
    if (m_nPid <= 0) return false;
    ::kill(m_nPid, sig);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    int status = 0;
    while (waitpid(m_nPid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(m_nPid, SIGKILL);
            waitpid(m_nPid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    m_nPid = -1;
    return true;
}

bool CRedisServer::stop() {
    return terminate(SIGTERM);
}

bool CRedisServer::kill() {
    return terminate(SIGKILL);
}

}  // namespace test
}  // namespace ttservice
