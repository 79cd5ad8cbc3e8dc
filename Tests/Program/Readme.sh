#!/usr/bin/env bash
# Runs what the README shows under "The programs", line by line as it stands there, and looks at what comes of it; then what the demo
# with the Linux programs ends with.
#
#     Tests/Program/Readme.sh PROGRAMS
#
# PROGRAMS, the folder of both programs, stands in for build/linux/bin, a folder of the test's own for /tmp/items.
set -euo pipefail
cd "$(dirname "$0")/../.."

programs=$1
work=$(mktemp -d)
server=
finish() {
    [ -z "$server" ] || kill "$server"
    rm -rf "$work"
}
trap finish EXIT
unset "${!QUENDRA_@}" http_proxy all_proxy HTTP_PROXY ALL_PROXY
export QUENDRA_SESSION=$work/session

fail() { printf 'FAILED: %s\n%s\n' "$1" "${line:-}" && exit 1; }

mapfile -t lines < <(sed -n '/^## The programs/,/^## /s/^    //p' README.md | sed "s|build/linux/bin|$programs|; s|/tmp/items|$work/items|")
for line in "${lines[@]}"; do
    case $line in
    *quendra-appliance*)
        exec {output}< <(eval "exec $line")
        server=$!
        until [[ ${text:-} =~ ^listening\ on\ http://127\.0\.0\.1:([0-9]+)$ ]]; do
            read -r -t 30 -u "$output" text || fail "the server does not tell its port"
        done
        port=${BASH_REMATCH[1]}
        ;;
    *) eval "${line/=PORT/=$port}" >"$work/out" 2>&1 || fail "status $?: $(<"$work/out")" ;;
    esac
    case $line in
    *' ls '*) grep -q README.md "$work/out" || fail 'the file that was put is not listed' ;;
    *' doctor'*) grep -q '^ok      Handshake' "$work/out" || fail 'the doctor finds no server' ;;
    esac
done
[ -n "$server" ] && cmp README.md "$work/items/home/README.md" || fail 'the file did not arrive'

hints=0
while IFS= read -r line; do
    bash -euc "${line//build\/linux\/bin/$programs}" >"$work/out" 2>&1 || fail "status $?: $(<"$work/out")"
    hints=$((hints + 1))
done < <(sed -nE "s/^ *next '(.*build\/linux\/bin\/quendra .*)' '.*'$/\1/p" demo.sh)
[ $hints = 2 ] || fail "the demo ends with $hints commands of quendra"
