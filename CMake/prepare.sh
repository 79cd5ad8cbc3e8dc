#!/usr/bin/env bash
# Installs the missing Debian packages for building and testing the project, and builds what the cross build needs in addition.
#
#     CMake/prepare.sh [linux] [tests] [guard] [coverage] [tools] [windows] [real]        (default: all but the last)
#
#     linux     the compiler and the libraries of the Linux build
#     tests     GoogleTest, Clang with its sanitizers, Doxygen, librsync's own program, what packages are made with
#     guard     valgrind and strace
#     coverage  gcovr
#     tools     clang-tidy and clang-format
#     real      the servers that Tests/RealServers puts in between; Debian starts some of them where it runs systemd
#     windows   mingw-w64, Wine, and the libraries that Debian has no mingw packages of, in build/windows-deps
#
# Without root rights the packages are installed through sudo. If nothing is missing, the network is not used.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
deps=$root/build/windows-deps
prefix=$deps/x86_64-w64-mingw32

linux=(g++ cmake ninja-build pkg-config libcurl4-openssl-dev libjsoncpp-dev libutfcpp-dev libboost1.81-dev libssl-dev libcli11-dev librsync-dev
       openssl ca-certificates)
tests=(libgtest-dev libgmock-dev libbenchmark-dev clang libclang-rt-14-dev llvm binutils dpkg-dev file doxygen rdiff python3)
guard=(valgrind strace python3)
coverage=(gcovr)
real=(nginx apache2 haproxy caddy lighttpd lighttpd-mod-openssl squid stunnel4 rdiff openssl python3)
tools=(clang clang-tidy clang-format git)
windows=(g++-mingw-w64-x86-64-posix wine64 pkg-config googletest libboost1.81-dev libcli11-dev cmake ninja-build dpkg-dev debian-archive-keyring openssl python3)

say() { printf '%s\n' "$*" >&2; }

as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        say "prepare: '$*' has to run as root, and there is no sudo"
        return 1
    fi
}

install_missing() {
    local missing=() package
    for package in "$@"; do
        if [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            missing+=("$package")
        fi
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    say "prepare: installing ${missing[*]}"
    as_root apt-get -q update >&2
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y --no-install-recommends install "${missing[@]}" >&2
}

# The sources of the named Debian packages, below $deps/sources. apt uses a separate package list there, with this machine's Debian archives
# as deb-src, so that the system's lists are unchanged.
fetch_sources() {
    local apt=$deps/apt keyring=/usr/share/keyrings/debian-archive-keyring.gpg
    mkdir -p "$apt/lists/partial" "$apt/archives/partial" "$deps/sources"
    # shellcheck source=/dev/null
    local codename; codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    apt-get indextargets --format "deb-src [signed-by=$keyring] \$(REPO_URI) \$(RELEASE) \$(COMPONENT)" 'Identifier: Packages' |
        grep -E "^deb-src [^ ]+ [^ ]+ ${codename}[^ ]* main\$" | sort -u >"$apt/sources.list"
    local options=(-q -o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts=/dev/null -o Dir::State::Lists="$apt/lists"
                   -o Dir::Cache="$apt" -o APT::Sandbox::User="$(id -un)")
    apt-get "${options[@]}" update >&2
    (cd "$deps/sources" && apt-get "${options[@]}" source "$@" >&2)
}

# Runs `build_NAME` once: a stamp file marks a completed step.
once() {
    [ -e "$deps/stamps/$1" ] && return 0
    say "prepare: building $1 for Windows"
    if ! "build_$1" >"$deps/$1.log" 2>&1; then
        tail -n 30 "$deps/$1.log" >&2
        say "prepare: building $1 failed; the whole log is $deps/$1.log"
        return 1
    fi
    touch "$deps/stamps/$1"
}

cross_cmake() {
    local name=$1 source=$2
    shift 2
    rm -rf "${deps:?}/build-$name"
    cmake -S "$source" -B "$deps/build-$name" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$root/CMake/mingw-w64-x86_64.cmake" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" -DBUILD_SHARED_LIBS=OFF "$@" &&
        cmake --build "$deps/build-$name" &&
        cmake --install "$deps/build-$name"
}

build_sources() { rm -rf "$deps/sources" && fetch_sources libjsoncpp; }

build_jsoncpp() {
    cross_cmake jsoncpp "$(echo "$deps"/sources/libjsoncpp-*/)" -DJSONCPP_WITH_TESTS=OFF -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF \
        -DBUILD_STATIC_LIBS=ON -DBUILD_OBJECT_LIBS=OFF
}

build_googletest() { cross_cmake googletest /usr/src/googletest; }

# The two header-only libraries, the same for every system.
build_headers() {
    mkdir -p "$prefix/include" &&
        ln -sfnT /usr/include/boost "$prefix/include/boost" &&
        rm -rf "$prefix/include/CLI" &&
        ln -sfnT /usr/include/CLI "$prefix/include/CLI"
}

build_windows_libraries() {
    mkdir -p "$deps/stamps"
    exec 9>"$deps/lock"
    flock 9
    once sources && once jsoncpp && once googletest && build_headers
    exec 9>&-
}

[ $# -gt 0 ] || set -- linux tests guard coverage tools windows
packages=()
for set_name in "$@"; do
    case $set_name in
    linux) packages+=("${linux[@]}") ;;
    tests) packages+=("${tests[@]}") ;;
    coverage) packages+=("${coverage[@]}") ;;
    guard) packages+=("${guard[@]}") ;;
    real) packages+=("${real[@]}") ;;
    tools) packages+=("${tools[@]}") ;;
    windows) packages+=("${windows[@]}") ;;
    *)
        say "prepare: unknown set '$set_name'"
        exit 2
        ;;
    esac
done

install_missing "${packages[@]}"
case " $* " in *" windows "*) build_windows_libraries ;; esac
