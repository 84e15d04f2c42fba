#!/usr/bin/env bash
# Builds the Debian packages and looks at them; see --help.

set -euo pipefail

# shellcheck source=scripts/build.sh
source "$(dirname "${BASH_SOURCE[0]}")/build.sh"
# shellcheck source=scripts/setup.sh
source "$ROOT/scripts/setup.sh"

PACKAGES=$BUILD_ROOT/package
SYSROOT=$BUILD_ROOT/mipsel-sysroot
SYSROOT_PACKAGES=$BUILD_ROOT/package/mipsel-dpkg
ARCHIVE=${APP_ARCHIVE:-http://deb.debian.org/debian}

usage()
{
    cat <<'END_OF_USAGE'
Usage: scripts/package.sh [--try] [amd64|mipsel]... [--help]

Installs what is missing (Debian 12; root or sudo) and builds the Debian package for amd64 and
mipsel, or for those that are named, from a copy of the tree. Looks at each with lintian, at its
program with scripts/hardening.sh and at its manual pages with mandoc; whatever one of them
complains about fails. The packages are then in build/package.

  --try   takes this machine's package through a life in a Debian 12 of its own: installed, run,
          upgraded, removed, purged; and has piuparts look for what is left of it, where mounts
          are allowed. Needs root

APP_ARCHIVE      where --try gets its Debian (default http://deb.debian.org/debian)
APP_BUILD_DIR    where to build instead of build/
APP_SKIP_SETUP   when set, no package is looked for or installed
END_OF_USAGE
}

# quietly LOG COMMAND...: what it writes goes to the log, whose end is shown when it fails.
quietly()
{
    local log=$1
    shift
    attend "$@" >"$log" 2>&1 && return
    tail -n 30 "$log" >&2
    die "Failed: $1; the whole log is $log"
}

tree_version()
{
    sed -nE 's/^project\(app VERSION ([0-9.]+) .*/\1/p' "$1/CMakeLists.txt"
}

# copy_tree FOLDER: the tree as a Debian source, without what was built in it.
copy_tree()
{
    rm -rf "$1"
    mkdir -p "$1"
    tar -C "$ROOT" --exclude=./build --exclude=./.git --exclude=./.cache -c . | tar -C "$1" -x
    cp -r "$1/packaging/debian" "$1/debian"
}

# One version: CMakeLists.txt has it, and the newest change of the package is of it.
check_version()
{
    local program package
    program=$(tree_version "$1")
    package=$(dpkg-parsechangelog -l "$1/debian/changelog" -S Version)
    [[ -n $program && $program == "$package" ]] ||
        die "CMakeLists.txt says version '$program', packaging/debian/changelog '$package'"
}

# Which package each library of the sysroot comes from, and from which version on: what dpkg would
# know had they been installed.
describe_sysroot()
{
    local name version file control info=$SYSROOT_PACKAGES/info
    rm -rf "$SYSROOT_PACKAGES"
    mkdir -p "$info" "$SYSROOT_PACKAGES/updates"
    echo 1 >"$info/format"
    printf '%s\n' "$(dpkg --print-architecture)" mipsel >"$SYSROOT_PACKAGES/arch"
    while read -r name version _; do
        file=("$BUILD_ROOT/mipsel-apt/debs/${name}_${version/:/%3a}_"*.deb)
        {
            echo "Package: $name"
            echo "Status: install ok installed"
            dpkg-deb -f "${file[0]}" | grep -v '^Package:'
            echo
        } >>"$SYSROOT_PACKAGES/status"
        dpkg-deb --fsys-tarfile "${file[0]}" | tar -t |
            sed -e "s|^\.|$SYSROOT|" -e 's|/$||' >"$info/$name:mipsel.list"
        for control in symbols shlibs; do
            dpkg-deb -I "${file[0]}" "$control" >"$info/$name:mipsel.$control" 2>/dev/null ||
                rm "$info/$name:mipsel.$control"
        done
    done < <(sed '/^#/d' "$ROOT/cmake/mipsel-sysroot.txt")
}

# build_package ARCHITECTURE FOLDER: from the copy of the tree in FOLDER/tree; the packages come
# beside it.
build_package()
{
    local architecture=$1 folder=$2 command=(dpkg-buildpackage -b -us -uc)
    check_version "$folder/tree"
    if [[ $architecture != "$(dpkg --print-architecture)" ]]; then
        # The libraries to build with are the sysroot's: those of two machines cannot always be
        # installed side by side.
        "$ROOT/scripts/sysroot.sh"
        describe_sysroot
        export APP_SYSROOT=$SYSROOT APP_SYSROOT_PACKAGES=$SYSROOT_PACKAGES
        command+=(-d -a "$architecture")
    fi
    say "building the package ($architecture)"
    quietly "$folder/build.log" env -C "$folder/tree" \
        CCACHE_DIR="${CCACHE_DIR:-$HOME/.cache/ccache}" "${command[@]}"
}

check_package()
{
    local folder=$1 built=$1/tree/debian/app version libraries runner=() page complaints
    say "checking the package ($2)"
    attend lintian --allow-root --fail-on error,warning --tag-display-limit 0 "$folder"/app_*.changes ||
        die "lintian complains. What is meant to be so goes into packaging/debian, with the reason"
    "$ROOT/scripts/hardening.sh" "$built/usr/sbin/app" || die "Not hardened"
    [[ $2 == "$(dpkg --print-architecture)" ]] || runner=(qemu-mipsel -L "$SYSROOT")
    libraries=("$built"/usr/lib/*/app)
    version=$(LD_LIBRARY_PATH=${libraries[0]} "${runner[@]}" "$built/usr/sbin/app" --version) ||
        die "The program does not run"
    [[ $version == "app $(tree_version "$ROOT")" ]] || die "The program says that it is '$version'"
    for page in "$built"/usr/share/man/man*/*.gz; do
        complaints=$(zcat "$page" | mandoc -T lint) || true
        [[ -z $complaints ]] || die "${page##*/} is not clean:"$'\n'"$complaints"
    done
}

make_package()
{
    local folder=$PACKAGES/$1
    rm -rf "$folder"
    copy_tree "$folder/tree"
    build_package "$1" "$folder"
    check_package "$folder" "$1"
    mv "$folder"/*.deb "$PACKAGES"
}

# inside COMMAND...: runs it in the tried system.
inside()
{
    chroot "$HOME_OF_TRIAL" "${THERE[@]}" "$@"
}

# serve_there NAME COMMAND...: starts it there; what it writes is in try/NAME.log.
serve_there()
{
    local name=$1
    shift
    start chroot "$HOME_OF_TRIAL" "${THERE[@]}" "$@" >"$PACKAGES/try/$name.log" 2>&1
}

# await WHAT COMMAND...: until it succeeds.
await()
{
    local what=$1 try
    shift
    for ((try = 0; try < 300; try++)); do
        ! "$@" >/dev/null 2>&1 || return 0
        sleep 0.1
    done
    die "--try: $what"
}

# ask_bus METHOD ARGUMENT...: the answer of the bus there.
ask_bus()
{
    inside dbus-send --system --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        "org.freedesktop.DBus.$1" "${@:2}"
}

# hold WHAT COMMAND...: the command succeeds in the tried system.
hold()
{
    local what=$1
    shift
    inside "$@" >/dev/null || die "--try: $what"
}

# Without triggers, as it is when the service is started: one of them has the bus read policies, later.
install_there()
{
    cp "$1" "$HOME_OF_TRIAL/package.deb"
    {
        inside apt-get -q -y --no-install-recommends satisfy "$(dpkg-deb -f "$1" Depends)" &&
            inside dpkg --no-triggers -i /package.deb
    } >>"$TRIAL_LOG" 2>&1 || die "--try: the installation failed; see $TRIAL_LOG"
}

# What must be there while the package is installed.
check_installed()
{
    local path
    for path in /usr/sbin/app /lib/systemd/system/app.service /usr/share/dbus-1/system.d/com.ovrinbus.app.conf \
        /usr/share/dbus-1/interfaces/com.ovrinbus.app.xml /usr/share/doc/app/README.Debian \
        /usr/share/doc/app/examples/appSetup.json \
        /etc/systemd/system/multi-user.target.wants/app.service \
        /etc/systemd/system/app.service.wants/app-minute.timer; do
        hold "no $path" test -e "$path"
    done
    for path in man8/app.8 man5/appSetup.json.5; do
        [[ $(zcat "$HOME_OF_TRIAL/usr/share/man/$path.gz" | mandoc -T html) == *SEE_ALSO* ]] ||
            die "--try: no page $path"
    done
    hold "no user ovrin" getent passwd ovrin
    hold "no group ovrin" getent group ovrin
    [[ $(inside stat -c '%a %U %G' /var/lib/ovrin) == "700 ovrin ovrin" ]] ||
        die "--try: /var/lib/ovrin is not for its owner alone"
    [[ $(inside app --version) == "app $1" ]] || die "--try: the program is not of version $1"
}

# What the units start, as their user: the daemon gets its name on a bus that ran before it was
# installed, and the minute reaches it.
check_running()
{
    local minute daemon as_ovrin=(setpriv --reuid=ovrin --regid=ovrin --init-groups)
    serve_there daemon "${as_ovrin[@]}" env APP_DATA_DIR=/var/lib/ovrin OVRIN_LOG_LEVEL=3 /usr/sbin/app
    daemon=$!
    await "the daemon does not get its name" ask_bus GetNameOwner string:com.ovrinbus.app
    minute=$(inside sed -n 's/^ExecStart=//p' /lib/systemd/system/app-minute.service)
    hold "the minute fails" "${as_ovrin[@]}" sh -c "${minute//\$\$/\$}"
    await "the minute does not reach the daemon" grep 'schedule signal' "$PACKAGES/try/daemon.log"
    kill "$daemon"
    wait "$daemon" || die "--try: the daemon ended with $?"
}

# Another library takes the place of the package's, as docs/integrating.md has it.
check_other_library()
{
    local folder
    folder=/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
    inside dpkg-divert --local --rename --divert "$folder/app/libovrinlog.so.package" \
        --add "$folder/app/libovrinlog.so" >>"$TRIAL_LOG"
    ! inside app --version >>"$TRIAL_LOG" 2>&1 || die "--try: the library is found elsewhere"
    inside cp "$folder/app/libovrinlog.so.package" "$folder/libovrinlog.so"
    hold "a library of the device's own is not found" app --version
}

# What an installation leaves behind, file by file. It mounts things in the tried system, which not
# every container allows; those of a namespace go away with it, however it ends.
look_for_leftovers()
{
    if ! unshare --mount mount -t proc proc "$HOME_OF_TRIAL/proc" 2>>"$TRIAL_LOG"; then
        say "nothing can be mounted here: piuparts is left out"
        return
    fi
    say "having piuparts look for leftovers"
    quietly "$PACKAGES/try/piuparts.log" unshare --mount piuparts --existing-chroot="$HOME_OF_TRIAL" --no-upgrade-test \
        --distribution=bookworm --mirror="$ARCHIVE main" --tmpdir="$PACKAGES/try" "$1"
}

take_through_a_life()
{
    local native version bus folder=$PACKAGES/try
    native=$(dpkg --print-architecture)
    version=$(tree_version "$ROOT")
    HOME_OF_TRIAL=$PACKAGES/try/system
    TRIAL_LOG=$PACKAGES/try/try.log
    # The mark stays: what is started there ends with this script.
    THERE=(env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive LC_ALL=C
        APP_SCRIPT_MARK="$APP_SCRIPT_MARK")
    rm -rf "$folder"
    copy_tree "$folder/tree"
    sed -i "s/^\(project(app VERSION $version\) /\1.1 /" "$folder/tree/CMakeLists.txt"
    sed -i "1s/($version)/($version.1)/" "$folder/tree/debian/changelog"
    build_package "$native" "$folder"

    say "making a Debian to try the package in"
    quietly "$folder/debootstrap.log" mmdebstrap --variant=minbase bookworm "$HOME_OF_TRIAL" "$ARCHIVE"
    look_for_leftovers "$PACKAGES/app_${version}_$native.deb"
    printf '#!/bin/sh\nexit 101\n' >"$HOME_OF_TRIAL/usr/sbin/policy-rc.d" # nothing is started there
    chmod +x "$HOME_OF_TRIAL/usr/sbin/policy-rc.d"
    inside apt-get -q update >"$TRIAL_LOG" 2>&1 || die "--try: no package lists; see $TRIAL_LOG"

    inside apt-get -q -y --no-install-recommends install dbus dbus-bin >>"$TRIAL_LOG" 2>&1 ||
        die "--try: no bus; see $TRIAL_LOG"
    inside mkdir -p /run/dbus
    serve_there bus dbus-daemon --system --nofork --nopidfile
    bus=$!
    await "the bus does not start" ask_bus GetId

    say "installing"
    install_there "$PACKAGES/app_${version}_$native.deb"
    check_installed "$version"
    check_running
    inside touch /var/lib/ovrin/marker
    say "upgrading"
    install_there "$folder/app_${version}.1_$native.deb"
    check_installed "$version.1"
    hold "an upgrade loses the configuration" test -e /var/lib/ovrin/marker
    check_other_library
    say "removing"
    inside apt-get -q -y remove app >>"$TRIAL_LOG" 2>&1 || die "--try: not removed; see $TRIAL_LOG"
    hold "the program stays" test ! -e /usr/sbin/app
    hold "the configuration is lost" test -e /var/lib/ovrin/marker
    say "purging"
    inside apt-get -q -y purge app >>"$TRIAL_LOG" 2>&1 || die "--try: not purged; see $TRIAL_LOG"
    hold "the configuration stays after a purge" test ! -e /var/lib/ovrin
    hold "the service stays enabled after a purge" \
        sh -c '! find /etc/systemd /var/lib/systemd -name "app*" | grep .'
    kill "$bus"
    rm -rf "$HOME_OF_TRIAL"
    say "installed, run, upgraded, removed and purged"
}

main()
{
    local try='' door architecture architectures=()
    while (($#)); do
        case $1 in
        amd64 | mipsel) architectures+=("$1") ;;
        --try) try=1 ;;
        -h | --help)
            usage
            return
            ;;
        *) die "Unknown argument '$1'; see scripts/package.sh --help" ;;
        esac
        shift
    done
    ((${#architectures[@]})) || architectures=(amd64 mipsel)
    [[ -z $try || $EUID == 0 ]] || die "--try needs root"
    door=package
    [[ " ${architectures[*]} " != *" mipsel "* ]] || door=target-package
    ensure_packages "$door" "$BUILD_ROOT"
    mkdir -p "$PACKAGES"
    rm -f "$PACKAGES"/*.deb
    for architecture in "${architectures[@]}"; do
        make_package "$architecture"
    done
    [[ -z $try ]] || take_through_a_life
    say "the packages are in ${PACKAGES#"$ROOT"/}:"
    (cd "$PACKAGES" && ls -- *.deb)
}

main "$@"
