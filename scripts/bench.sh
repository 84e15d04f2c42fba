#!/usr/bin/env bash
# Measures what the configuration costs as it grows; see --help.

set -euo pipefail

# shellcheck source=scripts/build.sh
source "$(dirname "${BASH_SOURCE[0]}")/build.sh"
# shellcheck source=scripts/setup.sh
source "$ROOT/scripts/setup.sh"

usage()
{
    cat <<'END'
Usage: scripts/bench.sh [OPTION...] [--help]

Installs what is missing (Debian 12; root or sudo), builds the benchmarks as the daemon ships, and
runs them: reading, writing and saving 10 to 10,000 macros, scenes and schedules each, beside the
JSON library's own load and dump of the same text, and setting one element by its title.

An OPTION goes to the benchmarks, for example

  --benchmark_filter=parse      only those whose name contains this (a regular expression)
  --benchmark_repetitions=5     several times, with the mean and the deviation
  --benchmark_out=FILE          the numbers as JSON

Measure on a machine that does nothing else. Saving waits for the disk that holds TMPDIR (default
/tmp).

Exit status: 0, or 1 when 10,000 of something cost more than 15 times what 1,000 cost.

APP_BUILD_DIR    where to build instead of build/
APP_SKIP_SETUP   when set, no package is looked for or installed
END
}

main()
{
    case ${1:-} in
    -h | --help)
        usage
        return
        ;;
    esac
    ensure_packages test "$BUILD_ROOT"
    cd "$ROOT"
    build bench bench/config_bench || die "The build failed."
    attend "$BUILD_ROOT/bench/bench/config_bench" "$@"
}

main "$@"
