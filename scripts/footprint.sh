#!/usr/bin/env bash
# Measures what the daemon takes of the device; see --help.

set -euo pipefail

# shellcheck source=scripts/build.sh
source "$(dirname "${BASH_SOURCE[0]}")/build.sh"
# shellcheck source=scripts/setup.sh
source "$ROOT/scripts/setup.sh"

TARGET=mipsel
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

document()
{
    local size stack most
    size=$(stripped_bytes)
    stack=$(figure stack) most=$(figure deepest_document)
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
| stack of each thread but the first | $stack kB | |
| most that any thread has used of it: at rest | $(figure at_rest) kB | |
| ... and after events that ran macros and scenes | $(figure events_and_scenes) kB | |
| ... and after pushes and an alarm | $(figure pushes_and_alarms) kB | |
| ... and after backups and a restore | $(figure backup_and_restore) kB | |
| ... and after a document nested as deep as is accepted (64 levels) | $most kB, $((stack / most)) times less than there is | at most half |
| wake-ups at rest | $(figure wake_ups) in 10 s | the tick's 105 |
| written for one change of a document of $(figure document) bytes | $(figure by_a_change) bytes | |
| written for an event | nothing | nothing |

- Private memory is what no other process shares: pages that were written to (\`Private_Dirty\`). The
  emulator may copy the text of the program into memory, up to $((size / 1024)) kB that stay on flash on a
  device. The bare program has joined the bus, has a memory pool and has read one JSON text.
- The first thread has the stack that its starter gives it (\`ulimit -s\`). The memory of a stack is
  taken page by page as it is used; what is set aside are addresses. The tick's, the
  highest, is looked at in \`./test\` only, where it takes no more than the others: the emulator joins other memory to it.
- A change is written twice: as a copy ahead, which a power cut cannot tear, and then to its place.
  On top comes what a file system writes for itself. Events, scenes, schedules and pushes write
  nothing; the document of running schedules is written when one starts or ends.
- The tick is every 95 ms. Threads that wait for events, answers or signals wait without a time-out.
- What the C library keeps of freed memory is bounded, and given back after each large document.
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
    build "$TARGET" app bare_client heap_probe || die "The build for the device failed."
    measure
    document >"$DOCUMENT.new"
    mv "$DOCUMENT.new" "$DOCUMENT"
    say "${DOCUMENT#"$ROOT"/} is written"
}

main "$@"
