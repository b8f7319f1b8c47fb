"""Mounts a board asks for in its description, beyond its own directories.

    [platform] hidden = NAME...     system libraries the board does not have: every file called
                                    NAME in the loader's library directories is absent
    [filesystems] PATH = ext4       a file system of its own at PATH (in a board directory),
                                    kept in an image in the board root

Both are made by the bootsim process itself, in a private mount namespace entered before bwrap
starts; bwrap binds the host's / and the board's directories recursively, so the board sees
them. The host never does, and they vanish with the last process of the namespace (a loop
device is released when its file system is). Making them needs the privileges of root.

Hidden libraries are whiteouts in a read-only overlay of each library directory that has one
of the names, mounted beside the board and bound over the directory by bwrap: the loader in the
board then finds nothing there, exactly as on a machine without the file, while bwrap and the
tools bootsim runs itself still load theirs.
"""
import os
import shutil
import subprocess

from . import namespace
from .errors import BootsimError

SETUP_FAILURE = 125

# Where the board keeps what bootsim needs for these mounts (inside the board root).
STATE_DIR = "/etc/bootsim"
WHITEOUT_DIR = STATE_DIR + "/hidden"
IMAGE_DIR = STATE_DIR + "/filesystems"

FILESYSTEM_TYPES = ("ext4",)
IMAGE_SIZE = 16 * 1024 * 1024

# Directories the loader searches by default, besides those of its cache.
DEFAULT_LIBRARY_DIRS = ("/lib", "/usr/lib", "/lib64", "/usr/lib64")

_entered = False


def hidden_names(desc):
    return desc.get("platform", "hidden", "").split()


def filesystems(desc):
    """[(board path, type)] of the description's [filesystems] section."""
    if "filesystems" not in desc.sections():
        return []
    return [(path, kind.strip()) for path, kind in desc.as_dict()["filesystems"].items()]


def needed(desc):
    return bool(hidden_names(desc) or filesystems(desc))


def prepare(board):
    """Make the mounts BOARD's description asks for (nothing when it asks for none).

    Returns the (host view, library directory) pairs bwrap must bind read-only.
    """
    desc = board.description()
    if not needed(desc):
        return []
    _enter_namespace()
    for path, kind in filesystems(desc):
        _mount_filesystem(board, path, kind)
    names = hidden_names(desc)
    return _hide_libraries(board, names) if names else []


def _enter_namespace():
    global _entered
    if _entered:
        return
    try:
        namespace.enter_private_mount_namespace()
    except OSError as e:
        raise BootsimError(f"the board's [platform] hidden and [filesystems] entries need a "
                           f"private mount namespace (run as root): {e}", SETUP_FAILURE) from e
    _entered = True


def mark_entered():
    """Tell prepare() that this process already has a private mount namespace."""
    global _entered
    _entered = True


# ----------------------------------------------------------------- hidden libraries

def library_dirs():
    """Real paths of the directories the loader searches: its cache's and its defaults."""
    dirs = []
    try:
        listing = subprocess.run([_tool("ldconfig"), "-p"], stdin=subprocess.DEVNULL,
                                 stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                 check=False).stdout.decode(errors="replace")
    except OSError:
        listing = ""
    candidates = [line.rpartition(" => ")[2].strip() for line in listing.splitlines()
                  if " => " in line]
    candidates = [os.path.dirname(path) for path in candidates] + list(DEFAULT_LIBRARY_DIRS)
    for directory in candidates:
        real = os.path.realpath(directory)
        if os.path.isdir(real) and real not in dirs:
            dirs.append(real)
    return dirs


def _hide_libraries(board, names):
    for name in names:
        if "/" in name or name in (".", ".."):
            raise BootsimError(f"[platform] hidden takes file names, not {name!r}", 2)
    scratch = board.host_path(WHITEOUT_DIR)
    os.makedirs(scratch, 0o755, exist_ok=True)
    namespace.mount_tmpfs(scratch)
    binds = []
    for index, directory in enumerate(library_dirs()):
        present = [name for name in names if os.path.lexists(os.path.join(directory, name))]
        if not present:
            continue
        layer = os.path.join(scratch, f"layer{index}")
        view = os.path.join(scratch, f"view{index}")
        os.mkdir(layer, 0o755)
        os.mkdir(view, 0o755)
        for name in present:
            # A character device 0:0 is overlayfs's mark for "deleted in this layer".
            os.mknod(os.path.join(layer, name), 0o600 | 0o020000, os.makedev(0, 0))
        _run(["mount", "-t", "overlay", "overlay", "-o", f"lowerdir={layer}:{directory}",
              view], f"cannot hide {', '.join(present)} in {directory}")
        binds.append((view, directory))
    return binds


# ----------------------------------------------------------------- file systems

def _mount_filesystem(board, path, kind):
    if kind not in FILESYSTEM_TYPES:
        raise BootsimError(f"[filesystems] {path}: type must be one of "
                           f"{', '.join(FILESYSTEM_TYPES)}, not {kind!r}", 2)
    target = board.host_path(path)
    if not target.startswith(board.root + "/") or target == board.host_path(STATE_DIR) or \
            target.startswith(board.host_path(STATE_DIR) + "/"):
        raise BootsimError(f"[filesystems] {path} must lie in one of the board's own "
                           f"directories", 2)
    os.makedirs(target, 0o755, exist_ok=True)
    image = _image(board, path)
    _run(["mount", "-t", kind, "-o", "loop,nosuid,nodev", image, target],
         f"cannot mount the {kind} file system of {path}")


def _image(board, path):
    """The image of PATH's file system, made (empty) on first use."""
    directory = board.host_path(IMAGE_DIR)
    os.makedirs(directory, 0o755, exist_ok=True)
    image = os.path.join(directory, path.strip("/").replace("/", "_") + ".img")
    if not os.path.exists(image):
        partial = image + ".new"
        with open(partial, "wb") as f:
            f.truncate(IMAGE_SIZE)
        _run(["mkfs.ext4", "-q", "-F", "-E", "root_owner=0:0", partial],
             f"cannot make the file system of {path}")
        os.replace(partial, image)
    return image


def _tool(name):
    """A system program, also when the caller's PATH lacks the administrator's directories."""
    return shutil.which(name) or shutil.which(name, path="/usr/sbin:/sbin:/usr/bin:/bin") or name


def _run(argv, what):
    argv = [_tool(argv[0])] + argv[1:]
    try:
        result = subprocess.run(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, check=False)
    except OSError as e:
        raise BootsimError(f"{what}: {argv[0]}: {e.strerror}", SETUP_FAILURE) from e
    if result.returncode != 0:
        detail = (result.stderr or result.stdout).decode(errors="replace").strip()
        raise BootsimError(f"{what}: {detail}", SETUP_FAILURE)
