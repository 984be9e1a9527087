# Sourced by ./dev and by the scripts in this folder.
# shellcheck shell=bash

kiv_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# Whatever outlives a clone: built dependencies and the Wine prefix.
kiv_cache=${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/kivCore
kiv_jobs=${CMAKE_BUILD_PARALLEL_LEVEL:-$(nproc 2>/dev/null || echo 2)}

# Clones share what was compiled: ccache sees the paths of a clone relative to its root.
export CCACHE_BASEDIR=$kiv_root CCACHE_NOHASHDIR=1

if [ -t 1 ]; then kiv_bold=$'\e[1m' kiv_plain=$'\e[0m'; else kiv_bold='' kiv_plain=''; fi

# All of this goes to standard error where standard output carries a result.
say() { printf '%s==> %s%s\n' "$kiv_bold" "$*" "$kiv_plain"; }

die() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

# quietly LOG COMMAND...: the output goes to LOG; of a failed command the end of it is shown.
quietly() {
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    "$@" >"$log" 2>&1 && return
    local status=$?
    tail -n 40 "$log" >&2
    printf 'error: "%s" failed; its whole output is in %s\n' "$1 ${2-}" "$log" >&2
    return $status
}

# find_sources FOLDER...: headers and sources, sorted; a folder need not exist.
find_sources() {
    local folder
    for folder in "$@"; do
        [ ! -d "$folder" ] || find "$folder" -name '*.h' -o -name '*.cpp'
    done | LC_ALL=C sort
}
