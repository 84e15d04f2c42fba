# shellcheck shell=bash
# Children that never outlive their script, whatever ends it and wherever they hide.
#
# Each script marks its environment; what is started from it inherits the mark, in whatever session
# or process group it puts itself. At the end everything that bears the mark is ended.

[[ -z ${PROCESSES_SH:-} ]] || return 0
PROCESSES_SH=1

APP_SCRIPT_MARK="$$.$RANDOM$RANDOM"
export APP_SCRIPT_MARK

# The ids of all living processes that bear this script's mark, one a line.
marked_processes()
{
    local file
    while IFS= read -r file; do
        file=${file#/proc/}
        echo "${file%/environ}"
    done < <(env -u APP_SCRIPT_MARK \
        grep -lszx "APP_SCRIPT_MARK=$APP_SCRIPT_MARK" /proc/[0-9]*/environ 2>/dev/null)
}

CHILDREN_SECONDS=3 # how long they may take to end when they are asked

# Asks all marked processes to end, and when they take too long makes them.
end_children()
{
    local pids signal try
    for signal in TERM KILL; do
        for ((try = 0; try < CHILDREN_SECONDS * 20; try++)); do
            mapfile -t pids < <(marked_processes)
            ((${#pids[@]})) || return 0
            # Once more each second: a shell may have started another one meanwhile.
            ((try % 20)) || kill "-$signal" "${pids[@]}" 2>/dev/null
            sleep 0.05
        done
    done
}

# start COMMAND...: starts it in the background with the default answer to Ctrl-C (which the shell
# takes away from background commands) and with this script's standard input (likewise). The kernel
# ends it if this script is killed outright. Descriptor 9 stays behind: it may hold a script's lock.
start()
{
    env --default-signal=INT,QUIT setpriv --pdeathsig TERM -- "$@" <&0 9>&- &
}

# attend COMMAND...: runs it and waits so that a signal to this script is acted upon at once.
attend()
{
    start "$@"
    wait $!
}

# attend_through FILTER COMMAND...: the same, with the output passing through a function.
attend_through()
{
    local filter=$1
    shift
    (
        set -o pipefail
        env --default-signal=INT,QUIT "$@" 2>&1 | "$filter"
    ) &
    wait $!
}

# on_exit FUNCTION: has it called once, after the children have ended, however the script ends.
on_exit()
{
    EXIT_FUNCTION=$1
}

EXIT_FUNCTION=:
leave()
{
    local status=$?
    trap '' INT TERM HUP
    ((status != 130)) || [[ ! -t 2 ]] || echo >&2 # below the ^C
    end_children
    "$EXIT_FUNCTION"
    exit "$status"
}
trap leave EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP
