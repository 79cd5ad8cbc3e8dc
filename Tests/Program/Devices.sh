#!/usr/bin/env bash
# A server where devices register first.
. "$(dirname "$0")/Support.sh"

start_server --mode device-token --log
export QUENDRA_SERVER=$url QUENDRA_PASSWORD=demo
run 0 handshake
says 'device-token authentication'
run 1 login demo
run 0 register demo --device 'Läptop'
prints 'Registered. The server sends demo an e-mail.'
while read -r -t 30 -u "$serverOutput" text && [[ $text != 'mail to demo:'* ]]; do :; done
[[ $text == *'"Läptop"'* ]] || complain "the device is not named: $text"
text=${text##* }
run 0 login demo --device-token "${text%$'\r'}" --device 'Läptop'
run 0 ls /
read -r -t 30 -u "$serverOutput" text
[[ $text == 'POST /sync/1.3/registrations -> 204, 0 bytes'* ]] || complain "the server's log has $text"
unset QUENDRA_SERVER QUENDRA_PASSWORD
run 0 logout

stop_server
run 1 version --server "$url" --json
says '"code":19006'
run 1 version --server a..b

finish
