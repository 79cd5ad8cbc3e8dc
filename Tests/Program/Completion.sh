#!/usr/bin/env bash
# Completion, by the function that the shell calls.
. "$(dirname "$0")/Support.sh"

completes() { # words so far, then what is offered
    read -ra COMP_WORDS <<<"$1"
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMP_WORDS[0]=${client[0]}
    _quendra
    out=$(printf '%s\n' "${COMPREPLY[@]}")
    ran=("$1")
    [ "$out" = "$2" ] || complain "not offered: $2"
}

log_in
run 0 put "$file" $whole
run 0 put "$file" "/home/$name"
touch "$work/signature"
run 0 completion bash
# shellcheck source=/dev/null
source "$work/out"
completes 'quendra upload-' $'upload-status\nupload-cancel\nupload-complete'
completes 'quendra --json ch' changes
completes 'quendra put --ch' --chunk-size
completes 'quendra ls --to' --token
completes 'quendra ls /ho' /home/
completes 'quendra mv /home/whole /home/w' /home/whole
completes 'quendra stat /home/Ü' "/home/$name"
completes 'quendra completion b' bash
completes "quendra put $work/sig" "$work/signature"
completes "quendra get /home/whole $work/sig" "$work/signature"
completes 'quendra ls /none/' ''

finish
