#!/usr/bin/env bash
# Deltas against librsync's own program: what rdiff makes the server takes, and what the server makes rdiff takes.
#
#     Tests/Program/DeltaRoundTrip.sh FOLDER      FOLDER holds quendra and quendra-appliance
set -euo pipefail
bin=$1
work=$(mktemp -d)
server=''

stop() {
    local status=$?
    trap - EXIT INT TERM
    if [ -n "$server" ]; then
        kill "$server" 2>/dev/null || :
        wait "$server" 2>/dev/null || :
    fi
    rm -rf "$work"
    exit $status
}
trap stop EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

quendra() { "$bin/quendra" --quiet "$@" >"$work/said" </dev/null || { cat "$work/said"; exit 1; }; }

same() {
    cmp "$1" "$2" || { echo "$3: the bytes differ"; exit 1; }
}

mkdir "$work/items"
# The line that says where it listens ends the reading; the server outlives the reader.
mkfifo "$work/output"
"$bin/quendra-appliance" --root "$work/items" >"$work/output" 2>"$work/errors" &
server=$!
exec 3<"$work/output"
url=''
while [ -z "$url" ] && read -r line <&3; do
    case $line in 'listening on '*) url=${line#listening on } ;; esac
done
[ -n "$url" ] || { cat "$work/errors"; exit 1; }
export QUENDRA_SERVER=${url%:*} QUENDRA_PORT=${url##*:} QUENDRA_PASSWORD=demo QUENDRA_SESSION=$work/session
unset http_proxy https_proxy all_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY
quendra login demo

# Pairs of an old and a new content.
head -c 300000 /dev/urandom >"$work/random"
: >"$work/empty"
{ head -c 100000 "$work/random"; echo inserted; tail -c +100001 "$work/random"; } >"$work/inserted"
tail -c 200000 "$work/random" >"$work/cut"
head -c 5000 /dev/urandom >"$work/other"

for pair in random:inserted inserted:random random:cut cut:random random:other random:random empty:random random:empty; do
    old=$work/${pair%:*} new=$work/${pair#*:}
    item=/home/$pair-down
    rm -f "$work/signature" "$work/delta" "$work/result"

    # Down: the server has the new content, this side the old one.
    quendra put "$new" "$item"
    rdiff signature "$old" "$work/signature"
    quendra get "$item" "$work/delta" --signature "$work/signature"
    rdiff patch "$old" "$work/delta" "$work/result"
    same "$new" "$work/result" "$pair, down"
    if [ "$pair" = random:random ] && [ "$(stat -c %s "$work/delta")" -gt 1000 ]; then
        echo "a delta between equal files is as long as they are"
        exit 1
    fi

    # Up: the server has the old content, this side the new one.
    item=/home/$pair-up
    rm -f "$work/signature" "$work/delta" "$work/result"
    quendra put "$old" "$item"
    rdiff signature "$old" "$work/signature"
    rdiff delta "$work/signature" "$new" "$work/delta"
    quendra put "$work/delta" "$item" --delta
    quendra get "$item" "$work/result"
    same "$new" "$work/result" "$pair, up"
done
