"""A Debian system of its own below a folder, made of the files of packages that this machine has installed.

It holds the essential packages and what a package to be tested depends on, with dpkg's records of them, so that
dpkg itself judges whether the dependencies are complete, and programs find no library that is not declared. Needs
the right to chroot; nothing is mounted, and this machine's own records are only read.
"""

import glob
import os
import re
import shutil
import subprocess

# Left out for speed: no program needs them.
SKIPPED = ("/usr/share/doc/", "/usr/share/man/", "/usr/share/locale/", "/usr/share/i18n/", "/usr/lib/python3/")
MERGED = ("bin", "sbin", "lib", "lib32", "lib64", "libx32")
INFO = "/var/lib/dpkg/info"


def _installed():
    """Name -> (whether essential, dependencies as lists of alternatives), of all installed packages."""
    form = "${db:Status-Status}\t${Package}\t${Essential}\t${Pre-Depends}, ${Depends}\n"
    lines = subprocess.run(["dpkg-query", "-W", "-f", form], check=True, capture_output=True, text=True).stdout
    packages = {}
    for line in lines.splitlines():
        status, name, essential, depends = line.split("\t")
        if status == "installed":
            packages[name] = (essential == "yes", parse_depends(depends))
    return packages


def parse_depends(text):
    """"a (>= 1) | b, c" -> [["a", "b"], ["c"]]."""
    groups = [[re.match(r"[a-z0-9.+-]*", name.strip())[0] for name in group.split("|")] for group in text.split(",")]
    return [names for names in groups if names != [""]]


def closure(depends):
    """The essential packages and those that `depends` asks for, with all that these need."""
    packages = _installed()
    wanted = [name for name, (essential, _) in packages.items() if essential]
    pending = [[name] for name in wanted] + depends
    chosen = set()
    while pending:
        name = next((name for name in pending.pop() if name in packages), None)
        # A virtual package, or one that is missing here: dpkg will say so if it matters.
        if name is not None and name not in chosen:
            chosen.add(name)
            pending += packages[name][1]
    return sorted(chosen)


def _copy(path, root):
    target = root + path
    if os.path.islink(path):
        if not os.path.lexists(target):
            os.symlink(os.readlink(path), target)
    elif os.path.isdir(path):
        os.makedirs(target, exist_ok=True)
        os.chmod(target, os.stat(path).st_mode & 0o7777)
    elif os.path.isfile(path):
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copy2(path, target)


def _copy_records(names, root):
    admin = root + "/var/lib/dpkg"
    for folder in ("info", "updates", "triggers", "alternatives", "parts"):
        os.makedirs(f"{admin}/{folder}", exist_ok=True)
    shutil.copy2(f"{INFO}/format", f"{admin}/info/format")
    for file in os.listdir(INFO):
        if file.rsplit(".", 1)[0].split(":")[0] in names:
            shutil.copy2(f"{INFO}/{file}", f"{admin}/info/{file}")
    with open("/var/lib/dpkg/status", encoding="utf-8") as file:
        stanzas = file.read().split("\n\n")
    kept = [text for text in stanzas if (found := re.match(r"Package: (\S+)", text)) and found[1] in names]
    with open(f"{admin}/status", "w", encoding="utf-8") as file:
        file.write("\n\n".join(kept) + "\n\n")


def make(root, depends):
    names = closure(depends)
    for folder in MERGED:
        os.makedirs(f"{root}/usr/{folder}", exist_ok=True)
        os.symlink(f"usr/{folder}", f"{root}/{folder}")
    for folder in ("dev", "etc", "proc", "run", "tmp", "var/log", "var/lib"):
        os.makedirs(f"{root}/{folder}", exist_ok=True)
    listed = subprocess.run(["dpkg-query", "-L", *names], check=True, capture_output=True, text=True).stdout
    for path in listed.splitlines():
        if path.startswith("/") and path != "/." and not path.startswith(SKIPPED):
            _copy(path, root)
    _copy_records(set(names), root)
    for name, master in (("passwd", "passwd.master"), ("group", "group.master")):
        shutil.copy("/usr/share/base-passwd/" + master, f"{root}/etc/{name}")
    for name in ("shadow", "gshadow"):
        open(f"{root}/etc/{name}", "w", encoding="utf-8").close()
    for path in glob.glob("/etc/pam.d/common-*"):  # made at installation, so no package lists them
        _copy(path, root)
    # Without the right to make the device, what is written there is kept, which does no harm for a moment.
    try:
        os.mknod(f"{root}/dev/null", 0o020666, os.makedev(1, 3))
        os.chmod(f"{root}/dev/null", 0o666)
    except PermissionError:
        open(f"{root}/dev/null", "w", encoding="utf-8").close()
    subprocess.run(["/sbin/ldconfig", "-r", root], check=True)
    return names
