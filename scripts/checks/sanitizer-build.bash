# shellcheck shell=bash
# Sourced by 40-sanitizers.sh and 60-fuzz.sh (after lib.sh): the clang build under
# AddressSanitizer (LeakSanitizer included) and UndefinedBehaviorSanitizer, with the
# coverage instrumentation libFuzzer needs, in $SAN_BUILD; the fuzz targets are part
# of it. Sets the sanitizers' options for what runs afterwards.

SAN_BUILD=${SANITIZER_BUILD_DIR:-$ROOT/build-sanitizers}
SAN_PACKAGES=(clang libclang-rt-dev llvm)

# Configures and builds the tree; extra arguments are ninja targets (default: all).
build_sanitizers() {
  need_packages "${BASE_PACKAGES[@]}" "${SAN_PACKAGES[@]}"
  # The sanitizers preset (CMakePresets.json): clang, the sanitizers, the fuzz targets;
  # the benchmarks are no test and replace malloc themselves, so they are left out.
  cmake -S "$ROOT" --preset sanitizers -B "$SAN_BUILD" >/dev/null
  ninja -C "$SAN_BUILD" -j "$JOBS" "$@"
  # Built plain: it is preloaded into processes that carry no sanitizer runtime.
  clang -shared -fPIC -O2 -o "$SAN_BUILD/libkeep_loaded.so" "$ROOT/tests/keep_loaded.c"
}

# Halt on the first report of any of them; leaks are checked at every exit, with the
# one suppression of tests/lsan.supp.
export ASAN_OPTIONS="halt_on_error=1:abort_on_error=0:detect_leaks=1:detect_stack_use_after_return=1:check_initialization_order=1:strict_init_order=1:strict_string_checks=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
export LSAN_OPTIONS="suppressions=$ROOT/tests/lsan.supp:print_suppressions=0"
