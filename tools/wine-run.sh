#!/bin/bash
# wine-run.sh PROGRAM.exe ARGUMENT...: runs a Windows program under Wine, fit for test runners.
# KIV_WINEPREFIX overrides where the Wine prefix lives (0.7 GB, made at the first use).
set -eu

wine='' server=''
for folder in /usr/lib/wine /usr/lib64/wine /opt/wine-stable/bin; do
    for name in wine64 wine; do
        [ -n "$wine" ] || [ ! -x "$folder/$name" ] || wine=$folder/$name
        [ -n "$server" ] || [ ! -x "$folder/${name/wine/wineserver}" ] || server=$folder/${name/wine/wineserver}
    done
done
[ -n "$wine" ] || wine=$(command -v wine64 || command -v wine) || { echo "wine-run.sh: no Wine found" >&2; exit 127; }
[ -n "$server" ] || server=$(command -v wineserver64 || command -v wineserver) ||
    { echo "wine-run.sh: no wineserver found" >&2; exit 127; }

export WINEPREFIX=${KIV_WINEPREFIX:-${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/kivCore/wine}
export WINEARCH=win64
export WINEDEBUG=${WINEDEBUG:--all}
# Neither dialogs nor menu entries. And no crash debugger: under it a crashed program may end with exit status 0.
export WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe,winedbg.exe='
# In any other character set Wine garbles arguments and cannot create files with foreign names.
export LC_ALL=C.UTF-8
unset DISPLAY WAYLAND_DISPLAY

# The server and its services outlive this script. Holding one of our descriptors, say the pipe to the test runner, they
# would keep the runner waiting for the pipe's end.
without_descriptors() (
    cd /
    exec </dev/null >/dev/null 2>&1
    for descriptor in /proc/self/fd/*; do
        number=${descriptor##*/}
        [ "$number" -le 2 ] || eval "exec $number>&-"
    done
    exec "$@"
)

mkdir -p "$WINEPREFIX"
exec 9>"$WINEPREFIX/.kiv-lock"
flock 9 # of many first starts one does the work
started=no
without_descriptors "$server" -p60 && started=yes # fails when it is running; stays a minute after its last client
if [ ! -e "$WINEPREFIX/.kiv-ready" ]; then
    without_descriptors "$wine" wineboot -i
    touch "$WINEPREFIX/.kiv-ready"
elif [ $started = yes ]; then
    without_descriptors "$wine" cmd /c exit # starts the services, detached
fi
exec 9>&-
exec "$wine" "$@"
