#!/usr/bin/env bash
# Builds and tests everything, starting from a bare machine.
#
#     ./test.sh [step...]      default: all, in this order
#     ./test.sh --long         all, and then `coverage` and `long`
#
#     format      clang-format finds nothing to change
#     linux       GCC: build and all tests, the layout of the interfaces, the exports, the packages, the documents, the reference
#     asan        Clang with AddressSanitizer and UndefinedBehaviorSanitizer: build, and all tests but the slow ones, the packages and the
#                 documents
#     tidy        clang-tidy finds nothing
#     guard       instructions and system calls of fixed work are as recorded
#     tsan        Clang with ThreadSanitizer: build, and the same tests as asan
#     windows     mingw-w64: build, all tests under Wine, the exports and imports of the DLL, the packages
#     coverage    GCC: all tests, and the lines and branches that they run, by folder
#     long        what takes hours: ten thousand simulations, a soak of 20 GiB, many threads, all faults under Wine, real servers, fuzzing
#                (Docs/Reliability.md)
#
# Missing packages are installed first (CMake/prepare.sh). If the cross tools cannot be installed, `windows` is skipped with a message,
# except in CI (CI=true), where that is a failure. Logs: build/logs.
set -uo pipefail
cd "$(dirname "$0")" || exit 1

jobs=$(nproc)
logs=build/logs
passed=0
failed=0
skipped=0
summary=()
mkdir -p "$logs"

say() { printf '\n== %s\n' "$*"; }

# quiet LOG COMMAND...: writes the output to the log, and shows it if the command fails.
quiet() {
    local log=$1
    shift
    "$@" >"$log" 2>&1 && return
    tail -n 200 "$log"
    echo "-- the whole output is in $log"
    return 1
}

# Runs the tests of a preset: prints the failed cases and ctest's summary, and counts.
run_ctest() {
    local log=$logs/$1-tests.log result repeat=()
    # Wine occasionally loses a process under load; a real fault fails again.
    [ "$1" != windows ] || repeat=(--repeat until-pass:2)
    # Most tests wait for something.
    ctest --preset "$1" --parallel $((2 * jobs)) "${repeat[@]}" >"$log" 2>&1
    result=$?
    grep -vE '^ *[0-9]+/[0-9]+ Test .* Passed |^ *Start +[0-9]+: |^Test project ' "$log" | tail -n 400
    local counts
    counts=$(sed -nE 's/^[0-9]+% tests passed, ([0-9]+) tests failed out of ([0-9]+)$/\1 \2/p' "$log")
    [ -n "$counts" ] || { echo "ctest did not come to its end: $log" && return 1; }
    failed=$((failed + ${counts% *}))
    passed=$((passed + ${counts#* } - ${counts% *}))
    return "$result"
}

build() {
    quiet "$logs/$1-configure.log" cmake --preset "$1" && quiet "$logs/$1-build.log" cmake --build --preset "$1" --parallel "$jobs"
}

build_and_test() { build "$1" && echo "built after $((SECONDS - started)) s" && run_ctest "$1"; }

our_sources() { git ls-files -co --exclude-standard -- '*.cpp' '*.h'; }

step_format() { our_sources | xargs clang-format --dry-run --Werror; }
step_linux() { build_and_test linux; }
step_asan() { build_and_test linux-asan; }
step_tsan() { build_and_test linux-tsan; }
step_guard() {
    quiet "$logs/guard-build.log" cmake --preset linux -DQUENDRA_BENCHMARKS=ON &&
        quiet "$logs/guard-build.log" cmake --build --preset linux --parallel "$jobs" --target work && Benchmarks/guard.py
}
step_tidy() {
    # clang-tidy reads the compile commands of a Clang build, which need not be built.
    local folders='(Appliance|Client|Eventing|Libraries|Platform|QuendraHttp)'
    quiet "$logs/linux-asan-configure.log" cmake --preset linux-asan &&
        quiet "$logs/tidy.log" run-clang-tidy -quiet -j "$jobs" -p build/linux-asan "$PWD/$folders/.*\\.cpp\$" || return 1
    # A pattern that matches nothing is no failure for it.
    [ "$(grep -c '^clang-tidy' "$logs/tidy.log")" -ge 100 ] || { echo 'clang-tidy has not read the sources' && return 1; }
}
step_windows() {
    local prefix=$PWD/build/windows/wineprefix
    # Wine's services start with its first program, keep its output open and end with its last program; COM's service does the same. ctest
    # would wait for them as for a part of that test. So both start here, and one program runs until the end.
    coproc CMake/wine.sh "$prefix" cmd >/dev/null 2>&1
    CMake/wine.sh "$prefix" wmic os get version </dev/null >/dev/null 2>&1
    build_and_test windows
    local result=$?
    CMake/wine.sh "$prefix" --stop
    return "$result"
}
step_coverage() {
    local result=0
    # What earlier runs counted is not what these sources do.
    [ ! -d build/linux-coverage ] || find build/linux-coverage -name '*.gcda' -delete
    build_and_test linux-coverage || result=1
    Tests/Coverage.py build/linux-coverage && return "$result"
}
step_long() {
    build linux && build linux-tsan || return 1
    quiet "$logs/long-build.log" cmake --preset linux -DQUENDRA_BENCHMARKS=ON &&
        quiet "$logs/long-build.log" cmake --build --preset linux --parallel "$jobs" --target cancellation || return 1
    local failed_parts=0 simulation=build/linux/bin/Simulation
    run_long() { echo "$*" && quiet "$logs/long-$1.log" "${@:2}" && tail -n 1 "$logs/long-$1.log" || failed_parts=$((failed_parts + 1)); }
    run_long seeds "$simulation" seeds 1 10000
    run_long threads "$simulation" threads 64 1000
    run_long race-threads build/linux-tsan/bin/Simulation threads 32 1000
    run_long race-seeds build/linux-tsan/bin/Simulation seeds 1 500
    if [ -e build/windows/bin/QuendraHttpTests.exe ]; then
        run_long wine-faults CMake/wine.sh "$PWD/build/windows/wineprefix" build/windows/bin/QuendraHttpTests.exe '--gtest_filter=*FaultMatrix*'
    fi
    run_long real-servers Tests/RealServers/RealServers.py build/linux/bin
    run_long hostile Tests/Appliance/Hostile.py build/linux/bin/quendra-appliance
    run_long fuzz ./fuzz.sh 60
    run_long cancellation build/linux/bin/cancellation
    run_long soak "$simulation" soak 200000 20480
    [ "$failed_parts" = 0 ]
}

prepare() {
    case $1 in
    format) CMake/prepare.sh tools ;;
    linux | asan | tsan) CMake/prepare.sh linux tests ;;
    coverage) CMake/prepare.sh linux tests coverage ;;
    guard) CMake/prepare.sh linux tests guard ;;
    long) CMake/prepare.sh linux tests guard real ;;
    tidy) CMake/prepare.sh linux tests tools ;;
    windows) CMake/prepare.sh windows ;;
    esac
}

run_step() {
    local step=$1 result failed_before=$failed
    started=$SECONDS
    say "$step"
    if ! prepare "$step"; then
        if [ "$step" = windows ] && [ "${CI:-}" != true ]; then
            echo "SKIPPED: the tools of the Windows build cannot be installed here"
            skipped=$((skipped + 1))
            summary+=("$(printf '%-8s skipped' "$step")")
            return
        fi
        echo 'Its tools cannot be installed here.'
        result=FAILED
    elif "step_$step"; then
        result=passed
    else
        result=FAILED
    fi
    if [ "$result" != passed ]; then
        exit_status=1
        # A step that fails without a failing test counts as one.
        [ "$failed" -gt "$failed_before" ] || failed=$((failed + 1))
    fi
    summary+=("$(printf '%-8s %-8s %4d s' "$step" "$result" $((SECONDS - started)))")
}

steps=("$@")
[ ${#steps[@]} -gt 0 ] || steps=(format linux guard asan tidy tsan windows)
[ "${steps[*]}" != --long ] || steps=(format linux guard asan tidy tsan windows coverage long)
for step in "${steps[@]}"; do
    if ! declare -F "step_$step" >/dev/null; then
        echo "test.sh: there is no step '$step'; the first lines of $0 list them" >&2
        exit 2
    fi
done

exit_status=0
for step in "${steps[@]}"; do
    run_step "$step"
done

say "all steps, $SECONDS s"
printf '%s\n' "${summary[@]}"
printf 'tests: %d passed, %d failed, %d skipped\n' "$passed" "$failed" "$skipped"
exit $exit_status
