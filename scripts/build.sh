# shellcheck shell=bash
# Configuring and building a preset, with progress on one line.

[[ -z ${BUILD_SH:-} ]] || return 0
BUILD_SH=1

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BUILD_ROOT=${APP_BUILD_DIR:-$ROOT/build}
[[ $BUILD_ROOT == /* ]] || BUILD_ROOT=$PWD/$BUILD_ROOT
BUILD_VERBOSE=

# Two checkouts of the same source share what the compiler cache knows.
export CCACHE_BASEDIR=$ROOT CCACHE_NOHASHDIR=1

# shellcheck source=scripts/messages.sh
source "$ROOT/scripts/messages.sh"
# shellcheck source=scripts/processes.sh
source "$ROOT/scripts/processes.sh"

# configure PRESET: runs CMake when it never ran here, when the presets changed or when packages
# were installed; everything else ninja notices by itself.
configure()
{
    local folder=$BUILD_ROOT/$1 log=$BUILD_ROOT/$1.log state fresh=()
    state="$ROOT $(cksum <"$ROOT/CMakePresets.json")"
    if [[ -f $folder/build.ninja && -f $folder/.configured && ${PACKAGES_INSTALLED:-0} == 0 &&
        $(<"$folder/.configured") == "$state" ]]; then
        return
    fi
    say "configuring ($1)"
    mkdir -p "$folder"
    # A build folder that came here with a copy of the tree still points to the old place.
    if [[ -f $folder/CMakeCache.txt ]] &&
        ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$ROOT" "$folder/CMakeCache.txt"; then
        fresh=(--fresh)
    fi
    rm -f "$folder/.configured"
    if ! (cd "$ROOT" && cmake --preset "$1" -B "$folder" "${fresh[@]}") >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        die "Configuring failed; the whole log is $log"
    fi
    echo "$state" >"$folder/.configured"
}

# Takes ninja's "[done/total] what" lines for the progress and lets through all else but its small
# talk and CMake's.
show_build()
{
    local line step='^\[([0-9]+)/([0-9]+)\] ' talk='^(-- |ninja: Entering dir|ninja: no work)'
    while IFS= read -r line; do
        if [[ $line =~ $step ]]; then
            # "0" comes before ninja knows whether there is anything to do.
            ((!BASH_REMATCH[1])) || progress "$BUILD_LABEL" "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
            [[ -n $BUILD_VERBOSE ]] || continue
        elif [[ $line =~ $talk ]]; then
            continue
        fi
        progress_end
        printf '%s\n' "$line" >&2
    done
    progress_end
}

# build PRESET TARGET...: configures where needed and builds; false when that failed.
build()
{
    local preset=$1
    shift
    configure "$preset"
    BUILD_LABEL="building ($preset)"
    NINJA_STATUS='[%f/%t] ' attend_through show_build \
        ninja -C "$BUILD_ROOT/$preset" ${BUILD_VERBOSE:+-v} "$@"
}
