#!/usr/bin/env bash
# Transfers that are interrupted, resumed, finished under another name or given up.
. "$(dirname "$0")/Support.sh"

big=$work/big
head -c 24M /dev/urandom >"$big"
has_bytes() { find "$root/.quendra-appliance" -type f -size +600k | grep -q .; }
is_longer() { [ "$(stat -c %s "$1")" -gt "$2" ]; }
upload_id() { # reads it from the line that the upload begins with
    line
    id=${REPLY#Upload id: }
    id=${id%$'\r'}
}
# interrupt_upload TARGET: Ctrl-C while chunks are on their way; sets id.
interrupt_upload() {
    begin put "$(native "$big")" "$1" --chunk-size 256kB --revision r1
    upload_id
    until_true has_bytes
    kill -INT "$pid"
    end 130
    warns 'ResumableUpload failed: 1223 (cancelled)' "--revision r1 --chunk-size 262144 --resume $id" 'to resume: quendra put '
}
follow_hint() { # status, errors: does what they say
    local rest=${2#*to receive the rest: quendra }
    rest=${rest%%[;$'\r\n']*}
    on windows && rest=${rest//\\/\\\\} # its shell takes them as they stand
    eval "run $1 $rest"
}

# With this plan a download of "big" stays unfinished, however late this script sees its first bytes. Wine cannot end a receive that
# blocks: there its bytes come slowly, on Linux none come behind the first.
plan=$work/plan.json
on windows && slow='"blocks": {"bytes": 200000, "ms": 300}' || slow='"stall": {"after": 1000000, "ms": 60000}'
echo "{\"faults\": [{\"name\": \"slow\", \"method\": \"GET\", \"path\": \"/folders/home/big\", $slow}]}" >"$plan"

restart_server() { # ARGUMENT...
    stop_server
    start_server --user "demo:$password" --port "$port" "$@"
}

log_in --faults "$(native "$plan")"
interrupt_upload /home/big
run 0 upload-status /home/big "$id" --json
matches '^\{"locked":false,"offset":[0-9]{6,}\}$'
run 0 upload-status /home/big "$id"
matches $'^Received: [0-9]+ bytes \([0-9.]+ [KM]iB\)\nLocked:   no$'
run 1 stat /home/big
run 0 put "$(native "$big")" /home/big --chunk-size 16MB --resume "$id"
run 0 stat /home/big --json
says "\"size\":$(stat -c %s "$big")"
run 1 upload-status /home/big "$id"

# A download that is interrupted: its request is closed. What was there stays until all has come.
echo before >"$work/big2"
begin get /home/big "$(native "$work/big2")" --server "$url"
until_true [ -s "$work/big2.part" ]
kill -INT "$pid"
end 130
warns 'DownloadFile failed: 1223 (cancelled)' 'to receive the rest: quendra get /home/big ' '--server' "$url" '; then rename '
[ "$(<"$work/big2")" = before ] || complain 'the interrupted download replaced the file'
hint=$err
head -c 1000 "$big" >"$work/range"
begin get /home/big "$(native "$work/range")" --skip 1000 --count 20000000
until_true is_longer "$work/range" 500000
on windows && kill -INT "$pid" || kill -TERM "$pid"
end 130
rangeHint=$err
restart_server
follow_hint 0 "$hint"
same "$work/big2.part" "$big"
rm "$work/big2.part"
follow_hint 0 "$rangeHint"
head -c 20001000 "$big" | cmp - "$work/range" || complain 'the rest of the range is not what was left of it'
restart_server --faults "$(native "$plan")"
# A server that dies: the hint names the revision, so that the rest is not that of another one.
begin get /home/big "$(native "$work/big2")"
until_true [ -s "$work/big2.part" ]
kill -STOP "$serverPid"
kill -KILL "$serverPid"
end 1
# Under Wine the socket's own error may come through.
warns 'DownloadFile failed: 1' 'to receive the rest: '
wait "$serverPid" 2>/dev/null
exec {serverOutput}<&-
hint=$err
start_server --user "demo:$password" --port "$port"
run 0 put "$(native "$file")" /home/big
follow_hint 1 "$hint"
warns 'conflict'
rm "$work/big2.part"
run 0 rm /home/big

interrupt_upload /home/big
run 1 put "$(native "$file")" /home/big --chunk-size 1MB --resume "$id" --json
says '{"error":{"code":null,"meaning":"The server has '
warns 'more than local is long: it is not the same file'
run 0 upload-cancel /home/big "$id"
prints 'Abandoned the upload to /home/big.'
run 1 upload-cancel /home/big "$id" --json
run 1 put "$(native "$file")" /home/big --chunk-size 32MB --resume "$id"

# Parts of two versions of a file do not become one.
begin put "$(native "$big")" /home/changing --chunk-size 256kB
upload_id
until_true has_bytes
touch "$big"
end 1
warns 'big has changed since the upload began: put it anew'
run 1 stat /home/changing
run 0 upload-cancel /home/changing "$id"

# All bytes have come, but another item took the place: it is finished under another name.
run 0 put "$(native "$file")" /home/taken
begin put "$(native "$file")" /home/taken --chunk-size 100000 --revision stale
upload_id
end 1
warns "to finish it under another path: quendra upload-complete /home/taken NEWPATH $id"
run 0 upload-complete /home/taken /home/rescued "$id"
says 'Finished the upload as /home/rescued'
run 0 get /home/rescued "$(native "$work/got")"
same "$work/got" "$file"

finish
