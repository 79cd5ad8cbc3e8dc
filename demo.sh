#!/usr/bin/env bash
# Shows the library at work: installs what is missing, builds, starts the sample server and talks to it.
#
#     ./demo.sh            the Windows build under Wine, where its tools can be installed, else the Linux build
#     ./demo.sh windows    QuendraHttp.dll and quendra.exe under Wine
#     ./demo.sh linux      libQuendraHttp.so and quendra
#
# The sample server is the Linux build's both times. It listens on a free port of this machine only; it and its files are gone
# when the demo ends.
set -euo pipefail
cd "$(dirname "$0")"

platform=${1:-windows}
work=''
server=''

stop() {
    local status=$?
    trap - EXIT INT TERM
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

title() { printf '\n\033[1m%s\033[0m\n' "$*"; }

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

# Runs quendra, showing the command as a person would type it, what it prints and how long it took.
quendra() {
    printf '\n\033[1m$ quendra %s\033[0m\n' "$*"
    local began ended
    began=$(date +%s%N)
    "${client[@]}" "$@" </dev/null
    ended=$(date +%s%N)
    printf '\033[2m(%d ms)\033[0m\n' $(((ended - began) / 1000000))
}

# A local path as the client takes it: Wine shows this machine's files on a drive of its own.
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
    # The first run makes Wine's prefix.
    "${client[@]}" --help >/dev/null
else
    build linux quendra-appliance quendra
    client=(build/linux/bin/quendra)
fi

QUENDRA_SESSION=$(as_client_path "$work/session")
export QUENDRA_SESSION

title 'Starting the sample server'
# In this mode a device registers first, and logs in with the token that the server mails to the user.
: >"$work/server.log"
build/linux/bin/quendra-appliance --root "$work/items" --user demo:demo --mode device-token >"$work/server.log" 2>&1 &
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

title 'Talking to it'
quendra handshake
quendra version
quendra register demo
mail=$(grep '^mail to demo: ' "$work/server.log" | tail -n 1)
echo "The server sends a $mail"
quendra login demo --device-token "${mail##* }"

title 'Folders and items'
quendra mkdir /home/Reports
quendra ls /home
quendra touch /home/Reports --modified 2024-02-29T12:00:00Z
quendra mv /home/Reports /home/Archive
quendra stat /home/Archive

title 'Files'
head -c 3000000 /dev/urandom >"$work/local"
local_file=$(as_client_path "$work/local")
quendra put "$local_file" /home/Archive/whole
quendra put "$local_file" /home/Archive/chunked --chunk-size 1000000
for item in whole chunked; do
    quendra get "/home/Archive/$item" "$(as_client_path "$work/$item")"
    cmp "$work/local" "$work/$item" && echo "The bytes of $item are those that were sent."
done
quendra ls /home/Archive

title 'The rest'
quendra changes
quendra mappings
quendra share /home/Archive --to bob@example.com --name Archive
printf '{"uploads":2}' >"$work/audit"
quendra audit "$(as_client_path "$work/audit")"
quendra wipe-ack demo old-laptop
quendra rm /home/Archive
quendra logout

title 'Done'
if [ "$platform" = windows ]; then
    echo 'That was QuendraHttp.dll over the real WinHTTP of Wine. Programs: build/windows/bin'
else
    echo 'That was libQuendraHttp.so. Programs: build/linux/bin'
fi
echo 'Try it yourself: start quendra-appliance --root FOLDER, then quendra --help'
