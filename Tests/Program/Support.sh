# What the tests of the programs share. Each sources it with its own arguments:
#
#     Tests/Program/NAME.sh linux|windows SERVER CLIENT [emulator...]
#
# A test has a folder, a server and a session file of its own. What it looks at is always the last run of the client.
set -u
# Wine reads arguments in the locale's encoding.
export LC_ALL=C.UTF-8

platform=$1
emulator=("${@:4}")
server=("${@:4}" "$2")
client=("${@:4}" "$3")

failures=0
work=$(mktemp -d)
started=() # what may still run at the end
unset "${!QUENDRA_@}" http_proxy https_proxy all_proxy no_proxy HTTP_PROXY HTTPS_PROXY ALL_PROXY NO_PROXY

stop() {
    local pid
    for pid in "${started[@]}"; do
        kill -CONT "$pid" 2>/dev/null
        kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null
    done
    rm -rf "$work"
}
trap stop EXIT
trap 'exit 143' INT TERM

finish() { # the last command of a test
    [ $failures = 0 ] || { echo "$failures failures" && exit 1; }
    echo "all as expected, $SECONDS s"
}

on() { [ "$platform" = "$1" ]; }

complain() { # message; shows the last run
    failures=$((failures + 1))
    local level=1
    while [ "${FUNCNAME[level]}" != main ]; do level=$((level + 1)); done
    printf '%s:%s: %s\n  command: %s\n  status: %s\n  output: %s\n  errors: %s\n' \
        "${BASH_SOURCE[level]}" "${BASH_LINENO[level - 1]}" "$1" "${ran[*]}" "$status" "$out" "$err"
}

# A local path as the client takes it: Wine shows this machine's files on a drive of its own.
native() {
    if on windows; then
        echo "Z:${1//\//\\}"
    else
        echo "$1"
    fi
}

collect() { # expected status
    out=$(<"$work/out")
    err=$(<"$work/err")
    [ "$status" = "$1" ] || complain "the exit status is not $1"
    # Wine ends a program that crashes with 0.
    [[ $err != *'wine: Unhandled'* ]] || complain 'the client has crashed'
}

# run STATUS ARGUMENT...: runs the client to its end, with the file $input as its standard input.
input=/dev/null
run() {
    ran=("${@:2}")
    "${client[@]}" "${ran[@]}" >"$work/out" 2>"$work/err" <"$input"
    status=$?
    collect "$1"
}

# begin ARGUMENT...: starts the client; `line` reads a line of what it prints, `end STATUS` waits for it.
begin() {
    # A background process would not have SIGINT, were it not for the client's own handler.
    begun=("$@")
    exec {output}< <(exec "${client[@]}" "$@" 2>"$work/begun.err" </dev/null)
    pid=$!
    started+=("$pid")
    : >"$work/begun.out"
}
line() {
    read -r -t 30 -u "$output" REPLY || complain 'no line came'
    printf '%s\n' "$REPLY" >>"$work/begun.out"
}
end() {
    cat <&"$output" >>"$work/begun.out"
    exec {output}<&-
    wait "$pid"
    status=$?
    # Wine may kill a process that ends while its thread for Ctrl-C does; what it printed is complete.
    on windows && [ "$status" = 137 ] && status=$1
    ran=("${begun[@]}")
    mv "$work/begun.out" "$work/out"
    mv "$work/begun.err" "$work/err"
    collect "$1"
}

# Nothing that is looked for is a pattern, but for `matches`.
prints() { [ "$out" = "$1" ] || complain "the output is not: $1"; }
says() { for text; do [[ $out == *"$text"* ]] || complain "the output lacks: $text"; done; }
warns() { for text; do [[ $err == *"$text"* ]] || complain "the errors lack: $text"; done; }
is_quiet() { [ -z "$err" ] || complain 'there are errors'; }
matches() { [[ $out =~ $1 ]] || complain "the output does not match: $1"; }

same() { cmp -s "$1" "$2" || complain "$1 and $2 differ"; }

# until_true COMMAND...: tries it until it is true.
until_true() {
    local limit=$((SECONDS + 30))
    until "$@"; do
        [ $SECONDS -lt $limit ] || { complain "never true: $*" && return; }
        sleep 0.02
    done
}

# start_server ARGUMENT...: sets url, port and serverPid; what the server prints later is read from $serverOutput.
start_server() {
    exec {serverOutput}< <(exec "${server[@]}" --root "$(native "$root")" "$@" 2>&1 </dev/null)
    serverPid=$!
    started+=("$serverPid")
    local text
    url=
    while read -r -t 60 -u "$serverOutput" text; do
        [[ $text == "listening on "* ]] && url=${text#listening on } && break
    done
    url=${url%$'\r'}
    port=${url##*:}
    [ -n "$url" ] || { echo "The server does not start: $text" && exit 1; }
}
stop_server() {
    kill "$serverPid"
    wait "$serverPid" 2>/dev/null
    exec {serverOutput}<&-
}

# Neither this user's saved session nor the settings of this machine count.
session=$work/config/session.json
export QUENDRA_REGISTRY=$work/registry.json QUENDRA_SESSION
QUENDRA_SESSION=$(native "$session")
root=$work/items # the server's
mkdir "$root"
password='s3cret pässword'
name='Übung 日本 😀.txt'
file=$work/local
head -c 300000 /dev/urandom >"$file"
whole=/home/whole

# log_in [ARGUMENT...]: starts the server and saves a session.
log_in() {
    start_server --user "demo:$password" "$@"
    QUENDRA_PASSWORD=$password run 0 login demo --server "$url"
}
token() { sed -n 's/.*"token" *: *"\([^"]*\)".*/\1/p' "$session"; }
# usage ARGUMENT...: they are refused.
usage() { run 2 "$@" && warns 'quendra: ' "Try 'quendra " && prints ''; }
