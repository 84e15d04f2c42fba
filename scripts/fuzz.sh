#!/usr/bin/env bash
# Feeds whatever reads a text from outside with inputs that search their own way; see --help.

set -euo pipefail

# shellcheck source=scripts/build.sh
source "$(dirname "${BASH_SOURCE[0]}")/build.sh"
# shellcheck source=scripts/setup.sh
source "$ROOT/scripts/setup.sh"

WORK=$BUILD_ROOT/fuzz-work # what each target found interesting
FINDINGS=$BUILD_ROOT/fuzz-findings
LONGEST_INPUT=4096

usage()
{
    cat <<END
Usage: scripts/fuzz.sh [TARGET...] [--seconds N | --runs N] [--list] [--verbose] [--help]
       scripts/fuzz.sh TARGET --replay FILE
       scripts/fuzz.sh TARGET --minimise FILE

Installs what is missing (Debian 12; root or sudo), builds the fuzz targets with clang,
AddressSanitizer and UndefinedBehaviorSanitizer, and runs one after the other until its time is up
or it has found something.

  TARGET           one of these (default: all)
$(list_targets | sed 's/^/                     /')
  --seconds N      how long for each target (default 60)
  --runs N         how many inputs for each target
  --list           show the names of the targets
  --replay FILE    run one input, with the whole stack of each allocation
  --minimise FILE  look for a smaller input that fails, for a minute
  --verbose        show every command of the build
  --help           this text

The seeds are fuzz/corpus/TARGET. What is found interesting is kept in $(shown "$WORK"), from where
the next run goes on; the repository stays as it is. Inputs that fail go to $(shown "$FINDINGS").

Exit status: 0 nothing found, 1 something found or failed, 2 wrong usage.

APP_BUILD_DIR    where to build instead of build/
APP_SKIP_SETUP   when set, no package is looked for or installed
END
}

# A path as a reader of this tree would write it.
shown()
{
    printf '%s' "${1#"$ROOT"/}"
}

wrong_usage()
{
    complain "$*; see scripts/fuzz.sh --help"
    exit 2
}

list_targets()
{
    local file
    for file in "$ROOT"/fuzz/targets/*.cpp; do
        basename "$file" .cpp
    done
}

is_target()
{
    [[ $1 =~ ^[a-z_]+$ && -f $ROOT/fuzz/targets/$1.cpp ]]
}

read_arguments()
{
    TARGETS=() LIMIT=-max_total_time=60 MODE=search INPUT=''
    while (($#)); do
        case $1 in
        -h | --help)
            usage
            exit 0
            ;;
        --list)
            list_targets
            exit 0
            ;;
        --verbose) BUILD_VERBOSE=1 ;;
        --seconds | --runs)
            [[ ${2:-} =~ ^[1-9][0-9]*$ ]] || wrong_usage "$1 wants a number"
            LIMIT=-max_total_time=$2
            [[ $1 == --seconds ]] || LIMIT=-runs=$2
            shift
            ;;
        --replay | --minimise)
            [[ -f ${2:-} ]] || wrong_usage "$1 wants a file"
            MODE=${1#--} INPUT=$(realpath -- "$2")
            shift
            ;;
        *)
            is_target "$1" || wrong_usage "'$1' is no target"
            TARGETS+=("$1")
            ;;
        esac
        shift
    done
    ((${#TARGETS[@]})) || mapfile -t TARGETS < <(list_targets)
    [[ $MODE == search || ${#TARGETS[@]} == 1 ]] || wrong_usage "--$MODE wants one target"
}

# Files are written and read by the thousand: in memory, where that can be.
make_scratch()
{
    local parent=/dev/shm
    [[ -d $parent && -w $parent ]] || parent=${TMPDIR:-/tmp}
    SCRATCH=$(mktemp -d "$parent/app-fuzz-XXXXXX")
    export TMPDIR=$SCRATCH
}

# shellcheck disable=SC2317  # called at the exit
remove_scratch()
{
    [[ -z $SCRATCH ]] || rm -rf "$SCRATCH"
}

# The stacks of a finding want names. What clang recommends for that is large; binutils will do.
prepare_sanitizers()
{
    export UBSAN_OPTIONS=print_stacktrace=1:${UBSAN_OPTIONS:-}
    command -v llvm-symbolizer >/dev/null ||
        export ASAN_OPTIONS=external_symbolizer_path=/usr/bin/addr2line:${ASAN_OPTIONS:-}
}

# run_target TARGET ARGUMENT...: at fixed addresses, among which this compiler's sanitizers always
# find room for their own.
run_target()
{
    local target=$1 fixed=()
    shift
    ! setarch -R true 2>/dev/null || fixed=(setarch -R)
    attend "${fixed[@]}" "$BUILD_ROOT/fuzz/fuzz/$target" "$@"
}

# search TARGET: false when it has found something.
search()
{
    local target=$1 log=$FINDINGS/$1.log
    mkdir -p "$WORK/$target" "$FINDINGS"
    if run_target "$target" "$LIMIT" -max_len=$LONGEST_INPUT -timeout=20 -print_final_stats=1 \
        -dict="$ROOT/fuzz/json.dict" -artifact_prefix="$FINDINGS/$target-" \
        "$WORK/$target" "$ROOT/fuzz/corpus/$target" >"$log" 2>&1; then
        say "$target: nothing found in $(sed -n 's/^stat::number_of_executed_units: //p' "$log") runs"
        rm -f "$log"
        return
    fi
    grep -v -e '^#' -e '^INFO' "$log" >&2 || true
    complain "$target: something found; the input is named above, the whole log is $(shown "$log")"
    return 1
}

search_all()
{
    local target found=0
    for target in "${TARGETS[@]}"; do
        search "$target" || found=1
    done
    return $found
}

replay()
{
    export ASAN_OPTIONS=malloc_context_size=30:fast_unwind_on_malloc=0:quarantine_size_mb=256:${ASAN_OPTIONS:-}
    run_target "${TARGETS[0]}" "$INPUT"
}

minimise()
{
    local result
    result=$FINDINGS/${TARGETS[0]}-small-$(basename "$INPUT")
    mkdir -p "$FINDINGS"
    rm -f "$result"
    run_target "${TARGETS[0]}" -minimize_crash=1 -max_total_time=60 -exact_artifact_path="$result" "$INPUT" \
        >"$result.log" 2>&1 || true
    [[ -s $result ]] || die "It does not fail, or nothing smaller does; the log is $(shown "$result.log")"
    say "$(wc -c <"$INPUT") bytes came down to $(wc -c <"$result"): $(shown "$result")"
}

main()
{
    SCRATCH=
    read_arguments "$@"
    on_exit remove_scratch
    ensure_packages test "$BUILD_ROOT"
    cd "$ROOT"
    build fuzz "${TARGETS[@]/#/fuzz/}" || die "The build failed."
    make_scratch
    prepare_sanitizers
    case $MODE in
    search) search_all ;;
    replay) replay ;;
    minimise) minimise ;;
    esac
}

main "$@"
