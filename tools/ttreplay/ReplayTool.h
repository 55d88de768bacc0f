// ttreplay: runs the data layer without the terminal.
//
//   ttreplay SESSION [--store URL | --no-store] [--json] [--limit N] [--log PROPERTIES]
//       Replays SESSION (docs/session-format.md; "-" reads standard input) and writes each query's
//       answer and, at the end, what every account holds and what its subscribers and the data
//       center's listeners received. The per-account summaries are stored in the persistence
//       store under hash "TTReplay", key = account key (inspect them with
//       `ttpersist URL dump TTReplay`).
//         --store URL        the store (sqlite:///path.db, redis://host:port, memory://).
//                            Default: the process default of CPersistService (persist.url, else
//                            the embedded SQLite file under $XDG_DATA_HOME or ~/.local/share).
//         --no-store         store nothing.
//         --json             the main output is one JSON document.
//         --limit N          most entries per list in the summary; 0 lists all. Default: 50.
//         --log PROPERTIES   configure the data layer's logging from a log4cxx properties file.
//       Standard output is deterministic: the same session gives the same bytes. Bad lines go to
//       standard error as "SESSION:LINE: reason (line skipped)"; the trailer (line and record
//       counts, timings, records per second, the store) goes to standard error; a progress bar too
//       when standard error is a terminal and the session is large.
//       Exit status: 0 all lines replayed; 1 some lines were skipped, the session could not be read
//       or the summaries could not be stored; 2 usage error.
//
//   ttreplay generate [--accounts N] [--records M] [--seed S] [--instruments K] [--output FILE]
//       Writes a synthetic session (SessionGenerator.h) to FILE or standard output.
//
// The logic lives here so that tests drive it; main.cpp only forwards argv.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace ttservice {
namespace replay {

enum EExit { EXIT_OK = 0, EXIT_ERRORS = 1, EXIT_USAGE = 2 };

// Runs one command line (without the program name). `errIsTerminal` allows the progress bar.
int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
        bool errIsTerminal = false);

// Sessions at least this large (bytes) get a progress bar on a terminal.
const long long PROGRESS_MIN_BYTES = 4LL << 20;

}  // namespace replay
}  // namespace ttservice
