#!/usr/bin/env bash
# Reads off a program what makes mistakes in memory hard to use; see --help.

set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/messages.sh
source scripts/messages.sh

usage()
{
    cat <<'END'
Usage: scripts/hardening.sh [FILE] [--help]

Tells what of this a program lacks, and fails then (default: build/release/app):

  its addresses are random, as it is position independent
  what the loader fills in is read-only before main starts: full RELRO
  no stack, and no segment that can be written, can be executed
  functions with buffers have a guard on their stack
  copies of the C library are bounded where the compiler knows the size: FORTIFY
END
}

MISSING=0

# hold WHAT TEXT PATTERN: the text has a line with the pattern.
hold()
{
    grep -qE "$3" <<<"$2" && return
    complain "$FILE: $1"
    MISSING=1
}

check()
{
    local headers dynamic symbols
    headers=$(LC_ALL=C readelf -hlW "$FILE")
    dynamic=$(LC_ALL=C readelf -dW "$FILE")
    symbols=$(LC_ALL=C readelf -W --dyn-syms "$FILE")
    hold "not position independent" "$headers" '^ *Type: *DYN'
    hold "not position independent" "$dynamic" 'FLAGS_1.* PIE'
    hold "no RELRO" "$headers" '^ *GNU_RELRO '
    hold "RELRO is not full" "$dynamic" '\(FLAGS\).*BIND_NOW|\(BIND_NOW\)|FLAGS_1.* NOW'
    hold "the stack can be executed" "$headers" '^ *GNU_STACK .* RW +0x'
    hold "no guards on the stack" "$symbols" ' __stack_chk_fail(@|$)'
    hold "no FORTIFY" "$symbols" ' __(mem|str|v?sn?)[a-z]*_chk(@|$)'
    if grep -qE '^ *LOAD .* (RWE|WE) ' <<<"$headers"; then
        complain "$FILE: a segment can be written and executed"
        MISSING=1
    fi
}

case ${1:-} in
-h | --help)
    usage
    exit
    ;;
-*) die "Unknown option '$1'; see scripts/hardening.sh --help" ;;
esac
FILE=${1:-build/release/app}
[[ -r $FILE ]] || die "There is no $FILE: cmake --preset release && cmake --build --preset release --target app"
check
((MISSING == 0))
