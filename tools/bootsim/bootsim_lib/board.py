"""Layout of a board root: creating, checking, mapping paths into it and removing it.

A board root ROOT holds the directories that the sandbox mounts over the host's:

    ROOT/opt            -> /opt
    ROOT/var/lib        -> /var/lib
    ROOT/etc            -> /etc          (a full copy of the host's /etc, made with cp -a)
    ROOT/usr/local      -> /usr/local    (conf/ is the board's; the other entries are mount
                                          points for the host's /usr/local entries, read-only)
    ROOT/boot           -> /boot
    ROOT/dev            -> /dev          (shm/, fd/std* symlinks, mount points for device nodes)
    ROOT/tmp            -> /tmp
    ROOT/run/lock       -> /run/lock     (when the host has it: lock files, /var/lock)

and the board description in ROOT/etc/bootsim/board.ini. A new board also gets /opt/kytv8/home
and /opt/kytv8/backup, the marker /opt/MMB on main boards, the boot environment
(/etc/fw_env.config, /boot/bootsim/uboot.env), the platform library directory
/etc/bootsim/lib and an empty /dev/module_crl (the CRL the board hands to its kernel).
"""
import os
import posixpath
import stat
import subprocess

from . import platform, ubootenv
from .description import DEFAULT_KIND, MAIN_BOARD_KINDS, Description
from .errors import BootsimError

DESCRIPTION_PATH = "/etc/bootsim/board.ini"

# Board directories mounted over the host directory of the same name, in mount order.
MOUNTED_DIRS = ("/opt", "/var/lib", "/etc", "/usr/local", "/boot", "/tmp", "/dev")

# Board directory mounted over the host's only where the host has it.
OPTIONAL_MOUNTED_DIRS = ("/run/lock",)

# Directories created empty in a new board (etc is copied from the host).
EMPTY_DIRS = ("opt", "var/lib", "usr/local/conf", "boot", "dev/shm", "tmp", "run/lock",
              "opt/kytv8/home", "opt/kytv8/backup", "boot/bootsim")
# Directories every user may create files in (mode 1777).
STICKY_DIRS = ("tmp", "dev/shm", "run/lock")

# Marker file of a main board.
MAIN_BOARD_MARKER = "/opt/MMB"

# The kernel's CRL file: a plain file of the board (not a host device), empty in a new board.
# Made once at creation only, so that a board can also be without it.
MODULE_CRL = "/dev/module_crl"

# Host device nodes bound into the board's /dev; the optional ones are skipped when missing.
DEV_NODES = ("null", "zero", "full", "random", "urandom")
OPTIONAL_DEV_NODES = ("tty",)
DEV_SYMLINKS = {
    "fd": "/proc/self/fd",
    "stdin": "/proc/self/fd/0",
    "stdout": "/proc/self/fd/1",
    "stderr": "/proc/self/fd/2",
}

# Host entries of /usr/local that stay the board's own (not mirrored from the host).
USR_LOCAL_OWN = ("conf",)

# Account the library creates its files for.
SWM_USER = "swm"
SWM_ID = 2000
SWM_HOME = "/var/lib/swm"


def _check_board_path(board_path):
    if not isinstance(board_path, str) or not board_path.startswith("/"):
        raise BootsimError(f"board path must be absolute: {board_path!r}", status=2)
    path = posixpath.normpath(board_path)
    return "/" + path.lstrip("/")


def _under(path, prefix):
    return path == prefix or path.startswith(prefix.rstrip("/") + "/")


class Board:
    """A board root directory on the host."""

    def __init__(self, root):
        self.root = os.path.abspath(root)

    # ----------------------------------------------------------------- paths

    def host_path(self, board_path):
        """Host path of BOARD_PATH as seen inside the board (no symlinks are resolved).

        Paths outside the mounted directories (/usr, /work, ...) are the host's own; so are
        the device nodes in /dev and the mirrored entries of /usr/local.
        """
        path = _check_board_path(board_path)
        if _under(path, "/usr/local"):
            rest = path[len("/usr/local"):].lstrip("/")
            first = rest.split("/", 1)[0]
            if first and first not in USR_LOCAL_OWN and os.path.lexists(
                    os.path.join("/usr/local", first)):
                return path
            return os.path.join(self.root, "usr/local", rest) if rest else \
                os.path.join(self.root, "usr/local")
        if _under(path, "/dev"):
            rest = path[len("/dev"):].lstrip("/")
            if rest in DEV_NODES + OPTIONAL_DEV_NODES:
                return path
        for mounted in OPTIONAL_MOUNTED_DIRS + MOUNTED_DIRS:
            if _under(path, mounted):
                rest = path[len(mounted):].lstrip("/")
                base = os.path.join(self.root, mounted.lstrip("/"))
                return os.path.join(base, rest) if rest else base
        return path

    @property
    def description_path(self):
        return self.host_path(DESCRIPTION_PATH)

    # ----------------------------------------------------------------- checks

    def is_board(self):
        """True when ROOT is a real directory holding a board description (no symlinks)."""
        path = self.root
        for part in ("", "etc", "etc/bootsim"):
            try:
                st = os.lstat(os.path.join(path, part) if part else path)
            except OSError:
                return False
            if not stat.S_ISDIR(st.st_mode):
                return False
        try:
            st = os.lstat(os.path.join(path, "etc/bootsim/board.ini"))
        except OSError:
            return False
        return stat.S_ISREG(st.st_mode)

    def require_board(self):
        if not self.is_board():
            raise BootsimError(
                f"{self.root} is not a board root (no {DESCRIPTION_PATH.lstrip('/')} in it)")
        return self

    # ----------------------------------------------------------------- description

    def description(self):
        return Description.load(self.description_path)

    def save_description(self, desc):
        desc.save(self.description_path)

    # ----------------------------------------------------------------- creation

    def own_path(self, board_path, follow_last=False):
        """Host path of BOARD_PATH for bootsim to write, after resolving symlinks as the board.

        Symlinks of the board in the parent directories (and in the last component with
        FOLLOW_LAST) are followed the way a program in the board would follow them, so a link
        to /usr never leads to the host's files: the result must lie in the board's own
        directories (not a device node, not a mirrored /usr/local entry), else BootsimError.
        """
        remaining = list(reversed(_check_board_path(board_path).split("/")))
        resolved = "/"
        hops = 0
        while remaining:
            part = remaining.pop()
            if part in ("", "."):
                continue
            if part == "..":
                resolved = posixpath.dirname(resolved)
                continue
            candidate = posixpath.join(resolved, part)
            last = all(p in ("", ".") for p in remaining)
            host = self.host_path(candidate)
            if (follow_last or not last) and host.startswith(self.root + "/") and \
                    os.path.islink(host):
                hops += 1
                if hops > 40:
                    raise BootsimError(f"{board_path}: too many levels of symbolic links")
                target = os.readlink(host)
                if target.startswith("/"):
                    resolved = "/"
                remaining.extend(reversed(target.split("/")))
                continue
            resolved = candidate
        host = self.host_path(resolved)
        if not host.startswith(self.root + "/"):
            shown = board_path if resolved == _check_board_path(board_path) else \
                f"{board_path} (that is {resolved})"
            raise BootsimError(f"{shown} is not in the board's own directories", status=2)
        return host

    def create(self, desc, etc_source="/etc", kind=DEFAULT_KIND, build=None):
        """Create the board root; ROOT must not exist or be an empty directory.

        KIND decides the marker /opt/MMB (main boards); BUILD is the build directory whose
        platform libraries the board's /etc/bootsim/lib points to (default: platform.build_dir).
        """
        root = self.root
        made_root = False
        if os.path.lexists(root):
            if os.path.islink(root) or not os.path.isdir(root):
                raise BootsimError(f"{root} exists and is not a directory")
            if os.listdir(root):
                raise BootsimError(f"{root} exists and is not empty")
        else:
            parent = os.path.dirname(root)
            if not os.path.isdir(parent):
                raise BootsimError(f"parent directory {parent} does not exist")
            os.mkdir(root, 0o755)
            made_root = True
        try:
            self._populate(desc, etc_source, kind, build or platform.build_dir())
        except BaseException:
            _remove_contents_quietly(root)
            if made_root:
                try:
                    os.rmdir(root)
                except OSError:
                    pass
            raise
        return self

    def _populate(self, desc, etc_source, kind, build):
        root = self.root
        for rel in EMPTY_DIRS:
            os.makedirs(os.path.join(root, rel), 0o755, exist_ok=True)
        for rel in STICKY_DIRS:
            os.chmod(os.path.join(root, rel), 0o1777)
        result = subprocess.run(["cp", "-a", "--", etc_source, os.path.join(root, "etc")],
                                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                stderr=subprocess.PIPE)
        if result.returncode != 0:
            raise BootsimError(f"cannot copy {etc_source} into the board: "
                               f"{result.stderr.decode(errors='replace').strip()}")
        add_swm_account(os.path.join(root, "etc"))
        self._make_dev()
        os.close(os.open(self.host_path(MODULE_CRL), os.O_WRONLY | os.O_CREAT | os.O_EXCL,
                         0o644))
        self.sync_usr_local()
        self.save_description(desc)
        if kind in MAIN_BOARD_KINDS:
            os.close(os.open(self.host_path(MAIN_BOARD_MARKER),
                             os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o644))
        ubootenv.write_files(self)
        platform.refresh(self, desc, build)

    def refresh_libraries(self, build):
        """Point /etc/bootsim/lib at BUILD's platform libraries chosen by the description."""
        return platform.refresh(self, self.description(), build)

    def _make_dev(self):
        dev = os.path.join(self.root, "dev")
        for name, target in DEV_SYMLINKS.items():
            if not os.path.lexists(os.path.join(dev, name)):
                try:
                    os.symlink(target, os.path.join(dev, name))
                except FileExistsError:
                    pass
        # Empty files as mount points for the host's device nodes.
        for name in DEV_NODES + OPTIONAL_DEV_NODES:
            path = os.path.join(dev, name)
            if not os.path.lexists(path):
                try:
                    os.close(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o644))
                except FileExistsError:
                    pass

    def dev_binds(self):
        """(host node, board node) pairs of device nodes to bind; fails on a missing one."""
        binds = []
        for name in DEV_NODES + OPTIONAL_DEV_NODES:
            host = "/dev/" + name
            if not os.path.exists(host):
                if name in OPTIONAL_DEV_NODES:
                    continue
                raise BootsimError(f"host device {host} is missing")
            binds.append((host, host))
        self._make_dev()
        return binds

    def sync_usr_local(self):
        """Mirror the host's /usr/local entries into ROOT/usr/local.

        Directories and files get an empty directory / file of the same name (a mount point for a
        read-only bind of the host entry); symlinks are copied as symlinks. Returns the host paths
        to bind. The board's own entries (conf) are left alone.
        """
        board_dir = os.path.join(self.root, "usr/local")
        os.makedirs(board_dir, 0o755, exist_ok=True)
        binds = []
        try:
            entries = sorted(os.scandir("/usr/local"), key=lambda e: e.name)
        except OSError as e:
            raise BootsimError(f"cannot list the host's /usr/local: {e.strerror}") from e
        for entry in entries:
            if entry.name in USR_LOCAL_OWN:
                continue
            target = os.path.join(board_dir, entry.name)
            try:
                if entry.is_symlink():
                    link = os.readlink(entry.path)
                    if os.path.islink(target) and os.readlink(target) == link:
                        continue
                    _replace_mount_point(target)
                    os.symlink(link, target)
                elif entry.is_dir(follow_symlinks=False):
                    if not (os.path.isdir(target) and not os.path.islink(target)):
                        _replace_mount_point(target)
                        os.mkdir(target, 0o755)
                    binds.append(entry.path)
                elif entry.is_file(follow_symlinks=False):
                    if not (os.path.isfile(target) and not os.path.islink(target)):
                        _replace_mount_point(target)
                        os.close(os.open(target, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o644))
                    binds.append(entry.path)
                # sockets, fifos and device nodes in /usr/local are not mirrored
            except FileExistsError:
                # another command starting in the same board made it first
                if not entry.is_symlink():
                    binds.append(entry.path)
        return binds

    # ----------------------------------------------------------------- removal

    def remove(self):
        """Delete the board root. Refuses non-boards and anything mounted inside it."""
        self.require_board()
        mounted = mounts_under(self.root)
        if mounted:
            raise BootsimError(f"refusing to remove {self.root}: {mounted[0]} is mounted")
        remove_tree(self.root)


def _replace_mount_point(path):
    """Remove an outdated mirror entry of ROOT/usr/local (only empty ones, never content)."""
    if not os.path.lexists(path):
        return
    if os.path.islink(path):
        os.unlink(path)
    elif os.path.isdir(path):
        try:
            os.rmdir(path)
        except OSError as e:
            raise BootsimError(f"{path} is in the way of the host's /usr/local entry "
                               f"and is not empty") from e
    elif os.path.getsize(path) == 0:
        os.unlink(path)
    else:
        raise BootsimError(f"{path} is in the way of the host's /usr/local entry")


def add_swm_account(etc):
    """Add the swm user and group (id 2000) to a board's /etc unless they are there."""
    _add_entry(os.path.join(etc, "passwd"), SWM_USER,
               f"{SWM_USER}:x:{SWM_ID}:{SWM_ID}:software management:{SWM_HOME}:"
               "/usr/sbin/nologin")
    _add_entry(os.path.join(etc, "group"), SWM_USER, f"{SWM_USER}:x:{SWM_ID}:")
    _add_entry(os.path.join(etc, "shadow"), SWM_USER, f"{SWM_USER}:!:::::::", optional=True)
    _add_entry(os.path.join(etc, "gshadow"), SWM_USER, f"{SWM_USER}:!::", optional=True)


def _add_entry(path, name, line, optional=False):
    if os.path.islink(path):
        raise BootsimError(f"{path} is a symlink; not changing it")
    try:
        with open(path, "rb") as f:
            data = f.read()
    except FileNotFoundError:
        if optional:
            return
        data = b""
    for existing in data.splitlines():
        if existing.split(b":", 1)[0] == name.encode():
            return
    with open(path, "ab") as f:
        if data and not data.endswith(b"\n"):
            f.write(b"\n")
        f.write(line.encode() + b"\n")


def mounts_under(path):
    """Mount points (in this mount namespace) at or below PATH."""
    path = os.path.realpath(path)
    found = []
    try:
        with open("/proc/self/mountinfo", encoding="utf-8", errors="surrogateescape") as f:
            for line in f:
                fields = line.split()
                if len(fields) < 5:
                    continue
                point = _unescape_mountinfo(fields[4])
                if _under(point, path):
                    found.append(point)
    except OSError:
        pass
    return found


def _unescape_mountinfo(text):
    out = []
    i = 0
    while i < len(text):
        if text[i] == "\\" and i + 3 < len(text) and text[i + 1:i + 4].isdigit():
            out.append(chr(int(text[i + 1:i + 4], 8)))
            i += 4
        else:
            out.append(text[i])
            i += 1
    return "".join(out)


def remove_tree(path):
    """Delete PATH recursively without following symlinks and without leaving its file system."""
    st = os.lstat(path)
    if not stat.S_ISDIR(st.st_mode):
        os.unlink(path)
        return
    fd = os.open(path, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW)
    try:
        _remove_contents(fd, st.st_dev, path)
    finally:
        os.close(fd)
    os.rmdir(path)


def _remove_contents(dir_fd, dev, where):
    with os.scandir(dir_fd) as it:
        names = [e.name for e in it]
    for name in names:
        st = os.stat(name, dir_fd=dir_fd, follow_symlinks=False)
        if stat.S_ISDIR(st.st_mode):
            if st.st_dev != dev:
                raise BootsimError(f"{where}/{name} is on another file system; not removing it")
            fd = os.open(name, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW, dir_fd=dir_fd)
            try:
                _remove_contents(fd, dev, f"{where}/{name}")
            finally:
                os.close(fd)
            os.rmdir(name, dir_fd=dir_fd)
        else:
            # files, symlinks, leftover device-node mount points, sockets, fifos
            os.unlink(name, dir_fd=dir_fd)


def _remove_contents_quietly(root):
    """Undo a failed creation (stays on ROOT's file system)."""
    try:
        fd = os.open(root, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW)
        try:
            _remove_contents(fd, os.fstat(fd).st_dev, root)
        finally:
            os.close(fd)
    except (OSError, BootsimError):
        pass
