#!/usr/bin/env bash
# Whole files through the library beside plain libcurl (Linux) and beside a bare WinHTTP loop (Wine).
#
#     Benchmarks/transfer.sh [linux|windows] [MEBIBYTES] [ROUNDS]        default: linux 1024 5
#
# Needs nginx, and a build with -DQUENDRA_BENCHMARKS=ON in build/linux or build/windows. Files go to a folder in memory.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
platform=${1:-linux} mebibytes=${2:-1024} rounds=${3:-5}
folder=$(mktemp -d -p /dev/shm quendra-transfer.XXXXXX)
nginx=
finish() {
    [ -z "$nginx" ] || kill "$nginx"
    rm -rf "$folder"
}
trap finish EXIT

head -c "${mebibytes}M" /dev/zero | tr '\0' 'q' >"$folder/data"
# nginx takes no port 0: a free one is asked for first.
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
cat >"$folder/nginx.conf" <<CONFIGURATION
daemon off;
master_process off;
pid $folder/nginx.pid;
error_log $folder/error.log;
events {}
http {
    access_log off;
    sendfile on;
    keepalive_requests 1000000;
    client_body_temp_path $folder/body;
    proxy_temp_path $folder/proxy;
    fastcgi_temp_path $folder/fastcgi;
    uwsgi_temp_path $folder/uwsgi;
    scgi_temp_path $folder/scgi;
    default_type application/octet-stream;
    server {
        listen 127.0.0.1:$port;
        location = /endpoints { return 200 '{"sync":{"1.3":{"path":"/sync"}}}'; }
        location = /sync/init { return 200 '{"device_token_auth":true}'; }
        location = /sync/folders/data { alias $folder/data; }
    }
}
CONFIGURATION
nginx -c "$folder/nginx.conf" -e "$folder/error.log" &
nginx=$!
until (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do kill -0 "$nginx"; done

case $platform in
linux) "$root/build/linux/bin/transfer" "http://127.0.0.1:$port" "$folder" "$mebibytes" "$rounds" ;;
windows)
    "$root/CMake/wine.sh" "$root/build/windows/wineprefix" "$root/build/windows/bin/transfer.exe" "http://127.0.0.1:$port" \
        "Z:${folder//\//\\}" "$mebibytes" "$rounds"
    ;;
*)
    echo "transfer.sh: linux or windows" >&2
    exit 2
    ;;
esac
