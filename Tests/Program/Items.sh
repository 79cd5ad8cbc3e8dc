#!/usr/bin/env bash
# Folders and items: listed, described, made, changed, moved and removed.
. "$(dirname "$0")/Support.sh"

log_in
run 0 mkdir /home/Reports
prints "Created /home/Reports, revision $(sed 's/.*revision //; s/\.$//' <<<"$out")."
on linux && run 0 mkdir $'/home/Reports/\e[1m' && run 0 ls /home/Reports && says '\x1B[1m/'
run 0 mkdir /home/Reports/old/ --json
matches '^\{"item":\{"attributes":[0-9]+,"created":"20[^"]+Z","directory":true,"folderReadOnly":false,"modified":"20[^"]+Z","name":"old","readOnly":false,"revision":"[^"]+","size":[^,]+\}\}$'
run 1 mkdir /home/Reports
run 0 touch /home/Reports --modified 2024-02-29T12:00:00Z --created 1999-12-31T23:59:59Z --json
says '"created":"1999-12-31T23:59:59.000Z"' '"modified":"2024-02-29T12:00:00.000Z"'
run 0 touch /home/Reports --attributes 0x12
TZ=UTC run 0 stat home/Reports
says 'Name:       Reports' 'Kind:       folder' 'Modified:   2024-02-29 12:00' '0x12 hidden folder' 'Access:     read and write'
run 1 stat /home/none --json
prints '{"error":{"code":20005,"meaning":"the server refused: its error 5; it says \"there is no item /home/none\" with HTTP 404","operation":"GetPathAttributes"}}'

run 0 put "$(native "$file")" "/home/$name"
matches "^Uploaded local to /home/$name \(293\.0 KiB\), revision .+\.$"
is_quiet
run 0 stat "/home/$name" --json
says '"directory":false' "\"name\":\"$name\"" '"size":300000'
revision=$(sed 's/.*"revision":"\([^"]*\)".*/\1/' <<<"$out")
run 0 ls /home
matches $'^Kind  +Size  Modified +Revision +Name\nd'
says Reports/ "$name" '293.0 KiB'
run 0 ls /home --json
matches '^\{"folder":\{.*"name":"home".*\},"items":\[\{.*\},\{.*\}\]\}$'
run 0 ls /home/Reports/old
prints 'The folder is empty.'
run 0 mv "/home/$name" /home/Reports/moved
says 'moved'
run 0 mv /home/Reports/moved /home/Reports/again --json
says '"name":"again"'
run 0 put "$(native "$file")" /home/Reports/old/ --json
says '"name":"local"'
run 1 mv /home/Reports/again /home/Reports/old/local
run 0 mv /home/Reports/again /home/Reports/old/local --overwrite
# A folder that is there is one to put things into; no two names with backslashes are mixed up.
run 0 put "$(native "$file")" /home/Reports --json
says '"name":"local"'
run 0 mv /home/Reports/local /home/Reports/old --overwrite
says 'to /home/Reports/old/local, revision'
on linux && run 0 put "$file" '/home/a\b' && run 1 mv '/home/a\b' '/home/a\c' && run 0 mv '/home/a\b' /home/Reports/ &&
    says 'to /home/Reports/a\b,'
run 1 rm /home/Reports/old/local --revision stale
warns ': 21077 (' 'changed'
run 0 rm /home/Reports/old/local
run 1 rm /home/Reports
warns '/home/Reports is a folder that is not empty: --recursive'
run 1 rm /home/Reports --recursive=false
run 0 rm /home/Reports/old
run 0 rm /home/Reports --recursive --json
prints '{"ok":true}'

finish
