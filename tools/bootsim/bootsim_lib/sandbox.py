"""The bwrap command line that runs a command inside a board.

The host's root stays visible (read-write) so built binaries, /usr and /work work as usual; the
board's directories are bound over /opt, /var/lib, /etc, /usr/local, /boot, /tmp and /dev, in
private mount, PID and network namespaces. Nothing is mounted on the host and no mount point is
created outside the board root: every destination is either an existing host directory or lies
inside a directory of the board.
"""
import os
import shutil

from .board import MOUNTED_DIRS, _under
from .errors import BootsimError

ENV_ROOT = "BOOTSIM_ROOT"


def find_bwrap():
    path = os.environ.get("BOOTSIM_BWRAP") or shutil.which("bwrap") or "/usr/bin/bwrap"
    if not os.access(path, os.X_OK):
        raise BootsimError("bwrap not found (Debian package bubblewrap)", status=125)
    return path


def check_host_dirs():
    """Every directory the board is mounted over must exist on the host."""
    for directory in MOUNTED_DIRS:
        if not os.path.isdir(directory):
            raise BootsimError(
                f"the host has no directory {directory}: bootsim only mounts the board over "
                f"existing host directories and never creates mount points on the host",
                status=125)


def inside_cwd(board, cwd=None):
    """Working directory inside the board: the caller's, when it exists there, else /."""
    if cwd is None:
        try:
            cwd = os.getcwd()
        except OSError:
            return "/"
    if any(_under(cwd, d) for d in MOUNTED_DIRS):
        return cwd if os.path.isdir(board.host_path(cwd)) else "/"
    return cwd


def bwrap_args(board, command, cwd=None, extra_env=None):
    """Full argv (bwrap first) running COMMAND inside BOARD."""
    if not command:
        raise BootsimError("no command given", status=2)
    check_host_dirs()
    root = board.root
    usr_local_binds = board.sync_usr_local()
    dev_binds = board.dev_binds()

    args = [find_bwrap(), "--dev-bind", "/", "/"]
    for directory in ("/opt", "/var/lib", "/etc"):
        args += ["--bind", os.path.join(root, directory.lstrip("/")), directory]
    # /usr/local: the board's directory (own conf/), with the host's entries bound read-only
    # onto the mount points mirrored in it.
    args += ["--bind", os.path.join(root, "usr/local"), "/usr/local"]
    for host in usr_local_binds:
        args += ["--ro-bind", host, host]
    for directory in ("/boot", "/tmp", "/dev"):
        args += ["--bind", os.path.join(root, directory.lstrip("/")), directory]
    for host, inside in dev_binds:
        args += ["--dev-bind", host, inside]
    args += ["--proc", "/proc",
             "--unshare-net", "--unshare-pid", "--die-with-parent",
             "--chdir", inside_cwd(board, cwd),
             "--setenv", ENV_ROOT, root]
    for key, value in (extra_env or {}).items():
        args += ["--setenv", key, value]
    args += ["--"] + list(command)
    return args
