# shellcheck shell=bash
# Sourced by 40-sanitizers.sh, 45-coverage.sh and 60-fuzz.sh (after lib.sh): the clang
# build under AddressSanitizer (LeakSanitizer included) and UndefinedBehaviorSanitizer,
# with the instrumentation libFuzzer needs and clang's source-based coverage, in
# $SAN_BUILD; the fuzz targets are part of it. One build serves the three steps, which
# keeps the test command within its time budget. Sets the sanitizers' options for what
# runs afterwards.

SAN_BUILD=${SANITIZER_BUILD_DIR:-$ROOT/build-sanitizers}
SAN_PACKAGES=(clang libclang-rt-dev llvm)

# Configures and builds the tree; extra arguments are ninja targets (default: all).
build_sanitizers() {
  need_packages "${BASE_PACKAGES[@]}" "${SAN_PACKAGES[@]}"
  # The sanitizers preset (CMakePresets.json): clang, the sanitizers, the fuzz targets;
  # the benchmarks are no test and replace malloc themselves, so they are left out.
  cmake -S "$ROOT" --preset sanitizers -B "$SAN_BUILD" >/dev/null
  ninja -C "$SAN_BUILD" -j "$JOBS" "$@"
  # Built plain: it is preloaded into processes that carry no sanitizer runtime. Built
  # only when missing or older than its source, so that a later step finds the suite's
  # profiles newer than every binary.
  if [ ! "$SAN_BUILD/libkeep_loaded.so" -nt "$ROOT/tests/keep_loaded.c" ]; then
    clang -shared -fPIC -O2 -o "$SAN_BUILD/libkeep_loaded.so" "$ROOT/tests/keep_loaded.c"
  fi
}

# Where the suite's processes write their coverage profiles: per binary (the loaded
# library, spawned simulators and test programs each count their own) a pool of four
# files that processes add their counts to as they end (%4m), a few megabytes where a
# file per process would be half a gigabyte.
SUITE_PROFILES="$SAN_BUILD/profiles/suite"

# Runs the test suite under the sanitizers, writing coverage profiles, and marks them
# complete once every test passed. Left out, labelled no-sanitizers: the symbol table
# and runtime-needs tests (instrumentation adds symbols and runtime needs to the
# library by design), the SIGFPE test (the sanitizer reports the division first, which
# 40-sanitizers.sh checks), the tests that replace or read the allocator, which
# AddressSanitizer owns; 45-coverage.sh runs the latter two in a plain build of their
# own. The tests labelled slow (seconds of wall clock each: paced replays, the DLT
# daemon, the library runner's scripts) are left out too: they take the module through
# paths the other tests take as well, and would double the step's time.
run_suite_with_profiles() {
  rm -rf "$SUITE_PROFILES" "$SUITE_PROFILES.complete"
  mkdir -p "$SUITE_PROFILES"
  # A module the host unloads stays mapped, so that leak reports can name its functions.
  LD_PRELOAD="$SAN_BUILD/libkeep_loaded.so${LD_PRELOAD:+:$LD_PRELOAD}" LLVM_PROFILE_FILE="$SUITE_PROFILES/%4m.profraw" \
    ctest --test-dir "$SAN_BUILD" -j "$JOBS" --output-on-failure -LE 'no-sanitizers|slow' || return 1
  touch "$SUITE_PROFILES.complete"
}

# True when the suite's profiles are complete and newer than every binary of the build.
suite_profiles_current() {
  [ -f "$SUITE_PROFILES.complete" ] || return 1
  [ -z "$(find "$SAN_BUILD" -path "$SAN_BUILD/profiles" -prune -o -type f \( -name '*.so' -o -perm -u+x \) \
    -newer "$SUITE_PROFILES.complete" -print -quit)" ]
}

# Halt on the first report of any of them; leaks are checked at every exit, with the
# one suppression of tests/lsan.supp.
export ASAN_OPTIONS="halt_on_error=1:abort_on_error=0:detect_leaks=1:detect_stack_use_after_return=1:check_initialization_order=1:strict_init_order=1:strict_string_checks=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
export LSAN_OPTIONS="suppressions=$ROOT/tests/lsan.supp:print_suppressions=0"
# Every instrumented program writes a profile when it ends; those of the runs outside
# the suite (fuzzing, the checks of single tests) go here, not into the working folder.
export LLVM_PROFILE_FILE="$SAN_BUILD/profiles/other/%m.profraw"
