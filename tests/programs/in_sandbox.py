#!/usr/bin/env python3
"""Runs a program as a systemd service would run, where there is no systemd.

    in_sandbox.py UNIT USER NAME=FOLDER... -- PROGRAM

What the unit file says of users, capabilities, files, address families and system calls holds for the
program, as the user that stands in for the unit's. It finds the folders as /mnt/NAME, and there it may
write. Its network is one of its own, whose only interface is called "eth2.2" and is down.

Status 77: this machine does not let it (no root, no namespaces, no libseccomp).
"""

import ctypes
import fcntl
import os
import pwd
import re
import signal
import socket
import struct
import subprocess
import sys

CANNOT = 77
libc = ctypes.CDLL(None, use_errno=True)

CLONE_NEWNS, CLONE_NEWNET = 0x00020000, 0x40000000
MS_RDONLY, MS_NOSUID, MS_NODEV, MS_NOEXEC, MS_REMOUNT, MS_BIND, MS_REC, MS_PRIVATE = (
    1, 2, 4, 8, 32, 4096, 16384, 1 << 18)
PR_SET_PDEATHSIG, PR_CAPBSET_DROP, PR_SET_NO_NEW_PRIVS = 1, 24, 38
SIOCSIFNAME = 0x8923


def checked(result, what):
    if result < 0:
        print(f"in_sandbox: {what}: {os.strerror(ctypes.get_errno())}", file=sys.stderr)
        sys.exit(CANNOT)


def mount(source, target, kind, flags, data=None):
    encoded = [None if text is None else str(text).encode() for text in (source, target, kind, data)]
    return libc.mount(encoded[0], encoded[1], encoded[2], ctypes.c_ulong(flags), encoded[3])


def read_unit(path):
    """The settings of the service; those that come several times as a list."""
    settings = {}
    section = ""
    for line in open(path, encoding="utf-8"):
        line = line.strip()
        if line.startswith("["):
            section = line
        elif section == "[Service]" and line and line[0] not in "#;":
            key, _, value = line.partition("=")
            settings.setdefault(key, []).append(value)
    return settings


def is_on(settings, key):
    return settings.get(key, ["no"])[-1] in ("yes", "true", "on", "1")


def enter_network():
    checked(libc.unshare(CLONE_NEWNET), "unshare")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        fcntl.ioctl(control, SIOCSIFNAME, struct.pack("16s16s", b"lo", b"eth2.2"))


def bind(source, target):
    os.makedirs(target)
    checked(mount(source, target, None, MS_BIND), f"bind {source}")


def library_folders(program):
    dynamic = subprocess.run(["readelf", "-dW", program], capture_output=True, text=True, check=True)
    found = re.search(r"\((?:RUNPATH|RPATH)\).*\[(.*)\]", dynamic.stdout)
    return [folder for folder in found.group(1).split(":") if folder] if found else []


def enter_files(settings, folders, program):
    """Everything is read-only but the folders; the program is where its user can get at it."""
    checked(libc.unshare(CLONE_NEWNS), "unshare")
    checked(mount(None, "/", None, MS_REC | MS_PRIVATE), "private mounts")
    checked(mount("tmpfs", "/mnt", "tmpfs", 0, "mode=755"), "tmpfs")
    for name, folder in folders.items():
        bind(folder, f"/mnt/{name}")
    bind(os.path.dirname(program), "/mnt/program")
    libraries = []
    for number, folder in enumerate(library_folders(program)):
        bind(folder, f"/mnt/library{number}")
        libraries.append(f"/mnt/library{number}")
    os.environ["LD_LIBRARY_PATH"] = ":".join(libraries)
    if is_on(settings, "PrivateTmp"):
        for path in ("/tmp", "/var/tmp"):
            checked(mount("tmpfs", path, "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777"), "tmpfs")
    if settings.get("ProtectProc") == ["invisible"]:
        mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC,
              "hidepid=invisible,subset=pid")
    if settings.get("ProtectSystem") == ["strict"]:
        kept = [f"/mnt/{name}" for name in folders] + ["/tmp", "/var/tmp", "/proc"]
        points = [line.split()[4] for line in open("/proc/self/mountinfo", encoding="utf-8")]
        for point in points:
            if not any(point == path or point.startswith(path + "/") for path in kept):
                mount(None, point, None, MS_REMOUNT | MS_BIND | MS_RDONLY)
    return "/mnt/program/" + os.path.basename(program)


def call_sets():
    """The sets of system calls that systemd knows by name."""
    listing = subprocess.run(["systemd-analyze", "--no-pager", "syscall-filter"], capture_output=True,
                             text=True, check=True)
    sets = {}
    for line in listing.stdout.splitlines():
        word = line.strip()
        if line.startswith("@"):
            members = sets.setdefault(word, [])
        elif line.startswith("    ") and word and not word.startswith("#"):
            members.append(word)
        elif line.startswith("#"):
            members = []
    return sets


def expand(sets, names):
    calls = set()
    for name in names:
        calls |= expand(sets, sets[name]) if name.startswith("@") else {name}
    return calls


class Compare(ctypes.Structure):
    _fields_ = [("arg", ctypes.c_uint), ("op", ctypes.c_int), ("a", ctypes.c_uint64),
                ("b", ctypes.c_uint64)]


EQUAL, MASKED_EQUAL = 4, 7
ALLOW, ERRNO = 0x7FFF0000, 0x00050000
EPERM, ENOSYS = 1, 38
PROT_WRITE, PROT_EXEC = 2, 4
FAMILIES = {"AF_UNIX": socket.AF_UNIX, "AF_INET": socket.AF_INET, "AF_INET6": socket.AF_INET6}


def conditions(settings):
    """The calls that are allowed with some arguments only."""
    result = {}
    if "RestrictAddressFamilies" in settings:
        result["socket"] = [Compare(0, EQUAL, FAMILIES[name], 0)
                            for name in settings["RestrictAddressFamilies"][-1].split()]
    if is_on(settings, "MemoryDenyWriteExecute"):
        both = PROT_WRITE | PROT_EXEC
        result["mmap"] = [Compare(2, MASKED_EQUAL, both, value) for value in (0, PROT_WRITE, PROT_EXEC)]
        result["mprotect"] = [Compare(2, MASKED_EQUAL, PROT_EXEC, 0)]
    return result


def call_filter(settings):
    seccomp = ctypes.CDLL("libseccomp.so.2")
    seccomp.seccomp_init.restype = ctypes.c_void_p
    seccomp.seccomp_rule_add_array.argtypes = [ctypes.c_void_p, ctypes.c_uint32, ctypes.c_int,
                                               ctypes.c_uint, ctypes.POINTER(Compare)]
    seccomp.seccomp_load.argtypes = [ctypes.c_void_p]
    sets = call_sets()
    allowed = set()
    for value in settings.get("SystemCallFilter", []):
        if value.startswith("~"):
            allowed -= expand(sets, value[1:].split())
        else:
            allowed |= expand(sets, value.split())
    context = seccomp.seccomp_init(ERRNO | EPERM)
    special = conditions(settings)
    for name in sorted(allowed):
        number = seccomp.seccomp_syscall_resolve_name(name.encode())
        if name == "clone3" and is_on(settings, "RestrictNamespaces"):
            seccomp.seccomp_rule_add_array(context, ERRNO | ENOSYS, number, 0, None)
        elif number >= 0:
            for compare in special.get(name, [None]):
                pointer = ctypes.byref(compare) if compare else None
                seccomp.seccomp_rule_add_array(context, ALLOW, number, 1 if compare else 0, pointer)
    return lambda: checked(seccomp.seccomp_load(context), "seccomp")


def become(settings, user):
    account = pwd.getpwnam(user)
    if settings.get("CapabilityBoundingSet") == [""]:
        for capability in range(64):
            libc.prctl(PR_CAPBSET_DROP, capability, 0, 0, 0)
    os.umask(int(settings.get("UMask", ["0022"])[-1], 8))
    os.setgroups([account.pw_gid])
    os.setresgid(account.pw_gid, account.pw_gid, account.pw_gid)
    os.setresuid(account.pw_uid, account.pw_uid, account.pw_uid)
    libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)
    if is_on(settings, "NoNewPrivileges"):
        libc.prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0)


def main():
    unit, user, *rest = sys.argv[1:]
    end = rest.index("--")
    folders = dict(word.split("=", 1) for word in rest[:end])
    program, *arguments = rest[end + 1:]
    settings = read_unit(unit)
    try:
        load_filter = call_filter(settings)
        enter_network()
        program = enter_files(settings, folders, program)
        become(settings, user)
    except (OSError, subprocess.SubprocessError) as error:
        print(f"in_sandbox: {error}", file=sys.stderr)
        sys.exit(CANNOT)
    load_filter()
    os.execv(program, [program, *arguments])


main()
