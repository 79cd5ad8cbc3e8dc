#!/usr/bin/env bash
# Servers with certificates and answers of every kind. They are OpenSSL's own, which send files.
. "$(dirname "$0")/Support.sh"

log_in
mkdir -p "$work/tls/sync/1.3"
answer() { # path, body
    printf 'HTTP/1.0 200 OK\r\nContent-Length: %d\r\n\r\n%s' ${#2} "$2" >"$work/tls/$1"
}
answer endpoints '{"sync":{"1.3":{"path":"/sync/1.3","tos":0}}}'
answer sync/1.3/init '{"device_token_auth":true}'
refuse() { printf 'HTTP/1.0 %s No\r\n%b\r\n' "$1" "${2-}" >"$work/tls/endpoints"; } # status, headers
printf '%s\n' '[ca]' default_ca=own '[own]' "database=$work/issued" "new_certs_dir=$work" rand_serial=yes unique_subject=no default_md=sha256 \
    policy=all '[all]' commonName=supplied >"$work/ca"
: >"$work/issued"
certificate() { # name, names, first day, last day
    openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout "$work/key.pem" -out "$work/request" -subj "/CN=$1" \
        2>/dev/null
    openssl ca -config "$work/ca" -selfsign -keyfile "$work/key.pem" -in "$work/request" -extfile <(echo "subjectAltName=$2") \
        -startdate "$(date -ud "$3" +%Y%m%d%H%M%SZ)" -enddate "$(date -ud "$4" +%Y%m%d%H%M%SZ)" -batch -notext -out "$work/$1.pem" 2>/dev/null
}
# trust ADD|DELETE NAME: changes the authorities of Wine's machine, which are in its registry: a kind, 1, the length, the certificate.
trust() {
    local der=$work/$2.der key='HKLM\Software\Microsoft\SystemCertificates\Root\Certificates\' size value=()
    openssl x509 -in "$work/$2.pem" -outform der -out "$der"
    key+=$(sha1sum "$der" | cut -c -40 | tr a-f A-F)
    size=$(printf '%04x' "$(stat -c %s "$der")")
    [ "$1" = DELETE ] || value=(/v Blob /t REG_BINARY /d "2000000001000000${size:2}${size:0:2}0000$(od -An -v -tx1 "$der" | tr -d ' \n')")
    "${emulator[@]}" reg "$1" "$key" "${value[@]}" /f >/dev/null || complain "the authority $2 cannot be changed"
}
# with_certificate NAME TRUSTED COMMAND...: runs a command against a server with the certificate; one is trusted. Unless `expected` is 0
# it fails. Wine's WinHTTP takes no addresses in certificates.
with_certificate() {
    local fd text tlsPid tls
    [ -z "$2" ] || on linux || trust ADD "$2"
    exec {fd}< <(cd "$work/tls" && exec openssl s_server -accept 127.0.0.1:0 -cert "$work/$1.pem" -key "$work/key.pem" -HTTP 2>&1)
    tlsPid=$!
    started+=("$tlsPid")
    while read -r -t 30 -u "$fd" text && [[ $text != ACCEPT* ]]; do :; done
    tls=https://localhost:${text##*:}
    SSL_CERT_FILE=${2:+$work/$2.pem} run "${expected:-1}" "${@:3}" --server "$tls"
    kill "$tlsPid"
    requests=$(grep -c '^FILE:' <&"$fd") # those whose first byte the server could read
    exec {fd}<&-
    [ -z "$2" ] || on linux || trust DELETE "$2"
}
# distrusts NAME TRUSTED CODE ADVICE: checks what the doctor says of a certificate. Wine gives one code for all that is wrong with TLS.
distrusts() {
    with_certificate "$1" "$2" doctor
    says 'ok      Connection  connected to ' 'FAILED  TLS         ' 'FAILED  Handshake   19006 ('
    [ "$requests" = 0 ] || complain 'a request went to a server that is not trusted'
    on linux && says "FAILED  TLS         $3 (" "-> $4"
}
certificate expired DNS:localhost '2 days ago' yesterday
distrusts expired expired 12037 "check this machine's clock; where it is right, the server needs a new certificate"
certificate early DNS:localhost tomorrow '2 days'
distrusts early early 12037 "check this machine's clock"
certificate other DNS:other.test yesterday tomorrow
distrusts other other 12038 'name the server in --server as its certificate does'
certificate own DNS:localhost yesterday tomorrow
distrusts own '' 12045 'have this machine trust the authority'
rm "$work/tls/sync/1.3/init" # what OpenSSL's server then sends has no head
# For the head Wine would wait a minute.
on windows && printf 'HTTP/1.0 503 No\r\nContent-Length: 0\r\n\r\n' >"$work/tls/sync/1.3/init"
with_certificate own own doctor
says "ok      TLS         the server's certificate is accepted" 'ok      Reply       /endpoints: HTTP 200' 'FAILED  '
[ "$requests" != 0 ] || complain 'no request went to a server that is trusted'
if on linux; then # the rest is the same
    answer sync/1.3/init '{"device_token_auth":true}'
    answer endpoints '{"sync":{"2.0":{"path":"/sync/2.0"}}}'
    with_certificate own own doctor
    says 'offers sync 2.0' '-> the server offers none of the versions that this library speaks'
    refuse 503 && with_certificate own own doctor && says '-> the server, or a gateway before it, is out of order'
    refuse 401 && with_certificate own own doctor && says '-> something on the way wants a login of its own'
    refuse 302 'Location: https://b.test/x?secret\r\n' && with_certificate own own doctor &&
        says '/endpoints: HTTP 302: a redirect to https://b.test'$'\n' '-> redirects are not followed: name the address in --server'
    refuse 511 && with_certificate own own doctor && says 'FAILED  Reply       /endpoints: HTTP 511' '-> log in to the network'
    answer endpoints '<html>busy' && with_certificate own own doctor && says 'HTTP 200 without JSON: a web page' 'in a browser'
    refuse 404 && with_certificate own own doctor && says '-> is this the right server?'

    refuse 308 'Location: https://b.test/endpoints?secret\r\n' && with_certificate own own ls /
    warns 'Init failed: 19006 (' '; the server redirects to https://b.test; --server wants that address; '

    # This server's files are the same to whoever asks: what comes for an item is its description, not its content.
    answer endpoints '{"sync":{"1.3":{"path":"/sync/1.3","tos":0}}}'
    mkdir "$work/tls/sync/1.3/folders"
    created=2026-03-01T12:30:15.0000000Z
    answer sync/1.3/folders/page '{"document_info":{"creation_time":"'$created'","modification_time":"'$created'","size":70000}}'
    echo mine >"$work/page"
    with_certificate own own get /page "$work/page"
    warns 'Of /page came 130 bytes in place of 70000'
    answer 'sync/1.3/folders/page?skip=2&count=7' few
    echo mine >"$work/range"
    with_certificate own own get /page "$work/range" --skip 2 --count 7
    warns 'Of /page came 3 bytes in place of 7'
    answer 'sync/1.3/folders/page?revision=old' old # its size is its own
    expected=0 with_certificate own own get /page "$work/old" --revision old
    [ "$(<"$work/old")" = old ] || complain 'the older revision is not what came'
    printf 'HTTP/1.0 429 No\r\n\r\nLater' >"$work/tls/sync/1.3/folders/page"
    with_certificate own own get /page "$work/page"
    warns 'GetPathAttributes failed: 20429 ('
    printf 'HTTP/1.0 429 No\r\n\r\n' >"$work/tls/sync/1.3/version"
    with_certificate own own version
    warns 'Version failed: 8 (' '; the server answered with HTTP 429, too many requests)'
    refuse 401 && with_certificate own own version
    warns 'Init failed: 19006 (' "; the server answered with HTTP 401, not logged in; 'quendra doctor --server https://localhost:"
    [ "$(<"$work/page")$(compgen -G "$work/page.*")" = mine ] || complain 'a download that failed left its mark'
fi

finish
