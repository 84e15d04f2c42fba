#!/usr/bin/env bash
# The Debian 12 packages this tree is built, run and tested with, and their installation.
#
# Sourced by ./run and ./test, which call `ensure_packages`; started by itself it installs everything.

# shellcheck source=scripts/messages.sh
source "$(dirname "${BASH_SOURCE[0]}")/messages.sh"

# One row a package: its name, the door that needs it, and what for. A door needs the rows of each word
# in its name (`target-test` those of `target` and of `test`), and all need those of `run`. GoogleTest
# stands under `run` because both doors share one build folder, and configuring it looks for every
# library.
PACKAGE_TABLE='
g++                  run   compiler
cmake                run   build
ninja-build          run   build
ccache               run   second builds in seconds
pkgconf              run   finds the libraries
libdbus-1-dev        run   daemon: the bus
libjansson-dev       run   daemon: JSON
libapr1-dev          run   daemon: memory pools
libsdbus-c++-dev     run   simulated home: the bus
libsystemd-dev       run   simulated home: what sdbus-c++ stands on
libcli11-dev         run   simulated home: command line
libfmt-dev           run   simulated home: texts
nlohmann-json3-dev   run   simulated home: JSON
libgtest-dev         run   tests
libgmock-dev         run   tests
dbus-daemon          run   private bus
psmisc               run   killall, which the daemon calls when it crashes
python3              test  results computed a second time, by the programs of tests/oracles
binutils             test  what a program is hardened with
systemd              test  what the service is exposed to
dbus-tests           test  floods on the private bus
dbus-bin             test  the packaged minute of the schedules
tzdata               test  time zones with their clock changes
clang                test  analysis of the locks
libclang-rt-dev      test  fuzzing
libbenchmark-dev     test  benchmarks
clang-format         test  format of the sources
clang-tidy           test  faults in the sources
cppcheck             test  faults in the sources
shellcheck           test  check of the scripts
g++-mipsel-linux-gnu target   compiler for the device
qemu-user            target   runs its programs on this machine
dpkg-dev             package  Debian packages
debhelper            package  Debian packages
lintian              package  check of the packages
scdoc                package  manual pages
mandoc               package  check of the manual pages
mmdebstrap           package  a Debian to try the package in
piuparts             package  a look at what is left there of the package
'

# packages_for DOOR: the names of its packages, one a line.
packages_for()
{
    local name door
    while read -r name door _; do
        [[ -n $name && ($door == run || $1 == *"$door"*) ]] && echo "$name"
    done <<<"$PACKAGE_TABLE"
    return 0
}

# missing_packages NAME...: those that are not installed, one a line.
missing_packages()
{
    local name status format
    local -A installed=()
    # shellcheck disable=SC2016  # dpkg-query's own variables
    format='${Package} ${db:Status-Abbrev}\n'
    while read -r name status; do
        [[ $status == ?i ]] && installed[$name]=1
    done < <(dpkg-query -W -f "$format" "$@" 2>/dev/null)
    for name in "$@"; do
        [[ -n ${installed[$name]:-} ]] || echo "$name"
    done
}

# root_shell COMMAND ARGUMENT...: a line of shell with its arguments, as root. It takes off the mark
# of the script's children: an installation that is cut short ends in its own time.
root_shell()
{
    local command=(env -u APP_SCRIPT_MARK DEBIAN_FRONTEND=noninteractive LC_ALL=C
        sh -c "$1" sh "${@:2}")
    if ((EUID == 0)); then
        "${command[@]}"
    else
        sudo "${command[@]}"
    fi
}

# Ends with a message unless root's rights can be had; asks for the password where one is needed.
need_root()
{
    local by_hand="Install by hand, as root: apt-get install $*"
    ((EUID == 0)) && return
    command -v sudo >/dev/null ||
        die "Packages are missing, and this is neither root nor is there sudo. $by_hand"
    sudo -n true 2>/dev/null && return
    [[ -t 0 ]] || die "Packages are missing, and sudo wants a password but there is no terminal. $by_hand"
    sudo -v || die "Packages are missing, and sudo refused. $by_hand"
}

# Shows the status lines of apt-get: "dlstatus" while it downloads, "pmstatus" while it installs.
show_apt_progress()
{
    local kind percent label
    while IFS=: read -r kind _ percent _; do
        case $kind in
        dlstatus) label="downloading packages" ;;
        pmstatus) label="installing packages" ;;
        *) continue ;;
        esac
        progress "$label" "${percent%%.*}" 100 " percent"
    done
    progress_end
}

# Brings the package lists up to date. apt-get waits for the lock of an installation by itself, but
# not for the lock of the lists.
update_package_lists()
{
    local log=$1 try
    for ((try = 0; try < 30; try++)); do
        root_shell 'exec apt-get -q -o APT::Update::Error-Mode=any update' </dev/null >"$log" 2>&1 && return
        grep -q 'Could not get lock' "$log" || break
        ((try)) || say "waiting for another apt-get"
        sleep 10
    done
    # Old lists may still do; if not, the installation says what is wrong.
    say "apt-get update failed, going on with the lists that are there ($log)"
}

# dpkg first completes what an earlier, interrupted installation may have left. The root shell's
# descriptor 3 leads to the progress, everything else to the log.
install_packages()
{
    local log=$1
    shift
    # shellcheck disable=SC2016  # expanded by the shell that gets it
    root_shell '[ -z "$(dpkg --audit)" ] || dpkg --configure -a >&2
        exec apt-get -q -y --no-install-recommends -o DPkg::Lock::Timeout=300 \
            -o APT::Status-Fd=3 install "$@" 3>&1 1>&2' "$@" </dev/null 2>>"$log" |
        show_apt_progress
}

# ensure_packages DOOR FOLDER: installs what the door needs and the machine lacks; the log goes to the
# folder. PACKAGES_INSTALLED says afterwards whether anything was.
ensure_packages()
{
    local log=$2/setup.log system=this wanted missing
    PACKAGES_INSTALLED=0
    [[ -z ${APP_SKIP_SETUP:-} ]] || return 0
    mapfile -t wanted < <(packages_for "$1")
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        die "This needs Debian 12 (no apt-get here). Elsewhere install the like of these and set" \
            "APP_SKIP_SETUP=1: ${wanted[*]}"
    fi
    mapfile -t missing < <(missing_packages "${wanted[@]}")
    ((${#missing[@]})) || return 0

    # shellcheck source=/dev/null
    system=$(. /etc/os-release 2>/dev/null && echo "${ID:-} ${VERSION_ID:-}")
    [[ $system == "debian 12" ]] || say "made for Debian 12, trying on '$system'"
    need_root "${missing[@]}"
    say "installing what is missing: ${missing[*]}"
    mkdir -p "$2"
    update_package_lists "$log"
    if ! install_packages "$log" "${missing[@]}"; then
        tail -n 20 "$log" >&2
        die "The packages could not be installed; the whole log is $log"
    fi
    mapfile -t missing < <(missing_packages "${wanted[@]}")
    ((${#missing[@]} == 0)) || die "Still missing after the installation: ${missing[*]} ($log)"
    # shellcheck disable=SC2034  # read by the build
    PACKAGES_INSTALLED=1
}

setup_help()
{
    cat <<END
Usage: scripts/setup.sh [run|test|target-test|package|target-package]

Installs the Debian 12 packages that are missing for ./run, ./test, ./test --target, or for
scripts/package.sh, for this machine alone or for the device as well. Without an argument: those of
./run and ./test. Needs root or sudo. All of them do this by themselves.

Packages:
$PACKAGE_TABLE
END
}

setup_main()
{
    set -euo pipefail
    local root
    root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
    case ${1:-test} in
    run | test | target-test | package | target-package) ensure_packages "${1:-test}" "${APP_BUILD_DIR:-$root/build}" ;;
    -h | --help)
        setup_help
        return
        ;;
    *) die "Unknown argument '$1'; see scripts/setup.sh --help" ;;
    esac
    say "all packages are there"
}

if [[ ${BASH_SOURCE[0]} == "$0" ]]; then
    setup_main "$@"
fi
