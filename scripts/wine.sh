#!/bin/sh
# Runs a Windows program of the build under Wine, without display, desktop entries or messages of
# Wine's own: scripts/wine.sh PROGRAM.exe [ARGUMENT...]
# scripts/wine.sh --runs-32-bit tells by its status whether Wine here has its 32-bit part.
#
# Wine keeps its drive in build/wine. The first start makes it, which takes some seconds; programs
# that start at the same time wait for that.
set -eu

[ $# -ne 0 ] || { echo "usage: scripts/wine.sh PROGRAM.exe [ARGUMENT...] | --runs-32-bit" >&2; exit 2; }
here=$(cd "$(dirname "$0")" && pwd)
WINEPREFIX=$(dirname "$here")/build/wine
export WINEPREFIX
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="winemenubuilder.exe=d;mscoree=d;mshtml=d"
unset DISPLAY WAYLAND_DISPLAY

if ! command -v wine >/dev/null; then
    echo "scripts/wine.sh: wine is not installed (Debian package wine64)" >&2
    exit 127
fi
# Wine makes its drive whole, 32-bit part included, only when it starts the server itself.
#
# Left alone, that server ends with its last program, and a program that starts at that moment
# fails; so this one stays for a minute more. Who starts it also starts Wine's services, which would
# else keep the output of the first program open for as long as they run.
mkdir -p "$WINEPREFIX"
(
    flock 9
    if [ ! -e "$WINEPREFIX/system.reg" ]; then
        wine wineboot --init 9>&-
        wineserver --wait
    fi
    if wineserver --persistent=60 9>&-; then
        wine wineboot --init 9>&-
    fi
) 9>"$WINEPREFIX.lock" >/dev/null 2>&1 </dev/null ||
    echo "scripts/wine.sh: Wine cannot make its drive in $WINEPREFIX" >&2

runs_32_bit() {
    [ -e "$WINEPREFIX/drive_c/windows/syswow64/ntdll.dll" ]
}

if [ "$1" = --runs-32-bit ]; then
    runs_32_bit
    exit
fi
# Wine without its 32-bit part ends a 32-bit program at once, with status 0. Say so instead.
header=$(od -An -tu4 -j60 -N4 "$1")
machine=$(od -An -tx2 -j$((header + 4)) -N2 "$1")
if [ "$machine" = " 014c" ] && ! runs_32_bit; then
    echo "scripts/wine.sh: $1 is a 32-bit program; Wine here runs 64-bit ones only" >&2
    exit 126
fi
exec wine "$@"
