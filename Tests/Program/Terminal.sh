#!/usr/bin/env bash
# At a terminal: the password is asked for and not shown, and progress fits into 30 columns.
. "$(dirname "$0")/Support.sh"

log_in
big=$work/big
head -c 24M /dev/urandom >"$big"
# The emulated terminal turns line ends into \r\n.
quendra="$(printf '%q ' "${client[@]}")"
mkfifo "$work/keys"
exec {screen}< <(exec script -qefc "stty cols 30; $quendra login demo --server $url; stty -a" /dev/null <"$work/keys" 2>&1)
exec {keys}>"$work/keys"
read -r -d : -t 30 -u "$screen" out
printf '%s\n' "$password" >&"$keys"
out+=$(cat <&"$screen")
says 'Password for demo' "Logged in to $url as demo."
[[ $out != *s3cret* ]] || complain 'the password shows'
says ' echo '
out=$(script -qefc "stty cols 30; $quendra put $big /home/" /dev/null </dev/null)
says '100%' 'Uploaded big to /home/big'
while read -r -d $'\r' text; do
    [ ${#text} -lt 30 ] || complain "progress is ${#text} columns wide"
done <<<"${out%Uploaded*}"
out=$(script -qefc "$quendra put $big /home/ --quiet" /dev/null </dev/null)
[[ $out != *%* ]] || complain 'there is progress'

finish
