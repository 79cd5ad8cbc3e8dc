#!/usr/bin/env bash
# Mappings, shares, audit data and the acknowledgement of a remote wipe.
. "$(dirname "$0")/Support.sh"

log_in
run 0 put "$(native "$file")" $whole
run 0 put "$(native "$file")" "/home/$name"
run 0 mappings
says Path Reachable
run 0 mappings --json
says '{"mappings":[{"allowSharing":' '"serverPath":"/home"'
run 0 share $whole "/home/$name" --to bob@example.com eve@example.com --name Both --message 'Have a look'
prints 'Shared 2 items with bob@example.com, eve@example.com.'
grep -q "Have a look.*/home/$name" "$root/.quendra-appliance/shares.jsonl" || complain 'the share did not arrive'
printf '{"uploads":2}' >"$work/audit"
run 0 audit "$(native "$work/audit")"
prints Published.
input=$work/audit
run 0 audit - --json
input=/dev/null
[ "$(grep -c '{\\"uploads\\":2}' "$root/.quendra-appliance/audit.jsonl")" = 2 ] || complain 'the audit data did not arrive'
run 1 audit "$(native "$work/none")"
run 0 wipe-ack demo old-laptop
prints 'Acknowledged the remote wipe of old-laptop.'

finish
