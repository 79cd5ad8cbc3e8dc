#!/usr/bin/env bash
# Runs the fuzz targets of Tests/Fuzz for so many minutes each, as many at once as there are processors, and prints for each: inputs run,
# edges of the code reached, inputs kept in the corpus, and findings.
#
#     ./fuzz.sh MINUTES [TARGET...]      default: all, for example ./fuzz.sh 1 Items Texts
#
# Builds what it needs into build/fuzz, where the corpora grow (corpus), and what a target prints (logs) and finds (findings) is kept.
# A finding is repeated with: build/fuzz/bin/FuzzTARGET FILE. Exit status: 0 without findings.
set -uo pipefail
cd "$(dirname "$0")" || exit 1

minutes=${1:-}
[[ $minutes =~ ^[1-9][0-9]*$ ]] || { sed -n '2,8s/^# \{0,1\}//p' "$0" >&2 && exit 2; }
targets=("${@:2}")
if [ ${#targets[@]} = 0 ]; then
    for source in Tests/Fuzz/Fuzz*.cpp; do
        source=${source##*/Fuzz}
        targets+=("${source%.cpp}")
    done
fi

folder=build/fuzz
mkdir -p "$folder"/{logs,findings}
CMake/prepare.sh linux tests || exit 1
if ! { cmake --preset linux-asan -B "$folder" -DQUENDRA_FUZZERS=ON -DQUENDRA_SANITIZE=address,undefined,fuzzer-no-link &&
    cmake --build "$folder" --parallel "$(nproc)" --target "${targets[@]/#/Fuzz}"; } >"$folder/logs/build" 2>&1; then
    tail -n 40 "$folder/logs/build"
    exit 1
fi

temporary=${TMPDIR:-/tmp}
[ ! -w /dev/shm ] || temporary=/dev/shm # targets write many small files

# fuzz TARGET: runs it, and prints its line.
fuzz() {
    local target=$1 log=$folder/logs/$1 corpus=$folder/corpus/$1 dictionary=Json.dict before=0 found=0 findings status
    mkdir -p "$corpus"
    case $target in Operations | Appliance) dictionary=Http.dict ;; esac
    findings=("$folder/findings/$target"-*)
    [ ! -e "${findings[0]}" ] || before=${#findings[@]}
    TMPDIR=$temporary env -u http_proxy -u all_proxy -u HTTP_PROXY -u ALL_PROXY nice -n 19 "$folder/bin/Fuzz$target" -max_total_time=$((60 * minutes)) \
        -timeout=30 -rss_limit_mb=3000 -print_final_stats=1 -dict="Tests/Fuzz/$dictionary" -artifact_prefix="$folder/findings/$target-" \
        "$corpus" "Tests/Fuzz/Seeds/$target" >"$log" 2>&1
    status=$?
    findings=("$folder/findings/$target"-*)
    [ ! -e "${findings[0]}" ] || found=$((${#findings[@]} - before))
    printf '%-14s %10s %8s %8s %9s\n' "$target" "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" \
        "$(sed -nE 's/^.* cov: ([0-9]+) .*$/\1/p' "$log" | tail -n 1)" "$(ls "$corpus" | wc -l)" "$found"
    [ $status = 0 ] || { tail -n 40 "$log" && echo "-- the whole output is in $log"; }
    return $status
}

result=0 running=0
printf '%-14s %10s %8s %8s %9s\n' target inputs edges corpus findings
for target in "${targets[@]}"; do
    if [ $running = "$(nproc)" ]; then
        wait -n || result=1
        running=$((running - 1))
    fi
    fuzz "$target" &
    running=$((running + 1))
done
for ((; running > 0; running--)); do
    wait -n || result=1
done
exit $result
