# shellcheck shell=bash
# What the scripts say: one-line messages and progress on standard error, so that standard output
# holds results alone.

[[ -z ${MESSAGES_SH:-} ]] || return 0
MESSAGES_SH=1

# styled FD CODE TEXT: the text in a style when the descriptor is a terminal, else as it is.
styled()
{
    if [[ -t $1 && -z ${NO_COLOR:-} && ${TERM:-dumb} != dumb ]]; then
        printf '\033[%sm%s\033[0m' "$2" "$3"
    else
        printf '%s' "$3"
    fi
}

say()
{
    printf '%s %s\n' "$(styled 2 '1;34' '::')" "$*" >&2
}

complain()
{
    printf '%s %s\n' "$(styled 2 '1;31' 'error:')" "$*" >&2
}

die()
{
    complain "$*"
    exit 1
}

# progress LABEL DONE TOTAL [MORE]: on a terminal one line that is written over; elsewhere a line
# for each new quarter of the way.
PROGRESS_MARK=
progress()
{
    local text="$1 $2/$3${4:-}" mark
    if [[ -t 2 && ${TERM:-dumb} != dumb ]]; then
        printf '\r\033[K%s %s' "$(styled 2 '1;34' '::')" "$text" >&2
        PROGRESS_MARK=open
        return
    fi
    mark="$1 $(($3 ? $2 * 4 / $3 : 4))"
    [[ $mark == "$PROGRESS_MARK" ]] || say "$text"
    PROGRESS_MARK=$mark
}

# Takes the line of the progress away, before anything else is written.
progress_end()
{
    [[ $PROGRESS_MARK != open ]] || printf '\r\033[K' >&2
    PROGRESS_MARK=
}
