// Helpers of the ttreplay tests: replaying a session given as text, running the tool, reading files
// and JSON.
#pragma once

#include <gmock/gmock.h>
#include <json/json.h>

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
    std::string out, err;
    Json::Value summary;
    CReplayCounters counters;
};

// Replays `session` line by line as the tool does and keeps what came out.
inline CReplayRun replaySession(const std::string& session) {
    std::ostringstream out, err;
    CReplayOptions options;  // text output, lists of up to 50 entries
    options.m_strSessionName = "session";
    CReplayRun run;
    {
        CSessionReplayer replayer(options, out, err);
        std::istringstream in(session);
        int64_t n = 0;
        for (std::string line; std::getline(in, line);) replayer.replayLine(line, ++n);
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
    std::string out, err;
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

inline std::string joinLines(const std::vector<std::string>& lines) {
    std::string s;
    for (const std::string& l : lines) s += l + "\n";
    return s;
}

// One JSON document, nothing after it; a parse error fails the test.
inline Json::Value parseJson(const std::string& text) {
    Json::CharReaderBuilder b;
    b["failIfExtra"] = true;
    std::unique_ptr<Json::CharReader> reader(b.newCharReader());
    Json::Value v;
    std::string err;
    EXPECT_TRUE(reader->parse(text.data(), text.data() + text.size(), &v, &err)) << err << ": " << text;
    return v;
}

}  // namespace test
}  // namespace replay
}  // namespace ttservice
