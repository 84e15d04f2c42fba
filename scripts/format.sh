#!/usr/bin/env bash
# Formats the C++ sources of this tree, or tells which are not formatted; see --help.

set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/messages.sh
source scripts/messages.sh

usage()
{
    cat <<'END'
Usage: scripts/format.sh [--check] [--help]

Formats all C++ sources with clang-format (.clang-format says how).
With --check nothing is changed: names the files that would be, and fails if there are any.
END
}

# format OPTION...: clang-format over all sources.
format()
{
    local folder folders=()
    for folder in src sim tests platform tools bench fuzz; do
        [[ ! -d $folder ]] || folders+=("$folder")
    done
    find "${folders[@]}" \( -name '*.cpp' -o -name '*.h' \) -print0 |
        xargs -0 -r clang-format "$@"
}

# Where each file departs first, and in how many places.
check()
{
    local output line file
    local -A first=() count=()
    output=$(format --dry-run -Werror 2>&1) && return
    while IFS= read -r line; do
        [[ $line =~ ^([^:]+):([0-9]+):.*clang-formatted ]] || continue
        file=${BASH_REMATCH[1]}
        first[$file]=${first[$file]:-${BASH_REMATCH[2]}}
        count[$file]=$((${count[$file]:-0} + 1))
    done <<<"$output"
    ((${#first[@]})) || die "clang-format failed: $output"
    for file in "${!first[@]}"; do
        echo "$file:${first[$file]}: not formatted (places: ${count[$file]})"
    done | sort >&2
    say "scripts/format.sh formats them"
    return 1
}

command -v clang-format >/dev/null || die "clang-format is missing; ./test installs it"
case ${1:-} in
'') format -i ;;
--check) check ;;
-h | --help) usage ;;
*) die "Unknown argument '$1'; see scripts/format.sh --help" ;;
esac
