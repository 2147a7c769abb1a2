#!/usr/bin/env bash
# One entry point for building, testing and running the project.
#   scripts/build.sh run        build everything and run the host simulator's default scenario
#   scripts/build.sh test       build everything and run every test
#   scripts/build.sh sanitize   the same tests built with AddressSanitizer + UndefinedBehaviorSanitizer
#   scripts/build.sh bench      build and run the benchmarks
#   scripts/build.sh fuzz       build the libFuzzer targets with clang and run each over its corpus
#   scripts/build.sh clang      build everything with clang and run every test (build-clang/)
#   scripts/build.sh tidy       clang-tidy (.clang-tidy) over the libraries and the plug-in
# Environment: ZQ_WERROR=ON turns warnings into errors; JOBS sets build parallelism.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cmd=${1:-run}
shift || true
jobs=${JOBS:-$(nproc)}
werror=${ZQ_WERROR:-OFF}

ensure_packages() {
  local missing=()
  for p in "$@"; do dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p"); done
  if ((${#missing[@]})); then
    echo "installing: ${missing[*]}"
    local sudo=""; [ "$(id -u)" -eq 0 ] || sudo=sudo
    $sudo apt-get update -qq && $sudo apt-get install -y -qq "${missing[@]}"
  fi
}

base_packages=(cmake ninja-build g++ libgtest-dev libgmock-dev libbenchmark-dev)

configure() {  # dir, extra cmake args...
  local dir=$1; shift
  cmake -S "$root" -B "$root/$dir" -G Ninja -DZQ_WERROR="$werror" "$@" >/dev/null
}

configure_build() {  # dir, extra cmake args...
  configure "$@"
  cmake --build "$root/$1" -j "$jobs"
}

run_tests() {  # dir, extra ctest args...
  local dir=$1; shift
  (cd "$root/$dir" && ctest -j "$jobs" --output-on-failure --timeout 600 "$@")
}

case "$cmd" in
  run)
    ensure_packages "${base_packages[@]}"
    configure_build build
    exec "$root/build/tools/quelld_sim/quelld_sim" "$@"
    ;;
  test)
    ensure_packages "${base_packages[@]}" rsyslog  # rsyslog: the collector of the interop test
    configure_build build
    run_tests build "$@"
    ;;
  sanitize)
    ensure_packages "${base_packages[@]}"
    configure_build build-asan -DCMAKE_BUILD_TYPE=Debug -DZQ_SANITIZE=ON -DZQ_BUILD_BENCH=OFF
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
      run_tests build-asan -LE nosan "$@"
    ;;
  bench)
    ensure_packages "${base_packages[@]}" libssl-dev libboost-dev libprotobuf-dev protobuf-compiler
    configure_build build-bench -DCMAKE_BUILD_TYPE=Release -DZQ_BUILD_TESTS=OFF
    for b in "$root"/build-bench/bench/*_bench; do
      [ -x "$b" ] && "$b" "$@"
    done
    ;;
  fuzz)
    ensure_packages "${base_packages[@]}" clang libclang-rt-dev
    CC=clang CXX=clang++ configure build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DZQ_BUILD_FUZZ=ON -DZQ_BUILD_TESTS=OFF -DZQ_BUILD_BENCH=OFF
    cmake --build "$root/build-fuzz" -j "$jobs" --target fuzz_all
    secs=${FUZZ_SECONDS:-20}
    for f in "$root"/build-fuzz/fuzz/*_fuzz; do
      [ -x "$f" ] || continue
      name=$(basename "$f")
      mkdir -p "$root/build-fuzz/corpus-$name"
      "$f" -max_total_time="$secs" -artifact_prefix="$root/build-fuzz/$name-" \
        "$root/build-fuzz/corpus-$name" "$root/fuzz/corpus/${name%_fuzz}"
    done
    ;;
  clang)
    ensure_packages "${base_packages[@]}" clang
    CC=clang CXX=clang++ configure_build build-clang -DZQ_BUILD_BENCH=OFF
    run_tests build-clang "$@"
    ;;
  tidy)
    # Runs over the clang build's compile commands (scripts/build.sh clang builds it, generated
    # sources included); configures and builds it first when it is missing.
    ensure_packages "${base_packages[@]}" clang clang-tidy
    if [ ! -f "$root/build-clang/compile_commands.json" ]; then
      CC=clang CXX=clang++ configure_build build-clang -DZQ_BUILD_BENCH=OFF
    fi
    files=$(python3 -c 'import json,sys,re; print("\n".join(sorted({e["file"] for e in json.load(open(sys.argv[1])) if re.search(r"/(lib_src/[a-z_]+/src|plugins/zq)/[^/]*\.cc$|/plugins/zq/copy/", e["file"])})))' "$root/build-clang/compile_commands.json")
    echo "$files" | xargs -P "$jobs" -n 4 clang-tidy -p "$root/build-clang" --quiet
    ;;
  *)
    echo "usage: $0 run|test|sanitize|bench|fuzz|clang|tidy" >&2
    exit 2
    ;;
esac
