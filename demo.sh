#!/usr/bin/env bash
# Shows the library at work: installs missing packages, builds, starts the sample server and talks to it.
#
#     ./demo.sh            the Windows build under Wine, where its tools can be installed, else the Linux build
#     ./demo.sh windows    QuendraHttp.dll and quendra.exe under Wine
#     ./demo.sh linux      libQuendraHttp.so and quendra: the quick one
#
# The sample server is always the Linux build. It listens on a free port of this machine only; it and its files are removed when the demo
# ends.
set -euo pipefail
cd "$(dirname "$0")"

platform=${1:-windows}
work=''
server=''
running=''
seen=0

stop() {
    local status=$?
    trap - EXIT INT TERM
    [ -z "$running" ] || kill "$running" 2>/dev/null || :
    if [ -n "$server" ]; then
        kill "$server" 2>/dev/null || :
        wait "$server" 2>/dev/null || :
    fi
    [ -z "$work" ] || rm -rf "$work"
    exit $status
}
trap stop EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

title() { printf '\n\033[1;34m== %s\033[0m\n' "$*"; }
say() { printf '%s\n' "$*"; }
fail() { printf '\nThe demo failed: %s\n' "$*" >&2 && exit 1; }

build() { # preset, targets
    local preset=$1 log=build/logs/demo-$1.log
    shift
    printf 'Building %s for %s ... ' "$*" "$preset"
    local began=$SECONDS
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset" --target "$@"; } >"$log" 2>&1; then
        echo 'failed:'
        tail -n 50 "$log"
        exit 1
    fi
    echo "$((SECONDS - began)) s"
}

# Shows the command as a person would type it.
show() { printf '\n\033[1m$ quendra %s\033[0m\n' "$*"; }

# Prints in one line what the server has received since the last call: the last request and how many came before it.
wire() { # milliseconds
    local count last
    count=$(($(grep -c ' -> ' "$work/server.log") - seen))
    last=$(grep ' -> ' "$work/server.log" | tail -n 1)
    seen=$((seen + count))
    printf '\033[2m   %s ms' "$1"
    case $count in
    0) printf ', nothing went over the wire' ;;
    1) printf ', over the wire: %s' "$last" ;;
    *) printf ', over the wire: %s, after %s requests before it' "$last" $((count - 1)) ;;
    esac
    printf '\033[0m\n'
}

now() { echo $(($(date +%s%N) / 1000000)); }

# Runs quendra and shows its output, its duration and its requests.
quendra() {
    local began
    show "$@"
    began=$(now)
    "${client[@]}" "$@" </dev/null || fail "quendra $1 ended with status $?"
    wire $(($(now) - began))
}

# Starts quendra for `interrupt` to end; descriptor $output carries its output.
begin() {
    show "$@"
    began=$(now)
    exec {output}< <(exec "${client[@]}" "$@" </dev/null 2>&1)
    running=$!
}
# Presses Ctrl-C.
interrupt() {
    local status=0
    say '^C'
    kill -INT "$running"
    # Wine cannot interrupt a blocked receive: the next change ends it.
    [ "$platform" = linux ] || [ "$1" != changes ] || "${client[@]}" mkdir /home/Afterwards </dev/null >/dev/null
    cat <&"$output"
    wait "$running" || status=$?
    running=''
    exec {output}<&-
    [ $status = 130 ] || fail "Ctrl-C ended quendra $1 with status $status"
    wire $(($(now) - began))
}

same() { cmp "$1" "$2" || fail "$3"; say "   $3"; }

# A local path for the client: Wine shows this machine's files on a separate drive.
as_client_path() {
    if [ "$platform" = windows ]; then
        echo "Z:${1//\//\\}"
    else
        echo "$1"
    fi
}

case $platform in
windows | linux) ;;
*)
    echo "usage: $0 [windows|linux]" >&2
    exit 2
    ;;
esac

mkdir -p build/logs
CMake/prepare.sh linux tests
if [ "$platform" = windows ] && ! CMake/prepare.sh windows; then
    echo 'The tools of the Windows build cannot be installed here: going on with Linux.'
    platform=linux
fi

title 'Building'
work=$(mktemp -d)
mkdir "$work/items"
if [ "$platform" = windows ]; then
    build linux quendra-appliance
    build windows quendra
    client=(CMake/wine.sh "$PWD/build/windows/wineprefix" build/windows/bin/quendra.exe)
    # The first run creates Wine's prefix.
    "${client[@]}" --help >/dev/null
else
    build linux quendra-appliance quendra
    client=(build/linux/bin/quendra)
fi

unset "${!QUENDRA_@}" # the caller's
QUENDRA_SESSION=$(as_client_path "$work/session")
export QUENDRA_SESSION

title 'Starting the sample server'
# In this mode a device registers first, and logs in with the token that the server mails to the user.
: >"$work/server.log"
build/linux/bin/quendra-appliance --root "$work/items" --user demo:demo --mode device-token --log >"$work/server.log" 2>&1 &
server=$!
for ((wait = 0; wait < 100; ++wait)); do
    grep -q '^listening on ' "$work/server.log" && break
    kill -0 "$server" 2>/dev/null || break
    sleep 0.1
done
if ! url=$(sed -n 's/^listening on //p' "$work/server.log" | tail -n 1) || [ -z "$url" ]; then
    cat "$work/server.log"
    echo 'The sample server did not start.'
    exit 1
fi
echo "listening on $url"
export QUENDRA_SERVER=${url%:*} QUENDRA_PORT=${url##*:} QUENDRA_PASSWORD=demo
unset http_proxy https_proxy all_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY

title 'What a supporter asks first'
quendra doctor

title 'Handshake, registration, login'
say 'The handshake finds out what the server speaks. Here a device registers first; its user gets a token by mail to log in with.'
quendra handshake --device demo-laptop
quendra version
quendra register demo
mail=$(grep '^mail to demo: ' "$work/server.log" | tail -n 1)
say "The server sends a $mail"
quendra login demo --device-token "${mail##* }"

title 'Folders and items'
quendra mkdir /home/Reports
quendra ls /home
quendra touch /home/Reports --modified 2024-02-29T12:00:00Z
quendra mv /home/Reports /home/Archive
quendra stat /home/Archive

title 'Files, whole and by range'
head -c 3000000 /dev/urandom >"$work/local"
local_file=$(as_client_path "$work/local")
quendra put "$local_file" /home/Archive/whole
quendra get /home/Archive/whole "$(as_client_path "$work/whole")"
same "$work/local" "$work/whole" 'The bytes are those that were sent.'
quendra get /home/Archive/whole "$(as_client_path "$work/parts")" --count 1000000
quendra get /home/Archive/whole "$(as_client_path "$work/parts")" --skip 1000000
same "$work/local" "$work/parts" 'Both ranges together are the file.'

title 'An upload in chunks, interrupted and resumed'
head -c 64000000 /dev/urandom >"$work/big"
big_file=$(as_client_path "$work/big")
uploads=$work/items/.quendra-appliance
chunked() { # sets id
    begin put "$big_file" /home/Archive/big --chunk-size 250000
    read -r line <&"$output"
    say "$line"
    id=${line#Upload id: }
    id=${id%$'\r'}
    local limit=$((SECONDS + 30))
    until find "$uploads" -type f -size +300k | grep -q .; do
        [ $SECONDS -lt $limit ] || fail 'no chunk arrived'
    done
    interrupt put
}
chunked
quendra upload-status /home/Archive/big "$id"
quendra put "$big_file" /home/Archive/big --chunk-size 20000000 --resume "$id"
quendra get /home/Archive/big "$(as_client_path "$work/received")"
same "$work/big" "$work/received" 'The bytes are those that were sent.'
quendra rm /home/Archive/big

say
say 'Another one is abandoned:'
chunked
quendra upload-cancel /home/Archive/big "$id"

say
say 'Of a third one all bytes arrive, but its name is taken meanwhile: it ends under another.'
show put "$local_file" /home/Archive/whole --chunk-size 1000000 --revision stale
if "${client[@]}" put "$local_file" /home/Archive/whole --chunk-size 1000000 --revision stale </dev/null >"$work/out"; then
    fail 'a conflict went unnoticed'
fi
cat "$work/out"
id=$(sed -n 's/^Upload id: \([0-9A-F-]*\).*/\1/p' "$work/out")
quendra upload-complete /home/Archive/whole /home/Archive/chunked "$id"
quendra get /home/Archive/chunked "$(as_client_path "$work/chunked")"
same "$work/local" "$work/chunked" 'The bytes are those that were sent.'

if command -v rdiff >/dev/null; then
    title 'Deltas: only what differs'
    { head -c 1500000 "$work/local" && echo 'a line more' && tail -c 1500000 "$work/local"; } >"$work/next"
    rdiff signature "$work/local" "$work/signature"
    rdiff delta "$work/signature" "$work/next" "$work/delta"
    say "The file has $(stat -c %s "$work/next") bytes, the delta $(stat -c %s "$work/delta")."
    quendra put "$(as_client_path "$work/delta")" /home/Archive/whole --delta
    quendra get /home/Archive/whole "$(as_client_path "$work/back")" --signature "$(as_client_path "$work/signature")"
    rdiff patch "$work/local" "$work/back" "$work/patched"
    same "$work/next" "$work/patched" 'The old file and the delta make the new one.'
fi
quendra ls /home/Archive

title 'The feed of changes'
# Another device's session.
mine=$QUENDRA_SESSION
QUENDRA_SESSION=$(as_client_path "$work/other")
export QUENDRA_SESSION
"${client[@]}" register demo --device tablet </dev/null >/dev/null 2>&1 || :
"${client[@]}" login demo --device-token "${mail##* }" </dev/null >/dev/null || fail 'the other session cannot be opened'
QUENDRA_SESSION=$mine
quendra mkdir /home/Inbox
QUENDRA_SESSION=$(as_client_path "$work/other")
quendra changes
begin changes --follow
QUENDRA_SESSION=$mine
"${client[@]}" mkdir /home/Inbox/new </dev/null >/dev/null
say '   (another session creates a folder)'
read -r line <&"$output"
say "$line"
interrupt changes

title 'Mappings, sharing, audit, remote wipe'
quendra mappings
quendra share /home/Archive --to bob@example.com --name Archive
printf '{"uploads":2}' >"$work/audit"
quendra audit "$(as_client_path "$work/audit")"
quendra wipe-ack demo old-laptop

title 'What the trace shows'
show stat /home/Archive --trace -
"${client[@]}" stat /home/Archive --trace - </dev/null 2>&1 >/dev/null | grep -i 'GetPathAttributes' | head -n 4 || fail 'no trace'
quendra rm /home/Archive --recursive
quendra logout

title "Done: $SECONDS s"
if [ "$platform" = windows ]; then
    say 'That was QuendraHttp.dll over the real WinHTTP of Wine.'
else
    say 'That was libQuendraHttp.so.'
fi
# Only what this demo has built.
next() { printf '  %-60s  %s\n' "$@"; }
say "
Where to look next:"
next 'build/linux/bin/quendra-appliance --root /tmp/items' 'a server of your own; the user is demo, the password demo'
if [ "$platform" = windows ]; then
    next 'CMake/wine.sh "$PWD"/build/windows/wineprefix \' ''
    next '    build/windows/bin/quendra.exe --help' 'each command, with examples'
    next './demo.sh linux' 'this demo with the Linux programs, which README.md goes on with'
else
    next 'build/linux/bin/quendra --help' 'each command, with examples'
    next 'source <(build/linux/bin/quendra completion bash)' 'the shell completes them'
fi
next Includes/QuendraHttp/QuendraHttp.h 'the same in C++: IQuendraHttpAPI'
next README.md 'twenty lines of C++ that log in and download'
