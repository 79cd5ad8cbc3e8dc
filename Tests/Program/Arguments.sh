#!/usr/bin/env bash
# Command lines that are refused, the help of every command, and the completion script.
. "$(dirname "$0")/Support.sh"

id=0F8FAD5B-D9CB-469F-A165-70867728950E
usage
usage dance && warns "there is no command 'dance'"
usage ls
usage ls /a /b /c && warns 'ls: not expected: /b /c'
usage ls /a --overwrite
run 2 --json
says '{"error":{"code":null,"meaning":"a command is missing","operation":null}}'
on linux && usage put $'caf\xe9' / && warns 'is not valid UTF-8'
on linux && QUENDRA_TOKEN=$'t\xff' usage ls / && warns 'QUENDRA_TOKEN is not valid UTF-8'
usage version # no server
usage version --server ftp://host
usage version --server http://host/path
usage version --server host:1 --port 2
usage version --server host --port 0
usage touch /a --modified yesterday
usage touch /a --attributes 4294967296
usage get /a b --skip -1 && warns "--skip cannot be '-1': write a number of bytes, also with a unit like 8MB"
usage get /a b --skip 1 --skip 2 && warns 'get: --skip is given more than once'
usage get /a b --skip && warns 'get: --skip needs a value'
usage get /a b --signature s --count 1
usage put a /b --chunk-size 0
usage put a /b --chunk-size 1 --delta
usage put a /b --resume $id
usage upload-status /a 1
usage share /a
usage share /a --to '' && warns 'is no recipient'
usage get /a '' && warns 'is no local file'
usage share /a --to bob /b && warns "'/b' is a path" 'share PATH... --to'

commands='handshake version doctor register login logout ls stat mkdir touch rm mv get put upload-status upload-cancel upload-complete
    changes mappings share audit wipe-ack'
run 0 --version
matches '^quendra [0-9]+\.[0-9]+\.[0-9]+$'
run 0 --help
is_quiet
for command in $commands; do says "  $command "; done
on windows || for command in $commands; do
    run 0 "$command" --help
    says Examples: "quendra "
done
run 0 completion bash
run 2 completion fish
if on linux; then
    "${client[@]}" --help >/dev/full 2>"$work/err" && complain 'help that cannot be written counts as shown'
fi

usage rm /home/d --revision ''
warns '--revision cannot be empty'

finish
