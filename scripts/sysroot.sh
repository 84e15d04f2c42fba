#!/usr/bin/env bash
# Fetches and unpacks the libraries of the target; see --help.

set -euo pipefail

# shellcheck source=scripts/build.sh
source "$(dirname "${BASH_SOURCE[0]}")/build.sh"

LIST=$ROOT/cmake/mipsel-sysroot.txt
APT_ROOT=$BUILD_ROOT/mipsel-apt
SYSROOT=$BUILD_ROOT/mipsel-sysroot
ARCHIVE=${APP_ARCHIVE:-http://deb.debian.org/debian}

usage()
{
    cat <<'END_OF_USAGE'
Usage: scripts/sysroot.sh [--update] [--help]

Fetches the packages that cmake/mipsel-sysroot.txt names, in exactly those versions and with those
checksums, and unpacks them into build/mipsel-sysroot. Needs no rights: nothing is installed, and
this machine's own packages are left alone. Does nothing when the list has not changed.

  --update   first write the list anew, with the versions that the archive has today

APP_ARCHIVE      the archive (default http://deb.debian.org/debian; snapshot.debian.org keeps old
                 versions: http://snapshot.debian.org/archive/debian/20261101T000000Z)
APP_BUILD_DIR    where to unpack instead of build/
END_OF_USAGE
}

# An apt of its own, which knows the target's packages alone.
prepare_apt()
{
    mkdir -p "$APT_ROOT"/state/lists/partial "$APT_ROOT"/cache/archives/partial "$APT_ROOT"/debs
    : >"$APT_ROOT/status"
    echo "deb [arch=mipsel signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $ARCHIVE bookworm main" \
        >"$APT_ROOT/sources.list"
    cat >"$APT_ROOT/apt.conf" <<END_OF_CONFIGURATION
APT::Architecture "mipsel";
APT::Architectures { "mipsel"; };
APT::Sandbox::User "";
Acquire::Check-Valid-Until "false";
Dir::State "$APT_ROOT/state";
Dir::State::status "$APT_ROOT/status";
Dir::Cache "$APT_ROOT/cache";
Dir::Etc::SourceList "$APT_ROOT/sources.list";
Dir::Etc::SourceParts "-";
Dir::Etc::PreferencesParts "-";
END_OF_CONFIGURATION
    say "fetching the list of the target's packages"
    apt -q update
}

apt()
{
    local log=$BUILD_ROOT/mipsel-sysroot.log
    (cd "$APT_ROOT/debs" && APT_CONFIG=$APT_ROOT/apt.conf apt-get "$@") </dev/null >"$log" 2>&1 || {
        tail -n 20 "$log" >&2
        die "apt-get failed; the whole log is $log. Where a version has left the archive, --update" \
            "names the newer one, or APP_ARCHIVE an archive that still has it"
    }
}

names()
{
    sed -n 's/^\([^# ]*\) .*/\1/p' "$LIST"
}

update_list()
{
    local names file
    mapfile -t names < <(names)
    rm -f "$APT_ROOT"/debs/*
    apt -q download "${names[@]}"
    {
        sed -n '/^#/p' "$LIST"
        for file in "$APT_ROOT"/debs/*.deb; do
            echo "$(dpkg-deb -f "$file" Package) $(dpkg-deb -f "$file" Version)" \
                "$(sha256sum <"$file" | cut -d' ' -f1)"
        done
    } >"$LIST.new"
    mv "$LIST.new" "$LIST"
}

# file_of NAME VERSION: where apt-get puts it; a colon in a version is written otherwise there.
file_of()
{
    local found=("$APT_ROOT/debs/$1_${2/:/%3a}_"*.deb)
    echo "${found[0]}"
}

fetch()
{
    local name version sum wanted=()
    while read -r name version _; do
        [[ -e $(file_of "$name" "$version") ]] || wanted+=("$name=$version")
    done < <(sed '/^#/d' "$LIST")
    if ((${#wanted[@]})); then
        say "fetching ${#wanted[@]} of the target's packages"
        apt -q download "${wanted[@]}"
    fi
    while read -r name version sum; do
        [[ $(sha256sum <"$(file_of "$name" "$version")") == "$sum"* ]] ||
            die "$name $version is not what it was: its checksum differs from cmake/mipsel-sysroot.txt"
    done < <(sed '/^#/d' "$LIST")
}

unpack()
{
    local name version link
    rm -rf "$SYSROOT"
    mkdir -p "$SYSROOT"
    while read -r name version _; do
        dpkg-deb -x "$(file_of "$name" "$version")" "$SYSROOT"
    done < <(sed '/^#/d' "$LIST")
    # Links that were absolute would lead out of the folder.
    while IFS= read -r -d '' link; do
        ln -sfrT "$SYSROOT$(readlink "$link")" "$link"
    done < <(find "$SYSROOT" -type l -lname '/*' -print0)
    # With the archive's own times nothing would be built anew after an update.
    find "$SYSROOT" -type f -exec touch {} +
}

main()
{
    local state
    case ${1:-} in
    '' | --update) ;;
    -h | --help)
        usage
        return
        ;;
    *) die "Unknown argument '$1'; see scripts/sysroot.sh --help" ;;
    esac
    if [[ ${1:-} == --update ]]; then
        prepare_apt
        update_list
    fi
    state=$(cksum <"$LIST")
    [[ -f $SYSROOT/.unpacked && $(<"$SYSROOT/.unpacked") == "$state" ]] && return
    [[ ${1:-} == --update ]] || prepare_apt
    fetch
    unpack
    echo "$state" >"$SYSROOT/.unpacked"
    say "the target's libraries are in ${SYSROOT#"$ROOT"/}"
}

main "$@"
