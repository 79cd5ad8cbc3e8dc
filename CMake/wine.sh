#!/bin/sh
# Runs a Windows program under Wine, with the project's own prefix (Wine's C: drive and registry).
#
#     CMake/wine.sh PREFIX PROGRAM [arguments]     the first run makes the prefix; what Wine itself starts ends by itself
#     CMake/wine.sh PREFIX --stop                  ends at once what still runs in the prefix
WINEPREFIX=$1
WINEDEBUG=-all
# Neither .NET nor a browser is needed, nor entries in the user's menus.
WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe=d'
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES
shift

if [ "$1" = --stop ]; then
    [ -d "$WINEPREFIX" ] && /usr/lib/wine/wineserver64 -k
    exit 0
fi

if [ ! -e "$WINEPREFIX/ready" ]; then
    mkdir -p "$WINEPREFIX"
    (
        flock 9
        [ -e "$WINEPREFIX/ready" ] || { /usr/lib/wine/wine64 wineboot --init 9>&- && touch "$WINEPREFIX/ready"; }
    ) 9>"$WINEPREFIX/lock" </dev/null >/dev/null 2>&1 || {
        echo "wine.sh: cannot make the prefix $WINEPREFIX" >&2
        exit 1
    }
fi

exec /usr/lib/wine/wine64 "$@"
