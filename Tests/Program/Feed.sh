#!/usr/bin/env bash
# The feed: what another session changes, a change that comes while it is waited for, a restart of the server, Ctrl-C.
. "$(dirname "$0")/Support.sh"

other() { QUENDRA_SESSION=$(native "$work/other.json") run 0 "$@"; } # runs the client with the other session

log_in
run 1 changes --follow --token forged
warns 'GetChanges failed: 20006 ('
run 1 changes --token forged
warns 'GetChanges failed: 20006 ('
cp "$session" "$work/other.json"
QUENDRA_PASSWORD=$password run 0 login demo --server "$url"
other mkdir /home/first
run 0 changes --json
says '"type":1,"typeName":"create","value":"/home/first"'
begin changes --follow
other mkdir /home/second
line
[ "${REPLY%$'\r'}" = 'create  /home/second' ] || complain "the feed shows $REPLY"
# Wine keeps the connection of a process that ends just when a request reaches it: the feed's next request has arrived by now.
on windows && run 0 version
stop_server
until_true grep -q 'next try in 1 s' "$work/begun.err"
start_server --user "demo:$password" --port "$port"
other mv /home/second /home/third
line
[[ $REPLY == 'update  /home/second -> /home/third'* ]] || complain "the feed shows $REPLY"
kill -INT "$pid"
# Wine does not end a receive that blocks: there the next change does.
on windows && other mkdir /home/fourth
end 130
warns 'GetChanges failed: 1' # a transport's error

finish
