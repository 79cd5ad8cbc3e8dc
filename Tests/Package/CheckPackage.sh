#!/usr/bin/env bash
# Installs a build and unpacks its packages, each into a folder of its own, and uses them from outside: a client with pkg-config as
# the README shows it, one with find_package, one with add_subdirectory, and the programs.
#
#     CheckPackage.sh BUILD COMPILER SYSTEM [EMULATOR...]
#
# SYSTEM is CMake's name of the system that the build is for; EMULATOR runs its programs.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=$1 compiler=$2 system=$3
shift 3
emulator=("$@")
work=$(mktemp -d)
server=''

end() {
    local status=$?
    trap - EXIT
    [ -z "$server" ] || { kill "$server" && wait "$server"; } 2>/dev/null || :
    rm -rf "$work"
    exit "$status"
}
trap end EXIT

step() { printf -- '-- %s\n' "$*"; }
fail() { echo "$*"; exit 1; }
quiet() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }; }
run() { "${emulator[@]}" "$@"; }

# A path as the programs take it: Wine shows this machine's files on a drive of its own.
local_path() {
    if [ "$system" = Windows ]; then echo "Z:${1//\//\\}"; else echo "$1"; fi
}

# Lets a client's program find the library below a prefix, and the compiler's own libraries.
use_libraries() {
    if [ "$system" != Windows ]; then
        export LD_LIBRARY_PATH=$1/lib
        return
    fi
    WINEPATH=$(local_path "$1/bin")
    local dll
    for dll in libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll; do
        WINEPATH+=";$(local_path "$(dirname "$("$compiler" -print-file-name=$dll)")")"
    done
    export WINEPATH
}

suffix=''
[ "$system" != Windows ] || suffix=.exe

step 'What is installed'
prefix=$work/installed
quiet cmake --install "$build" --prefix "$prefix"
! grep -rlF "$root" "$prefix/include" "$prefix/lib/cmake" "$prefix/lib/pkgconfig" || fail 'These name the build tree.'
for binary in "$prefix"/bin/*quendra* "$prefix"/bin/*.dll "$prefix"/lib/lib*.so.?.*; do
    [ -f "$binary" ] || continue
    folder=$(dirname "$binary") name=$(basename "$binary")
    [ -s "$folder/.debug/$name.debug" ] || fail "There are no symbols of $name."
    grep -q .gnu_debuglink "$binary" || fail "$name does not name its symbols."
done
[ "$(find "$prefix/share/doc/quendra-http/notices" -size +200c | wc -l)" -ge 5 ] || fail 'Notices are missing.'

step 'A client with pkg-config'
# Elsewhere than Windows the program finds the library by itself.
[ "$system" != Windows ] || use_libraries "$prefix"
cp "$root/Docs/Examples/OwnTransport.cpp" "$work/client.cpp"
command=$(sed -n 's/^    c++ /"$compiler" /p' "$root/README.md")
[ "$system" != Windows ] || command=${command%-Wl*}
(cd "$work" && PKG_CONFIG_PATH=$prefix/lib/pkgconfig eval "$command -o OwnTransport$suffix")
run "$work/OwnTransport$suffix" | tee "$work/output"
grep -q '^done' "$work/output" || fail 'The client did not come to its end.'

step 'The packages'
quiet cpack --config "$build/CPackConfig.cmake" -B "$work/packages"
for package in "$work"/packages/*.deb; do
    [ ! -f "$package" ] || dpkg-deb -x "$package" "$work/unpacked"
done
for package in "$work"/packages/*.zip; do
    [ ! -f "$package" ] || { mkdir -p "$work/unpacked" && (cd "$work/unpacked" && cmake -E tar xf "$package"); }
done
prefix=$(dirname "$(dirname "$(find "$work/unpacked" -path "*/bin/quendra$suffix")")")
(cd "$work/packages" && find . -maxdepth 1 -name '*.deb' -o -maxdepth 1 -name '*.zip')

step 'A client with find_package'
quiet cmake -S "$here" -B "$work/client" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_SYSTEM_NAME="$system" \
    -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$prefix"
quiet cmake --build "$work/client"

if [ "$system" != Windows ]; then
    step 'A client with add_subdirectory'
    quiet cmake -S "$here" -B "$work/subdirectory" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DQUENDRA_SOURCES="$root"
fi

step 'The programs, and a client over the network'
unset LD_LIBRARY_PATH WINEPATH # the programs find their libraries by themselves
mkdir "$work/items"
(exec "${emulator[@]}" "$prefix/bin/quendra-appliance$suffix" --root "$(local_path "$work/items")") >"$work/server.log" 2>&1 &
server=$!
for ((i = 0; i < 300; ++i)); do
    grep -qs '^listening on ' "$work/server.log" && break
    kill -0 "$server" 2>/dev/null || break
    sleep 0.1
done
url=$(sed -n 's/^listening on \([^\r]*\).*/\1/p' "$work/server.log")
[ -n "$url" ] || fail "The server does not start: $(cat "$work/server.log")"
QUENDRA_SESSION=$(local_path "$work/session")
export QUENDRA_SESSION QUENDRA_SERVER=${url%:*} QUENDRA_PORT=${url##*:} QUENDRA_PASSWORD=demo
head -c 100000 /dev/urandom >"$work/file"
run "$prefix/bin/quendra$suffix" login demo
run "$prefix/bin/quendra$suffix" put "$(local_path "$work/file")" /home/file --quiet
use_libraries "$prefix"
run "$work/client/Versions$suffix" || fail 'The system has no version.'
run "$work/client/LogInAndDownload$suffix" "$QUENDRA_SERVER" "$QUENDRA_PORT" demo demo /home/file "$(local_path "$work/copy")"
cmp "$work/file" "$work/copy"
run "$work/client/UploadInChunks$suffix" "$QUENDRA_SERVER" "$QUENDRA_PORT" demo demo "$(local_path "$work/file")" /home/chunks
cmp "$work/file" "$work/items/home/chunks"
