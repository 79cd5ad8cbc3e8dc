#!/usr/bin/env bash
# Handshake, registration, login, logout, and the session file between them.
. "$(dirname "$0")/Support.sh"

start_server --user "demo:$password"
export QUENDRA_SERVER=$url
run 0 handshake
says "Server:          $url" 'Server mode:     legacy' '1.3 or later'
run 0 handshake --json
prints '{"apiAtLeast13":true,"handshakeValue":0,"serverMode":1}'
run 0 version
prints sample-1
run 0 version --json
prints '{"buildNumber":"sample-1"}'
run 0 register demo --json --device Laptop
prints '{"ok":true}'

# The password comes from the environment, else from standard input, and goes only to what has answered as a server. It shows
# nowhere; the token shows in the trace only.
usage login demo # no password
QUENDRA_PASSWORD=secret run 1 login demo --server "${url/127.0.0.1/127.0.0.1.invalid}"
warns 'http:// protects neither passwords nor files' 'Init failed: 19006 (' "; 'quendra doctor --server ${url/127.0.0.1/127.0.0.1.invalid}' tells why)"
input=$work/password
printf 'wrong\n' >"$input"
run 1 login demo --json
warns 'quendra: Login failed: 20002 ('
says '{"error":{"code":20002,"meaning":"' '","operation":"Login"}}'
[ ! -e "$session" ] || complain 'a failed login saved a session'
printf '%s\r\nmore\n' "$password" >"$input"
run 0 login demo
prints "Logged in to $url as demo."
input=/dev/null
unset QUENDRA_SERVER # the session names it
chmod 777 "$session" # the next login makes it anew
printf '{"policy_block":{"a":1}}' >"$root/.quendra-appliance/policy.json"
QUENDRA_PASSWORD=$password run 0 login demo --json --server "$url" --trace "$(native "$work/trace")" --timeline "$(native "$work/timeline")"
says '"ok":true' '"handshakeValue":0' '"policy":"{\"policy_block\":'
token=$(token)
[ ${#token} -ge 16 ] || complain 'there is no token in the session file'
grep -q "$token" "$work/trace" || complain 'the trace shows no token: is it one?'
for place in trace timeline; do
    grep -q 'CNativeHttp::Login' "$work/$place" || complain "the $place lacks the operation"
done
for place in "$work/out" "$work/err" "$session" "$work/trace" "$work/timeline"; do
    grep -q s3cret "$place" && complain "the password is in $place"
done
[ "$(ls "$work/config")" = session.json ] || complain 'the login left something behind'
grep -q "$token" "$work/out" "$work/err" "$work/timeline" && complain 'the token shows'
# Wine lets the user's group in where Windows would not.
[[ $(stat -c %A "$session") == -rw*--- && ($platform = windows || $(stat -c %a "$session") = 600) ]] ||
    complain 'others may read the session file'

run 0 ls / --trace -
grep -q 'CNativeHttp::GetPathListing' "$work/err" || complain '--trace - shows nothing'
run 1 ls / --trace "$(native "$work/none/trace")"
warns 'quendra: --trace '
run 1 ls / --timeline "$(native "$work/none/timeline")"
warns 'quendra: --timeline '
run 1 ls / --token forged --json
says '"code":20006' 'log in again'
QUENDRA_TOKEN=forged run 1 ls /
run 0 ls / --token "$token"
# No other server gets the token.
run 1 ls / --server "${url/127.0.0.1/localhost}"
warns ': 20006 ('

run 0 logout --json
prints '{"ok":true}'
[ ! -e "$session" ] || complain 'the session file is still there'
run 0 logout
prints 'There is no saved session.'
for text in '' '[]' $'{"server":"a","port":80,"token":"t\xff"}' '{"server":1}' '{"server":"a/b","port":80,"token":"t"}' '{"server":"a","port":65536,"token":"t"}' '{"server":"a","port":1e99,"token":"t"}'; do
    printf %s "$text" >"$session"
    run 1 version
    warns 'session.json does not hold a session' "'quendra logout' removes it"
done
run 0 logout
if on linux; then
    mkdir "$session"
    run 1 version
    warns 'session.json cannot be read'
    rmdir "$session"
    (unset QUENDRA_SESSION && XDG_CONFIG_HOME=$work/own QUENDRA_PASSWORD=$password run 0 login demo --server "$url")
    [ -s "$work/own/quendra/session.json" ] || complain 'the session is not in its usual place'
fi

# A reply that the library reads and this program does not: nothing of it shows, for the token is in it.
stop_server
cat >"$work/plan" <<'END'
{"faults": [{"name": "policy", "path": "/sessions", "status": 200, "body": "{\"session_token\":\"s3cret\",\"policy_block\":{\"a\":\"\\ud800\"}}"}]}
END
start_server --faults "$(native "$work/plan")"
QUENDRA_PASSWORD=$password run 0 login demo --json --server "$url"
prints '{"handshakeValue":0,"ok":true,"policy":""}'

finish
