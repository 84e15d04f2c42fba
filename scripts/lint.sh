#!/usr/bin/env bash
# Looks for faults in the sources without running them; see --help.

set -euo pipefail

# shellcheck source=scripts/build.sh
source "$(dirname "${BASH_SOURCE[0]}")/build.sh"
# shellcheck source=scripts/setup.sh
source "$ROOT/scripts/setup.sh"

FOLDERS=(src sim platform)
PROGRAMS=(app home-sim push-helper) # all that is compiled of them
STATUS=0

usage()
{
    cat <<'END'
Usage: scripts/lint.sh [--verbose] [--help]

Installs what is missing (Debian 12; root or sudo) and looks for faults in the sources of the
daemon, the simulated home and the platform:

  clang-tidy   beside a compilation with clang; .clang-tidy says for what. Like a build it looks
               only at what has changed since it was clean
  cppcheck     warnings, performance and portability

Where one of them is wrong, the source says so, and why:

  // NOLINT(the-check): why             or NOLINTNEXTLINE above; NOLINTBEGIN and NOLINTEND
  // cppcheck-suppress theCheck ; why   on the line above

  --verbose    show every command

Exit status: 0 nothing was found, 1 something was, or a reason is missing.

APP_BUILD_DIR    where to build instead of build/
APP_SKIP_SETUP   when set, no package is looked for or installed
END
}

run_clang_tidy()
{
    build lint -k 0 "${PROGRAMS[@]}"
}

# Without the headers of the system: it knows the libraries by heart, and takes seconds.
run_cppcheck()
{
    attend cppcheck --quiet -j "$(nproc)" --std=c++20 --library=posix \
        --enable=warning,performance,portability --inline-suppr --error-exitcode=1 --template=gcc \
        -I src -I platform/ovrinlog "${FOLDERS[@]}"
}

# False when a source is silenced without saying where it is wrong to listen, and why; names it.
check_reasons()
{
    local given='NOLINT(NEXTLINE|BEGIN|END)?\([a-z0-9,.-]+\): [^ ]|cppcheck-suppress [A-Za-z]+ ; [^ ]'
    ! grep -rnE --include='*.cpp' --include='*.h' 'NOLINT|cppcheck-suppress' "${FOLDERS[@]}" |
        grep -vE "$given" >&2
}

found()
{
    complain "$1 found something"
    STATUS=1
}

main()
{
    case ${1:-} in
    '') ;;
    --verbose) BUILD_VERBOSE=1 ;;
    -h | --help)
        usage
        return
        ;;
    *) die "Unknown argument '$1'; see scripts/lint.sh --help" ;;
    esac
    ensure_packages test "$BUILD_ROOT"
    cd "$ROOT"
    run_clang_tidy || found "clang-tidy"
    run_cppcheck || found "cppcheck"
    check_reasons || found "the search for silenced checks without a reason"
    return "$STATUS"
}

main "$@"
