#!/usr/bin/env bash
# Measures what the daemon takes of the device; see --help.

set -euo pipefail

# shellcheck source=scripts/build.sh
source "$(dirname "${BASH_SOURCE[0]}")/build.sh"
# shellcheck source=scripts/setup.sh
source "$ROOT/scripts/setup.sh"

TARGET=mipsel
STACK=$((256 * 1024)) # the tests hold it
FIGURES=$BUILD_ROOT/footprint.txt
DOCUMENT=$ROOT/docs/footprint.md

usage()
{
    cat <<'END_OF_USAGE'
Usage: scripts/footprint.sh [--help]

Builds the daemon for the device, measures it under the emulator beside a program that only joins
the bus, and writes docs/footprint.md anew.
END_OF_USAGE
}

# figure NAME: the value that a test has noted.
figure()
{
    local value
    value=$(awk -v name="$1" '$2 == name { print $3 }' "$FIGURES")
    [[ -n $value ]] || die "the tests have not measured '$1'"
    echo "$value"
}

stripped_bytes()
{
    local copy=$BUILD_ROOT/$TARGET/app.stripped
    mipsel-linux-gnu-strip -o "$copy" "$BUILD_ROOT/$TARGET/app"
    stat -c %s "$copy"
}

measure()
{
    say "measuring, about half a minute"
    rm -f "$FIGURES"
    APP_TEST_FIGURES=$FIGURES APP_TEST_EMULATED=1 \
        APP_TEST_DAEMON=$BUILD_ROOT/$TARGET/emulated_app \
        "$BUILD_ROOT/debug/tests/reliability_tests" --gtest_filter='Footprint.*' \
        >"$BUILD_ROOT/footprint.log" 2>&1 ||
        die "a goal is missed, or a test failed: $BUILD_ROOT/footprint.log"
}

# kilobytes NAME: the figure, and how much it is above the bare program.
kilobytes()
{
    echo "$(figure "$1") kB, $(($(figure "$1") - $(figure libraries))) kB above the bare program"
}

# A row for each thread, the deepest first.
stacks()
{
    local used thread
    while read -r used thread; do
        echo "| stack that \`$thread\` has used | $used bytes, $((STACK / used)) times less than there is | at most half |"
    done < <(sed -nE 's/^[^ ]* stack_([a-z]+) ([0-9]+) .*/\2 \1/p' "$FIGURES" | sort -rn)
}

document()
{
    local size
    size=$(stripped_bytes)
    cat <<END_OF_DOCUMENT
# Footprint

What the daemon takes of a device with little memory and flash. This page is written by
\`scripts/footprint.sh\`, which builds the daemon for 32-bit MIPS and measures that program under an
emulator. \`./test --target mipsel\` holds the goals of size and memory, the tests \`Footprint.*\` those of memory, stacks and
wake-ups in every \`./test\`.
Measured on $(LC_ALL=C date -u '+%-d %B %Y') by version $("$BUILD_ROOT/$TARGET/emulated_app" --version | cut -d' ' -f2).

| what | measured | goal |
|---|---|---|
| program, stripped | $size bytes | below 256,000 (250 KiB) |
| private memory of a bare program with the same libraries | $(figure libraries) kB | |
| private memory after the start | $(kilobytes after_start) | |
| the same with 100 macros, 100 scenes of ten commands and 40 devices | $(kilobytes of_a_home) | less than 1,536 kB above |
| stack of each thread | $((STACK / 1024)) kB | |
$(stacks)
| wake-ups at rest | $(figure wake_ups) in 10 s | the tick's 105 or 106, at most 10 others |
| written for one change of a document of $(figure document) bytes | $(figure by_a_change) bytes | |
| written for an event and its scene, a push, an alarm | nothing | nothing |
| written when a schedule starts, for a document of $(figure resume_document) bytes | $(figure by_a_schedules_start) bytes | |
| written when it ends | nothing | nothing |

- Up to 16 kB of the program are a gap between what is read only and what is not, which must not share
  a page of 16 kB.
- Private memory is what no other process shares: pages that were written to (\`Anonymous\`). The bare
  program has joined the bus, has a memory pool and has read one JSON text.
- The first thread, \`main\`, has the stack that its starter gives it (\`ulimit -s\`). The memory of a
  stack is taken page by page as it is used; what is set aside are addresses. Meanwhile macros ran, an
  alarm, pushes, backups and a restore, with every line logged; the stored document, requests, the
  devices, an event and a setting were nested as deep as is accepted (64 levels).
  [architecture.md](architecture.md) says which thread does what.
- A change is written twice: as a copy ahead, which a power cut cannot tear, and then to its place.
  On top comes what a file system writes for itself.
- The tick is every 95 ms. Threads that wait for events, answers or signals wait without a time-out.
- What the C library keeps of freed memory is bounded, and given back after each large document
  and once a minute.
END_OF_DOCUMENT
}

main()
{
    case ${1:-} in
    '') ;;
    -h | --help)
        usage
        return
        ;;
    *) die "Unknown argument '$1'; see scripts/footprint.sh --help" ;;
    esac
    ensure_packages target-test "$BUILD_ROOT"
    cd "$ROOT"
    scripts/sysroot.sh
    build debug app reliability_tests || die "The build failed."
    build "$TARGET" app bare_client stack_probe || die "The build for the device failed."
    measure
    document >"$DOCUMENT.new"
    mv "$DOCUMENT.new" "$DOCUMENT"
    say "${DOCUMENT#"$ROOT"/} is written"
}

main "$@"
