// Helpers of the ttreplay tests: replaying a session given as text, and reading files of the tree.
#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ReplayTool.h"
#include "SessionReplayer.h"

namespace ttservice {
namespace replay {
namespace test {

struct CReplayRun {
    std::string out;
    std::string err;
    Json::Value summary;
    CReplayCounters counters;
};

// Replays `session` line by line as the tool does and keeps what came out.
inline CReplayRun replaySession(const std::string& session, bool json = false, size_t listLimit = 50) {
    std::ostringstream out, err;
    CReplayOptions options;
    options.m_strSessionName = "session";
    options.m_bJson = json;
    options.m_nListLimit = listLimit;
    CReplayRun run;
    {
        CSessionReplayer replayer(options, out, err);
        std::istringstream in(session);
        std::string line;
        int64_t n = 0;
        while (std::getline(in, line)) replayer.replayLine(line, ++n);
        replayer.finish();
        run.summary = replayer.summary();
        run.counters = replayer.counters();
    }
    run.out = out.str();
    run.err = err.str();
    return run;
}

struct CToolRun {
    int status;
    std::string out;
    std::string err;
};

// Runs the tool's command line.
inline CToolRun runTool(const std::vector<std::string>& args) {
    std::ostringstream out, err;
    const int status = run(args, out, err);
    return CToolRun{status, out.str(), err.str()};
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

inline std::string joinLines(const std::vector<std::string>& lines) {
    std::string s;
    for (const std::string& l : lines) s += l + "\n";
    return s;
}

}  // namespace test
}  // namespace replay
}  // namespace ttservice
