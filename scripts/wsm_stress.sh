#!/usr/bin/env bash
# Long stress run of the typed shared memory: forked processes create, find, attach, detach and
# unlink objects of one registry for the given time, then the registry is checked against what
# each process logged and for leaked segments. ctest runs the same program for 3 seconds.
#   scripts/wsm_stress.sh [SECONDS=30] [PROCESSES=8]
# Environment: BUILD_DIR (default build), JOBS (default 2).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
secs=${1:-30}
procs=${2:-8}
build=${BUILD_DIR:-$root/build}
[ -f "$build/build.ninja" ] || cmake -S "$root" -B "$build" -G Ninja >/dev/null
cmake --build "$build" --target wsm_stress -j "${JOBS:-2}" >/dev/null
exec "$build/lib_src/wmng/wsm_stress" --seconds "$secs" --procs "$procs"
