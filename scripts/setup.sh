#!/usr/bin/env bash
# Sets up ttservice on Debian 12 and runs one of its jobs.
#
#   scripts/setup.sh demo    installs what is missing, builds, and replays the demo session
#                            (examples/demo/session.jsonl) on the embedded SQLite store
#   scripts/setup.sh test    installs what is missing, builds everything with warnings as errors,
#                            runs the whole test suite, then the whole suite again under
#                            ThreadSanitizer
#   scripts/setup.sh build   installs what is missing and builds (Release) into build/
#
# Idempotent: packages already installed are not touched, build folders are reused.
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$(pwd)
JOBS=${JOBS:-2}

PACKAGES=(build-essential cmake pkg-config
          libboost-dev libboost-thread-dev libboost-system-dev libboost-date-time-dev
          libbson-dev libjsoncpp-dev liblog4cxx-dev libhiredis-dev redis-server
          libsqlite3-dev sqlite3 libgtest-dev libgmock-dev libbenchmark-dev)

install_packages() {
    local missing=()
    for p in "${PACKAGES[@]}"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local sudo=""
    if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
    echo "== installing: ${missing[*]}"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

configure() {  # configure DIR [cmake options...]
    local dir=$1; shift
    mkdir -p "$dir"
    cmake -S "$ROOT" -B "$dir" "$@" > "$dir/configure.log" 2>&1 || { cat "$dir/configure.log"; return 1; }
}
build() {  # build DIR [cmake options...]
    configure "$@"
    cmake --build "$1" -j "$JOBS"
}

mode=${1:-demo}
install_packages
case "$mode" in
    demo)
        build "$ROOT/build" -DCMAKE_BUILD_TYPE=Release -DTTSERVICE_BUILD_TESTS=OFF
        "$ROOT/build/tools/ttreplay/ttreplay" "$ROOT/examples/demo/session.jsonl"
        ;;
    test)
        build "$ROOT/build-ci" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTTSERVICE_WERROR=ON -DTTSERVICE_BUILD_BENCHMARKS=ON
        (cd "$ROOT/build-ci" && ctest -j "$JOBS" --output-on-failure --timeout 300)
        # The whole suite again under ThreadSanitizer.
        build "$ROOT/build-tsan" -DCMAKE_BUILD_TYPE=Debug -DTTSERVICE_TSAN=ON -DTTSERVICE_WERROR=ON
        (cd "$ROOT/build-tsan" && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
            ctest -j "$JOBS" --output-on-failure --timeout 600)
        ;;
    build)
        build "$ROOT/build" -DCMAKE_BUILD_TYPE=Release
        ;;
    *)
        echo "usage: $0 demo|test|build" >&2
        exit 2
        ;;
esac
