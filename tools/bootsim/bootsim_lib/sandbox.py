"""The bwrap command line that runs a command inside a board.

The host's root stays visible (read-write) so built binaries, /usr and /work work as usual; the
board's directories are bound over /opt, /var/lib, /etc, /usr/local, /boot, /tmp and /dev, in
private mount, PID and network namespaces. Nothing is mounted on the host and no mount point is
created outside the board root: every destination is either an existing host directory or lies
inside a directory of the board.

Host paths inside replaced directories can be passed through into the board ("host paths"):
a command that lies in the host's /tmp (a build tree in /tmp/build-x, say) gets the top entry
of its path (/tmp/build-x) bound into the board at the same place, so that it and its libraries
run; more can be named with --host-path. The same holds for the build directory whose platform
libraries the board's /etc/bootsim/lib points to (see platform.py): commands in the board get
LD_LIBRARY_PATH=/etc/bootsim/lib prepended to the caller's value.

Lock files (/run/lock, also reached as /var/lock) are the board's own where the host has
/run/lock, so that the boot environment tools of one board never share a lock with the host's
or another board's.

A board whose description names [peers] gets their FTP servers in its network while a command
of `run` or `exec` runs: the peer roots are bound read-only onto mount points in the board's
/etc/bootsim/peers, and the command is started through the launcher that starts the servers
and then becomes the command (see peers.py).
"""
import os
import shutil
import stat

from . import mounts, peers, platform
from .board import MOUNTED_DIRS, OPTIONAL_MOUNTED_DIRS, _under
from .errors import BootsimError

ENV_ROOT = "BOOTSIM_ROOT"

# Board directories whose host counterparts are never passed through.
NO_HOST_PATHS = ("/etc", "/dev", "/run/lock")
# Commands found in these host directories get their top entry passed through automatically.
AUTO_HOST_PATH_DIRS = ("/tmp",)


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


def _replaced_dir(path):
    for directory in OPTIONAL_MOUNTED_DIRS + MOUNTED_DIRS:
        if _under(path, directory):
            return directory
    return None


def automatic_host_paths(command, build=None):
    """Host paths to pass through for COMMAND and the build directory BUILD: the top entries
    below /tmp of the program's path and of BUILD."""
    found = []
    program = command[0]
    if "/" not in program:
        program = shutil.which(program) or program
    paths = [program] if "/" in program else []
    if build is not None:
        paths.append(build)
    for path in paths:
        for candidate in (os.path.abspath(path), os.path.realpath(path)):
            for directory in AUTO_HOST_PATH_DIRS:
                if _under(candidate, directory) and candidate != directory:
                    top = directory + "/" + candidate[len(directory) + 1:].split("/", 1)[0]
                    if top not in found and os.path.lexists(top):
                        found.append(top)
    return found


def prepare_host_path(board, path, explicit):
    """Make the mount point of host PATH in the board; returns False when it cannot be bound.

    An explicit path that cannot be bound is an error; an automatic one is skipped quietly.
    """
    def refuse(reason):
        if explicit:
            raise BootsimError(f"cannot pass {path} through into the board: {reason}", 125)
        return False

    directory = _replaced_dir(path)
    if directory is None:
        return refuse("it is visible in the board anyway") if explicit else False
    if directory in NO_HOST_PATHS or path == directory:
        return refuse(f"the board's {directory} is its own")
    try:
        host = os.lstat(path)
    except OSError:
        return refuse("it does not exist on the host")
    if stat.S_ISLNK(host.st_mode):
        return refuse("it is a symlink")
    target = board.host_path(path)
    if not target.startswith(board.root + "/"):
        return refuse("it is visible in the board anyway") if explicit else False
    is_dir = stat.S_ISDIR(host.st_mode)
    try:
        existing = os.lstat(target)
    except FileNotFoundError:
        os.makedirs(os.path.dirname(target), 0o755, exist_ok=True)
        try:
            if is_dir:
                os.mkdir(target, 0o755)
            else:
                os.close(os.open(target, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o644))
        except FileExistsError:
            pass
        return True
    # An existing entry of the board is used as mount point only when it is an empty one.
    if is_dir and stat.S_ISDIR(existing.st_mode) and not os.listdir(target):
        return True
    if not is_dir and stat.S_ISREG(existing.st_mode) and existing.st_size == 0:
        return True
    return refuse(f"the board has its own {path}")


def inside_cwd(board, host_paths=(), cwd=None):
    """Working directory inside the board: the caller's, when it exists there, else /."""
    if cwd is None:
        try:
            cwd = os.getcwd()
        except OSError:
            return "/"
    if any(_under(cwd, p) for p in host_paths):
        return cwd
    if _replaced_dir(cwd):
        return cwd if os.path.isdir(board.host_path(cwd)) else "/"
    return cwd


def bwrap_args(board, command, cwd=None, extra_env=None, host_paths=(), build=None,
               refresh=True, runner=None, restored_signals=False):
    """Full argv (bwrap first) running COMMAND inside BOARD.

    HOST_PATHS: host paths in replaced directories to bind into the board (read-write).
    BUILD: the build directory; when given, it is passed through when it lies in the host's
    /tmp, and (unless REFRESH is false) the board's platform library directory is pointed at
    its libraries first.
    RUNNER: the bootsim command ("run" or "exec") starting COMMAND; with it, the FTP servers of
    the board's [peers] run in the board while COMMAND runs (see peers.py). RESTORED_SIGNALS:
    whether COMMAND's starter sets the signals Python ignores back to their defaults.
    """
    if not command:
        raise BootsimError("no command given", status=2)
    check_host_dirs()
    root = board.root
    if build is not None and refresh:
        board.refresh_libraries(build)
    served = peers.plan(board) if runner is not None else None
    launcher = []
    if served is not None and served.servers:
        launcher = peers.launcher_command(served.servers, [], runner, restored_signals)
    library_views = mounts.prepare(board)
    usr_local_binds = board.sync_usr_local()
    dev_binds = board.dev_binds()

    passed = []
    for path in host_paths:
        path = os.path.normpath(os.path.abspath(path))
        if path not in passed and prepare_host_path(board, path, explicit=True):
            passed.append(path)
    automatic = automatic_host_paths(command, build)
    if launcher:
        automatic += [p for p in automatic_host_paths([peers.LAUNCHER]) if p not in automatic]
    for path in automatic:
        if path not in passed and prepare_host_path(board, path, explicit=False):
            passed.append(path)

    args = [find_bwrap(), "--dev-bind", "/", "/"]
    for view, directory in library_views:
        args += ["--ro-bind", view, directory]
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
    for directory in OPTIONAL_MOUNTED_DIRS:
        if os.path.isdir(directory) and not os.path.islink(directory):
            board_dir = os.path.join(root, directory.lstrip("/"))
            if not os.path.isdir(board_dir):  # a board made before it had one
                os.makedirs(board_dir, 0o755, exist_ok=True)
                os.chmod(board_dir, 0o1777)
            args += ["--bind", board_dir, directory]
    # Host paths passed through, shortest first so that nested ones stay visible.
    for path in sorted(passed, key=len):
        args += ["--bind", path, path]
    # Peer roots, read-only, onto their mount points in the board's own /etc.
    for host, inside in (served.binds if launcher else []):
        args += ["--ro-bind", host, inside]
    args += ["--proc", "/proc",
             "--unshare-net", "--unshare-pid", "--die-with-parent",
             "--chdir", inside_cwd(board, passed, cwd),
             "--setenv", ENV_ROOT, root,
             "--setenv", "LD_LIBRARY_PATH",
             platform.library_path(os.environ.get("LD_LIBRARY_PATH"))]
    for key, value in (extra_env or {}).items():
        args += ["--setenv", key, value]
    args += ["--"] + launcher + list(command)
    return args
