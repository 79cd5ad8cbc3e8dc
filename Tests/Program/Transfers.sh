#!/usr/bin/env bash
# Files up and down: whole, in part, as deltas and in chunks.
. "$(dirname "$0")/Support.sh"

log_in
run 0 put "$(native "$file")" $whole --json
revision=$(sed 's/.*"revision":"\([^"]*\)".*/\1/' <<<"$out")
run 1 put "$(native "$file")" $whole --revision stale
warns ': 21077 (' "--revision $revision replaces it"
run 0 put "$(native "$file")" $whole --revision "$revision"
run 1 put "$(native "$work/none")" $whole
warns 'UploadFile failed: 2 (a local file was not found)'
run 1 put "$(native "$work")" $whole
warns 'is a folder'
on linux && run 1 put /dev/null $whole && warns 'regular files only' && run 1 get $whole /dev/null && warns 'not a regular file'
on windows && run 1 put nul $whole && warns 'regular files only' && run 2 get $whole "$(native "$work/a:b")" && run 1 get $whole nul
run 1 get $whole "$(native "$work/missing")/"
warns 'cannot be written: 3, a local folder was not found'

# Names of every plane and paths longer than Windows has by default, here and there.
deep=$work/$(printf 'folder-of-forty-characters-%013d/' 1 2 3 4 5 6 7)
mkdir -p "$deep"
cp "$file" "$deep$name"
run 0 put "$(native "$deep$name")" "/home/$name"
run 0 get "/home/$name" "$(native "${deep%/}")" --json # a folder: the item's name in it
says "\"name\":\"$name\""
matches '"revision":"[^"]'
same "$deep$name" "$file"
run 0 get "/home/$name" "$(native "$deep$name 2")"
says "Downloaded /home/$name to "
same "$deep$name 2" "$file"
if on windows; then # with the prefixes that take a path as it stands
    for prefix in '\\?\' '\??\'; do
        prefixed=$prefix$(native "$work/prefixed")
        run 0 get "/home/$name" "$prefixed"
        same "$work/prefixed" "$file"
        run 0 put "$prefixed" "/home/prefixed"
        run 0 put "$prefixed" "/home/prefixed in chunks" --chunk-size 100000
    done
fi
run 1 get /home/none "$(native "$work/got")"
run 1 get $whole "$(native "$work/got")" --revision stale
[ ! -e "$work/got" ] || complain 'a download that failed left a file'
run 0 touch $whole --modified 2024-02-29T12:00:00Z
mkdir "$work/mine"
printf mine | tee "$work/mine/part" "$work/mine/part.part" >/dev/null
chmod 600 "$work/mine/part"
run 0 get $whole "$(native "$work/mine/part")"
same "$work/mine/part" "$file"
[[ $(stat -c %A "$work/mine/part") == -rw*--- ]] || complain 'the download let others read the file'
[ "$(ls "$work/mine")$(<"$work/mine/part.part")" = $'part\npart.partmine' ] || complain 'the download left or changed a file beside'
if on linux; then
    long=$work/mine/$(printf 'n%.0s' {1..255})
    run 0 get $whole "$long"
    same "$long" "$file"
    ln -s part "$work/mine/link"
    echo old >"$work/mine/part"
    run 0 get $whole "$work/mine/link"
    ln -s later "$work/mine/early"
    run 0 get $whole "$work/mine/early"
    [ -L "$work/mine/link" ] && [ -L "$work/mine/early" ] || complain 'the download replaced a link'
    same "$work/mine/part" "$file"
    same "$work/mine/later" "$file"
    # No connection gets the descriptor of a stream that the program was started without: the result would go there.
    "${client[@]}" get $whole "$work/got" <&- >&- 2>&- && complain 'it has written a result somewhere'
    same "$work/got" "$file"
    rm "$work/got"
fi
[ "$(TZ=UTC stat -c %y "$work/mine/part")" = '2024-02-29 12:00:00.000000000 +0000' ] || complain 'it has not the time of the item'

# Ranges land at their own position.
range() { run 0 get $whole "$(native "$work/part")" "$@"; }
range --count 100000
range --skip 250000 --count 999999999
range --skip 100000 --count 150000 --json
same "$work/part" "$file"
range --skip 4GB --count 5 # beyond the end nothing comes, and nothing is lost
same "$work/part" "$file"
if on linux; then
    truncate -s 4G "$root/home/huge" "$work/huge"
    echo behind | tee -a "$root/home/huge" >/dev/null
    run 0 get /home/huge "$work/huge" --skip 4GB --count 7
    [ "$(stat -c %s "$work/huge") $(tail -c 7 "$work/huge")" = '4294967303 behind' ] || complain 'the range behind 4 GiB is not in its place'
    rm "$root/home/huge" "$work/huge"
fi
run 1 get $whole "$(native "$work/other")" --skip 5 # a file that is not there has no position 5

# Deltas.
if on linux; then
    { head -c 100000 "$file" && echo inserted && tail -c 200000 "$file"; } >"$work/next"
    rdiff signature "$file" "$work/signature"
    rdiff delta "$work/signature" "$work/next" "$work/delta"
    run 0 put "$work/delta" $whole --delta
    run 0 get $whole "$work/got"
    same "$work/got" "$work/next"
    run 0 get $whole "$work/received" --signature "$work/signature"
    rdiff patch "$file" "$work/received" "$work/patched"
    same "$work/patched" "$work/next"
else
    cp "$file" "$work/delta"
    run 1 put "$(native "$work/delta")" $whole --delta
    warns ': 20004 ('
    run 1 get $whole "$(native "$work/got")" --signature "$(native "$work/delta")"
    warns ': 20501 ('
fi

# Chunks.
run 0 put "$(native "$file")" /home/chunked --chunk-size 100000
matches $'^Upload id: [0-9A-F-]{36}\nUploaded local to /home/chunked'
run 0 put "$(native "$file")" /home/chunked --chunk-size 1MB --json
says '"uploadId":"'
warns 'Upload id: '
run 0 get /home/chunked "$(native "$work/got")"
same "$work/got" "$file"

: >"$work/empty"
run 0 put "$(native "$work/empty")" /home/empty --chunk-size 1MB --json

finish
