"""Files inside a board written by bootsim: sectioned INI files, plain files, packages.

Every path is given as seen inside the board and must lie in the board's own directories
(Board.own_path): symlinks of the board are followed as a program in the board would follow
them (`rm` removes a symlink itself), and nothing of the host is ever written or removed.
"""
import os
import posixpath
import stat
import tempfile

from .board import DESCRIPTION_PATH, MOUNTED_DIRS, OPTIONAL_MOUNTED_DIRS, remove_tree
from .description import parse_assignment, parse_name
from .errors import BootsimError

PACKAGE_DIR = "/opt/kytv8/home"
DEFAULT_BACKUP_DIR = "/opt/kytv8/backup"

# Board paths that `rm` refuses: the board's top directories and its description.
_PROTECTED = set(MOUNTED_DIRS) | set(OPTIONAL_MOUNTED_DIRS) | \
    {"/usr/local/conf", "/dev/shm", DESCRIPTION_PATH, posixpath.dirname(DESCRIPTION_PATH)}


# ----------------------------------------------------------------------------- writing


def write_file(host_path, data, mode=None):
    """Replace HOST_PATH (a path without symlinks) atomically by DATA (bytes).

    MODE (an int) sets the permissions; without it a replaced regular file keeps its mode and
    owner, and a new file gets 0644.
    """
    directory = os.path.dirname(host_path)
    try:
        old = os.lstat(host_path)
    except FileNotFoundError:
        old = None
    if old is not None and stat.S_ISDIR(old.st_mode):
        raise BootsimError(f"{host_path} is a directory")
    os.makedirs(directory, 0o755, exist_ok=True)
    fd, tmp = tempfile.mkstemp(prefix="." + os.path.basename(host_path) + ".", dir=directory)
    try:
        with os.fdopen(fd, "wb") as f:
            f.write(data)
        if mode is None:
            if old is not None and stat.S_ISREG(old.st_mode):
                os.chown(tmp, old.st_uid, old.st_gid)
                mode = stat.S_IMODE(old.st_mode)
            else:
                mode = 0o644
        os.chmod(tmp, mode)
        os.replace(tmp, host_path)
    except BaseException:
        try:
            os.unlink(tmp)
        except FileNotFoundError:
            pass
        raise


def parse_mode(text):
    try:
        mode = int(text, 8)
    except ValueError:
        mode = -1
    if not 0 <= mode <= 0o7777:
        raise BootsimError(f"--mode must be an octal mode such as 0644, not {text!r}", status=2)
    return mode


def put(board, board_path, data, mode=None):
    write_file(board.own_path(board_path, follow_last=True), data, mode)


def remove(board, board_path, recursive=False, force=False):
    """Remove one file, symlink or (with RECURSIVE) directory tree of the board."""
    host = board.own_path(board_path)
    inside = posixpath.normpath(board_path)
    if host in {board.host_path(p) for p in _PROTECTED} or inside in _PROTECTED:
        raise BootsimError(f"refusing to remove {board_path}: bootsim keeps it in every board",
                           status=2)
    try:
        st = os.lstat(host)
    except FileNotFoundError:
        if force:
            return
        raise BootsimError(f"{board_path} does not exist in the board") from None
    if stat.S_ISDIR(st.st_mode):
        if not recursive:
            raise BootsimError(f"{board_path} is a directory (use --recursive)")
        remove_tree(host)
    else:
        os.unlink(host)


# ----------------------------------------------------------------------------- INI files


def _section_of(line):
    text = line.strip()
    if text.startswith("[") and "]" in text:
        return text[1:text.index("]")].strip()
    return None


def _key_of(line):
    text = line.strip()
    if not text or text.startswith((";", "#")) or "=" not in text:
        return None
    return text.split("=", 1)[0].strip()


def edit_ini(text, assignments, unset=()):
    """TEXT of an INI file with ASSIGNMENTS ((section, key, value) in order) applied and the
    (section, key) pairs of UNSET removed. Every other line (other sections and keys, comments,
    blank lines) stays as it was. A key missing from its section is added after the section's
    last entry; a missing section is appended."""
    lines = text.split("\n")
    if lines and lines[-1] == "":
        lines.pop()

    def spans(section):
        """(first, end) line ranges of SECTION's bodies."""
        found = []
        current, start = None, 0
        for i, line in enumerate(lines):
            name = _section_of(line)
            if name is not None:
                if current == section:
                    found.append((start, i))
                current, start = name, i + 1
        if current == section:
            found.append((start, len(lines)))
        return found

    for section, key, value in assignments:
        entry = f"{key}={value}"
        bodies = spans(section)
        replaced = False
        for first, end in bodies:
            for i in range(first, end):
                if _key_of(lines[i]) == key:
                    lines[i] = entry
                    replaced = True
        if replaced:
            continue
        if bodies:
            first, end = bodies[0]
            at = first
            for i in range(first, end):
                if lines[i].strip():
                    at = i + 1
            lines.insert(at, entry)
        else:
            if lines and lines[-1].strip():
                lines.append("")
            lines += [f"[{section}]", entry]
    for section, key in unset:
        for first, end in reversed(spans(section)):
            for i in reversed(range(first, end)):
                if _key_of(lines[i]) == key:
                    del lines[i]
    return "\n".join(lines) + "\n" if lines else ""


def update_ini(board, board_path, assignments, unset=()):
    """Create or update the INI file BOARD_PATH of the board ("SECTION.KEY=VALUE" strings)."""
    parsed = [parse_assignment(a) for a in assignments]
    removed = [parse_name(n) for n in unset]
    host = board.own_path(board_path, follow_last=True)
    try:
        with open(host, encoding="utf-8", errors="surrogateescape", newline="") as f:
            text = f.read()
    except FileNotFoundError:
        text = ""
    except IsADirectoryError:
        raise BootsimError(f"{board_path} is a directory") from None
    new = edit_ini(text, parsed, removed)
    write_file(host, new.encode("utf-8", errors="surrogateescape"))


# ----------------------------------------------------------------------------- packages


def package(board, host_file, backup=False, name=None):
    """Copy HOST_FILE into the board's package directory; returns its path inside the board.

    The directory is /opt/kytv8/home, or with BACKUP the board's [support] backup_dir."""
    if backup:
        directory = board.description().get("support", "backup_dir", "").strip() or \
            DEFAULT_BACKUP_DIR
    else:
        directory = PACKAGE_DIR
    if not directory.startswith("/"):
        raise BootsimError(f"[support] backup_dir must be an absolute path, not {directory!r}")
    name = name if name is not None else os.path.basename(os.path.normpath(host_file))
    if not name or "/" in name or name in (".", ".."):
        raise BootsimError(f"invalid package name {name!r}", status=2)
    try:
        with open(host_file, "rb") as f:
            data = f.read()
    except OSError as e:
        raise BootsimError(f"cannot read {host_file}: {e.strerror}") from e
    host_dir = board.own_path(directory, follow_last=True)
    os.makedirs(host_dir, 0o755, exist_ok=True)
    board_path = posixpath.join(posixpath.normpath(directory), name)
    write_file(board.own_path(board_path, follow_last=True), data, 0o644)
    return board_path


def read_host_file(path):
    try:
        with open(path, "rb") as f:
            return f.read()
    except OSError as e:
        raise BootsimError(f"cannot read {path}: {e.strerror}") from e

